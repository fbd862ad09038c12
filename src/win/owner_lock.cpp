#include "win/owner_lock.h"

#include "win/kept_errors.h"
#include "win/owned.h"
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

/// True when the thread is known to be gone. One that the caller may not look at, as when it impersonates somebody,
/// counts as living.
bool has_ended(DWORD thread_id) noexcept
{
    const OwnedHandle thread(::OpenThread(SYNCHRONIZE, FALSE, thread_id));
    if (!thread)
        return ::GetLastError() == ERROR_INVALID_PARAMETER; // no thread has that id
    return ::WaitForSingleObject(thread.get(), 0) == WAIT_OBJECT_0;
}
} // namespace

bool OwnerLock::wait_for_lock() noexcept
{
    const KeptErrors kept;
    const DWORD self = ::GetCurrentThreadId();
    const auto try_lock = [this, self]
    {
        DWORD nobody = 0;
        return m_owner.load(std::memory_order_relaxed) == 0 &&
               m_owner.compare_exchange_strong(nobody, self, std::memory_order_acquire);
    };

    for (int spin = 0; spin < SPINS; ++spin)
    {
        if (try_lock())
            return true;
        YieldProcessor();
    }
    WaitClock yields(YIELDS_MS);
    for (int yield = 0; yield < YIELDS && !yields.is_over(); ++yield)
    {
        if (try_lock())
            return true;
        ::SwitchToThread();
    }
    WaitClock clock(MAX_WAIT_MS);
    do
    {
        if (try_lock())
            return true;
        DWORD owner = m_owner.load(std::memory_order_relaxed);
        if (owner != 0 && has_ended(owner) && m_owner.compare_exchange_strong(owner, self, std::memory_order_acquire))
            return true;
        ::Sleep(1);
    } while (!clock.is_over());
    return false;
}
} // namespace kor::win
