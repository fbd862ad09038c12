#include "core/log_merge.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kor::core
{
LogMerge::LogMerge(std::vector<LogReader*> readers) : m_readers(std::move(readers)), m_heads(m_readers.size())
{
    const auto later = [this](std::size_t a, std::size_t b) { return comes_later(a, b); };
    for (std::size_t source = 0; source < m_readers.size(); ++source)
    {
        m_heads[source].order = std::numeric_limits<std::int64_t>::min();
        if (advance(source))
            m_queue.push_back(source);
    }
    std::make_heap(m_queue.begin(), m_queue.end(), later);
}

bool LogMerge::next(LogRecord& record)
{
    if (m_queue.empty())
        return false;
    const auto later = [this](std::size_t a, std::size_t b) { return comes_later(a, b); };
    const std::size_t source = m_queue.front();
    record.swap(m_heads[source].record);
    record.source = source;

    const bool has_more = advance(source);
    if (!record.ends) // it stays in front, with the next part
        return true;
    std::pop_heap(m_queue.begin(), m_queue.end(), later);
    m_queue.pop_back();
    if (has_more)
    {
        m_queue.push_back(source);
        std::push_heap(m_queue.begin(), m_queue.end(), later);
    }
    return true;
}

bool LogMerge::comes_later(std::size_t a, std::size_t b) const noexcept
{
    return std::pair(m_heads[a].order, a) > std::pair(m_heads[b].order, b);
}

bool LogMerge::advance(std::size_t source)
{
    Head& head = m_heads[source];
    if (!m_readers[source]->next(head.record))
        return false;
    head.order = std::max(head.order, head.record.time);
    return true;
}
} // namespace kor::core
