#include "Kor_PerfmonLogFile.h"

#include <windows.h>

#include <sys/timeb.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "Kor/thread_client.h"
#include "core/bounded_text.h"
#include "core/headline.h"
#include "core/message.h"
#include "core/monitor_line.h"
#include "core/safe_text.h"
#include "general_log.h"
#include "private_file.h"
#include "safe_lines.h"
#include "win/append_file.h"
#include "win/clock.h"
#include "win/console.h"
#include "win/format.h"
#include "win/guarded_call.h"
#include "win/kept_errors.h"
#include "win/owner_lock.h"
#include "win/path.h"
#include "win/process_end.h"
#include "win/text.h"

using kor::LEVEL_DEBUG;
using kor::LEVEL_WARNING;
using kor::core::BoundedText;
using kor::win::duplicate;
using kor::win::FormatResult;
using kor::win::KeptErrors;
using kor::win::OwnerLock;
using kor::win::OwnerLockGuard;

namespace
{
constexpr char SOURCE[] = "Kor_PerfmonLogFile";
constexpr int LINE_SIZE = 1024;
constexpr unsigned long EVENT_ID = 65534;
constexpr std::size_t TIMER_BUCKETS = 1024;
constexpr std::int64_t RUNNING = -1;

/// Holds a lock, where there was memory for one, for a scope.
class OptionalGuard
{
public:
    explicit OptionalGuard(OwnerLock* lock) noexcept
    {
        if (lock != nullptr)
            m_guard.emplace(*lock);
    }

    /// False when it gave up waiting.
    bool held() const noexcept { return !m_guard || m_guard->held(); }

private:
    std::optional<OwnerLockGuard> m_guard;
};

std::int64_t now() noexcept { return static_cast<std::int64_t>(Kor_PerfmonTimerData::GetTickCount()); }
} // namespace

// Kor_PerfmonTimerData --------------------------------------------------------------------------------
Kor_PerfmonTimerData::Kor_PerfmonTimerData() noexcept : m_start(0), m_stop(RUNNING), m_buffer(nullptr) {}

Kor_PerfmonTimerData::Kor_PerfmonTimerData(const Kor_PerfmonTimerData& other) noexcept = default;

Kor_PerfmonTimerData::~Kor_PerfmonTimerData() { std::free(m_buffer); }

bool Kor_PerfmonTimerData::operator==(const Kor_PerfmonTimerData& other) const noexcept { return this == &other; }

void Kor_PerfmonTimerData::Reset() noexcept
{
    m_start = now();
    m_stop = RUNNING;
}

void Kor_PerfmonTimerData::Stop() noexcept { m_stop = now(); }

std::int64_t Kor_PerfmonTimerData::GetTime() noexcept
{
    if (m_stop == RUNNING)
        Stop();
    return m_stop - m_start;
}

std::uint64_t Kor_PerfmonTimerData::GetTickCount() noexcept
{
    if (kor::win::process_is_ending())
        return kor::win::milliseconds_since_1970(); // the same, without asking for the zone
    constexpr std::uint64_t MS_PER_SECOND = 1000;
    struct __timeb64 time;
    ::_ftime64(&time);
    return static_cast<std::uint64_t>(time.time) * MS_PER_SECOND + time.millitm;
}

// Kor_PerfmonTimers -----------------------------------------------------------------------------------
/// Holds the set's lock for a scope.
class Kor_PerfmonTimers::Guard
{
public:
    explicit Guard(const Kor_PerfmonTimers& set) noexcept
        : m_guard(set.m_ended ? nullptr : set.m_lock), m_usable(!set.m_ended && m_guard.held())
    {
    }

    /// False when the set is gone, or another thread does not let go of it: a map that two threads change at
    /// once would bring the host down.
    bool usable() const noexcept { return m_usable; }

private:
    OptionalGuard m_guard;
    bool m_usable;
};

Kor_PerfmonTimers::Kor_PerfmonTimers()
    : Kor_ValHashMap(TIMER_BUCKETS), m_lock(new (std::nothrow) OwnerLock(OwnerLock::State::FRAGILE)), m_ended(false)
{
}

