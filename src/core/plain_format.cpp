#include "core/plain_format.h"

#include <cstdint>

namespace kor::core
{
namespace
{
/// Where the text goes; what does not fit is only noticed.
struct Out
{
    char* at;
    char* end;
    bool cut;

    void put(char c) noexcept
    {
        if (at == end)
            cut = true;
        else
            *at++ = c;
    }

    void put_text(const char* text) noexcept
    {
        for (; !cut && *text != '\0'; ++text)
            put(*text);
    }

    void put_number(std::uint64_t value) noexcept
    {
        char digits[20];
        int count = 0;
        do
        {
            digits[count++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        while (count > 0)
            put(digits[--count]);
    }

    void put_signed(std::int64_t value) noexcept
    {
        if (value < 0)
            put('-');
        put_number(value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value));
    }
};

/// The length letters l in front of a conversion: 0, 1 or 2 of them.
int take_length(const char*& at) noexcept
{
    int count = 0;
    while (count < 2 && *at == 'l')
    {
        ++at;
        ++count;
    }
    return count;
}
} // namespace

int format_plain(char* buffer, std::size_t size, const char* format, std::va_list args) noexcept
{
    Out out{buffer, buffer + size, false};
    for (const char* at = format; *at != '\0'; ++at)
    {
        if (*at != '%')
        {
            out.put(*at);
            continue;
        }
        ++at;
        const int length = take_length(at);
        const bool is_number = *at == 'd' || *at == 'i' || *at == 'u';
        if (length != 0 && !is_number)
            return NOT_PLAIN; // %ls is a wide text
        switch (*at)
        {
        case 'd':
        case 'i':
            out.put_signed(
                length == 0   ? va_arg(args, int)
                : length == 1 ? va_arg(args, long)
                              : va_arg(args, long long));
            break;
        case 'u':
            out.put_number(
                length == 0   ? va_arg(args, unsigned int)
                : length == 1 ? va_arg(args, unsigned long)
                              : va_arg(args, unsigned long long));
            break;
        case 's':
        {
            const char* const text = va_arg(args, const char*);
            out.put_text(text == nullptr ? "(null)" : text);
            break;
        }
        case 'c':
            out.put(static_cast<char>(va_arg(args, int)));
            break;
        case '%':
            out.put('%');
            break;
        default:
            return NOT_PLAIN;
        }
    }
    *out.at = '\0';
    return out.cut ? -1 : static_cast<int>(out.at - buffer);
}
} // namespace kor::core
