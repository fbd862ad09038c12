#include "core/message_table.h"

#include <utility>

namespace kor::core
{
namespace
{
constexpr std::size_t BLOCK_COUNT_SIZE = 4;
constexpr std::size_t BLOCK_SIZE = 12;
constexpr std::size_t ENTRY_HEADER_SIZE = 4;
constexpr std::uint16_t IS_UTF16 = 1; // MESSAGE_RESOURCE_UNICODE

/// Numbers without a gap.
struct Run
{
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::size_t offset = 0; // of its first entry, from the table's begin
};

class Bytes
{
public:
    explicit Bytes(std::size_t size) { m_bytes.reserve(size); }

    void add16(std::uint32_t value)
    {
        m_bytes.push_back(static_cast<std::uint8_t>(value));
        m_bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    }

    void add32(std::size_t value)
    {
        add16(static_cast<std::uint32_t>(value & 0xFFFF));
        add16(static_cast<std::uint32_t>(value >> 16 & 0xFFFF));
    }

    void add(std::u16string_view text)
    {
        std::size_t at = m_bytes.size();
        m_bytes.resize(at + 2 * text.size());
        for (const char16_t unit : text)
        {
            m_bytes[at++] = static_cast<std::uint8_t>(unit);
            m_bytes[at++] = static_cast<std::uint8_t>(unit >> 8);
        }
    }

    std::vector<std::uint8_t> take() { return std::move(m_bytes); }

private:
    std::vector<std::uint8_t> m_bytes;
};

bool is_first_half(char16_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }

std::u16string_view cut(std::u16string_view text) noexcept
{
    if (text.size() <= MAX_TABLE_TEXT)
        return text;
    return text.substr(0, is_first_half(text[MAX_TABLE_TEXT - 1]) ? MAX_TABLE_TEXT - 1 : MAX_TABLE_TEXT);
}

/// With the zero at the end, and what makes the next entry begin at a multiple of four.
std::size_t entry_size(std::u16string_view text) noexcept
{
    return (ENTRY_HEADER_SIZE + 2 * (text.size() + 1) + 3) / 4 * 4;
}

/// size: of the whole table.
std::vector<Run> runs_of(const MessageTexts& texts, std::size_t& size)
{
    std::vector<Run> runs;
    std::size_t offset = 0;
    for (const auto& [number, text] : texts)
    {
        if (runs.empty() || number != runs.back().last + 1)
            runs.push_back({number, number, offset});
        runs.back().last = number;
        offset += entry_size(cut(text));
    }
    const std::size_t front = BLOCK_COUNT_SIZE + runs.size() * BLOCK_SIZE;
    for (Run& run : runs)
        run.offset += front;
    size = front + offset;
    return runs;
}

void add_entry(Bytes& bytes, std::u16string_view text)
{
    const std::size_t size = entry_size(text);
    bytes.add16(static_cast<std::uint32_t>(size));
    bytes.add16(IS_UTF16);
    bytes.add(text);
    for (std::size_t used = ENTRY_HEADER_SIZE + 2 * text.size(); used < size; used += 2)
        bytes.add16(0);
}
} // namespace

std::u16string plain_message(std::u16string_view text)
{
    std::u16string message;
    message.reserve(text.size() + 2);
    for (const char16_t unit : text)
    {
        message += unit < 0x20 || unit == 0x7F ? u' ' : unit;
        if (unit == u'%')
            message += unit;
    }
    return message + u"\r\n";
}

std::vector<std::uint8_t> message_table(const MessageTexts& texts)
{
    std::size_t size = 0;
    const std::vector<Run> runs = runs_of(texts, size);
    Bytes bytes(size);
    bytes.add32(runs.size());
    for (const Run& run : runs)
    {
        bytes.add32(run.first);
        bytes.add32(run.last);
        bytes.add32(run.offset);
    }
    for (const auto& [number, text] : texts)
        add_entry(bytes, cut(text));
    return bytes.take();
}
} // namespace kor::core
