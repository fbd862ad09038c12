#include "core/last_lines.h"

#include <algorithm>

namespace kor::core
{
namespace
{
constexpr std::string_view LINE_BREAK = "\r\n";
} // namespace

std::size_t text_size(const LineOfRing& line) noexcept
{
    const auto newlines = static_cast<std::size_t>(std::count(line.text.begin(), line.text.end(), '\n'));
    return line.text.size() + newlines + LINE_BREAK.size();
}

char* write_line(char* to, const LineOfRing& line) noexcept
{
    to = append_text_mode(to, line.text);
    return std::copy(LINE_BREAK.begin(), LINE_BREAK.end(), to);
}

std::string_view newest_lines(LineRingReader& lines, char* room, std::size_t size) noexcept
{
    LineOfRing line{};
    std::size_t all = 0;
    while (lines.next(line))
        all += text_size(line);
    lines.rewind();
    char* at = room;
    while (lines.next(line))
    {
        const std::size_t needed = text_size(line);
        if (all < size)
            at = write_line(at, line);
        else
            all -= needed;
    }
    *at = '\0';
    return {room, static_cast<std::size_t>(at - room)};
}
} // namespace kor::core