Kor_PerfmonTimers::~Kor_PerfmonTimers()
{
    delete m_lock;
    // Hosts that shut down in another order may still ask; volatile, or the store would be left out.
    *const_cast<volatile bool*>(&m_ended) = true;
}

/// The set has to be usable.
Kor_PerfmonTimerData* Kor_PerfmonTimers::find(const RWCString& name) const
{
    Kor_PerfmonTimerData* data = nullptr;
    findValue(name, data);
    return data;
}

int Kor_PerfmonTimers::AddTimer(RWCString name)
{
    try
    {
        const Guard guard(*this);
        if (!guard.usable())
            return 1;
        if (!contains(name))
        {
            auto data = std::make_unique<Kor_PerfmonTimerData>();
            data->Reset();
            insert(name, data.get());
            static_cast<void>(data.release()); // the set's now
            return 0;
        }
    }
    catch (const std::bad_alloc&)
    {
        KOR_GENERAL_LOG(
            SOURCE, "Kor_PerfmonTimers::AddTimer", LEVEL_WARNING, "No memory to add timer %s\n", name.data());
        return 1;
    }
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::AddTimer", LEVEL_WARNING, "test, %s Already exists\n", name.data());
    return 1;
}

int Kor_PerfmonTimers::Stop(RWCString name)
{
    {
        const Guard guard(*this);
        Kor_PerfmonTimerData* const data = guard.usable() ? find(name) : nullptr;
        if (data != nullptr)
        {
            data->Stop();
            return 1;
        }
    }
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::Stop", LEVEL_WARNING, "Timer to stop %s was not found\n", name.data());
    return 0;
}

int Kor_PerfmonTimers::GetTime(RWCString name, std::int64_t& time) { return get_time(name, time); }

int Kor_PerfmonTimers::get_time(const RWCString& name, std::int64_t& time)
{
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::GetTime", LEVEL_DEBUG, "GetTime\n");
    {
        const Guard guard(*this);
        Kor_PerfmonTimerData* const data = guard.usable() ? find(name) : nullptr;
        if (data != nullptr)
        {
            time = data->GetTime();
            return 1;
        }
    }
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::GetTime", LEVEL_WARNING, "Didn't find time of %s\n", name.data());
    return 0;
}

int Kor_PerfmonTimers::GetTimeAndReset(RWCString name, std::int64_t& time)
{
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::GetTimeAndReset", LEVEL_DEBUG, "GetTimeAndReset\n");
    {
        const Guard guard(*this);
        Kor_PerfmonTimerData* const data = guard.usable() ? find(name) : nullptr;
        if (data != nullptr)
        {
            time = data->GetTime();
            data->Reset();
            return 1;
        }
    }
    KOR_GENERAL_LOG(
        SOURCE, "Kor_PerfmonTimers::GetTimeAndReset", LEVEL_WARNING, "Didn't find time of %s\n", name.data());
    return 0;
}

int Kor_PerfmonTimers::GetTimeAndRemove(RWCString name, std::int64_t& time)
{
    const int result = get_time(name, time);
    remove_timer(name);
    return result;
}

Kor_PerfmonTimerData* Kor_PerfmonTimers::GetTimerData(RWCString name) { return get_data(name); }

Kor_PerfmonTimerData* Kor_PerfmonTimers::get_data(const RWCString& name)
{
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::GetTimerData", LEVEL_DEBUG, "GetTimerData\n");
    {
        const Guard guard(*this);
        Kor_PerfmonTimerData* const data = guard.usable() ? find(name) : nullptr;
        if (data != nullptr)
            return data;
    }
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonTimers::GetTimerData", LEVEL_WARNING, "Didn't find time of %s\n", name.data());
    return nullptr;
}

int Kor_PerfmonTimers::Remove(RWCString name) { return remove_timer(name); }

int Kor_PerfmonTimers::remove_timer(const RWCString& name)
{
    // Another thread may have been quicker since, so only the removal itself decides who deletes.
    std::unique_ptr<Kor_PerfmonTimerData> removed;
    if (get_data(name) != nullptr)
    {
        const Guard guard(*this);
        if (guard.usable())
        {
            removed.reset(find(name));
            remove(name);
        }
    }
    if (removed)
        return 1;
    KOR_GENERAL_LOG(
        SOURCE, "Kor_PerfmonTimers::Remove", LEVEL_WARNING, "Didn't find timer data %s for deletion\n", name.data());
    return 0;
}

