#include "core/json_line.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "core/bounded_text.h"
#include "core/calendar.h"
#include "core/eight_bytes.h"

namespace kor::core
{
namespace
{
constexpr std::size_t LONGEST_ESCAPE = 6; // "\u001b"; no byte becomes more
constexpr std::string_view LINE_END = "\"}\n";

/// True when eight bytes are printable ASCII characters that mean nothing in a string of JSON.
constexpr bool is_plain(std::uint64_t bytes) noexcept
{
    return (not_printable(bytes) & TOP_BITS) == 0 && !has_byte(bytes, '"') && !has_byte(bytes, '\\');
}

constexpr bool is_continuation(unsigned char byte) noexcept { return (byte & 0xC0U) == 0x80; }

/// How many bytes a character of UTF-8 has that begins with this one; 0: none does, and it is no ASCII.
constexpr std::size_t length_by_first(unsigned char first) noexcept
{
    if (first < 0x80)
        return 1;
    return is_within(first, 0xC2, 0xDF) ? 2 : is_within(first, 0xE0, 0xEF) ? 3 : is_within(first, 0xF0, 0xF4) ? 4 : 0;
}

/// Whether the second byte is none of a longer form of another character, of half a pair, or of what is beyond Unicode.
constexpr bool can_follow(unsigned char first, unsigned char second) noexcept
{
    switch (first)
    {
    case 0xE0:
        return is_within(second, 0xA0, 0xBF);
    case 0xED:
        return is_within(second, 0x80, 0x9F);
    case 0xF0:
        return is_within(second, 0x90, 0xBF);
    case 0xF4:
        return is_within(second, 0x80, 0x8F);
    default:
        return is_continuation(second);
    }
}

/// The length of the character of UTF-8 at the beginning of a text, 0 when there is none.
std::size_t length_of_character(std::string_view text) noexcept
{
    const unsigned char first = byte_at(text, 0);
    const std::size_t length = length_by_first(first);
    if (length <= 1)
        return length;
    if (!can_follow(first, byte_at(text, 1)))
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (!is_continuation(byte_at(text, i)))
            return 0;
    return length;
}

/// The character, of those in the Basic Multilingual Plane, that length bytes of UTF-8 are.
char16_t character_of(std::string_view text, std::size_t length) noexcept
{
    const unsigned int first = byte_at(text, 0);
    const unsigned int second = byte_at(text, 1) & 0x3FU;
    if (length == 2)
        return static_cast<char16_t>((first & 0x1FU) << 6 | second);
    return static_cast<char16_t>((first & 0x0FU) << 12 | second << 6 | (byte_at(text, 2) & 0x3FU));
}

constexpr bool must_be_escaped(char16_t character) noexcept
{
    return character < 0x20 || character == '"' || character == '\\' || is_within(character, 0x7F, 0x9F) ||
           is_within(character, 0x2028, 0x202E) || is_within(character, 0x2066, 0x2069);
}

/// Writes an object, the beginning of which has to fit.
class JsonWriter
{
public:
    explicit JsonWriter(Buffer to) noexcept : m_begin(to.data), m_at(to.data), m_end(to.data + to.size) {}

    template <std::size_t SIZE>
    JsonWriter& add(const char (&literal)[SIZE]) noexcept
    {
        return copy(literal, SIZE - 1);
    }

    template <class Number>
    JsonWriter& add_number(Number value) noexcept
    {
        const std::to_chars_result result = std::to_chars(m_at, m_end, value);
        m_is_full = m_is_full || result.ec != std::errc();
        m_at = m_is_full ? m_at : result.ptr;
        return *this;
    }

    /// Of two digits, or three.
    JsonWriter& add_digits(std::int64_t value, int count) noexcept
    {
        char digits[8];
        for (int i = count - 1; i >= 0; --i, value /= 10)
            digits[i] = static_cast<char>('0' + value % 10);
        return copy(digits, static_cast<std::size_t>(count));
    }

