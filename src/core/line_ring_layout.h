// line_ring_layout.h - how recorded lines lie in memory: for who writes it and who reads it, of any version.

#ifndef KOR_CORE_LINE_RING_LAYOUT_H
#define KOR_CORE_LINE_RING_LAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/bounded_text.h"

namespace kor::core
{
/// All of it are words of eight bytes, the low byte first, which are written and read as a whole.
using RingWord = std::atomic<std::uint64_t>;
static_assert(RingWord::is_always_lock_free && sizeof(RingWord) == 8, "shared with other processes");

// A header, then the blocks. A number that stands beside another has the low or the high half of their word.
//
// word  header
//    0  bytes of all of it
//    1  bytes of the header | of a block's header
//    2  bytes of a block with its header | number of blocks
//    3  RING_MAGIC, stored last
//    4  RING_VERSION | process
//    5  when the process was created (a FILETIME of Windows)
//    6  the sequence of the last line that was dropped for a newer one: of those after it, all are there that have been
//       recorded
//    7  lines that were lost as every block was taken
//
// word  block
//    0  its generation, another one each time it is emptied
//    1  bytes of the lines in it; what is behind them is not to be looked at
//
// word  line
//    0  bytes of the text | thread
//    1  its sequence: of the lines of a block, and of those of a thread, each has a larger one
//    2  when (milliseconds since 1970)
//    3  level in the lowest byte, RingFlags in the next, package in the two above
//    4  the text, filled up with zeros to a word
constexpr std::size_t RING_WORD = 8;
constexpr std::size_t RING_HEADER_SIZE = 64;
constexpr std::size_t RING_BLOCK_HEADER_SIZE = 16;
constexpr std::size_t RING_LINE_HEADER_SIZE = 32;
constexpr std::uint32_t MOST_RING_BLOCKS = 64;

constexpr std::uint64_t RING_MAGIC = 0x53454E494C4D554C; // "LUMLINES"
constexpr std::uint32_t RING_VERSION = 1;

enum RingHeaderWord
{
    RING_SIZE,
    RING_HEADER_SIZES,
    RING_BLOCKS,
    RING_MAGIC_WORD,
    RING_VERSION_AND_PROCESS,
    RING_CREATED,
    RING_DROPPED,
    RING_LOST
};

enum RingBlockWord
{
    RING_BLOCK_GENERATION,
    RING_BLOCK_USED
};

enum RingLineWord
{
    RING_LINE_SIZE_AND_THREAD,
    RING_LINE_SEQUENCE,
    RING_LINE_TIME,
    RING_LINE_PLACE
};

enum RingFlags : unsigned int
{
    RING_LINE_WRITTEN = 1, ///< it also went to the output of the log
    RING_LINE_BARE = 2,    ///< it has no headline
    RING_LINE_CUT = 4      ///< it was longer
};

/// Whose lines they are.
struct RingOwner
{
    std::uint32_t process;
    std::uint64_t created; ///< as the header has it
};

/// Where names of sections begin: for all sessions of a machine, and for one.
constexpr std::string_view GLOBAL_RING = "Global\\";
constexpr std::string_view LOCAL_RING = "Local\\";

/// "Global\LUMLOG_LINES_1_4312_133773984000000000": under which name a process has its lines, by its id and when it was
/// created, as Windows gives the id of a process that has ended to another one. The first number is the version.
class RingName
{
public:
    RingName(std::string_view where, const RingOwner& owner) noexcept
    {
        BoundedText(m_text, sizeof m_text)
            .add(where)
            .add("LUMLOG_LINES_")
            .add_unsigned(RING_VERSION)
            .add('_')
            .add_unsigned(owner.process)
            .add('_')
            .add_unsigned(owner.created)
            .finish();
    }

    const char* text() const noexcept { return m_text; }

private:
    char m_text[64];
};

/// Bytes that a text takes.
constexpr std::size_t ring_words_size(std::size_t text) noexcept
{
    return (text + RING_WORD - 1) / RING_WORD * RING_WORD;
}

constexpr std::uint64_t ring_pair(std::uint64_t low, std::uint64_t high) noexcept { return low | high << 32; }
constexpr std::uint32_t ring_low(std::uint64_t pair) noexcept { return static_cast<std::uint32_t>(pair); }
constexpr std::uint32_t ring_high(std::uint64_t pair) noexcept { return static_cast<std::uint32_t>(pair >> 32); }
} // namespace kor::core

#endif // KOR_CORE_LINE_RING_LAYOUT_H
