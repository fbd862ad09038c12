#include "core/headline.h"

#include <cstdlib>

#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
/// The thread name and what stands in front of it, or nothing.
void add_thread_name(BoundedText& text, const Headline& from, char separator) noexcept
{
    if (from.thread_name != nullptr)
        text.add(separator).add(short_text(from.thread_name));
}

void add_location(BoundedText& text, const Headline& from) noexcept
{
    if (from.has_location)
        text.add(' ').add(from.location);
}

void put_two_digits(char* to, int value) noexcept
{
    to[0] = static_cast<char>('0' + value / 10);
    to[1] = static_cast<char>('0' + value % 10);
}

constexpr bool is_below(int value, int end) noexcept { return value >= 0 && value < end; }
} // namespace

Zone zone_of_bias(long bias) noexcept
{
    const long minutes = std::labs(bias);
    return {bias < 1 ? '+' : '-', static_cast<int>(minutes / 60), static_cast<int>(minutes % 60)};
}

int write_time(Buffer to, const LocalTime& time, const Zone& zone) noexcept
{
    // Each line has a time, and each time that a clock gives has the same form.
    char form[] = "0000-00-00 00:00:00.000+00:00";
    const bool has_form = is_below(time.year, 10000) && is_below(time.month, 100) && is_below(time.day, 100) &&
                          is_below(time.hour, 100) && is_below(time.minute, 100) && is_below(time.second, 100) &&
                          is_below(time.milliseconds, 1000) && is_below(zone.hours, 100) && is_below(zone.minutes, 100);
    BoundedText text(to.data, to.size);
    if (has_form)
    {
        put_two_digits(form, time.year / 100);
        put_two_digits(form + 2, time.year % 100);
        put_two_digits(form + 5, time.month);
        put_two_digits(form + 8, time.day);
        put_two_digits(form + 11, time.hour);
        put_two_digits(form + 14, time.minute);
        put_two_digits(form + 17, time.second);
        form[20] = static_cast<char>('0' + time.milliseconds / 100);
        put_two_digits(form + 21, time.milliseconds % 100);
        form[23] = zone.sign;
        put_two_digits(form + 24, zone.hours);
        put_two_digits(form + 27, zone.minutes);
        return text.add(std::string_view(form, sizeof form - 1)).finish();
    }
    text.add_number(time.year, 4).add('-').add_number(time.month, 2).add('-').add_number(time.day, 2).add(' ');
    text.add_number(time.hour, 2).add(':').add_number(time.minute, 2).add(':').add_number(time.second, 2).add('.');
    text.add_number(time.milliseconds, 3).add(zone.sign);
    text.add_number(zone.hours, 2).add(':').add_number(zone.minutes, 2);
    return text.finish();
}

int write_location(Buffer to, std::string_view file, int line, std::string_view function) noexcept
{
    BoundedText text(to.data, to.size);
    text.add(file).add('(').add_number(line).add(')');
    if (!function.empty())
        text.add(' ').add(function);
    return text.finish();
}

bool write_client(Buffer to, const char* ip, long session) noexcept
{
    const bool has_session = session >= 1;
    if (ip == nullptr && !has_session)
        return false;
    BoundedText text(to.data, to.size);
    if (ip != nullptr)
        text.add("ClientIP(").add(std::string_view(ip)).add(has_session ? ") " : ")");
    if (has_session)
        text.add("SessionId(").add_number(session).add(')');
    text.finish();
    return true;
}

int write_origin(Buffer to, std::string_view application, int process, unsigned int thread) noexcept
{
    BoundedText text(to.data, to.size);
    text.add(application).add(" (").add_number(process).add(',').add_number(static_cast<int>(thread));
    return text.finish();
}

int write_full(Buffer to, const Headline& from) noexcept
{
    BoundedText text(to.data, to.size);
    text.add(from.time).add(' ').add_left_aligned(from.level_name, 8);
    text.add('(').add_number(from.package, 3).add(") ").add(from.origin);
    add_thread_name(text, from, '|');
    text.add(") ").add(from.context).add(' ');
    if (from.has_location)
        text.add(from.location);
    text.add(" ->");
    return text.finish();
}

int write_partial_ws(Buffer to, const Headline& from) noexcept
{
    BoundedText text(to.data, to.size);
    text.add(from.time).add(" [").add_number(from.process).add(',').add_number(static_cast<int>(from.thread));
    add_thread_name(text, from, ' ');
    text.add(']').add_number(from.level).add(from.context);
    add_location(text, from);
    text.add(':');
    return text.finish();
}

int write_partial_unix(Buffer to, const Headline& from) noexcept
{
    BoundedText text(to.data, to.size);
    text.add(from.context);
    if (from.has_context)
        text.add(' ');
    text.add('[').add_number(from.milliseconds, 3).add("][").add_number(static_cast<int>(from.thread));
    add_thread_name(text, from, ' ');
    text.add("] ").add_number(from.level);
    add_location(text, from);
    text.add(':');
    return text.finish();
}

const char* file_name_of(const char* path) noexcept
{
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at)
        if (*at == '\\')
            name = at + 1;
    return name;
}
} // namespace kor::core
