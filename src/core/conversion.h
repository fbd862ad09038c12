// conversion.h - what a printf format asks for, conversion by conversion, and wide texts in UTF-8.

#ifndef KOR_CORE_CONVERSION_H
#define KOR_CORE_CONVERSION_H

#include <cstddef>
#include <cstdint>

namespace kor::core
{
/// One conversion of a format, as the system C runtime reads it.
struct Conversion
{
    enum Kind
    {
        NONE,  ///< takes no argument: %%, or what the runtime does not know
        OTHER, ///< takes one, which is no wide text
        WIDE_TEXT,
        WIDE_CHARACTER
    };

    static constexpr int UNSET = -1;
    static constexpr int ARGUMENT = -2; ///< an asterisk: an int in front of the conversion's own argument

    Kind kind = NONE;
    std::size_t size = 0; ///< characters of the format, with the percent sign
    bool left = false;
    bool zeros = false;
    int width = UNSET;     ///< a number, UNSET or ARGUMENT
    int precision = UNSET; ///< the same
};

/// format: at a percent sign.
Conversion read_conversion(const char* format) noexcept;

/// A character in UTF-8.
struct Utf8
{
    char bytes[4];
    std::size_t size;
};

/// A wide text as the characters that it has in UTF-8. Half a surrogate pair, or what is no character, is the
/// replacement character U+FFFD.
class WideText
{
public:
    /// most: bytes in UTF-8; the text ends with the last whole character that they hold. It is read no further than
    /// a text of so many bytes goes, so it needs no terminator then.
    WideText(const wchar_t* text, std::size_t most) noexcept : m_at(text), m_most(most) {}

    /// False at the end.
    bool next(Utf8& character) noexcept;

private:
    const wchar_t* m_at;
    std::size_t m_most;
};
} // namespace kor::core

#endif // KOR_CORE_CONVERSION_H
