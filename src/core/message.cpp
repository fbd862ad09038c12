#include "core/message.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>

#include "core/bounded_text.h"
#include "core/eight_bytes.h"

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
            if (!has_byte(bytes, '\n'))
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