RWCString Kor_PerfmonTimers::GenerateID(RWCString name, long n)
{
    name += RWCString(std::to_string(static_cast<int>(n)));
    return name;
}

// Life of the log -------------------------------------------------------------------------------------
const int Kor_PerfmonLogFile::MAX_LINE_LEN = LINE_SIZE;

// An event log knows three kinds; the general log counts level 5 as information.
Kor_PerfmonLogFile::Kor_PerfmonLogFile(int)
    : m_file(nullptr),
      m_event_source(nullptr), m_event_types{EVENTLOG_ERROR_TYPE,       EVENTLOG_ERROR_TYPE,      EVENTLOG_ERROR_TYPE,
                                             EVENTLOG_ERROR_TYPE,       EVENTLOG_WARNING_TYPE,    EVENTLOG_WARNING_TYPE,
                                             EVENTLOG_INFORMATION_TYPE, EVENTLOG_INFORMATION_TYPE},
      m_app_name(nullptr), m_pending(new (std::nothrow) RWTThreadLocal<Pending>(&leave_behind)),
      m_process_id(static_cast<std::int32_t>(::GetCurrentProcessId())), m_user_name{}, m_computer_name{},
      m_context(nullptr), m_append_file(new (std::nothrow) kor::win::AppendFile(m_file)),
      m_lock(new (std::nothrow) OwnerLock)
{
    DWORD size = sizeof m_user_name;
    ::GetUserNameA(m_user_name, &size);
    size = sizeof m_computer_name;
    ::GetComputerNameA(m_computer_name, &size);
}

Kor_PerfmonLogFile::~Kor_PerfmonLogFile()
{
    if (!is_closed() && prepare_banner())
    {
        LogNoHeadline("===== user %s on %s (%d) end session =====\n", m_user_name, m_computer_name, m_process_id);
        EndNoHeadLine();
    }
    // What other threads still have comes to those that have ended.
    delete std::exchange(m_pending, nullptr);
    if (m_event_source != nullptr)
        report_left_behind();
    Close();
    std::free(std::exchange(m_app_name, nullptr));
    std::free(std::exchange(m_context, nullptr));
    delete std::exchange(m_append_file, nullptr);
    delete std::exchange(m_lock, nullptr);
}

bool Kor_PerfmonLogFile::is_closed() const noexcept { return m_file == nullptr && m_event_source == nullptr; }

int Kor_PerfmonLogFile::Open(const char* appName) { return is_closed() ? Init(appName) : 0; }

int Kor_PerfmonLogFile::Open(std::FILE* stream, const char* appName)
{
    if (!is_closed())
        return 0;
    if (stream != nullptr && m_append_file != nullptr)
        m_append_file->adopt(stream);
    else if (stream != nullptr)
        std::fclose(stream);
    const int result = Init(appName);
    return stream == nullptr ? -1 : result;
}

int Kor_PerfmonLogFile::Open(const char* fileName, const char* appName)
{
    if (!is_closed())
        return 0;
    try
    {
        open_file(fileName == nullptr ? "" : fileName);
    }
    catch (const std::bad_alloc&) // as with any other file that cannot be opened
    {
    }
    return Init(appName);
}

void Kor_PerfmonLogFile::open_file(const char* name)
{
    auto folder = kor::win::configured_folder();
    if (!folder)
    {
        kor::win::print_line(stdout, "Kor_PerfmonLogFile - Warning - No configuration file\n");
        folder = L"log";
    }
    if (m_append_file != nullptr)
        m_append_file->open(kor::win::system_path(*folder + L"\\" + kor::private_file_name(name)));
}

int Kor_PerfmonLogFile::Init(const char* appName)
{
    {
        const OptionalGuard guard(m_lock);
        std::free(std::exchange(m_app_name, duplicate(appName == nullptr ? "" : appName)));
    }
    m_event_source = ::RegisterEventSourceA(nullptr, m_app_name);
    if (m_event_source == nullptr)
        return -1;
    if (!prepare_banner())
        return 0;
    LogNoHeadline("===== user %s on %s (%d) start session =====\n", m_user_name, m_computer_name, m_process_id);
    EndNoHeadLine();
    return 0;
}

