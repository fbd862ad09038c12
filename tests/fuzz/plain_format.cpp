// plain_format.cpp - any conversion with any argument, and any bytes as a format: what is formatted here is what the C
// library makes of it.

#include "core/plain_format.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/conversion.h"
#include "require.h"

namespace
{
char decimal_point() { return '.'; }

int plain(char* buffer, std::size_t size, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    const int length = kor::core::format_plain(buffer, size, format, args, &decimal_point);
    va_end(args);
    return length;
}

int library(char* buffer, std::size_t size, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    // By a pointer, which compilers do not check the format of.
    int (*const print)(char*, std::size_t, const char*, std::va_list) = &std::vsnprintf;
    const int length = print(buffer, size, format, args);
    va_end(args);
    return length;
}

template <class Argument>
void check(const std::string& format, std::size_t size, Argument argument)
{
    char text[600];
    const int length = plain(text, size, format.c_str(), argument);
    if (length == kor::core::NOT_PLAIN)
        return;
    char expected[20000];
    const int whole = library(expected, sizeof expected, format.c_str(), argument);
    require(whole >= 0);
    const bool fits = static_cast<std::size_t>(whole) <= size;
    require(length == (fits ? whole : -1));
    const std::size_t shown = fits ? static_cast<std::size_t>(whole) : size;
    require(std::memcmp(text, expected, shown) == 0 && text[shown] == '\0');
}

/// The bytes of a value, and what is left of the data.
template <class Value>
Value take(const std::uint8_t*& data, std::size_t& size)
{
    Value value{};
    const std::size_t count = size < sizeof value ? size : sizeof value;
    std::memcpy(&value, data, count);
    data += count;
    size -= count;
    return value;
}

/// Flags, width and precision of the characters that these can have; no letters, as the lengths differ by system.
std::string field_of(const std::uint8_t*& data, std::size_t& size)
{
    constexpr char CHARACTERS[] = "-0+ .123456789";
    std::string field;
    for (int count = take<std::uint8_t>(data, size) % 8; count > 0; --count)
        field += CHARACTERS[take<std::uint8_t>(data, size) % (sizeof CHARACTERS - 1)];
    return field;
}

/// Whatever it is, reading a format goes forward and ends.
void check_conversions(const std::string& format)
{
    for (std::size_t at = format.find('%'); at < format.size(); at = format.find('%', at))
    {
        const kor::core::Conversion conversion = kor::core::read_conversion(format.c_str() + at);
        require(conversion.size >= 1 && at + conversion.size <= format.size());
        at += conversion.size;
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    check_conversions(std::string(reinterpret_cast<const char*>(data), size).c_str());

    const auto kind = take<std::uint8_t>(data, size);
    const std::size_t room = take<std::uint8_t>(data, size) * std::size_t{2};
    const std::string front = "<%" + field_of(data, size);
    const auto bits = take<std::uint64_t>(data, size);
    double number;
    std::memcpy(&number, &bits, sizeof number);
    switch (kind % 8)
    {
    case 0:
        check(front + "d>", room, static_cast<int>(bits));
        break;
    case 1:
        check(front + "llx>", room, bits);
        break;
    case 2:
        check(front + "hd>", room, static_cast<int>(bits));
        break;
    case 3:
        check(front + "llu>", room, bits);
        break;
    case 4:
        check(front + "f>", room, number);
        break;
    case 5: // of the sizes that programs write
        check(front + "f>", room, static_cast<double>(static_cast<std::int64_t>(bits) >> 20) / 1000);
        break;
    case 6:
        check(front + "s>", room, std::string(reinterpret_cast<const char*>(data), size).c_str());
        break;
    default:
        check(front + "c>", room, 'c');
        break;
    }
    return 0;
}
