#include "core/plain_format.h"

#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
/// Takes the text in front of the next conversion, or of the end, off a format.
std::string_view take_literal(const char*& at) noexcept
{
    const char* const begin = at;
    while (*at != '\0' && *at != '%')
        ++at;
    return {begin, static_cast<std::size_t>(at - begin)};
}

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
    BoundedText text(buffer, size + 1);
    for (const char* at = format;; ++at)
    {
        text.add(take_literal(at));
        if (*at == '\0')
            return text.finish();
        ++at;
        const int length = take_length(at);
        const bool is_number = *at == 'd' || *at == 'i' || *at == 'u';
        if (length != 0 && !is_number)
            return NOT_PLAIN; // %ls is a wide text
        switch (*at)
        {
        case 'd':
        case 'i':
            text.add_number(
                length == 0   ? va_arg(args, int)
                : length == 1 ? va_arg(args, long)
                              : va_arg(args, long long));
            break;
        case 'u':
            text.add_unsigned(
                length == 0   ? va_arg(args, unsigned int)
                : length == 1 ? va_arg(args, unsigned long)
                              : va_arg(args, unsigned long long));
            break;
        case 's':
        {
            const char* const string = va_arg(args, const char*);
            text.add_terminated(string == nullptr ? "(null)" : string);
            break;
        }
        case 'c':
            text.add(static_cast<char>(va_arg(args, int)));
            break;
        case '%':
            text.add('%');
            break;
        default:
            return NOT_PLAIN;
        }
    }
}
} // namespace kor::core