/// Gives this thread the parameters of a banner; false when there is no memory for them.
bool Kor_PerfmonLogFile::prepare_banner() noexcept
{
    Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr)
        return false;
    params->m_enabled = 1;
    params->m_level = LEVEL_WARNING;
    return true;
}

int Kor_PerfmonLogFile::Close()
{
    if (is_closed())
        return -1;
    if (m_append_file != nullptr)
        m_append_file->close();
    if (m_event_source != nullptr)
        ::CloseEventLog(std::exchange(m_event_source, nullptr));
    return 0;
}

// Filtering -------------------------------------------------------------------------------------------
/// Null when there is no memory for this thread's parameters: it stays silent, its host goes on.
Kor_PerfmonLogMTVars* Kor_PerfmonLogFile::find_params() noexcept { return m_params.find_or_make(); }

int Kor_PerfmonLogFile::IsPerfmonEnabled()
{
    constexpr int LEVEL_NOTICE = 5;
    return GetLogLevel(KOR_PACKAGE_PERFMON * PACKAGE_RANGE) >= LEVEL_NOTICE ? 1 : 0;
}

unsigned char Kor_PerfmonLogFile::GetLogLevel(int id) { return KorGLog.GetLogLevel(id); }

int Kor_PerfmonLogFile::StoreParams(const char*, int, int level, int)
{
    if (KorGLog.IsRejected(level, KOR_PACKAGE_PERFMON))
        return 0;
    const KeptErrors kept;
    if (level > GetLogLevel(KOR_PACKAGE_PERFMON * PACKAGE_RANGE))
        return 0;
    Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr)
        return 0;
    params->m_enabled = 1;
    params->m_level = level;
    params->m_package = KOR_PACKAGE_PERFMON;
    return 1;
}

void Kor_PerfmonLogFile::SetContext(const char* text)
{
    char* context = duplicate(text);
    {
        const OptionalGuard guard(m_lock);
        std::swap(m_context, context);
    }
    std::free(context);
}

// Writing ---------------------------------------------------------------------------------------------
void Kor_PerfmonLogFile::Log(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr || params->m_enabled == 0)
        return;
    va_list args;
    va_start(args, format);
    SendLog(0, format, args);
    va_end(args);
}

int Kor_PerfmonLogFile::LogNoHeadline(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr || params->m_enabled == 0)
        return -1;
    va_list args;
    va_start(args, format);
    const int result = SendLog(1, format, args);
    va_end(args);
    return result;
}

int Kor_PerfmonLogFile::PrintOrLog(std::FILE* stream, const char* format, ...)
{
    const KeptErrors kept;
    va_list args;
    va_start(args, format);
    int result = 0;
    if (stream != nullptr)
    {
        kor::win::print(stream, format, args);
        std::fflush(stream);
    }
    else
    {
        const Kor_PerfmonLogMTVars* const params = find_params();
        result = params == nullptr || params->m_enabled == 0 ? -1 : SendLog(1, format, args);
    }
    va_end(args);
    return result;
}

namespace
{
struct MeasurementJob
{
    BoundedText text;
    const char* title;
    const char* types;
    char* args;
};

/// Runs guarded: owns nothing and works in the job's buffer.
void run_measurement(void* argument)
{
    auto& job = *static_cast<MeasurementJob*>(argument);
    kor::core::add_measurement(job.text, job.title, job.types, job.args);
}
} // namespace

void Kor_PerfmonLogFile::FLog(const char* title, const char* types, ...)
{
    const KeptErrors kept;
    char line[kor::core::MESSAGE_SIZE]; // more than either log writes
    MeasurementJob job{BoundedText(line, sizeof line), title, types, nullptr};
    va_list args;
    va_start(args, types);
    job.args = args;
    const bool fits = kor_guarded_call(&run_measurement, &job) == 0;
    va_end(args);
    if (fits)
        job.text.finish();
    else
        BoundedText(line, sizeof line).add(kor::core::FORMAT_ERROR).finish();
    KOR_GENERAL_LOG(SOURCE, "Kor_PerfmonLogFile::FLog", LEVEL_DEBUG, "string to plog is %s\n", line);
    Log("%s", line);
}

