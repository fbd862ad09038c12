// store.h - where a site keeps what it wants, and what its machines say of themselves: a few keys with texts.

#ifndef LEVELSYNC_SITE_STORE_H
#define LEVELSYNC_SITE_STORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/site_address.h"
#include "times.h"

namespace levelsync
{
// The keys: "base", "groups/NAME", "overrides/ID", "history/NUMBER" (ten digits), "machines/NAME".

struct SiteValue
{
    std::string key;
    std::string bytes;
    std::string version; ///< changes with the bytes; for who replaces them
};

/// Which state of base, groups and overrides there is: the same text as long as nothing changes.
struct SiteMark
{
    std::string state;
    std::string store;         ///< which store it is; empty: cannot be told
    std::int64_t position = 0; ///< grows with each change of a store; 0: cannot be told

    bool operator==(const SiteMark& other) const { return state == other.state && store == other.store; }
};

/// All of one moment.
struct SiteRead
{
    SiteMark mark;
    std::vector<SiteValue> values; ///< base, groups and overrides, sorted by key
};

constexpr char ANY_VERSION[] = "*";

/// One of several that come to be together or not at all.
struct SiteWrite
{
    std::string key;
    std::optional<std::string> bytes; ///< nothing: the key goes
    std::string version;              ///< what it replaces; empty: there was none; ANY_VERSION: whatever is there
    std::optional<Time> until;        ///< a store that can takes it away by itself, some time after
};

/// What a machine has said last.
struct SiteMachine
{
    std::string name;
    std::string bytes;
    bool is_there = true; ///< false: nothing was heard of it for a while
};

/// All functions throw Failure where the store does not answer in time, or with what cannot be.
class SiteStore
{
public:
    SiteStore() = default;
    SiteStore(const SiteStore&) = delete;
    SiteStore& operator=(const SiteStore&) = delete;
    virtual ~SiteStore() = default;

    /// Looks whether something has changed; cheap.
    virtual SiteMark mark() = 0;

    /// groups: nothing stands for all. Refuses more than a site may hold, before it is in memory.
    virtual SiteRead read(const std::optional<std::vector<std::string>>& groups) = 0;

    /// True when all were written; false when one of them has another version by now, and nothing was. The first is new and
    /// nobody else's: by it a store tells what became of a write whose answer got lost.
    virtual bool write(const std::vector<SiteWrite>& writes) = 0;

    /// The changes noted last, at most so many, the oldest first; and a single one.
    virtual std::vector<SiteValue> history(std::size_t most) = 0;
    virtual std::optional<SiteValue> value(const std::string& key) = 0;

    /// Says something of a machine, which counts as there for a while (PRESENCE_MS) unless this is called again. The same
    /// words as before cost little.
    virtual void report(const std::string& machine, const std::string& bytes) = 0;

    /// The machine ends its work in good order.
    virtual void leave(const std::string& machine, const std::string& bytes) = 0;

    virtual std::vector<SiteMachine> machines() = 0;
};

constexpr std::int64_t PRESENCE_MS = 60'000;
constexpr std::int64_t REPORT_EVERY_MS = 20'000;
constexpr std::int64_t OVERRIDE_GRACE_MS = 60'000; ///< how long behind its end a store keeps an override
constexpr std::size_t MOST_MACHINES = 100'000;
constexpr std::size_t MOST_CHANGES_KEPT = 1'000; ///< of the history

/// Throws Failure for what is no address. credentials: a file with user and password, a line each; empty: the environment
/// says, or nobody.
std::unique_ptr<SiteStore> open_store(const std::string& address, const std::string& credentials);
} // namespace levelsync

#endif // LEVELSYNC_SITE_STORE_H
