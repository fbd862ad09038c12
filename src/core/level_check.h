// level_check.h - what stands in a `logger` file and is read differently than it looks.

#ifndef KOR_CORE_LEVEL_CHECK_H
#define KOR_CORE_LEVEL_CHECK_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/level_file.h"

namespace kor::core
{
enum class Oddity
{
    WRONG,   ///< something that is written does not count, or counts for others than it seems to
    DOUBTFUL ///< it counts as it looks, or nothing is lost, but it is hardly meant so
};

/// One thing that somebody should look at.
struct Finding
{
    std::size_t line = 0;   ///< from 0
    std::size_t column = 0; ///< bytes in front of it in the line
    std::size_t size = 0;   ///< bytes of it; 0: the whole line
    Oddity oddity = Oddity::WRONG;
    std::string what = {};    ///< what the reader does, a whole sentence
    std::string instead = {}; ///< what to write instead, or to do, a whole sentence
};

/// How many addresses a host name stands for, 0 when it does not resolve.
using HostLookup = std::function<int(std::string_view name)>;

/// All findings, in the order of the file. Without a lookup host names count as known.
std::vector<Finding> check_level_file(const LevelFile& file, const HostLookup& lookup = nullptr);

/// An address as a person gives it, as a rule has to have it.
struct ClientText
{
    std::string entry;   ///< empty: there is no such entry
    std::string problem; ///< why, and what to give instead; whole sentences
};

/// "10.0.0.0/8" becomes "10.0.0.0", for rules take the network of an IPv4 address from the zeros at its end; a length
/// that cannot be said so is a problem.
ClientText client_entry(std::string_view text);
} // namespace kor::core

#endif // KOR_CORE_LEVEL_CHECK_H
