#include "core/message.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>

#include "core/bounded_text.h"

namespace kor::core
{
int end_with_newline(char* buffer, int length) noexcept
{
    if (length < 0 || length >= MAX_MESSAGE)
        length = MAX_MESSAGE - 1; // the newline takes the place of the last character
    else if (length > 0 && buffer[length - 1] == '\n')
        return length;
    buffer[length] = '\n';
    buffer[length + 1] = '\0';
    return length + 1;
}

namespace
{
constexpr std::uint64_t EACH_BYTE = 0x0101010101010101;

/// True when one of the eight bytes is a newline: it is zero after the exclusive or, and only a byte
/// that is zero, or stands above one that is, borrows from its top bit.
constexpr bool has_newline(std::uint64_t bytes) noexcept
{
    const std::uint64_t zero_where_newline = bytes ^ (EACH_BYTE * '\n');
    return ((zero_where_newline - EACH_BYTE) & ~zero_where_newline & (EACH_BYTE << 7)) != 0;
}
} // namespace

char* append_text_mode(char* to, std::string_view text) noexcept
{
    const char* from = text.data();
    const char* const end = from + text.size();
    while (from != end)
    {
        std::uint64_t bytes = 0;
        if (end - from >= static_cast<std::ptrdiff_t>(sizeof bytes))
        {
            std::memcpy(&bytes, from, sizeof bytes);
            if (!has_newline(bytes))
            {
                std::memcpy(to, &bytes, sizeof bytes);
                from += sizeof bytes;
                to += sizeof bytes;
                continue;
            }
        }
        if (*from == '\n')
            *to++ = '\r';
        *to++ = *from++;
    }
    return to;
}

char* append_text_mode(char* to, const LineParts& line) noexcept
{
    to = append_text_mode(to, line.headline);
    to = append_text_mode(to, line.join());
    to = append_text_mode(to, line.message);
    return append_text_mode(to, line.end);
}

char* append(char* to, const LineParts& line) noexcept
{
    for (const std::string_view part : {line.headline, line.join(), line.message, line.end})
        to = copy_text(to, part.data(), part.size());
    return to;
}

ComposedLine::ComposedLine(const LineParts& parts) noexcept
{
    const std::size_t size = parts.size() + 1;
    char* buffer = m_small;
    std::size_t room = sizeof m_small;
    if (size > sizeof m_small)
        m_large.reset(new (std::nothrow) char[size]);
    if (m_large)
    {
        buffer = m_large.get();
        room = size;
    }
    BoundedText text(buffer, room);
    const int length = text.add(parts.headline).add(parts.join()).add(parts.message).add(parts.end).finish();
    m_text = std::string_view(buffer, length < 0 ? room - 1 : static_cast<std::size_t>(length));
}
} // namespace kor::core
