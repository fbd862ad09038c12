#include "core/line_ring.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
constexpr std::uint32_t NO_BLOCK = ~0u;
constexpr std::size_t PAGE = 4096; // a block of less would have no room for a longest line

void put(RingWord& word, std::uint64_t value) noexcept { word.store(value, std::memory_order_relaxed); }

/// Keeps the largest that was ever given.
void raise(std::atomic<std::uint64_t>& number, std::uint64_t to) noexcept
{
    std::uint64_t seen = number.load(std::memory_order_relaxed);
    while (seen < to && !number.compare_exchange_weak(seen, to))
    {
    }
}

/// Stores a number that grows where others read it: what is there in the end is the largest, whoever is the last to store.
void publish(RingWord& word, const std::atomic<std::uint64_t>& number) noexcept
{
    std::uint64_t value = 0;
    do
    {
        value = number.load();
        word.store(value);
    } while (number.load() != value);
}

void put_text(RingWord* to, std::string_view text) noexcept
{
    std::uint64_t word = 0;
    for (; text.size() >= sizeof word; text.remove_prefix(sizeof word))
    {
        std::memcpy(&word, text.data(), sizeof word);
        put(*to++, word);
    }
    if (text.empty())
        return;
    word = 0;
    std::memcpy(&word, text.data(), text.size());
    put(*to, word);
}

/// A line in one piece, without the newline at its end.
class WholeLine
{
public:
    explicit WholeLine(const LineParts& parts) noexcept
    {
        BoundedText text(m_buffer, sizeof m_buffer);
        const int length = text.add(parts.headline).add(parts.join()).add(parts.message).finish();
        m_is_cut = length < 0;
        m_length = m_is_cut ? LINE_SIZE : static_cast<std::size_t>(length);
        if (m_length > 0 && m_buffer[m_length - 1] == '\n')
            --m_length;
    }

    std::string_view text() const noexcept { return {m_buffer, m_length}; }
    bool is_cut() const noexcept { return m_is_cut; }

private:
    char m_buffer[LINE_SIZE + 1];
    std::size_t m_length;
    bool m_is_cut;
};

constexpr std::size_t size_in_ring(std::size_t text) noexcept { return RING_LINE_HEADER_SIZE + ring_words_size(text); }
static_assert(
    (LineRing::LEAST_SIZE - RING_HEADER_SIZE) / (LineRing::LEAST_SIZE / PAGE) - RING_BLOCK_HEADER_SIZE - RING_WORD >=
        size_in_ring(LINE_SIZE),
    "each line fits into an empty block");
} // namespace

LineRing::LineRing(void* memory, std::size_t size, const RingOwner& owner) noexcept
    : m_words(static_cast<RingWord*>(memory)),
      m_block_count(static_cast<std::uint32_t>(std::min<std::size_t>(size / PAGE, MOST_RING_BLOCKS)))
{
    const std::size_t room = (size - RING_HEADER_SIZE) / m_block_count;
    m_block_size = static_cast<std::uint32_t>(room / RING_WORD * RING_WORD);
    put(m_words[RING_SIZE], size);
    put(m_words[RING_HEADER_SIZES], ring_pair(RING_HEADER_SIZE, RING_BLOCK_HEADER_SIZE));
    put(m_words[RING_BLOCKS], ring_pair(m_block_size, m_block_count));
    put(m_words[RING_VERSION_AND_PROCESS], ring_pair(RING_VERSION, owner.process));
    put(m_words[RING_CREATED], owner.created);
    m_words[RING_MAGIC_WORD].store(RING_MAGIC, std::memory_order_release);
}

void LineRing::record(const RecordedLine& line, const LineParts& text) noexcept
{
    const WholeLine whole(text);
    const std::uint32_t block = take_for(line.thread, size_in_ring(whole.text().size()));
    if (block == NO_BLOCK)
    {
        ++m_lost;
        publish(m_words[RING_LOST], m_lost);
        return;
    }
    append(block, line, whole.text(), whole.is_cut());
    give_back(block);
}

RingWord* LineRing::words_of(std::uint32_t block) const noexcept
{
    return m_words + (RING_HEADER_SIZE + std::size_t{block} * m_block_size) / RING_WORD;
}

bool LineRing::take(std::uint32_t block) noexcept
{
    std::atomic<std::uint32_t>& taken = m_blocks[block].is_taken;
    std::uint32_t free = 0;
    return taken.load(std::memory_order_relaxed) == 0 &&
           taken.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed);
}

void LineRing::give_back(std::uint32_t block) noexcept { m_blocks[block].is_taken.store(0, std::memory_order_release); }

