// recorded_lines.h - recorded lines as they lie in memory, read without a line of the library's own reader or writer.

#ifndef KOR_TESTS_RECORDED_LINES_H
#define KOR_TESTS_RECORDED_LINES_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace recorded
{
struct Line
{
    std::uint64_t sequence;
    std::uint64_t time;
    std::uint32_t thread;
    unsigned int level;
    unsigned int flags; // 1: written, 2: bare, 4: cut
    unsigned int package;
    std::string text;
};

struct Lines
{
    std::uint32_t process;
    std::uint64_t created;
    std::uint64_t dropped;
    std::uint64_t lost;
    std::vector<Line> lines; // by sequence
};

/// Words of eight bytes, each read once, as somebody may be writing.
class Words
{
public:
    Words(const void* memory, std::size_t size)
        : m_words(static_cast<const std::atomic<std::uint64_t>*>(memory)), m_count(size / 8)
    {
    }
    std::size_t count() const { return m_count; }
    std::uint64_t at(std::size_t word) const { return word < m_count ? m_words[word].load() : 0; }
    std::uint32_t low(std::size_t word) const { return static_cast<std::uint32_t>(at(word) % 0x100000000); }
    std::uint32_t high(std::size_t word) const { return static_cast<std::uint32_t>(at(word) / 0x100000000); }

private:
    const std::atomic<std::uint64_t>* m_words;
    std::size_t m_count;
};

/// The bytes of a block behind its header; empty when it is emptied again and again.
inline std::vector<std::uint64_t> bytes_of_block(const Words& words, std::size_t first, std::size_t count)
{
    for (int tries = 0; tries < 4; ++tries)
    {
        const std::uint64_t generation = words.at(first);
        const std::uint64_t used = std::min<std::uint64_t>(words.at(first + 1) / 8, count - 2);
        std::vector<std::uint64_t> copy;
        for (std::uint64_t i = 0; i < used; ++i)
            copy.push_back(words.at(first + 2 + static_cast<std::size_t>(i)));
        if (words.at(first) == generation)
            return copy;
    }
    return {};
}

inline void add_lines(const std::vector<std::uint64_t>& block, std::vector<Line>& to)
{
    std::size_t at = 0;
    while (at + 4 <= block.size())
    {
        const std::size_t size = block[at] & 0xFFFFFFFF;
        const std::size_t words = size / 8 + (size % 8 == 0 ? 0 : 1);
        if (words > block.size() - at - 4)
            return;
        Line line{};
        line.thread = static_cast<std::uint32_t>(block[at] >> 32);
        line.sequence = block[at + 1];
        line.time = block[at + 2];
        line.level = static_cast<unsigned int>(block[at + 3] & 0xFF);
        line.flags = static_cast<unsigned int>(block[at + 3] >> 8 & 0xFF);
        line.package = static_cast<unsigned int>(block[at + 3] >> 16 & 0xFFFF);
        for (std::size_t i = 0; i < size; ++i)
            line.text += static_cast<char>(block[at + 4 + i / 8] >> (8 * (i % 8)) & 0xFF);
        to.push_back(std::move(line));
        at += 4 + words;
    }
}

/// Nothing when these are no recorded lines.
inline std::optional<Lines> read(const void* memory, std::size_t size)
{
    const Words words(memory, size);
    const std::uint32_t header = words.low(1);
    const std::uint32_t block = words.low(2);
    if (size < 64 || words.at(3) != 0x53454E494C4D554CU || words.low(4) != 1 || header < 64 || header > size ||
        header % 8 != 0 || words.high(1) != 16 || block < 16 || block % 8 != 0)
        return std::nullopt;
    Lines result{words.high(4), words.at(5), 0, 0, {}};
    const std::size_t there = (size - header) / block;
    const std::size_t count = std::min({std::size_t{words.high(2)}, there, std::size_t{64}});
    for (std::size_t i = 0; i < count; ++i)
        add_lines(bytes_of_block(words, (header + i * block) / 8, block / 8), result.lines);
    result.dropped = words.at(6);
    result.lost = words.at(7);
    std::stable_sort(
        result.lines.begin(), result.lines.end(),
        [](const Line& one, const Line& other) { return one.sequence < other.sequence; });
    return result;
}
} // namespace recorded

#endif // KOR_TESTS_RECORDED_LINES_H
