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

/// Bytes of a line's buffer: a longest message, a longest headline, what joins and what ends them.
constexpr std::size_t LINE_SIZE = MESSAGE_SIZE + 256;

/// What a message becomes whose arguments do not fit its format.
constexpr std::string_view FORMAT_ERROR =
    "!!! ERROR !!! Caught exception while formatting log message - Check log line for format discrepancy and null "
    "values. !!! ERROR !!!\n";

/// Gives a formatted text its newline. buffer: MESSAGE_SIZE bytes. length: the formatter's result, -1
/// when the text was cut at MAX_MESSAGE. Returns the length of what now stands in the buffer.
int end_with_newline(char* buffer, int length) noexcept;

/// What becomes a line of a file or of the console.
struct LineParts
{
    std::string_view headline; ///< empty: a bare line; else a blank follows
    std::string_view message;
    std::string_view end;

    std::string_view join() const noexcept { return headline.empty() ? "" : " "; }
    std::size_t size() const noexcept { return headline.size() + join().size() + message.size() + end.size(); }
};

/// A C stream in text mode writes "\r\n" for each newline; this is the same for a handle. Appends
/// text to a buffer that has room for twice its length and returns the end.
char* append_text_mode(char* to, std::string_view text) noexcept;

/// The same for a line.
char* append_text_mode(char* to, const LineParts& line) noexcept;

/// Appends a line as it is to a buffer that has room for it and returns the end.
char* append(char* to, const LineParts& line) noexcept;

/// The parts of a line put together, so that they can be written in one piece.
/// Lines of ordinary length need no memory but the object itself.
class ComposedLine
{
public:
    /// A line for which there is no memory is cut.
    explicit ComposedLine(const LineParts& parts) noexcept;
    ComposedLine(const ComposedLine&) = delete;
    ComposedLine& operator=(const ComposedLine&) = delete;

    std::string_view text() const noexcept { return m_text; }

private:
    char m_small[LINE_SIZE];
    std::unique_ptr<char[]> m_large;
    std::string_view m_text;
};
} // namespace kor::core

#endif // KOR_CORE_MESSAGE_H
