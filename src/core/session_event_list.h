// session_event_list.h - events in the order in which they came, which can be looked at while more come.

#ifndef KOR_CORE_SESSION_EVENT_LIST_H
#define KOR_CORE_SESSION_EVENT_LIST_H

#include <cstddef>
#include <deque>
#include <iterator>
#include <memory>

#include "Kor_SessionLogGatherer.h"

namespace kor::core
{
/// Some events of a list as they were when it was taken. For one thread, which needs no lock for it, whatever others do
/// to the list.
class SessionEventView
{
public:
    using Event = Kor_SessionLogGatherer::ReportEventNode;

    static constexpr std::size_t BLOCK_SIZE = 64; // events

    /// Events that are in a list do not change any more, and a block lives as long as anybody looks at it: to look at
    /// all takes a pointer for every 64 events, and not their texts.
    struct Block
    {
        Event events[BLOCK_SIZE];
    };

    class Iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Event;
        using difference_type = std::ptrdiff_t;
        using pointer = const Event*;
        using reference = const Event&;

        Iterator(const SessionEventView& view, std::size_t index) noexcept : m_view(&view), m_index(index) {}

        reference operator*() const noexcept { return (*m_view)[m_index]; }
        pointer operator->() const noexcept { return &**this; }
        Iterator& operator++() noexcept
        {
            ++m_index;
            return *this;
        }
        Iterator operator++(int) noexcept
        {
            const Iterator before = *this;
            ++m_index;
            return before;
        }
        bool operator==(const Iterator& other) const noexcept { return m_index == other.m_index; }
        bool operator!=(const Iterator& other) const noexcept { return m_index != other.m_index; }

    private:
        const SessionEventView* m_view;
        std::size_t m_index;
    };

    std::size_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    const Event& operator[](std::size_t index) const noexcept
    {
        index += m_begin;
        return m_blocks[index / BLOCK_SIZE]->events[index % BLOCK_SIZE];
    }
    const Event& front() const noexcept { return (*this)[0]; }
    const Event& back() const noexcept { return (*this)[m_size - 1]; }
    Iterator begin() const noexcept { return {*this, 0}; }
    Iterator end() const noexcept { return {*this, m_size}; }

protected:
    std::deque<std::shared_ptr<Block>> m_blocks;
    std::size_t m_begin = 0; // in the first block
    std::size_t m_size = 0;
};

/// Grows at its end and shrinks at its front. For one thread at a time.
class SessionEventList : public SessionEventView
{
public:
    SessionEventList() = default;
    SessionEventList(SessionEventList&&) = default;
    SessionEventList& operator=(SessionEventList&&) = default;
    // Two lists must not share blocks that both write to.
    SessionEventList(const SessionEventList&) = delete;
    SessionEventList& operator=(const SessionEventList&) = delete;

    /// Throws without memory, and is then as it was.
    void push_back(Event&& event);
    /// There must be an event.
    void pop_front() noexcept;

    /// What is in it now.
    SessionEventView view() const { return *this; }
};
} // namespace kor::core

#endif // KOR_CORE_SESSION_EVENT_LIST_H
