#include "core/session_event_list.h"

#include <utility>

namespace kor::core
{
void SessionEventList::push_back(Event&& event)
{
    const std::size_t place = m_begin + m_size;
    if (place == m_blocks.size() * BLOCK_SIZE)
        m_blocks.push_back(std::make_shared<Block>());
    m_blocks.back()->events[place % BLOCK_SIZE] = std::move(event);
    ++m_size; // last: a crash handler may come in between
}

void SessionEventList::pop_front() noexcept
{
    --m_size;
    if (++m_begin < BLOCK_SIZE)
        return;
    m_begin = 0;
    m_blocks.pop_front();
}
} // namespace kor::core
