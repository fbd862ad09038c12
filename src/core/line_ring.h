// line_ring.h - the last lines of a process, in memory that outlives it and that another process reads.

#ifndef KOR_CORE_LINE_RING_H
#define KOR_CORE_LINE_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/line_ring_layout.h"
#include "core/message.h"

namespace kor::core
{
/// What is known of a line beside its text.
struct RecordedLine
{
    std::uint64_t time; ///< milliseconds since 1 January 1970 UTC
    std::uint32_t thread;
    int level;
    int package;
    bool is_written; ///< it also went to the output of the log
    bool is_bare;    ///< it has no headline
};

/// Records lines. Any thread, without a lock: nobody waits for another one, wherever that was stopped or ended. What a line
/// costs does not depend on the size of the ring.
///
/// Each block is written by one thread at a time, which takes it for a single line, so that the lines in it are whole and in
/// their order, whatever becomes of the process. A line is there when the block's size tells so. When a block is full, the
/// one whose last line is the oldest is emptied. Where a thread is stopped or ended in the middle of a line, its block is
/// left alone; a line for which there is no other is lost, and counted.
///
/// Nothing is ever read from the memory, which others may have changed.
class LineRing
{
public:
    static constexpr std::size_t LEAST_SIZE = 64 * 1024;
    static constexpr std::size_t MOST_SIZE = 64 * 1024 * 1024;

    /// memory: zeros, aligned as a word, for as long as anybody may record. size: LEAST_SIZE to MOST_SIZE bytes.
    LineRing(void* memory, std::size_t size, const RingOwner& owner) noexcept;
    LineRing(const LineRing&) = delete;
    LineRing& operator=(const LineRing&) = delete;

    /// Records a line, without the newline at its end. One that is longer than LINE_SIZE is cut.
    void record(const RecordedLine& line, const LineParts& text) noexcept;

private:
    static constexpr std::uint32_t LANES = 8; // more threads than that are seldom in the middle of a line at once

    struct Block
    {
        std::atomic<std::uint32_t> is_taken{0};
        std::uint32_t used = 0;               // of who has taken it
        std::uint64_t generation = 0;         // likewise
        std::atomic<std::uint64_t> newest{0}; // sequence of its last line, 0: it is empty
        char apart[40]{};                     // the next one lies in another line of the processor's cache
    };

    RingWord* words_of(std::uint32_t block) const noexcept;
    bool take(std::uint32_t block) noexcept;
    void give_back(std::uint32_t block) noexcept;
    bool has_room(std::uint32_t block, std::size_t size) const noexcept;
    std::uint32_t take_for(std::uint32_t thread, std::size_t size) noexcept;
    std::uint32_t take_emptied() noexcept;
    std::uint32_t find_oldest() const noexcept;
    void empty(std::uint32_t block) noexcept;
    void append(std::uint32_t block, const RecordedLine& line, std::string_view text, bool is_cut) noexcept;

    RingWord* m_words;
    std::uint32_t m_block_size;
    std::uint32_t m_block_count;
    std::atomic<std::uint64_t> m_sequence{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::atomic<std::uint64_t> m_lost{0};
    std::atomic<std::uint32_t> m_lanes[LANES]{}; // the block that the threads of each write into
    Block m_blocks[MOST_RING_BLOCKS];
};
} // namespace kor::core

#endif // KOR_CORE_LINE_RING_H
