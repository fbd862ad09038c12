// message_table_reader.h - what a message table says, read from its bytes with no trust in them.

#ifndef KOR_TESTS_MESSAGE_TABLE_READER_H
#define KOR_TESTS_MESSAGE_TABLE_READER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class MessageTableReader
{
public:
    explicit MessageTableReader(const std::vector<std::uint8_t>& bytes) : m_bytes(bytes) {}

    /// Nothing where a number is not in order, lies outside or leaves a part of the bytes unused.
    std::optional<std::map<std::uint32_t, std::u16string>> read() const
    {
        std::map<std::uint32_t, std::u16string> texts;
        const std::size_t blocks = at(0, 4);
        std::size_t next = 4 + blocks * 12;
        for (std::size_t block = 0; block < blocks; ++block)
        {
            const std::size_t begin = 4 + block * 12;
            const std::uint32_t first = at(begin, 4);
            const std::uint32_t last = at(begin + 4, 4);
            if (at(begin + 8, 4) != next || first > last || (!texts.empty() && first <= texts.rbegin()->first + 1))
                return std::nullopt;
            for (std::uint64_t number = first; number <= last; ++number)
                if (!take(next, texts[static_cast<std::uint32_t>(number)]))
                    return std::nullopt;
        }
        if (next != m_bytes.size())
            return std::nullopt;
        return texts;
    }

private:
    bool take(std::size_t& offset, std::u16string& text) const
    {
        const std::size_t size = at(offset, 2);
        if (offset % 4 != 0 || size % 4 != 0 || size < 8 || offset + size > m_bytes.size() || at(offset + 2, 2) != 1)
            return false;
        // All at once: unit by unit a fuzz target spends nearly all of its time here.
        std::u16string units((size - 4) / 2, u'\0');
        std::memcpy(units.data(), m_bytes.data() + offset + 4, size - 4);
        offset += size;
        const std::size_t end = units.find(u'\0');
        if (end == std::u16string::npos || units.find_first_not_of(u'\0', end) != std::u16string::npos)
            return false;
        units.resize(end);
        text = std::move(units);
        return true;
    }

    std::uint32_t at(std::size_t offset, std::size_t size) const
    {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size && offset + i < m_bytes.size(); ++i)
            value |= static_cast<std::uint32_t>(m_bytes[offset + i]) << 8 * i;
        return value;
    }

    const std::vector<std::uint8_t>& m_bytes;
};

#endif // KOR_TESTS_MESSAGE_TABLE_READER_H
