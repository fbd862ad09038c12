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

std::vector<Run> runs_of(const MessageTexts& texts)
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
    for (Run& run : runs)
        run.offset += BLOCK_COUNT_SIZE + runs.size() * BLOCK_SIZE;
    return runs;
}

void add_entry(Bytes& bytes, std::u16string_view text)
{
    const std::size_t size = entry_size(text);
    bytes.add16(static_cast<std::uint32_t>(size));
    bytes.add16(IS_UTF16);
    for (const char16_t unit : text)
        bytes.add16(unit);
    for (std::size_t used = ENTRY_HEADER_SIZE + 2 * text.size(); used < size; used += 2)
        bytes.add16(0);
}
} // namespace

std::u16string plain_message(std::u16string_view text)
{
    std::u16string message;
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
    const std::vector<Run> runs = runs_of(texts);
    Bytes bytes;
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
