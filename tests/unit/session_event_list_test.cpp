#include "core/session_event_list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using kor::core::SessionEventList;
using kor::core::SessionEventView;
using Event = SessionEventView::Event;

namespace
{
constexpr std::size_t BLOCK = SessionEventView::BLOCK_SIZE;

Event numbered(std::size_t number)
{
    Event event;
    event.type = L"a type that does not fit into the object " + std::to_wstring(number);
    event.weight = static_cast<std::uint32_t>(number);
    return event;
}

void push(SessionEventList& list, std::size_t first, std::size_t end)
{
    for (std::size_t number = first; number < end; ++number)
        list.push_back(numbered(number));
}

void expect_numbers(const SessionEventView& events, std::size_t first, std::size_t end)
{
    ASSERT_EQ(events.size(), end - first);
    EXPECT_EQ(events.empty(), first == end);
    std::size_t number = first;
    for (const Event& event : events)
    {
        EXPECT_EQ(event.weight, number);
        EXPECT_EQ(event.type, numbered(number).type);
        ++number;
    }
    EXPECT_EQ(number, end);
    if (first == end)
        return;
    EXPECT_EQ(events.front().weight, first);
    EXPECT_EQ(events.back().weight, end - 1);
    EXPECT_EQ(events[(end - first) / 2].weight, first + (end - first) / 2);
}

TEST(SessionEventList, HasNothingAtFirst)
{
    const SessionEventList list;
    expect_numbers(list, 0, 0);
    expect_numbers(list.view(), 0, 0);
}

TEST(SessionEventList, HasWhatWasAddedAndNotYetRemovedInItsOrder)
{
    SessionEventList list;
    std::size_t first = 0;
    std::size_t end = 0;
    // To, into, and beyond the ends of blocks, with none and with many left.
    for (const std::size_t step : {std::size_t{1}, BLOCK - 1, BLOCK, BLOCK + 1, 3 * BLOCK, std::size_t{5}})
    {
        push(list, end, end + step);
        end += step;
        expect_numbers(list, first, end);
        for (; first + 2 < end; ++first)
            list.pop_front();
        expect_numbers(list, first, end);
    }
    for (; first < end; ++first)
        list.pop_front();
    expect_numbers(list, first, end);
    push(list, end, end + 2 * BLOCK);
    expect_numbers(list, first, end + 2 * BLOCK);
}

TEST(SessionEventList, AViewStaysAsItWasTaken)
{
    SessionEventList list;
    push(list, 0, 10);
    const SessionEventView view = list.view();
    push(list, 10, 10 + 2 * BLOCK);
    expect_numbers(view, 0, 10);
    const SessionEventView later = list.view();
    for (std::size_t i = 0; i < 10 + 2 * BLOCK; ++i)
        list.pop_front();
    push(list, 500, 500 + 3 * BLOCK);
    expect_numbers(view, 0, 10);
    expect_numbers(later, 0, 10 + 2 * BLOCK);
    expect_numbers(list, 500, 500 + 3 * BLOCK);
}

TEST(SessionEventList, AViewStaysWhenTheListGoes)
{
    std::optional<SessionEventList> list(std::in_place);
    push(*list, 0, 3 * BLOCK);
    const SessionEventView view = list->view();
    list.reset();
    expect_numbers(view, 0, 3 * BLOCK);
}

TEST(SessionEventList, AViewIsReadWhileAnotherThreadGoesOn)
{
    SessionEventList list;
    push(list, 0, BLOCK + 7);
    for (int turn = 0; turn < 20; ++turn)
    {
        const std::size_t first = list.front().weight;
        const std::size_t end = list.back().weight + std::size_t{1};
        std::thread reader([view = list.view(), first, end] { expect_numbers(view, first, end); });
        for (std::size_t number = end; number < end + 3 * BLOCK; ++number)
        {
            list.push_back(numbered(number));
            if (list.size() > BLOCK)
                list.pop_front();
        }
        reader.join();
    }
}
} // namespace
