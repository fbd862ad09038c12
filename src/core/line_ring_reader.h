// line_ring_reader.h - the lines that a process has recorded, read by another one or by the process itself in a crash.

#ifndef KOR_CORE_LINE_RING_READER_H
#define KOR_CORE_LINE_RING_READER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/line_ring_layout.h"

namespace kor::core
{
/// A recorded line. The text lies in the memory of its reader.
struct LineOfRing
{
    std::uint64_t sequence;
    std::uint64_t time; ///< milliseconds since 1 January 1970 UTC
    std::uint32_t thread;
    int level;
    int package;
    bool is_written; ///< it also went to the output of the log
    bool is_bare;    ///< it has no headline
    bool is_cut;     ///< it was longer
    std::string_view text;
};

/// A copy of recorded lines, which gives them in their order. Takes no memory but what it is given, and no lock; reads each
/// word of what others may be changing once, and nothing in it is taken on trust.
class LineRingReader
{
public:
    /// ring: size bytes, aligned as a word, which may be anything and may change. room: aligned likewise; blocks for which
    /// it is too small, as which a copy of all of it never is, are left out. It must live as long as the reader.
    LineRingReader(const void* ring, std::size_t size, void* room, std::size_t room_size) noexcept;
    LineRingReader(const LineRingReader&) = delete;
    LineRingReader& operator=(const LineRingReader&) = delete;

    /// False when these are no recorded lines of a version that is known. Then there is no line.
    bool is_ring() const noexcept { return m_is_ring; }
    const RingOwner& owner() const noexcept { return m_owner; }

    /// Lines of which none is missing begin after this one.
    std::uint64_t dropped() const noexcept { return m_dropped; }
    /// Lines that could not be recorded.
    std::uint64_t lost() const noexcept { return m_lost; }

    /// The next line, in the order in which they were recorded. False when there is none.
    bool next(LineOfRing& line) noexcept;

    /// Begins again with the first.
    void rewind() noexcept;

private:
    /// The lines of one block in the room.
    struct Lines
    {
        const std::uint64_t* begin;
        const std::uint64_t* at;
        const std::uint64_t* end;
    };

    void copy_blocks(const RingWord* ring, std::size_t size, std::uint64_t* room, std::size_t room_words) noexcept;
    void copy_block(const RingWord* block, std::size_t words, std::uint64_t* room) noexcept;

    bool m_is_ring = false;
    RingOwner m_owner{};
    std::uint64_t m_dropped = 0;
    std::uint64_t m_lost = 0;
    std::uint32_t m_count = 0;
    Lines m_blocks[MOST_RING_BLOCKS]{};
};
} // namespace kor::core

#endif // KOR_CORE_LINE_RING_READER_H
