// log_split.h - a log file, which may be large, be written to meanwhile, or hold anything, as lines.

#ifndef KOR_CORE_LOG_SPLIT_H
#define KOR_CORE_LOG_SPLIT_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

namespace kor::core
{
/// The bytes of a file, by position.
class LogBytes
{
public:
    virtual ~LogBytes() = default;

    /// Puts up to size bytes from the position at there. Returns how many: 0 at the end, and where reading fails.
    virtual std::size_t read(std::uint64_t at, char* to, std::size_t size) = 0;
};

/// Bytes of one piece of a line at most.
constexpr std::size_t LOG_BLOCK_SIZE = 65536;

/// A line, or a part of one that is longer than LOG_BLOCK_SIZE.
struct LogPiece
{
    std::string_view bytes; ///< with the line break, if it has one; valid until the next call
    std::uint64_t at = 0;   ///< position of the first byte
    bool begins_line = false;
    bool ends_line = false;

    /// Without "\n" or "\r\n".
    std::string_view line() const noexcept;
};

/// Reads lines one after the other with a block of memory. Nuls in front of a line are left out: a file that was cleared
/// while somebody wrote at a position of his own has a gap of them, and so has one after a power cut.
class LogSplitter
{
public:
    static constexpr std::uint64_t NO_END = std::numeric_limits<std::uint64_t>::max();

    /// from lives as long as this. Reads from begin, where a line begins, up to end or the end of the file.
    explicit LogSplitter(LogBytes& from, std::uint64_t begin = 0, std::uint64_t end = NO_END)
        : m_from(from), m_position(begin), m_end(end)
    {
    }

    /// The next line that has its line break. False when there is none, which can change while the file is written to.
    bool next(LogPiece& piece);

    /// What stands behind the last line break; false when nothing does. It counts as read.
    bool rest(LogPiece& piece);

    /// Bytes of a line that has no end yet.
    std::size_t unfinished() const noexcept { return m_filled - m_at; }

    /// Begins anew at a position where a line begins.
    void restart(std::uint64_t at) noexcept;

    /// Where the next byte is read.
    std::uint64_t position() const noexcept { return m_position; }

private:
    bool fill();
    void skip_nuls();
    void give(std::size_t length, bool ends_line, LogPiece& piece) noexcept;

    LogBytes& m_from;
    std::uint64_t m_position; // of the end of what is in the block
    std::uint64_t m_end;
    std::vector<char> m_block;
    std::size_t m_at = 0;
    std::size_t m_filled = 0;
    std::size_t m_searched = 0; // from m_at on, without a line break in it
    bool m_in_line = false;
};
} // namespace kor::core

#endif // KOR_CORE_LOG_SPLIT_H
