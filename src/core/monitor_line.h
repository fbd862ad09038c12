// monitor_line.h - the lines of the performance-monitor log.

#ifndef KOR_CORE_MONITOR_LINE_H
#define KOR_CORE_MONITOR_LINE_H

#include <cstdarg>
#include <string_view>

#include "core/bounded_text.h"
#include "core/headline.h"

namespace kor::core
{
/// "05/03 14:07:09.042", day first. Returns the length, -1 when cut.
int write_monitor_file_time(Buffer to, const LocalTime& time) noexcept;

/// "14:07:09.04", to hundredths of a second. Returns the length, -1 when cut.
int write_monitor_console_time(Buffer to, const LocalTime& time) noexcept;

struct MonitorHeadline
{
    std::string_view time;
    int level;
    std::string_view application;
    int process;
    unsigned int thread;
    std::string_view context;
};

/// "time level application[process,thread]context: =".
void add_monitor_headline(BoundedText& text, const MonitorHeadline& from) noexcept;

/// "T=title", then ",name=value" for each character of types, then a newline. types: d and m for an int,
/// f for a double, which gets one decimal, g for a 64-bit integer, s for a text; another character puts a
/// remark in the place of the value, and takes none. args: for each character the name and the value. Null
/// texts become "(null)".
///
/// Owns nothing while it reads the arguments, so that a fault may end it anywhere.
void add_measurement(BoundedText& text, const char* title, const char* types, std::va_list args) noexcept;

/// True when what a thread has collected for the event log is to be reported before more is added: it ends
/// a line, or is as long as an event gets.
bool is_event_complete(std::string_view pending) noexcept;
} // namespace kor::core

#endif // KOR_CORE_MONITOR_LINE_H
