// text_blocks.h - text on its way out, collected into blocks of a fixed size.

#ifndef KOR_CORE_TEXT_BLOCKS_H
#define KOR_CORE_TEXT_BLOCKS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kor::core
{
/// Collects text and hands it on whenever a block is full. Takes no memory, as it writes crash reports.
class TextBlocks
{
public:
    /// Characters. A file takes 64 KB of UTF-16 in fewer and quicker writes than smaller pieces.
    static constexpr std::size_t BLOCK_SIZE = 32 * 1024;

    TextBlocks() = default;
    TextBlocks(const TextBlocks&) = delete;
    TextBlocks& operator=(const TextBlocks&) = delete;
    virtual ~TextBlocks() = default;

    void put(std::wstring_view text)
    {
        if (text.size() > BLOCK_SIZE - m_used)
        {
            put_in_pieces(text);
            return;
        }
        std::copy(text.begin(), text.end(), m_block + m_used);
        m_used += text.size();
    }

    /// A literal. Its length is known, where that of a pointer is counted by the C runtime, and so it is put in a few moves:
    /// a report is made of literals for its greater part.
    template <std::size_t SIZE>
    void put(const wchar_t (&literal)[SIZE])
    {
        constexpr std::size_t LENGTH = SIZE - 1;
        if (LENGTH > BLOCK_SIZE - m_used)
        {
            put_in_pieces({literal, LENGTH});
            return;
        }
        std::memcpy(m_block + m_used, literal, LENGTH * sizeof(wchar_t));
        m_used += LENGTH;
    }

    /// With the five XML escapes. What XML does not allow at all becomes U+FFFD: control characters, halves of
    /// surrogate pairs, and the two characters at the end of the plane.
    void put_escaped(std::wstring_view text);

    void put_number(std::int64_t value);

    /// With six digits behind a point, whatever the locale.
    void put_fraction(double value);

    /// Hands on what the last block holds.
    void flush();

    /// Forgets what the last block holds.
    void discard() noexcept { m_used = 0; }

protected:
    /// Passes on what it throws; the text is then lost.
    virtual void write(const wchar_t* text, std::size_t length) = 0;

private:
    void put_in_pieces(std::wstring_view text);
    void put_digits(const char* begin, const char* end);
    std::size_t put_plain(std::wstring_view text);

    std::size_t m_used = 0;
    wchar_t m_block[BLOCK_SIZE];
};

/// How many characters at the front of text XML allows as they are: without any that has to be escaped or replaced.
std::size_t count_plain(std::wstring_view text) noexcept;

/// What stands in XML for the first character of text, which must not be empty: an escape, U+FFFD, or the
/// character itself. length: how many characters of text that is, 2 for a surrogate pair.
std::wstring_view xml_form(std::wstring_view text, std::size_t& length) noexcept;

/// text with U+FFFD in place of what XML does not allow, for writers that do the escaping themselves.
std::wstring replace_forbidden(std::wstring_view text);
} // namespace kor::core

#endif // KOR_CORE_TEXT_BLOCKS_H
