#include "Kor_LogFile.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Kor/diagnostics.h"
#include "Kor/identity.h"
#include "Kor/shared_name.h"
#include "Kor_PerfmonLogFile.h"
#include "core/bounded_text.h"
#include "core/headline.h"
#include "core/message.h"
#include "core/size_limit.h"
#include "win/account.h"
#include "win/append_file.h"
#include "win/console.h"
#include "win/environment.h"
#include "win/format.h"
#include "win/kept_errors.h"
#include "win/text.h"

using kor::core::MAX_MESSAGE;
using kor::core::MESSAGE_SIZE;
using kor::win::duplicate;
using kor::win::KeptErrors;
using kor::win::OwnerLockGuard;

namespace
{
/// True by default; PRISMATE_TRUNC_SZT clears it.
bool truncation_enabled = true;

int clamp_level(int level) noexcept { return std::clamp(level, 0, Kor_LogMTVars::LEVEL_COUNT - 1); }

char default_directory[] = "log";

kor::win::OwnerLock kept_texts_lock;
std::set<std::string> kept_texts;

/// Keeps every directory that GetLogConfigDir has handed out: a handful at most, as the variable
/// hardly ever changes, and its callers may hold on to them.
char* keep_text(const std::string& text)
{
    const OwnerLockGuard guard(kept_texts_lock);
    return const_cast<char*>(kept_texts.insert(text).first->c_str());
}
} // namespace

kor::win::OwnerLock kor::identity_lock;
std::atomic<std::uint32_t> kor::identity_changes{1};
const char* kor::shared_block_name = nullptr;

// What the process tells of itself. Here and not with its class, as KorGLog at the end of this file
// needs it from the start.
char* Kor_LogMTVars::m_app_name = nullptr;
int Kor_LogMTVars::m_proc_id = static_cast<int>(::GetCurrentProcessId());
long Kor_LogMTVars::m_session_id = 0;
char* Kor_LogMTVars::m_str_ip_address = nullptr;
RWTThreadLocal<char*> Kor_LogMTVars::m_thread_name([](char*& name) { std::free(name); });

// Destinations ----------------------------------------------------------------------------------------
Kor_LogDestBase::~Kor_LogDestBase() = default;

int Kor_LogDestDebug::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int)
{
    if (bare)
    {
        ::OutputDebugStringA(text);
        return 0;
    }
    char buffer[MESSAGE_SIZE];
    kor::core::BoundedText whole(buffer, sizeof buffer);
    whole.add(std::string_view(context->AsStringFull(false))).add(' ').add(std::string_view(text)).finish();
    ::OutputDebugStringA(buffer);
    return 0;
}

Kor_LogDestFile::Kor_LogDestFile(const char* path)
{
    try
    {
        if (std::FILE* const stream = std::fopen(path, "at"))
            m_file.reset(stream, &std::fclose);
    }
    catch (const std::bad_alloc&) // the stream is closed again
    {
    }
    if (!m_file)
        std::fprintf(stderr, "Kor_LogDestFile: failed to open file <%s>\n", path);
}

int Kor_LogDestFile::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int)
{
    if (!m_file)
        return -1;
    const kor::core::ComposedLine line({bare ? std::string_view() : context->full_headline(), text, ""});
    std::fwrite(line.text().data(), 1, line.text().size(), m_file.get());
    std::fflush(m_file.get());
    return 0;
}

Kor_TestLogDestFile::Kor_TestLogDestFile(const char* path) : Kor_LogDestFile(path) {}

int Kor_TestLogDestFile::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length)
{
    return context->m_package == KOR_PACKAGE_TEST ? Kor_LogDestFile::LogMessage(context, bare, text, length) : 0;
}

namespace
{
/// Holds a log's mutex, where there was memory for one, for a scope.
class LogLock
{
public:
    explicit LogLock(ThreadAPI_RecursiveMutex* mutex) : m_mutex(mutex)
    {
        if (m_mutex != nullptr)
            m_mutex->Lock();
    }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;
    ~LogLock()
    {
        if (m_mutex != nullptr)
            m_mutex->Unlock();
    }

private:
    ThreadAPI_RecursiveMutex* m_mutex;
};

/// Resets a thread's message parameters at the end of a scope.
class ParamsReset
{
public:
    explicit ParamsReset(Kor_LogMTVarsPtr& vars) noexcept : m_vars(vars) {}
    ParamsReset(const ParamsReset&) = delete;
    ParamsReset& operator=(const ParamsReset&) = delete;
    ~ParamsReset() { m_vars->ResetParams(); }

private:
    Kor_LogMTVarsPtr& m_vars;
};
} // namespace

