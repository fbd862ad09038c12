#include "core/crash_texts.h"

#include "core/bounded_text.h"
#include "core/conversion.h"

namespace kor::core
{
namespace
{
constexpr int BITS_OF_DIGIT = 4;
constexpr int DIGITS = 8; // of a code

constexpr std::string_view LINE_BREAK = "\r\n";

void add_time(BoundedText& to, const LocalTime& time) noexcept
{
    to.add_number(time.day, 2).add('/').add_number(time.month, 2).add(' ');
    to.add_number(time.hour, 2).add(':').add_number(time.minute, 2).add(':');
    to.add_number(time.second, 2).add('.').add_number(time.milliseconds, 3);
}

void add_hex(BoundedText& to, std::uint64_t value, int digits) noexcept
{
    for (int digit = digits - 1; digit >= 0; --digit)
        to.add("0123456789abcdef"[value >> digit * BITS_OF_DIGIT & 0xF]);
}

/// With as many digits as it has.
void add_address(BoundedText& to, std::uint64_t value) noexcept
{
    int digits = 1;
    for (std::uint64_t rest = value >> BITS_OF_DIGIT; rest != 0; rest >>= BITS_OF_DIGIT)
        ++digits;
    add_hex(to.add("0x"), value, digits);
}

void add_wide(BoundedText& to, const wchar_t* text) noexcept
{
    constexpr std::size_t MOST = 200; // bytes: with two of them there is room for the rest
    WideText characters(text, MOST);
    for (Utf8 character{}; characters.next(character);)
        to.add(std::string_view(character.bytes, character.size));
}

const wchar_t* file_name(const wchar_t* path) noexcept
{
    const wchar_t* name = path;
    for (; *path != L'\0'; ++path)
        if (*path == L'\\' || *path == L'/')
            name = path + 1;
    return name;
}

wchar_t* write_digits(wchar_t* to, wchar_t separator, int value, int digits) noexcept
{
    if (separator != L'\0')
        *to++ = separator;
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        to[i] = static_cast<wchar_t>(L'0' + value % 10);
    return to + digits;
}
} // namespace

std::string_view write_crash_line(char (&to)[CRASH_LINE_SIZE], const CrashLine& from) noexcept
{
    constexpr std::size_t LONGEST_REST = 64; // what stands behind the program, with its longest numbers
    BoundedText text(to, sizeof to);
    add_time(text, from.time);
    text.add(" Crashed Process Details: ").add(from.program.substr(0, CRASH_LINE_SIZE - 2 * LONGEST_REST));
    text.add('[').add_unsigned(from.process).add(',').add_unsigned(from.thread).add("] Exception Code: 0x");
    add_hex(text, from.code, DIGITS);
    text.add(LINE_BREAK);
    return {to, static_cast<std::size_t>(text.finish())};
}

std::string_view write_hang_line(char (&to)[CRASH_LINE_SIZE], const HangLine& from) noexcept
{
    constexpr std::size_t LONGEST_PROGRAM = 200;
    constexpr std::size_t LONGEST_NAME = 64;
    BoundedText text(to, sizeof to);
    add_time(text, from.time);
    text.add(" Hanging Process Details: ").add(from.program.substr(0, LONGEST_PROGRAM)).add('[');
    text.add_unsigned(from.process).add("] Heartbeat: ").add(from.heartbeat.substr(0, LONGEST_NAME));
    text.add(from.is_back ? std::string_view(", back after ") : std::string_view(", silent for "));
    text.add_unsigned(from.silence_ms).add(" ms").add(LINE_BREAK);
    return {to, static_cast<std::size_t>(text.finish())};
}

std::string_view write_crash_message(char (&to)[CRASH_MESSAGE_SIZE], const CrashMessage& from) noexcept
{
    BoundedText text(to, sizeof to);
    text.add("The process has crashed: ");
    add_wide(text, from.name);
    add_hex(text.add(" (0x"), from.code, DIGITS);
    if (from.module == nullptr)
    {
        text.add(") at ");
    }
    else
    {
        add_wide(text.add(") in "), file_name(from.module));
        text.add('+');
    }
    add_address(text, from.address);
    return {to, static_cast<std::size_t>(text.finish())};
}

void write_file_stamp(wchar_t (&to)[FILE_STAMP_LENGTH], const LocalTime& time) noexcept
{
    wchar_t* at = write_digits(to, L'-', time.year, 4);
    at = write_digits(at, L'-', time.month, 2);
    at = write_digits(at, L'-', time.day, 2);
    at = write_digits(at, L'-', time.hour, 2);
    at = write_digits(at, L'\0', time.minute, 2);
    write_digits(at, L'\0', time.second, 2);
}
} // namespace kor::core
