// The message context of a thread: its parameters, and the headlines made of them.

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "Kor/identity.h"
#include "Kor/safe_lines.h"
#include "Kor/thread_client.h"
#include "Kor_LogFile.h"
#include "core/bounded_text.h"
#include "core/headline.h"
#include "core/safe_text.h"
#include "win/clock.h"
#include "win/process_end.h"

using kor::core::Buffer;
using kor::win::OwnerLockGuard;

static_assert(sizeof(Kor_LocalTime) == sizeof(SYSTEMTIME));

namespace
{
enum HeadlineKind
{
    HEADLINE_NONE,
    HEADLINE_FULL,
    HEADLINE_PARTIAL_WS,
    HEADLINE_PARTIAL_UNIX
};

/// The length of a text by the result of what wrote it, which is -1 when it was cut.
std::uint32_t written(int length, std::size_t size) noexcept
{
    return static_cast<std::uint32_t>(length < 0 ? size - 1 : static_cast<std::size_t>(length));
}

/// UTC minus local time, in minutes.
long bias_of_season() noexcept
{
    constexpr std::int64_t MS_PER_MINUTE = 60'000;
    if (kor::win::process_is_ending())
        return static_cast<long>(-kor::win::known_zone_offset_ms() / MS_PER_MINUTE);
    TIME_ZONE_INFORMATION information{};
    const DWORD season = ::GetTimeZoneInformation(&information);
    if (season == TIME_ZONE_ID_STANDARD)
        return information.Bias + information.StandardBias;
    if (season == TIME_ZONE_ID_DAYLIGHT)
        return information.Bias + information.DaylightBias;
    return information.Bias;
}
} // namespace

// Kor_LogMTVars ---------------------------------------------------------------------------------------
Kor_LogMTVars::Kor_LogMTVars()
    : m_accepted(1), m_level(1), m_package(0),
      m_thread_id(::GetCurrentThreadId()), m_time{}, m_level_names{"NONE",    "SEVERE", "CRITICAL", "ERROR",
                                                                   "WARNING", "NOTICE", "INFO",     "DEBUG"},
      m_references(0), m_time_text{}, m_time_parts{}, m_time_length(0), m_time_taken_at(0), m_uses(0),
      m_seen_changes(0), m_seen_name(nullptr), m_seen_ip(nullptr), m_seen_session(0), m_seen_process(0),
      m_seen_thread(0), m_seen_client(0), m_has_client(false), m_client{}, m_origin{}, m_client_length(0),
      m_origin_length(0), m_location_length(0), m_is_only_recorded(false)
{
    const kor::core::Zone zone = kor::core::zone_of_bias(bias_of_season());
    m_zone_sign = zone.sign;
    m_zone_hours = zone.hours;
    m_zone_minutes = zone.minutes;

    std::free(std::exchange(m_thread_name.value(), nullptr));
    ResetParams();
}

void Kor_LogMTVars::UpdateTime() noexcept
{
    // Local time costs as much as formatting a message. Within a millisecond it stays what it was.
    const std::uint64_t now = kor::win::precise_milliseconds();
    if (now == m_time_taken_at)
        return;
    m_time_taken_at = now;
    const SYSTEMTIME local = kor::win::local_system_time(now);
    std::memcpy(&m_time, &local, sizeof m_time);
}

void Kor_LogMTVars::ResetParams() noexcept
{
    m_file = "unknown file";
    m_function = "unknown function";
    m_line = 0;
    m_headline[0] = m_location[0] = m_context[0] = '\0';
    m_headline_length = 0;
    m_has_location = m_has_context = m_has_thread_name = false;
    m_headline_kind = HEADLINE_NONE;
    m_is_only_recorded = false; // whoever sends without asking beforehand wants it written
}

Kor_LogMTVars::Message Kor_LogMTVars::message() const noexcept
{
    return {m_file, m_function, m_line, m_accepted, m_level, m_package, m_time, m_time_taken_at};
}

/// A headline that was made of other parameters is made anew when it is asked for.
void Kor_LogMTVars::restore(const Message& message) noexcept
{
    const bool same = m_file == message.file && m_function == message.function && m_line == message.line &&
                      m_level == message.level && m_package == message.package &&
                      m_time_taken_at == message.time_taken_at;
    if (!same)
        m_headline_kind = HEADLINE_NONE;
    m_file = message.file;
    m_function = message.function;
    m_line = message.line;
    m_accepted = message.accepted;
    m_level = message.level;
    m_package = message.package;
    m_time = message.time;
    m_time_taken_at = message.time_taken_at;
}

/// Takes the process's texts and the thread's client over when they are not those that this thread saw last.
void Kor_LogMTVars::look_at_identity() noexcept
{
    const kor::Client* const client = kor::threads_have_clients ? kor::thread_client() : nullptr;
    const std::uint64_t client_number = client == nullptr ? 0 : client->number();
    if (m_seen_client == client_number && m_seen_changes == kor::identity_changes.load(std::memory_order_acquire) &&
        m_seen_name == m_app_name && m_seen_ip == m_str_ip_address && m_seen_session == m_session_id &&
        m_seen_process == m_proc_id && m_seen_thread == m_thread_id)
        return;
    const OwnerLockGuard guard(kor::identity_lock);
    const bool readable = guard.held(); // if not, look again next time
    m_seen_changes = readable ? kor::identity_changes.load() : 0;
    m_seen_name = m_app_name;
    m_seen_ip = m_str_ip_address;
    m_seen_session = m_session_id;
    m_seen_process = m_proc_id;
    m_seen_thread = m_thread_id;
    m_seen_client = client_number;
    const Buffer room{m_client, CONTEXT_SIZE};
    m_has_client = client != nullptr ? kor::core::write_client(room, client->address(), client->session())
                                     : readable && kor::core::write_client(room, m_seen_ip, m_seen_session);
    m_client_length = m_has_client ? static_cast<std::uint32_t>(std::strlen(m_client)) : 0;
    const char* const name = readable && m_seen_name != nullptr ? m_seen_name : "(null)";
    m_origin_length =
        written(kor::core::write_origin({m_origin, HEADLINE_SIZE}, name, m_seen_process, m_seen_thread), HEADLINE_SIZE);
}