void Kor_LogFile::RegisterLogDestination(Kor_LogDestBase* destination)
{
    if (destination == nullptr)
        return;
    const LogLock lock(m_lock);
    try
    {
        if (std::find(m_destinations.begin(), m_destinations.end(), destination) == m_destinations.end())
            m_destinations.push_back(destination);
    }
    catch (const std::bad_alloc&)
    {
        constexpr int LEVEL_ERROR = 3;
        if (StoreParams(
                "Kor_LogFile", "Kor_LogFile::RegisterLogDestination", __LINE__, LEVEL_ERROR, KOR_PACKAGE_LIBRARY) != 0)
            Log("No memory to register a log destination\n");
    }
    m_destination_count = m_destinations.size();
}

void Kor_LogFile::UnregisterLogDestination(Kor_LogDestBase* destination)
{
    const LogLock lock(m_lock);
    const auto found = std::find(m_destinations.begin(), m_destinations.end(), destination);
    if (found != m_destinations.end())
        m_destinations.erase(found);
    m_destination_count = m_destinations.size();
}

void Kor_LogFile::ClearAllLogDestinations()
{
    const LogLock lock(m_lock);
    m_destinations.clear();
    m_destination_count = 0;
}

// Life of a log ---------------------------------------------------------------------------------------
Kor_LogFile::Kor_LogFile(int, bool banners)
    : m_file(nullptr), m_banners(banners),
      m_event_source(nullptr), m_event_types{EVENTLOG_ERROR_TYPE,       EVENTLOG_ERROR_TYPE,
                                             EVENTLOG_ERROR_TYPE,       EVENTLOG_ERROR_TYPE,
                                             EVENTLOG_WARNING_TYPE,     EVENTLOG_INFORMATION_TYPE,
                                             EVENTLOG_INFORMATION_TYPE, EVENTLOG_INFORMATION_TYPE},
      m_shared_view(nullptr), m_conf(nullptr), m_shared_conf(nullptr), m_local_conf(nullptr),
      m_conf_initialised(false), m_user_name{}, m_computer_name{}, m_context_changed(false), m_seen_count(0),
      m_seen_local_count(0), m_console_mode(false), m_size_exceeded(false),
      m_size_countdown(kor::core::FIRST_SIZE_COUNTDOWN), m_level_cache{}, m_debugger_destination(nullptr),
      m_destination_count(0), m_lock(nullptr), m_cache_generation(0),
      m_append_file(new (std::nothrow) kor::win::AppendFile)
{
    if (kor::win::is_set("PRISMATE_TRUNC_SZT"))
        truncation_enabled = false;
    m_console_mode = kor::win::environment("PRISMATE_LOG_CONSOLE") == "1";
    m_conf = new (std::nothrow) Kor_LogConf;
    m_shared_conf = m_conf.load();
    kor::shared_block_name =
        kor::win::is_unlimited_administrator() || kor::win::holds_privilege("SeCreateGlobalPrivilege")
            ? kor::GLOBAL_BLOCK_NAME
            : kor::LOCAL_BLOCK_NAME;
    DWORD size = sizeof m_computer_name;
    ::GetComputerNameA(m_computer_name, &size);
    size = sizeof m_user_name;
    ::GetUserNameA(m_user_name, &size);
    m_lock = new (std::nothrow) ThreadAPI_RecursiveMutex;
    if (kor::win::is_set("PRISMATE_LOG_DIR"))
        InitConf();
}

Kor_LogFile::~Kor_LogFile()
{
    if (m_banners)
        write_end_banner();
    close();
    delete m_debugger_destination;
    if (m_conf != m_shared_conf)
        delete m_conf.load();
    // The log's own configuration stays: it is the shared block, or its owner may still look at it.
    m_conf = nullptr;
    m_shared_conf = nullptr;
    delete m_append_file;
    m_append_file = nullptr;
    delete m_lock;
    m_lock = nullptr;
}

/// Null when there is no memory for this thread's context: it stays silent, its host goes on.
Kor_LogMTVarsPtr* Kor_LogFile::find_context() noexcept { return m_context.find_or_make(); }

Kor_LogMTVars* Kor_LogFile::context() noexcept
{
    const Kor_LogMTVarsPtr* const vars = find_context();
    return vars == nullptr ? nullptr : vars->operator->();
}

