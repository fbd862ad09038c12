// session_waiting.h - what is to become of a session's events, by threads that cannot have the session now.

#ifndef KOR_CORE_SESSION_WAITING_H
#define KOR_CORE_SESSION_WAITING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "core/session_changes.h"

namespace kor::core
{
/// Something that is to be done to the events of a session.
class SessionChange
{
public:
    /// size: about how many bytes it takes.
    explicit SessionChange(std::size_t size) noexcept : m_size(size) {}
    SessionChange(const SessionChange&) = delete;
    SessionChange& operator=(const SessionChange&) = delete;
    virtual ~SessionChange() = default;

    virtual void apply(SessionEvents& events) const = 0;

    /// Takes no memory.
    virtual ToldEvent told() const noexcept = 0;

private:
    friend class SessionChangeList;
    friend class WaitingChanges;

    const std::size_t m_size;
    SessionChange* m_next = nullptr;
};

/// One of session_changes.h, which waits.
template <class Change>
class WaitingChange final : public SessionChange
{
public:
    WaitingChange(Change&& change, std::uint64_t time)
        : SessionChange(sizeof *this + change.size()), m_change(std::move(change)), m_time(time)
    {
    }
    void apply(SessionEvents& events) const override { m_change(events, m_time); }
    ToldEvent told() const noexcept override { return told_by(m_change, m_time); }

private:
    const Change m_change;
    const std::uint64_t m_time;
};

/// Changes in the order in which they came.
class SessionChangeList
{
public:
    SessionChangeList() noexcept = default;
    SessionChangeList(SessionChangeList&& from) noexcept;
    SessionChangeList& operator=(SessionChangeList&&) = delete;
    ~SessionChangeList();

    /// Applies all to the events. Returns how many could not be, for want of memory.
    std::size_t apply_to(SessionEvents& events) const noexcept;

    /// Calls tell(ToldEvent) with each event that is told of for a list of a report.
    template <class Tell>
    void tell(ReportList list, Tell&& tell) const
    {
        for (const SessionChange* change = m_first; change != nullptr; change = change->m_next)
            if (const ToldEvent told = change->told(); told.event != nullptr && told.list == list)
                tell(told);
    }

private:
    friend class WaitingChanges;

    SessionChange* m_first = nullptr;
};

/// Holds changes until somebody takes them. Any thread may put one in at any time, also one that is terminated while it
/// does, and nobody waits. Not more than there is room for: what comes then is lost, and counted.
class WaitingChanges
{
public:
    // What some seconds of a busy host bring about; beyond that, it is no delay but a host that stands still.
    static constexpr std::size_t MOST = 10'000;
    static constexpr std::size_t MOST_BYTES = std::size_t{4} << 20;

    WaitingChanges() noexcept = default;
    WaitingChanges(const WaitingChanges&) = delete;
    WaitingChanges& operator=(const WaitingChanges&) = delete;
    ~WaitingChanges();

    /// Null, which is what there is without memory, counts as lost.
    void put(std::unique_ptr<SessionChange> change) noexcept;

    bool empty() const noexcept
    {
        return m_newest.load(std::memory_order_relaxed) == nullptr && m_lost.load(std::memory_order_relaxed) == 0;
    }

    /// Takes out all that wait.
    SessionChangeList take() noexcept;
    /// Puts what was taken in again, in front of what has come since.
    void put_back(SessionChangeList list) noexcept;

    void add_lost(std::size_t count) noexcept { m_lost += count; }
    /// How many were lost since the last question.
    std::size_t take_lost() noexcept { return m_lost.exchange(0); }
    /// The same, and it is told again at the next question.
    std::size_t lost() const noexcept { return m_lost; }

private:
    bool take_room(std::size_t count, std::size_t size) noexcept;
    void give_room(std::size_t count, std::size_t size) noexcept;

    std::atomic<SessionChange*> m_newest{nullptr}; // each has the one that came before it for its next
    std::atomic<std::size_t> m_count{0};
    std::atomic<std::size_t> m_bytes{0};
    std::atomic<std::size_t> m_lost{0};
};
} // namespace kor::core

#endif // KOR_CORE_SESSION_WAITING_H
