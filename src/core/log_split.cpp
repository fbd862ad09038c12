#include "core/log_split.h"

#include <algorithm>
#include <cstring>

namespace kor::core
{
std::string_view LogPiece::line() const noexcept
{
    std::string_view text = bytes;
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    if (ends_line && !text.empty() && text.back() == '\r')
        text.remove_suffix(1);
    return text;
}

bool LogSplitter::next(LogPiece& piece)
{
    while (true)
    {
        if (!m_in_line)
            skip_nuls();
        const char* const begin = m_block.data() + m_at;
        const std::size_t length = m_filled - m_at;
        const void* const found =
            length > m_searched ? std::memchr(begin + m_searched, '\n', length - m_searched) : nullptr;
        if (found != nullptr)
        {
            give(static_cast<std::size_t>(static_cast<const char*>(found) - begin) + 1, true, piece);
            return true;
        }
        if (length == LOG_BLOCK_SIZE)
        {
            give(length, false, piece);
            return true;
        }
        m_searched = length;
        if (!fill())
            return false;
    }
}

bool LogSplitter::rest(LogPiece& piece)
{
    const std::size_t length = unfinished();
    if (length == 0)
        return false;
    give(length, true, piece);
    return true;
}

void LogSplitter::restart(std::uint64_t at) noexcept
{
    m_position = at;
    m_at = 0;
    m_filled = 0;
    m_searched = 0;
    m_in_line = false;
}

/// Reads on behind what the block holds. False when nothing came.
bool LogSplitter::fill()
{
    m_block.resize(LOG_BLOCK_SIZE);
    if (m_at > 0)
    {
        std::memmove(m_block.data(), m_block.data() + m_at, m_filled - m_at);
        m_filled -= m_at;
        m_at = 0;
    }
    if (m_position >= m_end)
        return false;
    const std::size_t room =
        static_cast<std::size_t>(std::min<std::uint64_t>(LOG_BLOCK_SIZE - m_filled, m_end - m_position));
    const std::size_t count = std::min(m_from.read(m_position, m_block.data() + m_filled, room), room);
    m_filled += count;
    m_position += count;
    return count > 0;
}

void LogSplitter::skip_nuls()
{
    while (m_at < m_filled && m_block[m_at] == '\0')
    {
        ++m_at;
        m_searched = 0;
    }
}

void LogSplitter::give(std::size_t length, bool ends_line, LogPiece& piece) noexcept
{
    piece.bytes = std::string_view(m_block.data() + m_at, length);
    piece.at = m_position - unfinished();
    piece.begins_line = !m_in_line;
    piece.ends_line = ends_line;
    m_at += length;
    m_searched = 0;
    m_in_line = !ends_line;
}
} // namespace kor::core