/// Null also when the thread's messages are not accepted.
Kor_LogMTVarsPtr* Kor_LogFile::find_accepted_context() noexcept
{
    Kor_LogMTVarsPtr* const vars = find_context();
    return vars == nullptr || (*vars)->m_accepted == 0 ? nullptr : vars;
}

bool Kor_LogFile::is_closed() const noexcept { return m_file == nullptr && m_event_source == nullptr; }

int Kor_LogFile::Open(const char* app_name) { return is_closed() ? Init(app_name) : 0; }

int Kor_LogFile::Open(std::FILE* stream, const char* app_name)
{
    if (!is_closed())
        return 0;
    if (stream != nullptr && m_append_file != nullptr)
    {
        m_append_file->adopt(stream);
        m_file = stream;
    }
    const int result = Init(app_name);
    return stream == nullptr ? -1 : result;
}

int Kor_LogFile::Open(const char* file_name, const char* app_name)
{
    if (!is_closed())
        return 0;
    const LogLock lock(m_lock);
    if (!is_closed())
        return 0;
    open_private_file(file_name);
    return Init(app_name);
}

int Kor_LogFile::Open(const char* file_name, const char* app_name, bool banners)
{
    m_banners = banners;
    return Open(file_name, app_name);
}

int Kor_LogFile::ReOpen(const char* file_name, const char* app_name, bool banners)
{
    m_banners = banners;
    const int result = is_closed() ? Init(app_name) : 0;
    const Kor_LogConf* const conf = m_conf;
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
        return result;
    open_private_file(file_name);
    return result;
}

int Kor_LogFile::Close() { return 0; }

char* Kor_LogFile::GetLogConfigDir()
{
    if (const auto directory = kor::win::environment("PRISMATE_LOG_DIR"))
        return keep_text(*directory);
    kor::warn_of_missing_directory();
    return default_directory;
}

/// Opens a file of the configuration directory in place of the one that is open.
void Kor_LogFile::open_private_file(const char* file_name)
{
    const std::string path = std::string(GetLogConfigDir()) + "/" + (file_name == nullptr ? "" : file_name);
    m_file = nullptr;
    if (m_append_file != nullptr)
    {
        m_append_file->close();
        m_file = m_append_file->open(path);
    }
    if (m_file == nullptr)
        std::fprintf(stderr, "Failed to open log file [%s]", path.c_str());
}

int Kor_LogFile::Init(const char* app_name)
{
    InitConf();
    const std::string_view name(app_name == nullptr ? "" : app_name);
    char* old_name = nullptr;
    {
        const OwnerLockGuard guard(kor::identity_lock);
        if (Kor_LogMTVars::m_app_name == nullptr || !name.empty())
            old_name = std::exchange(Kor_LogMTVars::m_app_name, duplicate(app_name == nullptr ? "" : app_name));
        ++kor::identity_changes;
    }
    std::free(old_name);
    register_event_source();
    if (m_banners)
        write_start_banner();
    return 0;
}

void Kor_LogFile::register_event_source()
{
    m_event_source = ::RegisterEventSourceA(nullptr, Kor_LogMTVars::m_app_name);
    if (m_event_source == nullptr)
        std::fprintf(
            stderr, "Kor_LogFile::Init - RegisterEventSource(%s), Unable to use System Log, error = <%d>\n",
            Kor_LogMTVars::m_app_name, static_cast<int>(::GetLastError()));
}

void Kor_LogFile::write_start_banner()
{
    Kor_LogMTVars* const vars = context();
    if (vars == nullptr)
        return;
    vars->m_accepted = 1;
    vars->UpdateTime();
    const char* const name = Kor_LogMTVars::m_app_name;
    const int process = Kor_LogMTVars::m_proc_id;
    const Kor_LogConf* const conf = m_conf;
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
    {
        vars->m_level = 1;
        LogNoHeadline(
            "===== %s (%d) Start Session at %s, User %s =====\n", name, process, vars->TimeText(), m_user_name);
        return;
    }
    vars->m_level = 4;
    if (!kor::win::is_set("PRISMATE_LOG_INFO"))
    {
        LogNoHeadline(
            "===== %s (%d) Start Session at %s, User %s on %s =====\n", name, process, vars->TimeText(), m_user_name,
            m_computer_name);
        return;
    }
    // "empty" for a mapping that has a name, and nothing for one that has none: the banner stays as it was.
    LogNoHeadline(
        "===== %s (%d) Start Session at %s, User %s on %s =====\n"
        " params: file mapping name is %s size %d\n",
        name, process, vars->TimeText(), m_user_name, m_computer_name,
        kor::shared_block_name != nullptr ? "empty" : static_cast<const char*>(nullptr),
        static_cast<int>(sizeof(Kor_LogConf)));
}

