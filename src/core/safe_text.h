// safe_text.h - texts from outside, written so that none of them passes for a line of the log or drives a terminal.

#ifndef KOR_CORE_SAFE_TEXT_H
#define KOR_CORE_SAFE_TEXT_H

#include <cstddef>
#include <memory>
#include <string_view>

#include "core/headline.h"

namespace kor::core
{
/// What stands in front of each further line of a message. No line that the log itself begins starts with a blank.
constexpr std::string_view FURTHER_LINE = "    ";

/// How a text is written.
enum class SafeStyle
{
    NAME,   ///< on one line: line breaks and tabs are escaped, too
    MESSAGE ///< tabs stay, and further lines get FURTHER_LINE in front, unless they are empty
};

/// True when a text can be written as it is. What can not: control characters (C0 but tabs in a message, DEL, and C1 in
/// UTF-8), and the Unicode characters that end a line (U+2028, U+2029) or change the order in which one is shown (U+202A
/// to U+202E, U+2066 to U+2069). Bytes that are no UTF-8 count as letters of a code page. False for a line break even where
/// nothing would be done about it.
bool is_safe(std::string_view text, SafeStyle style) noexcept;

/// What became of a text.
struct SafeText
{
    std::size_t written; ///< characters
    std::size_t read;    ///< of the text; less than all of it: there was no more room
};

/// Writes a text with "\n", "\r", "\t", "\x1b" or "\u009b" for what is_safe does not let pass; "\r\n" is one line break.
/// Neither an escape nor a character of UTF-8 is ever cut in two. Backslashes that the text has stay as they are.
SafeText write_safe(Buffer to, std::string_view text, SafeStyle style) noexcept;

/// How many characters write_safe makes of a text.
std::size_t safe_size(std::string_view text, SafeStyle style) noexcept;

/// Makes a headline or a name safe where it stands. to: with a terminated text. length: of the text, -1 for one that was
/// cut and fills the buffer. Returns the new length, -1 when the buffer is full and what it had no room for is cut.
int make_name_safe(Buffer to, int length) noexcept;

/// Makes a formatted message safe where it stands. to: a buffer, of which a message may fill all but the last two
/// characters, with newline and terminator behind. length: of the terminated text in it, -1 when it was cut and fills the
/// buffer. whole: the length that it would have had. indented: with FURTHER_LINE in front of the first line, too, unless
/// that is empty. Returns the length. A newline at the end stays. A message that is not all there ends in "... [954 cut]",
/// which counts the characters of the whole that are missing.
int make_message_safe(Buffer to, int length, std::size_t whole, bool indented) noexcept;

/// A finished text of any length, made safe; it is not cut but where there is no memory for more than an ordinary message.
class SafeMessage
{
public:
    /// text: ends at a terminator, and stays. ends_line: its last character is the newline of its line. indented: as above.
    SafeMessage(std::string_view text, bool ends_line, bool indented) noexcept;
    SafeMessage(const SafeMessage&) = delete;
    SafeMessage& operator=(const SafeMessage&) = delete;

    /// Ends at a terminator.
    std::string_view text() const noexcept { return m_text; }

private:
    std::string_view m_text;
    std::unique_ptr<char[]> m_large;
    char m_small[2048];
};

/// The longest buffer that make_message_safe takes.
constexpr std::size_t LONGEST_SAFE_MESSAGE = 2048;
} // namespace kor::core

#endif // KOR_CORE_SAFE_TEXT_H