    /// What does not fit is left out, from a character on.
    JsonWriter& add_text(std::string_view text, const CodePage& other) noexcept
    {
        while (!text.empty() && !m_is_full)
        {
            std::uint64_t bytes = 0;
            if (text.size() >= EIGHT && room() >= EIGHT)
            {
                std::memcpy(&bytes, text.data(), EIGHT);
                if (is_plain(bytes))
                {
                    std::memcpy(m_at, &bytes, EIGHT);
                    m_at += EIGHT;
                    text.remove_prefix(EIGHT);
                    continue;
                }
            }
            text.remove_prefix(add_character(text, other));
        }
        return *this;
    }

    /// ',"name":"text"', unless the text is empty.
    template <std::size_t SIZE>
    JsonWriter& add_name(const char (&key)[SIZE], std::string_view text, const CodePage& other) noexcept
    {
        if (text.empty())
            return *this;
        return add(key).add_text(text, other).add("\"");
    }

    /// Keeps room for what comes behind a text, or gives it back.
    void reserve(std::size_t size) noexcept
    {
        m_is_full = m_is_full || room() < size;
        m_end -= m_is_full ? 0 : size;
    }
    void give_back(std::size_t size) noexcept
    {
        m_end += size;
        m_is_full = false;
    }

    bool is_full() const noexcept { return m_is_full; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(m_at - m_begin); }

private:
    std::size_t room() const noexcept { return static_cast<std::size_t>(m_end - m_at); }

    JsonWriter& copy(const char* text, std::size_t size) noexcept
    {
        m_is_full = m_is_full || size > room();
        if (!m_is_full)
            m_at = copy_text(m_at, text, size);
        return *this;
    }

    /// Writes the first character of a text, which is not empty. Returns how many bytes it has there.
    std::size_t add_character(std::string_view text, const CodePage& other) noexcept
    {
        const std::size_t length = length_of_character(text);
        if (length == 0)
        {
            add_encoded(other[byte_at(text, 0) - 0x80U]);
            return 1;
        }
        constexpr std::size_t LENGTH_BEYOND_PLANE = 4; // where nothing is escaped
        const char16_t character = length == 1 ? byte_at(text, 0) : character_of(text, length);
        if (length < LENGTH_BEYOND_PLANE && must_be_escaped(character))
            add_escape(character);
        else
            copy(text.data(), length);
        return length;
    }

    void add_escape(char16_t character) noexcept
    {
        constexpr char DIGITS[] = "0123456789abcdef";
        constexpr std::string_view NAMED = "\"\\\b\f\n\r\t";
        constexpr char NAMES[] = "\"\\bfnrt";
        char text[LONGEST_ESCAPE] = {'\\', 'u'};
        const std::size_t named = character < 0x80 ? NAMED.find(static_cast<char>(character)) : std::string_view::npos;
        if (named != std::string_view::npos)
        {
            text[1] = NAMES[named];
            copy(text, 2);
            return;
        }
        for (std::size_t i = 0; i < 4; ++i)
            text[2 + i] = DIGITS[(static_cast<unsigned int>(character) >> (12 - 4 * i)) & 0xFU];
        copy(text, sizeof text);
    }

    /// In UTF-8. Half a pair of surrogates is no character.
    void add_encoded(char16_t character) noexcept
    {
        if (must_be_escaped(character))
            return add_escape(character);
        const unsigned int code = is_within(character, 0xD800, 0xDFFF) ? REPLACEMENT : character;
        char text[3];
        std::size_t size = 0;
        if (code < 0x80)
            text[size++] = static_cast<char>(code);
        else if (code < 0x800)
            text[size++] = static_cast<char>(0xC0U | code >> 6);
        else
        {
            text[size++] = static_cast<char>(0xE0U | code >> 12);
            text[size++] = static_cast<char>(0x80U | (code >> 6 & 0x3FU));
        }
        if (code >= 0x80)
            text[size++] = static_cast<char>(0x80U | (code & 0x3FU));
        copy(text, size);
    }