void Kor_LogFile::write_end_banner()
{
    Kor_LogMTVars* const vars = context();
    if (vars == nullptr)
        return;
    vars->m_accepted = 1;
    vars->UpdateTime();
    const Kor_LogConf* const conf = m_conf;
    // The levels are the start banner's the other way round, and stay so.
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
    {
        vars->m_level = 4;
        LogNoHeadline(
            "===== %s (%d) End Session at %s, User %s =====\n", Kor_LogMTVars::m_app_name, Kor_LogMTVars::m_proc_id,
            vars->TimeText(), m_user_name);
        return;
    }
    vars->m_level = 1;
    LogNoHeadline(
        "===== %s (%d) End Session at %s, User %s on %s =====\n", Kor_LogMTVars::m_app_name, Kor_LogMTVars::m_proc_id,
        vars->TimeText(), m_user_name, m_computer_name);
}

int Kor_LogFile::close()
{
    ClearAllLogDestinations();
    if (is_closed())
        return -1;
    m_file = nullptr;
    if (m_append_file != nullptr)
        m_append_file->close();
    if (m_event_source != nullptr)
        ::CloseEventLog(m_event_source);
    m_event_source = nullptr;
    return 0;
}

char* Kor_LogFile::GetApplicationName()
{
    context();
    return Kor_LogMTVars::m_app_name;
}

// Parameters and context of a message -----------------------------------------------------------------
// What is rejected, which is most, costs a few loads and no frame; the rest is in note_params.
int Kor_LogFile::StoreParams(const char* file, const char* function, int line, int level, int package, int)
{
    return IsRejected(level, package) ? 0 : note_params(file, function, line, level, package);
}

int Kor_LogFile::note_params(const char* file, const char* function, int line, int level, int package)
{
    if (level > current_level(package))
        return 0;
    const KeptErrors kept;
    Kor_LogMTVars* const vars = context();
    if (vars == nullptr)
        return 0;
    vars->UpdateTime();
    ++vars->m_uses;
    vars->m_level = level;
    vars->m_package = package;
    vars->m_accepted = 1;
    vars->m_file = file == nullptr ? "unknown file" : kor::core::file_name_of(file);
    vars->m_line = line;
    vars->m_function = function;
    return 1;
}

void Kor_LogFile::SetOutLogLevel(int level)
{
    const KeptErrors kept;
    if (Kor_LogMTVars* const vars = context())
        vars->m_level = level;
}

void Kor_LogFile::SetIP(const char* ip)
{
    char* text = duplicate(ip);
    {
        const OwnerLockGuard guard(kor::identity_lock);
        std::swap(Kor_LogMTVars::m_str_ip_address, text);
        Kor_LogMTVars::m_session_id = 0;
        ++kor::identity_changes;
    }
    note_context_change();
    std::free(text);
    KOR_TRACE("SetIP: Log Context changed to [%s [%d]]\n", ip == nullptr ? "(null)" : ip, 0);
}

void Kor_LogFile::SetIPAndSID(const char* ip, long sid)
{
    SetIP(ip);
    {
        const OwnerLockGuard guard(kor::identity_lock);
        Kor_LogMTVars::m_session_id = sid;
        ++kor::identity_changes;
    }
    note_context_change();
    KOR_TRACE("SetIPAndSID: Log Context changed to [%s [%d]]\n", ip == nullptr ? "(null)" : ip, static_cast<int>(sid));
}

void Kor_LogFile::SetThreadName(const char* name)
{
    const KeptErrors kept;
    if (context() == nullptr) // made first, as a new context forgets the name
        return;
    char* text = duplicate(name);
    std::swap(*Kor_LogMTVars::m_thread_name.find(), text);
    note_context_change();
    std::free(text);
    KOR_TRACE("SetThreadName: Log head changed to include thread name [%s]\n", name == nullptr ? "(null)" : name);
}

void Kor_LogFile::note_context_change() noexcept
{
    m_context_changed = true;
    m_cache_generation.fetch_add(0x100);
}

// Writing ---------------------------------------------------------------------------------------------
/// A formatted message on its way out.
struct Kor_LogFile::Line
{
    unsigned long code;
    std::string_view text; // ends at a terminator
    int length;            // as the caller or the formatter told it: -1 for a text that was cut

