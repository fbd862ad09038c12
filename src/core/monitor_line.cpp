#include "core/monitor_line.h"

#include <charconv>
#include <cstdint>

namespace kor::core
{
namespace
{
constexpr std::size_t FULL_EVENT = 448; // characters; the event may grow past it by one text

std::string_view or_null(const char* text) noexcept { return text == nullptr ? "(null)" : text; }

void add_double(BoundedText& text, double value) noexcept
{
    char digits[400]; // of the largest there are 309 in front of the point
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, 1);
    text.add(std::string_view(digits, static_cast<std::size_t>(end.ptr - digits)));
}
} // namespace

int write_monitor_file_time(Buffer to, const LocalTime& time) noexcept
{
    BoundedText text(to.data, to.size);
    text.add_number(time.day, 2).add('/').add_number(time.month, 2).add(' ');
    text.add_number(time.hour, 2).add(':').add_number(time.minute, 2).add(':').add_number(time.second, 2);
    return text.add('.').add_number(time.milliseconds, 3).finish();
}

int write_monitor_console_time(Buffer to, const LocalTime& time) noexcept
{
    BoundedText text(to.data, to.size);
    text.add_number(time.hour, 2).add(':').add_number(time.minute, 2).add(':').add_number(time.second, 2);
    return text.add('.').add_number(time.milliseconds / 10, 2).finish();
}

void add_monitor_headline(BoundedText& text, const MonitorHeadline& from) noexcept
{
    text.add(from.time).add(' ').add_number(from.level).add(' ').add(from.application);
    text.add('[').add_number(from.process).add(',').add_number(static_cast<int>(from.thread)).add(']');
    text.add(from.context).add(": =");
}

void add_measurement(BoundedText& text, const char* title, const char* types, std::va_list args) noexcept
{
    text.add("T=").add(or_null(title));
    for (const char* type = types == nullptr ? "" : types; *type != '\0'; ++type)
    {
        text.add(',').add(or_null(va_arg(args, const char*))).add('=');
        switch (*type)
        {
        case 'd':
        case 'm':
            text.add_number(va_arg(args, int));
            break;
        case 'f':
            add_double(text, va_arg(args, double));
            break;
        case 'g':
            text.add_number(va_arg(args, std::int64_t));
            break;
        case 's':
            text.add(or_null(va_arg(args, const char*)));
            break;
        default:
            text.add("***** Unrecognized format ******");
        }
    }
    text.add('\n');
}

bool is_event_complete(std::string_view pending) noexcept
{
    return !pending.empty() && (pending.size() >= FULL_EVENT || pending.back() == '\n');
}
} // namespace kor::core
