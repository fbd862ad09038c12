// last_lines.h - recorded lines as the text of a log, made in a crash: without the heap and in memory that is there.

#ifndef KOR_CORE_LAST_LINES_H
#define KOR_CORE_LAST_LINES_H

#include <cstddef>
#include <string_view>

#include "core/line_ring_reader.h"
#include "core/message.h"

namespace kor::core
{
/// Bytes that one line takes at most as text.
constexpr std::size_t LONGEST_LAST_LINE = 2 * LINE_SIZE + 2;

/// Gives the lines that are still to come, in pieces that end where a line ends, to put(text). room: for a piece, at least
/// LONGEST_LAST_LINE bytes; a line that would be longer still, which no recorder makes, is left out.
template <class Put>
void put_lines(LineRingReader& lines, char* room, std::size_t size, Put&& put);

/// Bytes of a line as text.
std::size_t text_size(const LineOfRing& line) noexcept;

/// Writes a line as the file of a log has it, with "\r\n" for each newline and at its end. Returns the end. to: text_size.
char* write_line(char* to, const LineOfRing& line) noexcept;

/// The newest lines that fit into room, and a nul behind them. size: at least 1.
std::string_view newest_lines(LineRingReader& lines, char* room, std::size_t size) noexcept;

template <class Put>
void put_lines(LineRingReader& lines, char* room, std::size_t size, Put&& put)
{
    char* at = room;
    LineOfRing line{};
    while (lines.next(line))
    {
        const std::size_t needed = text_size(line);
        if (needed > size - static_cast<std::size_t>(at - room))
        {
            put(std::string_view(room, static_cast<std::size_t>(at - room)));
            at = room;
        }
        if (needed <= size)
            at = write_line(at, line);
    }
    if (at != room)
        put(std::string_view(room, static_cast<std::size_t>(at - room)));
}
} // namespace kor::core

#endif // KOR_CORE_LAST_LINES_H