    bool has_headline() const noexcept { return code == KOR_MSG_HEADLINE; }

    bool ends_with_newline() const noexcept
    {
        return length > 0 && static_cast<std::size_t>(length) <= text.size() &&
               text[static_cast<std::size_t>(length) - 1] == '\n';
    }

    /// new_line: for a message that does not end in one.
    kor::core::LineParts parts(Kor_LogMTVars& vars, std::string_view new_line) const noexcept
    {
        if (ends_with_newline())
            new_line = {};
        if (!has_headline())
            return {{}, text, new_line};
        return {vars.full_headline(), text, new_line};
    }
};

void Kor_LogFile::Log(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return;
    va_list args;
    va_start(args, format);
    send(*vars, KOR_MSG_HEADLINE, format, args, true);
    va_end(args);
}

int Kor_LogFile::LogNoHeadline(unsigned long code, const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return -1;
    va_list args;
    va_start(args, format);
    send(*vars, code, format, args, true);
    va_end(args);
    return 0;
}

int Kor_LogFile::LogNoHeadline(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return -1;
    va_list args;
    va_start(args, format);
    send(*vars, KOR_MSG_NO_HEADLINE, format, args, true);
    va_end(args);
    return 0;
}

void Kor_LogFile::PrintAndLog(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return;
    va_list args;
    va_start(args, format);
    kor::win::print(stdout, format, args);
    send(*vars, KOR_MSG_HEADLINE, format, args, false);
    va_end(args);
}

int Kor_LogFile::PrintOrLog(std::FILE* stream, const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = stream != nullptr ? find_context() : find_accepted_context();
    va_list args;
    va_start(args, format);
    int result = 0;
    if (stream != nullptr)
    {
        kor::win::print(stream, format, args);
        std::fflush(stream);
        if (vars != nullptr)
            (*vars)->ResetParams();
    }
    else if (vars != nullptr)
        send(*vars, KOR_MSG_NO_HEADLINE, format, args, false);
    else
        result = -1;
    va_end(args);
    return result;
}

void Kor_LogFile::OSErrLog(unsigned int error, const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return;
    std::string whole;
    const char* used = format;
    try
    {
        const std::string details = kor::win::system_text(error, true);
        whole = format == nullptr ? "(null)" : format;
        whole += details.empty()
                     ? " Unable to fetch message for system error " + std::to_string(static_cast<int>(error)) + ".\n"
                     : " " + details + "\n";
        used = whole.c_str();
    }
    catch (const std::bad_alloc&) // then without the system's text
    {
    }
    va_list args;
    va_start(args, format);
    send(*vars, KOR_MSG_HEADLINE, used, args, true);
    va_end(args);
}

void Kor_LogFile::OSLog(const char* call, unsigned int error)
{
    const KeptErrors kept;
    std::string details;
    try
    {
        details = kor::win::system_text(error, false);
    }
    catch (const std::bad_alloc&) // then without the system's text
    {
    }
    if (details.empty())
        Log("System call <%s> failed.\n", call);
    else
        Log("System call <%s> failed. Error code: %lu. Error details: %s\n", call, static_cast<unsigned long>(error),
            details.c_str());
}

int Kor_LogFile::SendLog(unsigned long code, const char* format, char* args)
{
    return SendLog(code, format, args, true);
}

int Kor_LogFile::SendLog(unsigned long code, const char* format, char* args, bool add_newline)
{
    const KeptErrors kept;
    if (const Kor_LogMTVarsPtr* const vars = find_context())
        send(*vars, code, format, args, add_newline);
    return 0;
}

int Kor_LogFile::SendLogNoLimit(unsigned long code, char* text, int length)
{
    const KeptErrors kept;
    if (const Kor_LogMTVarsPtr* const vars = find_context())
        send_text(*vars, {code, text == nullptr ? "" : text, length});
    return 0;
}

void Kor_LogFile::send(
    const Kor_LogMTVarsPtr& vars, unsigned long code, const char* format, char* args, bool add_newline)
{
    char buffer[MESSAGE_SIZE];
    int length = kor::win::format_message(buffer, format, args);
    if (add_newline)
        length = kor::core::end_with_newline(buffer, length);
    send_text(vars, {code, {buffer, static_cast<std::size_t>(length < 0 ? MAX_MESSAGE : length)}, length});
}

