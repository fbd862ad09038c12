// log_query.h - the options by which lines of logs are chosen, which several commands have.

#ifndef LEVELSYNC_LOG_QUERY_H
#define LEVELSYNC_LOG_QUERY_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/log_filter.h"
#include "filters.h"
#include "options.h"
#include "times.h"
#include "tool.h"

namespace levelsync
{
/// Which lines somebody wants to see.
struct LogQuery
{
    Filters whom;
    std::vector<std::string> packages; ///< as PackageNames::find takes them
    std::string level;                 ///< number or name; empty: all
    std::string since;                 ///< as read_moment takes it
    std::string until;
    std::string text;

    /// Adds the options, but for the text.
    void declare(Options& options);

    /// Throws Failure, with what to give instead, for what cannot be understood.
    kor::core::LogFilter filter(const Tool& tool) const;

    /// True when nothing is asked for: every line is wanted.
    bool empty() const noexcept;
};

/// A point in time as a person gives it: "1h" is an hour before now, "14:05" and "14:05:30" the last time that the
/// clock showed that, "2026-11-21" the beginning of a day, "2026-11-21 14:05" as it says. Local time.
std::optional<Time> read_moment(std::string_view text, Time now);

/// A client fits when one of the entries does, as in a rule: "10.0.0.0" stands for a network. Null without entries.
std::function<bool(std::string_view)> client_test(const std::vector<std::string>& entries);
} // namespace levelsync

#endif // LEVELSYNC_LOG_QUERY_H