    char* const m_begin;
    char* m_at;
    char* m_end;
    bool m_is_full = false;
};

void add_time(JsonWriter& json, const JsonLine& from) noexcept
{
    constexpr std::int64_t LAST_YEAR = 9999;
    constexpr std::int64_t LAST = days_since_1970({LAST_YEAR, 12, 31}) * MS_PER_DAY + MS_PER_DAY - 1;
    const std::int64_t utc = std::clamp<std::int64_t>(from.utc_ms, 0, LAST);
    const Date date = date_of(utc / MS_PER_DAY);
    const std::int64_t seconds = utc % MS_PER_DAY / MS_PER_SECOND;
    json.add("{\"time\":\"")
        .add_digits(date.year, 4)
        .add("-")
        .add_digits(date.month, 2)
        .add("-")
        .add_digits(date.day, 2);
    json.add("T").add_digits(seconds / SECONDS_PER_HOUR, 2);
    json.add(":").add_digits(seconds / SECONDS_PER_MINUTE % 60, 2);
    json.add(":").add_digits(seconds % SECONDS_PER_MINUTE, 2).add(".").add_digits(utc % MS_PER_SECOND, 3);
    json.add(from.zone_minutes < 0 ? "Z\",\"zone\":\"-" : "Z\",\"zone\":\"+");
    const int minutes = std::abs(from.zone_minutes);
    json.add_digits(minutes / 60, 2).add(":").add_digits(minutes % 60, 2).add("\"");
}

void add_place(JsonWriter& json, const JsonLine& from, const CodePage& other) noexcept
{
    if (from.file.empty())
        return;
    json.add_name(",\"file\":\"", from.file, other).add(",\"line\":").add_number(from.line);
    json.add_name(",\"function\":\"", from.function, other);
}
} // namespace

WrittenJson write_json_line(Buffer to, const JsonLine& from, const CodePage& other) noexcept
{
    JsonWriter json(to);
    json.reserve(LINE_END.size());
    add_time(json, from);
    json.add(",\"level\":").add_number(from.level).add_name(",\"level_name\":\"", from.level_name, other);
    json.add(",\"package\":").add_number(from.package).add_name(",\"package_name\":\"", from.package_name, other);
    json.add_name(",\"application\":\"", from.application, other);
    json.add(",\"process\":").add_number(from.process).add(",\"thread\":").add_number(from.thread);
    json.add_name(",\"thread_name\":\"", from.thread_name, other).add_name(",\"client\":\"", from.client, other);
    if (from.session >= 1)
        json.add(",\"session\":").add_number(from.session);
    add_place(json, from, other);
    if (from.is_bare)
        json.add(",\"bare\":true");
    json.add_name(",\"run\":\"", from.run, other).add(",\"sequence\":").add_number(from.sequence).add(",\"text\":\"");
    if (json.is_full())
        return {0, true};
    const bool is_cut = json.add_text(from.text, other).is_full();
    json.give_back(LINE_END.size());
    json.add("\"}\n");
    return {json.size(), is_cut};
}

std::size_t most_json_size(const JsonLine& from) noexcept
{
    constexpr std::size_t FIXED = 512; // keys, numbers and times
    const std::size_t texts = from.level_name.size() + from.package_name.size() + from.application.size() +
                              from.thread_name.size() + from.client.size() + from.file.size() + from.function.size() +
                              from.run.size() + from.text.size();
    return FIXED + texts * LONGEST_ESCAPE;
}

std::string_view without_newline(std::string_view text) noexcept
{
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    return text;
}

std::string_view without_cut_character(std::string_view text) noexcept
{
    constexpr std::size_t MOST_BYTES = 4;
    for (std::size_t back = 1; back < MOST_BYTES && back <= text.size(); ++back)
    {
        const std::size_t at = text.size() - back;
        const unsigned char byte = byte_at(text, at);
        if (is_continuation(byte))
            continue;
        const bool is_begun = length_by_first(byte) > back && (back == 1 || can_follow(byte, byte_at(text, at + 1)));
        return is_begun ? text.substr(0, at) : text;
    }
    return text;
}
} // namespace kor::core
