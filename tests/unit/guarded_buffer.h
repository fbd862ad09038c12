// guarded_buffer.h - a buffer of an exact size that knows whether anyone wrote beside it.

#ifndef KOR_TESTS_GUARDED_BUFFER_H
#define KOR_TESTS_GUARDED_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

/// Filled with FILLER, and between guard bytes.
class GuardedBuffer
{
public:
    static constexpr char FILLER = '~';

    explicit GuardedBuffer(std::size_t size) : m_bytes(GUARDS + size + GUARDS, GUARD)
    {
        std::fill_n(data(), size, FILLER);
    }

    char* data() { return m_bytes.data() + GUARDS; }
    std::size_t size() const { return m_bytes.size() - 2 * GUARDS; }

    /// The buffer up to its first nul; all of it when it has none.
    std::string_view text()
    {
        const std::string_view all(data(), size());
        return all.substr(0, all.find('\0'));
    }

    bool is_terminated() { return std::count(data(), data() + size(), '\0') != 0; }
    bool is_untouched() { return std::count(data(), data() + size(), FILLER) == static_cast<std::ptrdiff_t>(size()); }

    /// True while the bytes on either side are as they were.
    bool guards_hold() const
    {
        const auto is_guard = [](char byte) { return byte == GUARD; };
        return std::all_of(m_bytes.begin(), m_bytes.begin() + GUARDS, is_guard) &&
               std::all_of(m_bytes.end() - GUARDS, m_bytes.end(), is_guard);
    }

private:
    static constexpr int GUARDS = 32;
    static constexpr char GUARD = '\x5A';

    std::vector<char> m_bytes;
};

#endif // KOR_TESTS_GUARDED_BUFFER_H