bool LineRing::has_room(std::uint32_t block, std::size_t size) const noexcept
{
    return m_block_size - RING_BLOCK_HEADER_SIZE - m_blocks[block].used >= size;
}

/// A block with room for a line, of the thread's lane or, when somebody is writing there, of another one.
std::uint32_t LineRing::take_for(std::uint32_t thread, std::size_t size) noexcept
{
    const std::uint32_t own = thread / 4 % LANES; // of Windows' thread numbers, each is a multiple of four
    for (std::uint32_t i = 0; i < LANES; ++i)
    {
        std::atomic<std::uint32_t>& lane = m_lanes[(own + i) % LANES];
        const std::uint32_t block = lane.load(std::memory_order_relaxed);
        if (!take(block))
            continue;
        if (has_room(block, size))
            return block;
        const std::uint32_t next = take_emptied();
        if (next != NO_BLOCK)
            lane.store(next, std::memory_order_relaxed);
        give_back(block);
        return next;
    }
    const std::uint32_t next = take_emptied();
    if (next != NO_BLOCK)
        m_lanes[own].store(next, std::memory_order_relaxed);
    return next;
}

/// The one whose last line is the oldest.
std::uint32_t LineRing::take_emptied() noexcept
{
    // Each time that another thread is faster, that one has made headway.
    for (std::uint32_t tries = 0; tries < 4 * MOST_RING_BLOCKS; ++tries)
    {
        const std::uint32_t block = find_oldest();
        if (block == NO_BLOCK)
            return NO_BLOCK;
        const std::uint64_t newest = m_blocks[block].newest.load(std::memory_order_relaxed);
        if (!take(block))
            continue;
        if (m_blocks[block].newest.load(std::memory_order_relaxed) == newest)
        {
            empty(block);
            return block;
        }
        give_back(block); // it has got a line meanwhile
    }
    return NO_BLOCK;
}

std::uint32_t LineRing::find_oldest() const noexcept
{
    std::uint32_t oldest = NO_BLOCK;
    std::uint64_t least = ~std::uint64_t{0};
    for (std::uint32_t block = 0; block < m_block_count; ++block)
    {
        const Block& one = m_blocks[block];
        const std::uint64_t newest = one.newest.load(std::memory_order_relaxed);
        if (newest < least && one.is_taken.load(std::memory_order_relaxed) == 0)
        {
            oldest = block;
            least = newest;
        }
    }
    return oldest;
}

/// In this order: whoever reads the block meanwhile either finds nothing in it or, when done, another generation.
void LineRing::empty(std::uint32_t block) noexcept
{
    Block& taken = m_blocks[block];
    RingWord* const words = words_of(block);
    raise(m_dropped, taken.newest.load(std::memory_order_relaxed));
    publish(m_words[RING_DROPPED], m_dropped);
    words[RING_BLOCK_USED].store(0, std::memory_order_release);
    words[RING_BLOCK_GENERATION].store(++taken.generation, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_release);
    taken.used = 0;
    taken.newest.store(0, std::memory_order_relaxed);
}

/// The block is taken and has room. What is stored counts once the block's size tells of it.
void LineRing::append(std::uint32_t block, const RecordedLine& line, std::string_view text, bool is_cut) noexcept
{
    constexpr int MOST_LEVEL = 0xFF;
    constexpr int MOST_PACKAGE = 0xFFFF;
    Block& taken = m_blocks[block];
    RingWord* const words = words_of(block);
    RingWord* const at = words + (RING_BLOCK_HEADER_SIZE + taken.used) / RING_WORD;
    const std::uint64_t sequence = m_sequence.fetch_add(1, std::memory_order_relaxed) + 1;
    const std::uint64_t flags = (line.is_written ? RING_LINE_WRITTEN : 0u) | (line.is_bare ? RING_LINE_BARE : 0u) |
                                (is_cut ? RING_LINE_CUT : 0u);
    put(at[RING_LINE_SIZE_AND_THREAD], ring_pair(text.size(), line.thread));
    put(at[RING_LINE_SEQUENCE], sequence);
    put(at[RING_LINE_TIME], line.time);
    put(at[RING_LINE_PLACE], static_cast<std::uint64_t>(std::clamp(line.level, 0, MOST_LEVEL)) | flags << 8 |
                                 static_cast<std::uint64_t>(std::clamp(line.package, 0, MOST_PACKAGE)) << 16);
    put_text(at + RING_LINE_HEADER_SIZE / RING_WORD, text);
    taken.used += static_cast<std::uint32_t>(size_in_ring(text.size()));
    taken.newest.store(sequence, std::memory_order_relaxed);
    words[RING_BLOCK_USED].store(taken.used, std::memory_order_release);
}
} // namespace kor::core
