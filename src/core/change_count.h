// change_count.h - stamps that tell one state of a configuration from the next.

#ifndef KOR_CORE_CHANGE_COUNT_H
#define KOR_CORE_CHANGE_COUNT_H

#include <cstdint>

namespace kor::core
{
/// Stamps this little ahead of the clock come from changes faster than the clock ticks; one that is
/// further ahead comes from a clock that was set back.
constexpr std::uint64_t CHANGE_BURST_MS = 60'000;

/// The stamp of a change made now (milliseconds since 1970) to what was stamped previous: now, or,
/// where that would not tell them apart, the next number.
constexpr std::uint64_t next_change_count(std::uint64_t now, std::uint64_t previous) noexcept
{
    const bool in_burst = previous >= now && previous - now < CHANGE_BURST_MS;
    return in_burst ? previous + 1 : now;
}

/// The stamp of a change made now to what all processes share and is stamped present: always above that one, so that
/// of two changes neither can be taken for the other. (Above the largest there is nothing; no clock gives that one.)
constexpr std::uint64_t stamp_above(std::uint64_t now, std::uint64_t present) noexcept
{
    return present < now || present == ~std::uint64_t{0} ? now : present + 1;
}
} // namespace kor::core

#endif // KOR_CORE_CHANGE_COUNT_H
