// filters.h - the options --client, --app, --pid and --session, which several commands have.

#ifndef LEVELSYNC_FILTERS_H
#define LEVELSYNC_FILTERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "core/level_file.h"
#include "options.h"

namespace levelsync
{
/// Whom something is about. Empty lists are about everybody.
struct Filters
{
    std::vector<std::string> clients;
    std::vector<std::string> applications;
    std::vector<std::uint32_t> processes;
    std::vector<std::uint32_t> sessions;

    /// Adds the four options, each to be given as often as needed.
    void declare(Options& options);

    bool empty() const noexcept
    {
        return clients.empty() && applications.empty() && processes.empty() && sessions.empty();
    }

    /// As a rule has them. Throws Failure, with what to give instead, for what a rule cannot say: an address that does
    /// not resolve, a network that cannot be written, a name that is too long or has a character of the grammar.
    kor::core::RuleFilters for_rule() const;

    /// " for client 192.0.2.7 or 192.0.2.8, application viewer"; empty for everybody.
    std::string text() const;
};

/// True when the system knows addresses for it.
bool resolves(const std::string& address);
} // namespace levelsync

#endif // LEVELSYNC_FILTERS_H
