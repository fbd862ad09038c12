// snapshot.h - copies of what another process may be changing at the same time.

#ifndef KOR_CORE_SNAPSHOT_H
#define KOR_CORE_SNAPSHOT_H

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "core/fixed_text.h"

namespace kor::core
{
/// The record as it was at one moment, byte for byte. What is found out about the copy stays true, whatever happens to
/// the original.
template <class Record>
Record snapshot(const Record& shared) noexcept
{
    static_assert(std::is_trivially_copyable_v<Record>, "memory that processes share holds plain bytes");
    Record copy(shared);
    // From here on the original may have changed, as far as the compiler knows, so it cannot go back there.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    return copy;
}

/// A text of a field of Size bytes as it was at one moment, with an end in any case.
template <std::size_t Size>
class TextSnapshot
{
public:
    explicit TextSnapshot(const char (&shared)[Size]) noexcept
    {
        std::memcpy(m_text, shared, Size);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        m_text[Size] = '\0';
        m_length = bounded(m_text).size();
    }

    std::string_view text() const noexcept { return {m_text, m_length}; } ///< ends at a terminator
    bool empty() const noexcept { return m_length == 0; }

private:
    char m_text[Size + 1];
    std::size_t m_length;
};
} // namespace kor::core

#endif // KOR_CORE_SNAPSHOT_H
