// The way of an accepted message: formatted, given a headline, and out to where the configuration says.

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "Kor/general_log.h"
#include "Kor/identity.h"
#include "Kor/log_lock.h"
#include "Kor/recorder.h"
#include "Kor/safe_lines.h"
#include "Kor_LogFile.h"
#include "core/bounded_text.h"
#include "core/file_rotation.h"
#include "core/message.h"
#include "core/safe_text.h"
#include "core/size_limit.h"
#include "win/append_file.h"
#include "win/console.h"
#include "win/contained_call.h"
#include "win/format.h"
#include "win/kept_errors.h"

using kor::LogLock;
using kor::core::MAX_MESSAGE;
using kor::core::MESSAGE_SIZE;
using kor::win::KeptErrors;

namespace
{
int clamp_level(int level) noexcept { return std::clamp(level, 0, Kor_LogMTVars::LEVEL_COUNT - 1); }

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

int Kor_LogFile::LogAt(
    const char* file, const char* function, int line, int level, int package, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = LogAtArgs(file, function, line, level, package, format, args);
    va_end(args);
    return written;
}

int Kor_LogFile::LogAtArgs(
    const char* file, const char* function, int line, int level, int package, const char* format, char* args)
{
    if (IsRejected(level, package))
        return 0;
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = begin_message(file, function, line, level, package);
    if (vars == nullptr)
        return 0;
    send(*vars, KOR_MSG_HEADLINE, format, args, true);
    return 1;
}

int Kor_LogFile::LogTextAt(
    const char* file, const char* function, int line, int level, int package, const char* text, int length)
{
    if (IsRejected(level, package))
        return 0;
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = begin_message(file, function, line, level, package);
    if (vars == nullptr)
        return 0;
    send_finished(*vars, {KOR_MSG_HEADLINE, text == nullptr ? "" : text, length});
    return 1;
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

/// LogNoHeadline for lines of the log itself, which go out as they are.
void Kor_LogFile::log_banner(const char* format, ...)
{
    const KeptErrors kept;
    const Kor_LogMTVarsPtr* const vars = find_accepted_context();
    if (vars == nullptr)
        return;
    char buffer[MESSAGE_SIZE];
    va_list args;
    va_start(args, format);
    const int length = kor::core::end_with_newline(buffer, kor::win::format_message(buffer, format, args));
    va_end(args);
    send_text(*vars, {KOR_MSG_NO_HEADLINE, {buffer, static_cast<std::size_t>(length)}, length});
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
        send_finished(*vars, {code, text == nullptr ? "" : text, length});
    return 0;
}

void Kor_LogFile::send(
    const Kor_LogMTVarsPtr& vars, unsigned long code, const char* format, char* args, bool add_newline)
{
    char buffer[MESSAGE_SIZE];
    std::size_t whole = 0;
    int length = kor::win::format_message(buffer, format, args, &whole);
    if (kor::has_safe_lines())
        length = kor::core::make_message_safe({buffer, sizeof buffer}, length, whole, code != KOR_MSG_HEADLINE);
    if (add_newline)
        length = kor::core::end_with_newline(buffer, length);
    send_text(vars, {code, {buffer, static_cast<std::size_t>(length < 0 ? MAX_MESSAGE : length)}, length});
}

/// A text that was not formatted here, of any length.
void Kor_LogFile::send_finished(const Kor_LogMTVarsPtr& vars, const Line& line)
{
    if (!kor::has_safe_lines())
        return send_text(vars, line);
    const kor::core::SafeMessage safe(line.text, line.ends_with_newline(), !line.has_headline());
    send_text(vars, {line.code, safe.text(), static_cast<int>(safe.text().size())});
}

void Kor_LogFile::send_text(Kor_LogMTVarsPtr vars, const Line& line)
{
    // What the parameters point at may be gone after this.
    const ParamsReset reset(vars);
    const bool is_written = !vars->m_is_only_recorded;
    write_output(*vars.operator->(), line);
    ++vars->m_uses;
    if (is_written && m_destination_count != 0)
        write_destinations(vars, line);
}

void Kor_LogFile::record(Kor_LogMTVars& vars, const Line& line) noexcept
{
    kor::Recorder* const recorder = kor::recorder.load(std::memory_order_acquire);
    if (recorder == nullptr)
        return;
    constexpr std::uint64_t FROM_1601_TO_1970_MS =
        11'644'473'600'000; // the clock counts from the one, readers from the other
    const std::uint64_t time = std::max(vars.m_time_taken_at, FROM_1601_TO_1970_MS) - FROM_1601_TO_1970_MS;
    const kor::core::RecordedLine recorded{time,           vars.m_thread_id,         vars.m_level,
                                           vars.m_package, !vars.m_is_only_recorded, !line.has_headline()};
    recorder->record(recorded, line.parts(vars, {}));
}

void Kor_LogFile::write_output(Kor_LogMTVars& vars, const Line& line)
{
    if (m_is_isolated.load(std::memory_order_relaxed))
        return;
    record(vars, line); // first: to write it may take long, or never come back
    if (vars.m_is_only_recorded)
        return;
    const Kor_LogConf* const conf = m_conf;
    int output = conf == nullptr ? static_cast<int>(Kor_LogConf::OUTPUT_STDERR) : conf->GetOutput();
    if (output == Kor_LogConf::OUTPUT_PRIVATE_FILE)
    {
        if (write_private_file(vars, line))
            return;
        output = m_console_mode ? Kor_LogConf::OUTPUT_STDERR : Kor_LogConf::OUTPUT_SYSLOG_FILE;
    }

    if (output == Kor_LogConf::OUTPUT_STDERR)
        write_console(vars, line);
    else
        write_event(vars, line);
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
    kor::win::begin_line();
    std::fwrite(whole.text().data(), 1, whole.text().size(), stderr);
    std::fflush(stderr);
    kor::win::set_console_colour(kor::win::WHITE);
}

/// False when no private file is open, or not any more.
bool Kor_LogFile::write_private_file(Kor_LogMTVars& vars, const Line& line)
{
    if (m_file == nullptr)
        return false;
    if (m_append_file->rotates())
        return write_rotating_file(vars, line);
    return !ValidateFileMaxSizeInaccurately() || m_append_file->write(line.parts(vars, "\n"));
}

/// Banners of this log where it goes on in another file, unless it has none.
struct Kor_LogFile::Seam final : kor::win::FileSeam
{
    Seam(const Kor_LogFile& its_log, Kor_LogMTVars& its_vars) noexcept : log(its_log), vars(its_vars) {}

    std::size_t write_end(kor::core::Buffer to) const noexcept override { return write(to, kor::core::SEAM_AT_END); }
    std::size_t write_begin(kor::core::Buffer to) const noexcept override
    {
        return write(to, kor::core::SEAM_AT_BEGIN);
    }

    std::size_t write(kor::core::Buffer to, std::string_view marker) const noexcept
    {
        if (!log.m_banners)
            return 0;
        const Kor_LogMTVars::Message message = vars.message();
        vars.UpdateTime();
        const std::string_view time = vars.time_text();
        vars.restore(message);
        const kor::win::OwnerLockGuard guard(kor::identity_lock);
        const kor::BannerName safe_name(guard.held() ? Kor_LogMTVars::m_app_name : nullptr);
        const char* const name = safe_name.get();
        const int length = kor::core::write_seam_banner(
            to, marker,
            {name == nullptr ? "(null)" : name, Kor_LogMTVars::m_proc_id, time, log.m_user_name, log.m_computer_name});
        return length < 0 ? 0 : static_cast<std::size_t>(length);
    }

    const Kor_LogFile& log;
    Kor_LogMTVars& vars;
};

bool Kor_LogFile::write_rotating_file(Kor_LogMTVars& vars, const Line& line)
{
    constexpr std::int64_t MEGABYTE = 1024 * 1024;
    const Kor_LogConf* const conf = m_conf;
    const auto limit = conf == nullptr ? 0 : static_cast<std::uint32_t>(conf->GetSizeLimitInMb());
    const Seam seam(*this, vars);
    const kor::win::FileBounds bounds{static_cast<std::int64_t>(limit) * MEGABYTE, seam};
    return m_append_file->write(line.parts(vars, "\n"), &bounds);
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

/// One message's way through the destinations.
struct Kor_LogFile::Round
{
    Kor_LogFile& log;
    const Kor_LogMTVarsPtr& vars;
    const Line& line;
    const Kor_LogMTVars::Message message;
    std::uint32_t uses;         // of the parameters, when they were the message's
    const std::int32_t holders; // of the context, but for those that this message has
    std::size_t next = 0;       // destination

    /// What the destination before has left is its own message's, if it has logged itself.
    void restore_parameters() noexcept
    {
        if (vars->m_uses == uses)
            return;
        uses = vars->m_uses;
        vars->restore(message);
    }

    void report(const char* what) noexcept
    {
        log.report_failed_destination(*vars.operator->(), what);
        restore_parameters();
    }

    void hand_over() noexcept
    {
        Kor_LogDestBase* const destination = log.m_destinations[next++];
        try
        {
            destination->LogMessage(
                vars, !line.has_headline(), line.text.data(), static_cast<unsigned int>(line.length));
            restore_parameters();
        }
        catch (const std::exception& error)
        {
            report(error.what());
        }
        catch (...)
        {
            report("of a type that is not known");
        }
    }

    /// Runs contained.
    static void run(void* argument)
    {
        auto& round = *static_cast<Round*>(argument);
        while (round.next < round.log.m_destinations.size())
            round.hand_over();
    }

    /// For a fault that somebody catches above the log: the destructors on the way do not run.
    static void leave(void* argument)
    {
        auto& round = *static_cast<Round*>(argument);
        round.vars->ResetParams();
        round.vars->m_references = round.holders;
        if (round.log.m_lock != nullptr)
            round.log.m_lock->Unlock();
    }
};

void Kor_LogFile::write_destinations(const Kor_LogMTVarsPtr& vars, const Line& line)
{
    const LogLock lock(m_lock);
    Round round{*this, vars, line, vars->message(), vars->m_uses, vars->m_references - 1};
    while (const unsigned long code = kor_contained_call(&Round::run, &Round::leave, &round))
    {
        char what[32];
        std::snprintf(what, sizeof what, "0x%08lx", code);
        round.report(what);
    }
}

/// To the output alone: another destination that fails, or the same one, must not make this endless.
void Kor_LogFile::report_failed_destination(Kor_LogMTVars& vars, const char* what) noexcept
{
    constexpr char FUNCTION[] = "Kor_LogFile::SendLogNoLimit";
    if (note_params("Kor_LogFile", FUNCTION, __LINE__, kor::LEVEL_ERROR, KOR_PACKAGE_LIBRARY) == 0)
        return;
    char text[512];
    int length = kor::core::BoundedText(text, sizeof text)
                     .add("A log destination has thrown an exception: ")
                     .add(std::string_view(what))
                     .finish();
    if (kor::has_safe_lines())
        length = kor::core::make_message_safe({text, sizeof text}, length, std::strlen(what), false);
    const auto size = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    write_output(vars, {KOR_MSG_HEADLINE, {text, size}, static_cast<int>(size)});
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
