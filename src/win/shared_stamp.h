// shared_stamp.h - a number in memory that processes share, which one of them replaces while others may.

#ifndef KOR_WIN_SHARED_STAMP_H
#define KOR_WIN_SHARED_STAMP_H

#include <windows.h>

#include <cstdint>

namespace kor::win
{
/// Puts next there if present still stands there. What the caller has written before is there for everyone who sees
/// next: the instruction waits for all earlier writes, those that bypass the caches included.
inline bool replace_stamp(std::uint64_t& stamp, std::uint64_t present, std::uint64_t next) noexcept
{
    return ::InterlockedCompareExchange64(
               reinterpret_cast<volatile LONG64*>(&stamp), static_cast<LONG64>(next), static_cast<LONG64>(present)) ==
           static_cast<LONG64>(present);
}
} // namespace kor::win

#endif // KOR_WIN_SHARED_STAMP_H
