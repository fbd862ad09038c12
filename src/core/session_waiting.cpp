#include "core/session_waiting.h"

#include <utility>

namespace kor::core
{
SessionChangeList::SessionChangeList(SessionChangeList&& from) noexcept : m_first(std::exchange(from.m_first, nullptr))
{
}

SessionChangeList::~SessionChangeList()
{
    while (m_first != nullptr)
        delete std::exchange(m_first, m_first->m_next);
}

std::size_t SessionChangeList::apply_to(SessionEvents& events) const noexcept
{
    std::size_t failed = 0;
    for (const SessionChange* change = m_first; change != nullptr; change = change->m_next)
    {
        try
        {
            change->apply(events);
        }
        catch (...)
        {
            ++failed;
        }
    }
    return failed;
}

WaitingChanges::~WaitingChanges() { take(); }

void WaitingChanges::put(std::unique_ptr<SessionChange> change) noexcept
{
    if (change == nullptr || !take_room(1, change->m_size))
    {
        ++m_lost;
        return;
    }
    SessionChange* const newest = change.release();
    newest->m_next = m_newest.load(std::memory_order_relaxed);
    while (!m_newest.compare_exchange_weak(newest->m_next, newest, std::memory_order_release))
    {
    }
}

SessionChangeList WaitingChanges::take() noexcept
{
    SessionChangeList list;
    std::size_t count = 0;
    std::size_t size = 0;
    for (SessionChange* change = m_newest.exchange(nullptr, std::memory_order_acquire); change != nullptr; ++count)
    {
        size += change->m_size;
        SessionChange* const earlier = std::exchange(change->m_next, list.m_first);
        list.m_first = change;
        change = earlier;
    }
    give_room(count, size);
    return list;
}

void WaitingChanges::put_back(SessionChangeList list) noexcept
{
    // The chain of what was taken, and of what has come since in front of it.
    SessionChange* chain = nullptr;
    std::size_t count = 0;
    std::size_t size = 0;
    const auto chain_up = [&](SessionChangeList& changes)
    {
        while (SessionChange* const change = changes.m_first)
        {
            changes.m_first = std::exchange(change->m_next, chain);
            chain = change;
            ++count;
            size += change->m_size;
        }
    };
    chain_up(list);
    for (;;)
    {
        SessionChangeList since = take();
        chain_up(since);
        SessionChange* nothing = nullptr;
        if (m_newest.compare_exchange_strong(nothing, chain, std::memory_order_release))
            break;
    }
    m_count += count;
    m_bytes += size;
}

bool WaitingChanges::take_room(std::size_t count, std::size_t size) noexcept
{
    const bool is_room = m_count.fetch_add(count) + count <= MOST;
    if (m_bytes.fetch_add(size) + size <= MOST_BYTES && is_room)
        return true;
    give_room(count, size);
    return false;
}

void WaitingChanges::give_room(std::size_t count, std::size_t size) noexcept
{
    m_count -= count;
    m_bytes -= size;
}
} // namespace kor::core