/// 0 standard error, 2 the file, anything else the event log.
int Kor_PerfmonLogFile::output() const noexcept
{
    const int wanted = KorGLog.configured_output();
    return wanted == Kor_LogConf::OUTPUT_PRIVATE_FILE && m_file == nullptr ? Kor_LogConf::OUTPUT_SYSLOG_FILE : wanted;
}

int Kor_PerfmonLogFile::SendLog(int noHeadline, const char* format, char* args)
{
    if (KorGLog.m_is_isolated)
        return 0;
    const KeptErrors kept;
    const Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr)
        return 0;
    const int to = output();
    if (to == Kor_LogConf::OUTPUT_STDERR || to == Kor_LogConf::OUTPUT_PRIVATE_FILE)
        write_line(to == Kor_LogConf::OUTPUT_STDERR, *params, noHeadline, format, args);
    else
        PrintToSyslog(noHeadline, format, args);
    return 0;
}

namespace
{
/// A formatted message, LINE_SIZE - 1 characters at most; a newline ends what stands for a misfit.
class Message
{
public:
    Message(const char* format, char* args) noexcept
        : m_misfit(kor::win::format_text(m_text, sizeof m_text, format, args) == FormatResult::MISFIT)
    {
        if (m_misfit)
            std::strcat(m_text, "\n");
        if (kor::has_safe_lines())
            kor::core::make_message_safe(
                {m_text, sizeof m_text}, static_cast<int>(std::strlen(m_text)), sizeof m_text, false);
    }
    const char* text() const noexcept { return m_text; }

private:
    char m_text[LINE_SIZE];
    bool m_misfit;
};

void set_colour_of_level(int level) noexcept
{
    if (level <= 3)
        kor::win::set_console_colour(kor::win::BRIGHT_RED);
    else if (level == 4)
        kor::win::set_console_colour(kor::win::YELLOW);
    else if (level <= 6)
        kor::win::set_console_colour(kor::win::BRIGHT_GREEN);
}

/// What stands in the place of the context: the text that was set and, behind it, whom the thread works for.
class Context
{
public:
    explicit Context(const char* text) noexcept
    {
        const std::string_view set(text == nullptr ? "" : text);
        const kor::Client* const client = kor::threads_have_clients ? kor::thread_client() : nullptr;
        char own[Kor_LogMTVars::CONTEXT_SIZE];
        if (client == nullptr || !kor::core::write_client({own, sizeof own}, client->address(), client->session()))
        {
            m_text = set;
            return;
        }
        BoundedText both(m_both, sizeof m_both);
        both.add(set).add(' ').add(std::string_view(own)).finish();
        m_text = m_both;
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    std::string_view text() const noexcept { return m_text; }

private:
    char m_both[LINE_SIZE];
    std::string_view m_text;
};

/// For what stands in front of a message, which is all there is in the line so far.
void make_names_safe(char (&line)[LINE_SIZE], BoundedText& text) noexcept
{
    if (!kor::has_safe_lines())
        return;
    const int length = kor::core::make_name_safe({line, sizeof line}, text.finish());
    text = BoundedText(line, sizeof line);
    text.skip(length < 0 ? sizeof line - 1 : static_cast<std::size_t>(length));
}

kor::core::LocalTime local_time() noexcept
{
    const SYSTEMTIME now = kor::win::local_system_time();
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}
} // namespace

void Kor_PerfmonLogFile::write_line(
    bool to_console, const Kor_PerfmonLogMTVars& params, int noHeadline, const char* format, char* args)
{
    const Message message(format, args);
    char line[LINE_SIZE];
    BoundedText text(line, sizeof line);
    if (noHeadline == 0)
    {
        char time[32];
        const auto write_time =
            to_console ? &kor::core::write_monitor_console_time : &kor::core::write_monitor_file_time;
        write_time({time, sizeof time}, local_time());
        const OptionalGuard guard(m_lock); // of the application's name and the context
        kor::core::add_monitor_headline(
            text, {time, params.m_level, m_app_name == nullptr ? "" : m_app_name, m_process_id, ::GetCurrentThreadId(),
                   Context(m_context).text()});
        make_names_safe(line, text);
    }
    const int length = text.add(std::string_view(message.text())).finish();
    const std::string_view whole(line, length < 0 ? LINE_SIZE - 1 : static_cast<std::size_t>(length));
    if (!to_console)
    {
        m_append_file->write(whole);
        return;
    }
    set_colour_of_level(params.m_level);
    kor::win::begin_line();
    std::fwrite(whole.data(), 1, whole.size(), stderr);
    std::fflush(stderr);
    kor::win::set_console_colour(kor::win::WHITE);
}

// The event log ---------------------------------------------------------------------------------------
int Kor_PerfmonLogFile::PrintToSyslog(int noHeadline, const char* format, char* args)
{
    const Kor_PerfmonLogMTVars* const params = find_params();
    if (params == nullptr)
        return 0;
    report_left_behind();
    const Message message(format, args);
    if (noHeadline != 0)
    {
        collect(*params, message.text());
        return 0;
    }
    EndNoHeadLine();
    char line[LINE_SIZE];
    BoundedText text(line, sizeof line);
    {
        const OptionalGuard guard(m_lock);
        text.add(Context(m_context).text());
        make_names_safe(line, text);
    }
    text.add(": =").add(std::string_view(message.text())).finish();
    report(line, params->m_level, params->m_package);
    return 0;
}

void Kor_PerfmonLogFile::report(const char* text, int level, int package) noexcept
{
    const char* strings[] = {text};
    ::ReportEventA(
        m_event_source, static_cast<WORD>(m_event_types[std::clamp(level, 0, 7)]), static_cast<WORD>(package), EVENT_ID,
        nullptr, 1, 0, strings, nullptr);
}

/// Adds to what this thread has for the event log.
void Kor_PerfmonLogFile::collect(const Kor_PerfmonLogMTVars& params, const char* text)
{
    Pending* const pending = m_pending == nullptr ? nullptr : m_pending->find_or_make();
    if (pending == nullptr)
    {
        report(text, params.m_level, params.m_package); // alone, then
        return;
    }
    if (kor::core::is_event_complete({pending->text, pending->length}))
        report_pending(*pending, params.m_level, params.m_package);
    BoundedText room(pending->text + pending->length, Pending::SIZE - pending->length);
    const std::string_view added(text);
    room.add(added).finish();
    pending->level = params.m_level;
    pending->package = params.m_package;
    pending->owner = this;
    pending->length += static_cast<std::uint32_t>(added.size());
}

void Kor_PerfmonLogFile::report_pending(Pending& pending, int level, int package) noexcept
{
    if (pending.length != 0)
        report(pending.text, level, package);
    pending.length = 0;
    pending.text[0] = '\0';
}

int Kor_PerfmonLogFile::EndNoHeadLine()
{
    Pending* const pending = m_pending == nullptr ? nullptr : m_pending->find();
    const Kor_PerfmonLogMTVars* const params = find_params();
    if (pending != nullptr && params != nullptr)
        report_pending(*pending, params->m_level, params->m_package);
    return 0;
}

/// Called when a thread ends, from inside the system's loader: no place to report from. The next to write
/// does that.
void Kor_PerfmonLogFile::leave_behind(Pending& pending)
{
    if (pending.length == 0 || pending.owner == nullptr)
        return;
    pending.text[pending.length] = '\0'; // what the thread was adding when it was stopped is not whole
    const OptionalGuard guard(pending.owner->m_lock);
    try
    {
        pending.owner->m_left_behind.push_back(pending);
    }
    catch (const std::bad_alloc&) // the text is lost
    {
    }
}

void Kor_PerfmonLogFile::report_left_behind() noexcept
{
    std::vector<Pending> texts;
    {
        const OptionalGuard guard(m_lock);
        texts.swap(m_left_behind);
    }
    for (Pending& pending : texts)
        report_pending(pending, pending.level, pending.package);
}
