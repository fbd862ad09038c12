#include "core/safe_text.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <new>

#include "core/bounded_text.h"
#include "core/eight_bytes.h"

namespace kor::core
{
namespace
{
/// Looks whether all bytes of a text are printable ASCII characters, eight of them at a time.
class Printable
{
public:
    void look_at(const char* bytes) noexcept
    {
        std::uint64_t text = 0;
        std::memcpy(&text, bytes, sizeof text);
        m_other |= not_printable(text);
    }
    bool all() const noexcept { return (m_other & TOP_BITS) == 0; }

private:
    std::uint64_t m_other = 0;
};

/// True when there is nothing in a text but printable ASCII characters.
bool is_printable(std::string_view text) noexcept
{
    const char* const data = text.data();
    Printable seen;
    if (text.size() < EIGHT)
    {
        char filled[EIGHT];
        std::memset(filled, ' ', sizeof filled);
        copy_text(filled, data, text.size());
        seen.look_at(filled);
        return seen.all();
    }
    const std::size_t last = text.size() - EIGHT;
    for (std::size_t at = 0; at < last; at += EIGHT)
        seen.look_at(data + at);
    seen.look_at(data + last);
    return seen.all();
}

/// True when one of the bytes begins something that may not be safe: a control character, or what those of
/// more than one byte begin with (0xC2 and 0xE2, which differ in one bit).
constexpr bool has_suspect(std::uint64_t bytes) noexcept
{
    const bool has_control = ((bytes - EACH_BYTE * 0x20) & ~bytes & TOP_BITS) != 0;
    return has_control || has_byte(bytes, 0x7F) || has_byte(bytes | EACH_BYTE * 0x20, 0xE2);
}

/// A piece of a text that stays together.
struct Unit
{
    std::size_t length;
    unsigned int escaped; ///< the character to be escaped; 0 when it is to be written as it is, or is no character
    bool is_unsafe;
};

Unit unit_of_bytes(std::string_view text, std::size_t at) noexcept
{
    const unsigned char first = byte_at(text, at);
    const std::size_t wanted = is_within(first, 0xC2, 0xDF)   ? 2
                               : is_within(first, 0xE0, 0xEF) ? 3
                               : is_within(first, 0xF0, 0xF4) ? 4
                                                              : 1;
    for (std::size_t i = 1; i < wanted; ++i)
        if (!is_within(byte_at(text, at + i), 0x80, 0xBF))
            return {1, 0, false};
    return {wanted, 0, false};
}

Unit unit_at(std::string_view text, std::size_t at, SafeStyle style) noexcept
{
    const unsigned char first = byte_at(text, at);
    if (first < 0x20)
        return {1, first, first != '\t' || style == SafeStyle::NAME};
    if (first == 0x7F)
        return {1, first, true};
    if (first < 0x80)
        return {1, 0, false};
    const Unit unit = unit_of_bytes(text, at);
    const unsigned char second = byte_at(text, at + 1);
    const unsigned char third = byte_at(text, at + 2);
    if (unit.length == 2 && first == 0xC2 && second <= 0x9F)
        return {2, second, true};
    if (unit.length == 3 && first == 0xE2 &&
        ((second == 0x80 && is_within(third, 0xA8, 0xAE)) || (second == 0x81 && is_within(third, 0xA6, 0xA9))))
        return {3, 0x2000U + (second & 0x3FU) * 0x40U + (third & 0x3FU), true};
    return unit;
}

/// The escape of a character. to: at least 6 characters. Returns the length.
std::size_t write_escape(char* to, unsigned int character) noexcept
{
    constexpr char DIGITS[] = "0123456789abcdef";
    *to++ = '\\';
    const char* const named = character == '\n' ? "n" : character == '\r' ? "r" : character == '\t' ? "t" : nullptr;
    if (named != nullptr)
    {
        *to = *named;
        return 2;
    }
    const int digits = character < 0x80 ? 2 : 4;
    *to++ = digits == 2 ? 'x' : 'u';
    for (int i = digits - 1; i >= 0; --i)
        *to++ = DIGITS[(character >> (4 * i)) & 0xF];
    return static_cast<std::size_t>(digits) + 2;
}

/// What stands for a unit: at most a newline and what a further line begins with.
struct Written
{
    char text[8];
    std::size_t length;
    std::size_t read;
};
static_assert(FURTHER_LINE.size() + 1 <= sizeof Written::text);

Written write_unit(std::string_view text, std::size_t at, SafeStyle style) noexcept
{
    Written written{};
    const Unit unit = unit_at(text, at, style);
    written.read = unit.length;
    const bool is_pair = text[at] == '\r' && byte_at(text, at + 1) == '\n' && at + 1 < text.size();
    if (style == SafeStyle::MESSAGE && (text[at] == '\n' || is_pair))
    {
        written.read = is_pair ? 2 : 1;
        written.text[written.length++] = '\n';
        const std::size_t next = at + written.read;
        const bool is_empty = next >= text.size() || text[next] == '\n' || text.substr(next, 2) == "\r\n";
        if (!is_empty)
            written.length = static_cast<std::size_t>(
                copy_text(written.text + 1, FURTHER_LINE.data(), FURTHER_LINE.size()) - written.text);
    }
    else if (unit.is_unsafe)
        written.length = write_escape(written.text, unit.escaped);
    else
        written.length =
            static_cast<std::size_t>(copy_text(written.text, text.data() + at, unit.length) - written.text);
    return written;
}
} // namespace

namespace
{
/// The slow half of is_safe: for a text that is not all printable ASCII.
bool has_only_safe_units(std::string_view text, SafeStyle style) noexcept
{
    for (std::size_t at = 0; at < text.size();)
    {
        std::uint64_t bytes = 0;
        if (text.size() - at >= sizeof bytes)
        {
            std::memcpy(&bytes, text.data() + at, sizeof bytes);
            if (!has_suspect(bytes))
            {
                at += sizeof bytes;
                continue;
            }
        }
        const Unit unit = unit_at(text, at, style);
        if (unit.is_unsafe)
            return false;
        at += unit.length;
    }
    return true;
}
} // namespace

bool is_safe(std::string_view text, SafeStyle style) noexcept
{
    return is_printable(text) || has_only_safe_units(text, style);
}

SafeText write_safe(Buffer to, std::string_view text, SafeStyle style) noexcept
{
    SafeText result{0, 0};
    while (result.read < text.size())
    {
        const Written unit = write_unit(text, result.read, style);
        if (unit.length > to.size - result.written)
            break;
        copy_text(to.data + result.written, unit.text, unit.length);
        result.written += unit.length;
        result.read += unit.read;
    }
    return result;
}

std::size_t safe_size(std::string_view text, SafeStyle style) noexcept
{
    std::size_t size = 0;
    for (std::size_t at = 0; at < text.size();)
    {
        const Written unit = write_unit(text, at, style);
        size += unit.length;
        at += unit.read;
    }
    return size;
}

int make_name_safe(Buffer to, int length) noexcept
{
    const std::size_t most = to.size - 1;
    const std::size_t size = length < 0 ? most : static_cast<std::size_t>(length);
    if (is_safe({to.data, size}, SafeStyle::NAME))
        return length;
    char safe[LONGEST_SAFE_MESSAGE];
    assert(most <= sizeof safe);
    const SafeText made = write_safe({safe, most}, {to.data, size}, SafeStyle::NAME);
    const bool is_cut = length < 0 || made.read < size;
    copy_text(to.data, safe, made.written);
    // Readers know a text that was cut by its being as long as it can be.
    const std::size_t end = is_cut ? most : made.written;
    std::memset(to.data + made.written, '.', end - made.written);
    to.data[end] = '\0';
    return is_cut ? -1 : static_cast<int>(end);
}

namespace
{
/// "... [954 cut]", of which the count is at most that of most.
std::size_t size_of_mark(std::size_t most) noexcept
{
    char mark[48];
    return static_cast<std::size_t>(
        BoundedText(mark, sizeof mark).add("... [").add_unsigned(most).add(" cut]").finish());
}
} // namespace

namespace
{
/// Those that a text ends with, as what comes behind would begin a line at its edge.
void drop_line_breaks(SafeText& made, const char* text, std::string_view body) noexcept
{
    for (; made.written > 0 && text[made.written - 1] == '\n'; --made.written)
    {
        --made.read;
        if (made.read > 0 && body[made.read - 1] == '\r')
            --made.read;
    }
}
} // namespace

int make_message_safe(Buffer to, int length, std::size_t whole, bool indented) noexcept
{
    const std::size_t size = length < 0 ? to.size - 1 : static_cast<std::size_t>(length);
    const std::size_t most = to.size - 2;
    const bool is_whole = length >= 0;
    const bool has_newline = is_whole && size > 0 && to.data[size - 1] == '\n';
    const std::string_view body(to.data, size - (has_newline ? 1 : 0));
    const std::string_view indent =
        indented && !body.empty() && body.front() != '\n' ? FURTHER_LINE : std::string_view();
    if (is_whole && body.size() <= most && indent.empty() && is_safe(body, SafeStyle::MESSAGE))
        return length;

    char safe[LONGEST_SAFE_MESSAGE];
    assert(to.size <= sizeof safe);
    char* const text = copy_text(safe, indent.data(), indent.size());
    const std::size_t room = most - indent.size();
    SafeText made = write_safe({text, room}, body, SafeStyle::MESSAGE);
    BoundedText end(text + made.written, sizeof safe - indent.size() - made.written);
    if (!is_whole || made.read < body.size())
    {
        const std::size_t all = std::max(is_whole ? body.size() : whole, body.size());
        made = write_safe({text, room - size_of_mark(all)}, body, SafeStyle::MESSAGE);
        // With what that is short of, the mark may be shorter, and then more of the text fits.
        made = write_safe({text, room - size_of_mark(all - made.read)}, body, SafeStyle::MESSAGE);
        drop_line_breaks(made, text, body);
        if (made.written == 0 && indented && indent.empty()) // it was nothing but line breaks
            made.written = static_cast<std::size_t>(copy_text(text, FURTHER_LINE.data(), FURTHER_LINE.size()) - text);
        end = BoundedText(text + made.written, sizeof safe - indent.size() - made.written);
        end.add("... [").add_unsigned(all - made.read).add(" cut]");
    }
    if (has_newline)
        end.add('\n');
    const auto tail = static_cast<std::size_t>(end.finish());
    const std::size_t result = indent.size() + made.written + tail;
    std::memcpy(to.data, safe, result + 1);
    return static_cast<int>(result);
}

SafeMessage::SafeMessage(std::string_view text, bool ends_line, bool indented) noexcept : m_text(text)
{
    const std::string_view body = text.substr(0, text.size() - (ends_line ? 1 : 0));
    const std::string_view indent =
        indented && !body.empty() && body.front() != '\n' ? FURTHER_LINE : std::string_view();
    if (indent.empty() && is_safe(body, SafeStyle::MESSAGE))
        return;
    const std::size_t size = indent.size() + safe_size(body, SafeStyle::MESSAGE) + (ends_line ? 1 : 0);
    char* buffer = m_small;
    std::size_t room = sizeof m_small - 2; // without the newline and the terminator
    if (size >= sizeof m_small)
        m_large.reset(new (std::nothrow) char[size + 1]);
    if (m_large)
    {
        buffer = m_large.get();
        room = size;
    }
    char* const at = copy_text(buffer, indent.data(), indent.size());
    const SafeText made = write_safe({at, room - indent.size()}, body, SafeStyle::MESSAGE);
    char* end = at + made.written;
    if (ends_line)
        *end++ = '\n';
    *end = '\0';
    m_text = {buffer, static_cast<std::size_t>(end - buffer)};
}
} // namespace kor::core
