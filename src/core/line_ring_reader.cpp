#include "core/line_ring_reader.h"

#include <algorithm>

namespace kor::core
{
namespace
{
constexpr std::size_t LINE_HEADER_WORDS = RING_LINE_HEADER_SIZE / RING_WORD;
constexpr int TRIES = 4; // a writer that empties a block while that is copied has 63 others to fill before it is back

std::uint64_t get(const RingWord& word) noexcept { return word.load(std::memory_order_relaxed); }

/// Words of the line that begins at a word, 0 when there is no whole line before end.
std::size_t words_of_line(const std::uint64_t* at, const std::uint64_t* end) noexcept
{
    const auto room = static_cast<std::size_t>(end - at);
    if (room < LINE_HEADER_WORDS)
        return 0;
    const std::size_t words = LINE_HEADER_WORDS + ring_words_size(ring_low(at[RING_LINE_SIZE_AND_THREAD])) / RING_WORD;
    return words <= room ? words : 0;
}

LineOfRing line_at(const std::uint64_t* at) noexcept
{
    const std::uint64_t place = at[RING_LINE_PLACE];
    const auto flags = static_cast<unsigned int>(place >> 8);
    const std::uint64_t size = at[RING_LINE_SIZE_AND_THREAD];
    return {
        at[RING_LINE_SEQUENCE],
        at[RING_LINE_TIME],
        ring_high(size),
        static_cast<int>(place & 0xFF),
        static_cast<int>(place >> 16 & 0xFFFF),
        (flags & RING_LINE_WRITTEN) != 0,
        (flags & RING_LINE_BARE) != 0,
        (flags & RING_LINE_CUT) != 0,
        {reinterpret_cast<const char*>(at + LINE_HEADER_WORDS), ring_low(size)}};
}
} // namespace

LineRingReader::LineRingReader(const void* ring, std::size_t size, void* room, std::size_t room_size) noexcept
{
    const auto* const words = static_cast<const RingWord*>(ring);
    if (size < RING_HEADER_SIZE || words[RING_MAGIC_WORD].load(std::memory_order_acquire) != RING_MAGIC)
        return;
    const std::uint64_t version = get(words[RING_VERSION_AND_PROCESS]);
    if (ring_low(version) != RING_VERSION)
        return;
    m_is_ring = true;
    m_owner = {ring_high(version), get(words[RING_CREATED])};
    copy_blocks(words, size, static_cast<std::uint64_t*>(room), room_size / RING_WORD);
    // After the blocks: what was dropped while they were copied may be missing.
    m_dropped = get(words[RING_DROPPED]);
    m_lost = get(words[RING_LOST]);
}

void LineRingReader::copy_blocks(
    const RingWord* ring, std::size_t size, std::uint64_t* room, std::size_t room_words) noexcept
{
    const std::uint64_t headers = get(ring[RING_HEADER_SIZES]);
    const std::uint64_t blocks = get(ring[RING_BLOCKS]);
    const std::size_t header = ring_low(headers);
    const std::size_t block = ring_low(blocks);
    const bool is_known = header >= RING_HEADER_SIZE && header <= size && header % RING_WORD == 0 &&
                          ring_high(headers) == RING_BLOCK_HEADER_SIZE && block >= RING_BLOCK_HEADER_SIZE &&
                          block % RING_WORD == 0;
    if (!is_known)
    {
        m_is_ring = false;
        return;
    }
    const std::size_t words = (block - RING_BLOCK_HEADER_SIZE) / RING_WORD;
    const std::size_t there = std::min<std::size_t>((size - header) / block, MOST_RING_BLOCKS);
    const std::size_t count = std::min<std::size_t>(ring_high(blocks), there);
    for (std::size_t i = 0; i < count && room_words >= words; ++i, room += words, room_words -= words)
        copy_block(ring + (header + i * block) / RING_WORD, words, room);
}

/// Leaves it out when it is emptied again and again meanwhile.
void LineRingReader::copy_block(const RingWord* block, std::size_t words, std::uint64_t* room) noexcept
{
    const RingWord* const lines = block + RING_BLOCK_HEADER_SIZE / RING_WORD;
    for (int tries = 0; tries < TRIES; ++tries)
    {
        const std::uint64_t generation = block[RING_BLOCK_GENERATION].load(std::memory_order_acquire);
        const std::uint64_t bytes = block[RING_BLOCK_USED].load(std::memory_order_acquire);
        const auto used = static_cast<std::size_t>(std::min<std::uint64_t>(bytes / RING_WORD, words));
        for (std::size_t i = 0; i < used; ++i)
            room[i] = get(lines[i]);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (get(block[RING_BLOCK_GENERATION]) == generation)
        {
            m_blocks[m_count++] = {room, room, room + used};
            return;
        }
    }
}

bool LineRingReader::next(LineOfRing& line) noexcept
{
    Lines* first = nullptr;
    for (std::uint32_t i = 0; i < m_count; ++i)
    {
        Lines& lines = m_blocks[i];
        if (words_of_line(lines.at, lines.end) == 0)
            continue;
        if (first == nullptr || lines.at[RING_LINE_SEQUENCE] < first->at[RING_LINE_SEQUENCE])
            first = &lines;
    }
    if (first == nullptr)
        return false;
    line = line_at(first->at);
    first->at += words_of_line(first->at, first->end);
    return true;
}

void LineRingReader::rewind() noexcept
{
    for (std::uint32_t i = 0; i < m_count; ++i)
        m_blocks[i].at = m_blocks[i].begin;
}
} // namespace kor::core
