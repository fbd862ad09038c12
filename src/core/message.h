// message.h - the end of a formatted message, and the line it becomes.

#ifndef KOR_CORE_MESSAGE_H
#define KOR_CORE_MESSAGE_H

#include <cstddef>
#include <memory>
#include <string_view>

namespace kor::core
{
/// Bytes of a message buffer; its text has at most one less.
constexpr std::size_t MESSAGE_SIZE = 2048;
constexpr int MAX_MESSAGE = static_cast<int>(MESSAGE_SIZE) - 1;

/// What a message becomes whose arguments do not fit its format.
constexpr std::string_view FORMAT_ERROR =
    "!!! ERROR !!! Caught exception while formatting log message - Check log line for format discrepancy and null "
    "values. !!! ERROR !!!\n";

/// Gives a formatted text its newline. buffer: MESSAGE_SIZE bytes. length: the formatter's result, -1
/// when the text was cut at MAX_MESSAGE. Returns the length of what now stands in the buffer.
int end_with_newline(char* buffer, int length) noexcept;

/// A C stream in text mode writes "\r\n" for each newline; this is the same for a handle. Appends
/// text to a buffer that has room for twice its length and returns the end.
char* append_text_mode(char* to, std::string_view text) noexcept;

/// A headline, a message and what ends it, put together so that they can be written in one piece.
/// Lines of ordinary length need no memory but the object itself.
class ComposedLine
{
public:
    /// headline: empty for a bare line, else it is followed by a blank. A line for which there is no
    /// memory is cut.
    ComposedLine(std::string_view headline, std::string_view message, std::string_view end) noexcept;

    std::string_view text() const noexcept { return m_text; }

private:
    char m_small[MESSAGE_SIZE + 256]; // a longest message, a longest headline and what joins them
    std::unique_ptr<char[]> m_large;
    std::string_view m_text;
};
} // namespace kor::core

#endif // KOR_CORE_MESSAGE_H
