#include "core/session_waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

using kor::core::SessionChange;
using kor::core::SessionChangeList;
using kor::core::SessionEvent;
using kor::core::SessionEvents;
using kor::core::WaitingChange;
using kor::core::WaitingChanges;
using testing::ElementsAre;
using testing::IsEmpty;
using Gatherer = Kor_SessionLogGatherer;

namespace
{
using Numbers = std::vector<unsigned>;

SessionEvent event(const wchar_t* type, unsigned weight, std::uint32_t flags = 0)
{
    SessionEvent made;
    made.type = type;
    made.subject = L"s";
    made.weight = weight;
    made.flags = flags;
    return made;
}

template <class Change>
std::unique_ptr<SessionChange> waiting(Change change, std::uint64_t time = 0)
{
    return std::make_unique<WaitingChange<Change>>(std::move(change), time);
}

std::unique_ptr<SessionChange> report(unsigned weight, std::uint64_t time = 0)
{
    return waiting(kor::core::EventReport(event(L"T", weight)), time);
}

Numbers weights(const SessionEvents& events)
{
    Numbers numbers;
    for (const SessionEvent& one : events.history())
        numbers.push_back(one.weight);
    return numbers;
}

/// What comes out now.
Numbers taken(WaitingChanges& changes)
{
    SessionEvents events(0);
    events.set_history_size(100'000);
    EXPECT_EQ(changes.take().apply_to(events), 0u);
    return weights(events);
}

TEST(SessionWaiting, HasNothingAtFirst)
{
    WaitingChanges changes;
    EXPECT_TRUE(changes.empty());
    EXPECT_THAT(taken(changes), IsEmpty());
    EXPECT_EQ(changes.take_lost(), 0u);
}

TEST(SessionWaiting, GivesWhatWasPutInOnceAndInItsOrder)
{
    WaitingChanges changes;
    for (unsigned number = 1; number <= 5; ++number)
        changes.put(report(number));
    EXPECT_FALSE(changes.empty());
    EXPECT_THAT(taken(changes), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_TRUE(changes.empty());
    EXPECT_THAT(taken(changes), IsEmpty());
    changes.put(report(6));
    EXPECT_THAT(taken(changes), ElementsAre(6));
}

TEST(SessionWaiting, WhatIsPutBackComesBeforeWhatHasComeSince)
{
    WaitingChanges changes;
    changes.put(report(1));
    changes.put(report(2));
    SessionChangeList list = changes.take();
    changes.put(report(3));
    changes.put(report(4));
    changes.put_back(std::move(list));
    EXPECT_FALSE(changes.empty());
    EXPECT_THAT(taken(changes), ElementsAre(1, 2, 3, 4));
    changes.put_back(changes.take());
    EXPECT_TRUE(changes.empty());
    changes.put(report(5));
    changes.put_back(changes.take());
    EXPECT_THAT(taken(changes), ElementsAre(5));
}

TEST(SessionWaiting, AListCanBeAppliedAgain)
{
    WaitingChanges changes;
    changes.put(report(1));
    changes.put(report(2));
    const SessionChangeList list = changes.take();
    for (int i = 0; i < 2; ++i)
    {
        SessionEvents events(0);
        EXPECT_EQ(list.apply_to(events), 0u);
        EXPECT_THAT(weights(events), ElementsAre(1, 2));
    }
}

TEST(SessionWaiting, EachKindOfChangeIsWhatItIsWithoutWaiting)
{
    WaitingChanges changes;
    changes.put(waiting(kor::core::HistorySize{3}));
    changes.put(waiting(kor::core::EventReport(event(L"Span", 1, Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED)), 100));
    changes.put(waiting(kor::core::Alias{{L"Span", L"s"}, {L"Spans", L"all"}}));
    changes.put(waiting(kor::core::EventReport(event(L"Span", 2, Gatherer::END_OF_SPAN)), 150));
    changes.put(waiting(kor::core::ErrorReport(event(L"Error", 1)), 200));
    changes.put(waiting(kor::core::WarningReport(event(L"Warning", 1)), 300));
    changes.put(waiting(kor::core::HistoryAddition(event(L"Added", 7)), 400));
    changes.put(waiting(kor::core::StatisticsUpdate{{L"Own", L""}, event(L"T", 9, Gatherer::COUNTED)}));
    changes.put(waiting(kor::core::TimeNote{{L"noted", L"x"}}, 500));
    changes.put(waiting(kor::core::EventReport(event(L"State", 1, Gatherer::STATE)), 600));
    changes.put(waiting(kor::core::EventReport(event(L"Other", 1, Gatherer::STATE)), 600));
    changes.put(waiting(kor::core::ContextRemoval{false, true, {L"State", L""}, true}));
    SessionEvents events(0);
    EXPECT_EQ(changes.take().apply_to(events), 0u);

    EXPECT_EQ(events.history_size(), 3u);
    ASSERT_EQ(events.history().size(), 3u);
    EXPECT_EQ(events.history()[0].begin_time, 100u);
    EXPECT_EQ(events.history()[0].end_time, 150u);
    EXPECT_EQ(events.history()[1].type, L"Added");
    EXPECT_EQ(events.history()[1].begin_time, 0u);
    EXPECT_EQ(events.history()[2].type, L"State");
    ASSERT_EQ(events.errors().size(), 1u);
    EXPECT_EQ(events.errors()[0].begin_time, 200u);
    EXPECT_EQ(events.errors()[0].end_time, 200u);
    ASSERT_EQ(events.warnings().size(), 1u);
    EXPECT_EQ(events.warnings()[0].begin_time, 300u);
    EXPECT_EQ(events.time_of({L"noted", L"x"}), 500u);
    ASSERT_EQ(events.context().size(), 1u);
    EXPECT_EQ(events.context().begin()->first.type, L"Other");
    ASSERT_EQ(events.statistics().size(), 2u);
    EXPECT_EQ(events.statistics().begin()->first.type, L"Own");
    EXPECT_EQ(events.statistics().rbegin()->first.subject, L"all");
}

TEST(SessionWaiting, ARemovalMayBeOfAnyTypeAndSubject)
{
    SessionEvents events(0);
    for (const wchar_t* const type : {L"A", L"B"})
        events.report(event(type, 1, Gatherer::STATE), 1);
    kor::core::ContextRemoval{false, false, {L"B", L"s"}, false}(events, 0);
    ASSERT_EQ(events.context().size(), 1u);
    kor::core::ContextRemoval{true, true, {L"", L""}, false}(events, 0);
    EXPECT_TRUE(events.context().empty());
}

TEST(SessionWaiting, WhatIsBeyondTheNumberIsLostAndCountedOnce)
{
    WaitingChanges changes;
    for (unsigned number = 0; number < WaitingChanges::MOST + 3; ++number)
        changes.put(report(number));
    const Numbers numbers = taken(changes);
    ASSERT_EQ(numbers.size(), WaitingChanges::MOST);
    EXPECT_EQ(numbers.front(), 0u);
    EXPECT_EQ(numbers.back(), WaitingChanges::MOST - 1);
    EXPECT_FALSE(changes.empty()) << "somebody has to tell of it";
    EXPECT_EQ(changes.take_lost(), 3u);
    EXPECT_EQ(changes.take_lost(), 0u);
    EXPECT_TRUE(changes.empty());
    changes.put(report(1)); // there is room again
    EXPECT_THAT(taken(changes), ElementsAre(1));
    EXPECT_EQ(changes.take_lost(), 0u);
}

TEST(SessionWaiting, WhatIsBeyondTheBytesIsLost)
{
    WaitingChanges changes;
    SessionEvent large = event(L"T", 1);
    large.info.assign(WaitingChanges::MOST_BYTES / sizeof(wchar_t) * 2 / 3, L'x');
    for (unsigned number = 0; number < 3; ++number)
        changes.put(waiting(kor::core::EventReport(SessionEvent(large))));
    changes.put(report(2)); // for which there is room
    EXPECT_EQ(taken(changes), (Numbers{1, 2}));
    EXPECT_EQ(changes.take_lost(), 2u);
    changes.put(waiting(kor::core::EventReport(SessionEvent(large))));
    changes.put_back(changes.take());
    changes.put(waiting(kor::core::EventReport(SessionEvent(large)))); // what was put back takes its room
    EXPECT_EQ(taken(changes), (Numbers{1}));
    EXPECT_EQ(changes.take_lost(), 1u);
}

TEST(SessionWaiting, TheSizeOfEachKindHasItsTexts)
{
    const std::wstring text(1000, L'x');
    const std::size_t bytes = text.size() * sizeof(wchar_t);
    SessionEvent large = event(text.c_str(), 1);
    EXPECT_GE(kor::core::EventReport(SessionEvent(large)).size(), bytes);
    large.info = large.subject = text;
    EXPECT_GE(kor::core::EventReport(SessionEvent(large)).size(), 3 * bytes);
    EXPECT_GE((kor::core::StatisticsUpdate{{text, text}, large}.size()), 5 * bytes);
    EXPECT_GE((kor::core::TimeNote{{text, L""}}.size()), bytes);
    EXPECT_GE((kor::core::Alias{{text, text}, {text, text}}.size()), 4 * bytes);
    EXPECT_GE((kor::core::ContextRemoval{false, false, {text, text}, true}.size()), 2 * bytes);
}

TEST(SessionWaiting, NoneForWantOfMemoryIsLost)
{
    WaitingChanges changes;
    changes.put(nullptr);
    EXPECT_FALSE(changes.empty());
    EXPECT_EQ(changes.take_lost(), 1u);
}

TEST(SessionWaiting, AChangeThatFindsNoMemoryIsCountedAndTheRestGoesOn)
{
    struct Fails
    {
        void operator()(SessionEvents&, std::uint64_t) const { throw std::bad_alloc(); }
        std::size_t size() const { return 1; }
    };
    WaitingChanges changes;
    changes.put(report(1));
    changes.put(waiting(Fails()));
    changes.put(report(2));
    SessionEvents events(0);
    EXPECT_EQ(changes.take().apply_to(events), 1u);
    EXPECT_THAT(weights(events), ElementsAre(1, 2));
}

TEST(SessionWaiting, OfManyThreadsLosesNothingAndKeepsTheOrderOfEach)
{
    constexpr unsigned THREADS = 4;
    constexpr unsigned EACH = 2'000;
    WaitingChanges changes;
    std::atomic<bool> over{false};
    SessionEvents events(0);
    events.set_history_size(THREADS * EACH);
    std::thread taker(
        [&]
        {
            bool is_last = false;
            for (int turn = 0; !is_last; ++turn)
            {
                is_last = over;
                SessionChangeList list = changes.take();
                if (turn % 2 == 0 && !is_last)
                    changes.put_back(std::move(list));
                else
                    list.apply_to(events);
            }
        });
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < THREADS; ++number)
        threads.emplace_back(
            [&changes, number]
            {
                for (unsigned i = 0; i < EACH; ++i)
                    changes.put(report(number * EACH + i));
            });
    for (std::thread& thread : threads)
        thread.join();
    over = true;
    taker.join();

    const Numbers all = weights(events);
    ASSERT_EQ(all.size(), THREADS * EACH);
    Numbers next(THREADS);
    for (const unsigned number : all)
        EXPECT_EQ(number % EACH, next[number / EACH]++);
    EXPECT_EQ(changes.take_lost(), 0u);
}

TEST(SessionWaiting, WhatStillWaitsAtTheEndIsFreed)
{
    WaitingChanges changes;
    changes.put(report(1)); // a leak would be found
    SessionChangeList list = changes.take();
    changes.put(report(2));
}
} // namespace
