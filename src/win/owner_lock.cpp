#include "win/owner_lock.h"

#include "win/kept_errors.h"
#include "win/wait_clock.h"

namespace kor::win
{
namespace
{
// A line takes one to two microseconds to write: spin for about that long, then let others run, and
// only after many turns of that, or a few ticks of the clock, suspect that something is wrong.
constexpr int SPINS = 100;
constexpr int YIELDS = 2'000;
constexpr DWORD YIELDS_MS = 100;

constexpr ThreadMark ORPHANED = ~NO_THREAD; // in the place of a holder: no thread has that id
} // namespace

struct OwnerLock::Holder
{
    ThreadMark thread;
    std::uint64_t turn;

    bool operator==(const Holder& other) const noexcept { return thread == other.thread && turn == other.turn; }
};

OwnerLock::Holder OwnerLock::holder() const noexcept
{
    const ThreadMark thread = m_owner.load(std::memory_order_acquire); // and with it the turn's end that let it in
    return {thread, m_turn.load(std::memory_order_relaxed)};
}

bool OwnerLock::wait_for_lock(ThreadMark thread) noexcept
{
    const KeptErrors kept;
    const Holder first = holder();
    const Outcome outcome = wait(thread, MAX_WAIT_MS);
    return outcome == Outcome::NOT_YET ? end_wait(first, thread) : outcome == Outcome::GOT_IT;
}

bool OwnerLock::lock_within(ThreadMark thread, DWORD limit_ms) noexcept
{
    const KeptErrors kept;
    return try_lock(thread) || wait(thread, limit_ms) == Outcome::GOT_IT;
}

OwnerLock::Outcome OwnerLock::wait(ThreadMark thread, DWORD limit_ms) noexcept
{
    WaitClock clock(limit_ms);
    // A crash handler may come from inside of the lock: waiting for oneself would be in vain.
    if (is_held_by(thread) || is_held_by(ORPHANED))
        return Outcome::CANNOT_GET_IT;
    if (wait_briefly(thread))
        return Outcome::GOT_IT;
    do
    {
        const Holder now = holder();
        if (now.thread == NO_THREAD)
        {
            if (try_lock(thread))
                return Outcome::GOT_IT;
        }
        else if (now.thread == ORPHANED || now.turn == m_stuck_turn.load(std::memory_order_relaxed))
            return Outcome::CANNOT_GET_IT;
        else if (has_ended(now.thread) && inherit(now.thread, thread))
            return m_state == State::MENDABLE ? Outcome::GOT_IT : Outcome::CANNOT_GET_IT;
        ::Sleep(1);
    } while (!clock.is_over());
    return Outcome::NOT_YET;
}

bool OwnerLock::wait_briefly(ThreadMark thread) noexcept
{
    for (int spin = 0; spin < SPINS; ++spin)
    {
        if (is_held_by(NO_THREAD) && try_lock(thread))
            return true;
        YieldProcessor();
    }
    WaitClock clock(YIELDS_MS);
    for (int yield = 0; yield < YIELDS && !clock.is_over(); ++yield)
    {
        if (is_held_by(NO_THREAD) && try_lock(thread))
            return true;
        ::SwitchToThread();
    }
    return false;
}

/// Ends a holder's turn in its place. False when another thread was quicker.
bool OwnerLock::inherit(ThreadMark from, ThreadMark thread) noexcept
{
    const ThreadMark heir = m_state == State::MENDABLE ? thread : ORPHANED;
    if (!m_owner.compare_exchange_strong(from, heir, std::memory_order_acquire))
        return false;
    m_turn.fetch_add(1, std::memory_order_relaxed);
    return true;
}

/// What comes after a wait in full. Where others had their turns meanwhile the lock is well, and this thread was
/// unlucky.
bool OwnerLock::end_wait(const Holder& first, ThreadMark thread) noexcept
{
    const Holder last = holder();
    if (last.thread == NO_THREAD || last.thread == ORPHANED || !(last == first))
        return wait_briefly(thread);
    if (m_state == State::MENDABLE)
        return inherit(last.thread, thread) || wait_briefly(thread);
    m_stuck_turn.store(last.turn, std::memory_order_relaxed);
    return false;
}
} // namespace kor::win
