// size_limit.h - how often the log file is measured, and what follows from its size.

#ifndef KOR_CORE_SIZE_LIMIT_H
#define KOR_CORE_SIZE_LIMIT_H

#include <cstdint>

namespace kor::core
{
// Measuring costs about as much as writing a line, so most lines do without it.
constexpr std::int32_t FIRST_SIZE_COUNTDOWN = 15;
constexpr std::int32_t SIZE_COUNTDOWN_BELOW_LIMIT = 255;
constexpr std::int32_t SIZE_COUNTDOWN_ABOVE_LIMIT = 500;

/// What a measured size means for a limit in megabytes.
struct SizeVerdict
{
    std::int64_t megabytes; ///< whole ones
    bool exceeded;
    std::int32_t countdown; ///< lines until the next measurement
};

constexpr SizeVerdict judge_size(std::int64_t bytes, std::uint32_t limit) noexcept
{
    const std::int64_t megabytes = bytes / 1024 / 1024;
    const bool exceeded = megabytes > static_cast<std::int64_t>(limit);
    return {megabytes, exceeded, exceeded ? SIZE_COUNTDOWN_ABOVE_LIMIT : SIZE_COUNTDOWN_BELOW_LIMIT};
}
} // namespace kor::core

#endif // KOR_CORE_SIZE_LIMIT_H
