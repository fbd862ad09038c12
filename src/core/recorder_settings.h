// recorder_settings.h - what is to be kept of a process's lines in memory, as an environment variable says it.

#ifndef KOR_CORE_RECORDER_SETTINGS_H
#define KOR_CORE_RECORDER_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Kor_Package.h"

namespace kor::core
{
struct RecorderSettings
{
    static constexpr int MOST_LEVEL = 7;
    static constexpr int AS_ALL = -1; ///< of a package: what counts for all

    std::size_t bytes = 0; ///< 0: nothing is kept
    int level = 0;         ///< of all packages; 0: what is written, and nothing beyond
    std::int8_t levels[PACKAGE_COUNT];
};

constexpr bool is_recorder_level(int level) noexcept { return level >= 0 && level <= RecorderSettings::MOST_LEVEL; }

/// True for what LineRing takes, and for 0.
bool is_recorder_size(std::size_t bytes) noexcept;

/// Reads "256K,7" or "1M,0,17=7,330=6": bytes, the level of all packages, which may be missing, and those of single ones.
/// K and M, in either case, stand for 1024 and 1024 * 1024. "0" is nothing. False for what is anything else.
bool read_recorder_settings(std::string_view text, RecorderSettings& to) noexcept;
} // namespace kor::core

#endif // KOR_CORE_RECORDER_SETTINGS_H
