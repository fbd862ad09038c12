// keeper.h - a copy of a site in memory: what can be told of it without waiting for its store.

#ifndef LEVELSYNC_SITE_KEEPER_H
#define LEVELSYNC_SITE_KEEPER_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "failure.h"
#include "site/store.h"

namespace levelsync
{
/// All of a store that commands ask for.
struct SiteCopy
{
    SiteRead read;
    std::string refusal; ///< why the store's state was refused; empty: it was not
    std::vector<SiteValue> history;
    std::vector<SiteMachine> machines;
    Time as_of = 0; ///< when the store was asked last
};

/// A store that answers from a copy, and cannot be written to.
std::unique_ptr<SiteStore> open_copy(std::shared_ptr<const SiteCopy> copy);

/// Asks a store again and again, on a thread of its own, as long as somebody wants to know.
class SiteKeeper
{
public:
    static constexpr std::size_t CHANGES_KEPT = 100;

    struct Known
    {
        std::shared_ptr<const SiteCopy> copy; ///< the last one; null: the store has not answered yet
        std::optional<Failure> trouble;       ///< why the store could not be asked the last time
        std::uint64_t number = 0;             ///< grows when one of the two says something else
    };

    /// Waits a moment for the store's first answer.
    explicit SiteKeeper(std::unique_ptr<SiteStore> store);
    SiteKeeper(const SiteKeeper&) = delete;
    SiteKeeper& operator=(const SiteKeeper&) = delete;
    ~SiteKeeper();

    /// Returns at once.
    Known known();

    /// Asks the store once more, and waits a moment for its answer.
    void look_again();

private:
    static constexpr std::int64_t LOOK_EVERY_MS = 1'000;
    static constexpr std::uint64_t WANTED_FOR_MS = 15'000; // behind the last question
    static constexpr std::int64_t PATIENCE_MS = 2'000;

    void run();
    void look();
    bool wait_for_turn(std::uint64_t& round);
    void wait_for_round(std::unique_lock<std::mutex>& lock, std::uint64_t round);

    const std::unique_ptr<SiteStore> m_store; // of the thread
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Known m_known;
    std::uint64_t m_wanted_at = 0;
    std::uint64_t m_asked_round = 1; // one look is asked for from the start
    std::uint64_t m_done_round = 0;
    bool m_is_ending = false;
    std::thread m_thread;
};
} // namespace levelsync

#endif // LEVELSYNC_SITE_KEEPER_H