void Kor_LogFile::send_text(Kor_LogMTVarsPtr vars, const Line& line)
{
    const Kor_LogConf* const conf = m_conf;
    int output = conf == nullptr ? static_cast<int>(Kor_LogConf::OUTPUT_STDERR) : conf->GetOutput();
    if (output == Kor_LogConf::OUTPUT_PRIVATE_FILE && m_file == nullptr)
        output = m_console_mode ? Kor_LogConf::OUTPUT_STDERR : Kor_LogConf::OUTPUT_SYSLOG_FILE;

    if (output == Kor_LogConf::OUTPUT_STDERR)
        write_console(*vars.operator->(), line);
    else if (output == Kor_LogConf::OUTPUT_PRIVATE_FILE)
        write_private_file(*vars.operator->(), line);
    else
        write_event(*vars.operator->(), line);
    // What the parameters point at may be gone after this, also where a destination throws.
    const ParamsReset reset(vars);
    ++vars->m_uses;
    if (m_destination_count != 0)
        write_destinations(vars, line);
}

void Kor_LogFile::write_console(Kor_LogMTVars& vars, const Line& line)
{
    if (vars.m_level < 4)
        kor::win::set_console_colour(kor::win::BRIGHT_RED);
    else if (vars.m_level == 4)
        kor::win::set_console_colour(kor::win::YELLOW);
    else if (vars.m_level < 7)
        kor::win::set_console_colour(kor::win::BRIGHT_GREEN);
    const kor::core::ComposedLine whole(line.parts(vars, " \n"));
    std::fwrite(whole.text().data(), 1, whole.text().size(), stderr);
    std::fflush(stderr);
    kor::win::set_console_colour(kor::win::WHITE);
}

void Kor_LogFile::write_private_file(Kor_LogMTVars& vars, const Line& line)
{
    if (!ValidateFileMaxSizeInaccurately())
        return;
    m_append_file->write(line.parts(vars, "\n"));
}

void Kor_LogFile::write_event(Kor_LogMTVars& vars, const Line& line)
{
    const char* strings[2];
    WORD count = 0;
    if (line.has_headline())
        strings[count++] = vars.AsStringPartialWS(false);
    strings[count++] = line.text.data();
    ::ReportEventA(
        m_event_source, static_cast<WORD>(m_event_types[clamp_level(vars.m_level)]), static_cast<WORD>(vars.m_package),
        line.code, nullptr, count, 0, strings, nullptr);
}

void Kor_LogFile::write_destinations(const Kor_LogMTVarsPtr& vars, const Line& line)
{
    const LogLock lock(m_lock);
    const Kor_LogMTVars::Message message = vars->message();
    std::uint32_t uses = vars->m_uses;
    for (std::size_t i = 0; i < m_destination_count; ++i)
    {
        m_destinations.at(i)->LogMessage(
            vars, !line.has_headline(), line.text.data(), static_cast<unsigned int>(line.length));
        if (vars->m_uses == uses)
            continue;
        uses = vars->m_uses;
        vars->restore(message); // it has logged itself, and what it left is its own message's
    }
}

bool Kor_LogFile::ValidateFileMaxSizeInaccurately()
{
    const Kor_LogConf* const conf = m_conf;
    const auto limit = conf == nullptr ? 0 : static_cast<std::uint32_t>(conf->GetSizeLimitInMb());
    if (m_file == nullptr || limit == 0)
        return true;
    if (m_size_countdown.fetch_sub(1) > 0)
        return !m_size_exceeded;

    // A file that is over its limit may have been cleared from outside.
    const kor::core::SizeVerdict verdict = kor::core::judge_size(m_append_file->size(m_size_exceeded), limit);
    m_size_countdown = verdict.countdown;
    const bool exceeded_before = m_size_exceeded.exchange(verdict.exceeded);
    if (verdict.exceeded && !exceeded_before)
    {
        char notice[512];
        const int length = std::snprintf(
            notice, sizeof notice,
            "*** Log file size (ESTIMATED around %dmb) exceed limit defined in logger file. Logs are disabled until "
            "file is cleared. ***\n"
            "*** Note: if you clear the file it will only start writing again after ~500 log lines, or after you call "
            "log log update manually (LevelSync.exe -u). ***\n",
            static_cast<int>(verdict.megabytes));
        m_append_file->write(std::string_view(notice, static_cast<std::size_t>(length)));
    }
    return !verdict.exceeded;
}

// Last in this file: everything above that it is made of exists before it and outlives it.
Kor_LogFile KorGLog(777, true);

// Here and not with its class: it goes by the general log's configuration, so it has to come after that log
// and go before it, which only the order within one source can promise.
Kor_PerfmonLogFile KorPLog(777);