void Kor_LogMTVars::format_context() noexcept { format_parts(); }

/// Does what format_context does, and returns the thread's name, null for none.
const char* Kor_LogMTVars::format_parts() noexcept
{
    look_at_identity();
    m_has_location = m_line != 0;
    if (m_has_location)
        m_location_length = written(
            kor::core::write_location(
                {m_location, LOCATION_SIZE}, kor::core::short_text(m_file), m_line,
                kor::core::short_text(m_function == nullptr ? "" : m_function)),
            LOCATION_SIZE);
    m_has_context = m_has_client;
    if (m_has_context)
        std::memcpy(m_context, m_client, sizeof m_context);
    char** const name = m_thread_name.find();
    m_has_thread_name = name != nullptr && *name != nullptr;
    return m_has_thread_name ? *name : nullptr;
}

/// Made anew when the time is another: of lines that follow each other closely, many have the same.
std::string_view Kor_LogMTVars::time_text() noexcept
{
    const TimeParts parts{m_time, m_zone_sign, m_zone_hours, m_zone_minutes};
    if (m_time_length == 0 || std::memcmp(&parts, &m_time_parts, sizeof parts) != 0)
    {
        m_time_parts = parts;
        m_time_length = written(
            kor::core::write_time(
                {m_time_text, TIME_TEXT_SIZE},
                {m_time.year, m_time.month, m_time.day, m_time.hour, m_time.minute, m_time.second, m_time.milliseconds},
                {m_zone_sign, m_zone_hours, m_zone_minutes}),
            TIME_TEXT_SIZE);
    }
    return {m_time_text, m_time_length};
}

char* Kor_LogMTVars::TimeText() noexcept
{
    m_time_length = 0; // whoever has the text may have changed it
    time_text();
    return m_time_text;
}

/// Builds the headline that write lays out, unless the buffer is marked as holding it.
template <class Write>
char* Kor_LogMTVars::headline(int kind, bool force, Write write) noexcept
{
    if (m_headline_kind == kind && !force)
        return m_headline;
    const char* const thread_name = format_parts();
    const kor::core::Headline parts{
        time_text(),
        m_level,
        kor::core::short_text(m_level_names[std::clamp(m_level, 0, LEVEL_COUNT - 1)]),
        m_package,
        {m_origin, m_origin_length},
        m_proc_id,
        m_thread_id,
        thread_name,
        // What was there before counts, as long as nobody resets it.
        m_has_context ? std::string_view(m_context, m_client_length) : kor::core::short_text(m_context),
        m_has_context,
        {m_location, m_location_length},
        m_has_location,
        m_time.milliseconds};
    m_headline_length = write(Buffer{m_headline, HEADLINE_SIZE}, parts);
    if (kor::has_safe_lines())
        m_headline_length = kor::core::make_name_safe({m_headline, HEADLINE_SIZE}, m_headline_length);
    return m_headline;
}

char* Kor_LogMTVars::AsStringFull(bool force) noexcept
{
    return headline(HEADLINE_FULL, force, &kor::core::write_full);
}

/// The full headline as the outputs want it: with its length, which is that of the buffer when cut.
std::string_view Kor_LogMTVars::full_headline() noexcept
{
    const char* const text = AsStringFull(false);
    return {text, static_cast<std::size_t>(m_headline_length < 0 ? HEADLINE_SIZE - 1 : m_headline_length)};
}

char* Kor_LogMTVars::AsStringPartialWS(bool force) noexcept
{
    return headline(HEADLINE_PARTIAL_WS, force, &kor::core::write_partial_ws);
}

char* Kor_LogMTVars::AsStringPartialUnix(bool force) noexcept
{
    return headline(HEADLINE_PARTIAL_UNIX, force, &kor::core::write_partial_unix);
}

// Kor_LogMTVarsPtr ------------------------------------------------------------------------------------
Kor_LogMTVarsPtr::Kor_LogMTVarsPtr() : Kor_LogMTVarsPtr(new Kor_LogMTVars) {}

Kor_LogMTVarsPtr::Kor_LogMTVarsPtr(Kor_LogMTVars* raw) noexcept : m_raw(raw)
{
    if (m_raw != nullptr)
        ++m_raw->m_references;
}

Kor_LogMTVarsPtr::Kor_LogMTVarsPtr(const Kor_LogMTVarsPtr& other) noexcept : Kor_LogMTVarsPtr(other.m_raw) {}

Kor_LogMTVarsPtr& Kor_LogMTVarsPtr::operator=(const Kor_LogMTVarsPtr& other) noexcept
{
    Kor_LogMTVarsPtr copy(other);
    std::swap(m_raw, copy.m_raw);
    return *this;
}

Kor_LogMTVarsPtr::~Kor_LogMTVarsPtr()
{
    if (m_raw != nullptr && --m_raw->m_references == 0)
        delete m_raw;
}
