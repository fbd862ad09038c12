#include "core/session_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using kor::core::SessionEvent;
using kor::core::SessionEvents;
using kor::core::SessionStatistics;
using kor::core::Triple;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
using Texts = std::vector<std::string>;

constexpr std::uint32_t STATE = 0x1;
constexpr std::uint32_t STATE_OF_TYPE = 0x2;
constexpr std::uint32_t HIDDEN = 0x4;
constexpr std::uint32_t CONFIGURATION = 0x8;
constexpr std::uint32_t COUNTED = 0x100;
constexpr std::uint32_t BEGIN = 0x200;
constexpr std::uint32_t END = 0x400;

constexpr std::uint64_t LARGEST = std::numeric_limits<std::uint64_t>::max();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

SessionEvent make_event(
    const wchar_t* type, const wchar_t* subject, std::uint32_t flags, std::uint32_t weight = 1,
    const wchar_t* info = L"")
{
    SessionEvent event;
    event.type = type;
    event.subject = subject;
    event.flags = flags;
    event.weight = weight;
    event.info = info;
    return event;
}

SessionStatistics make_statistics(std::uint64_t count, const Triple& weight)
{
    SessionStatistics statistics;
    statistics.type = L"T";
    statistics.subject = L"s";
    statistics.count = count;
    statistics.weight = weight;
    return statistics;
}

std::string ascii(const std::wstring& text) { return {text.begin(), text.end()}; }

/// "T/s 0x601 w3 10-100 info"
std::string told(const SessionEvent& event)
{
    std::ostringstream text;
    text << ascii(event.type) << '/' << ascii(event.subject) << " 0x" << std::hex << event.flags << std::dec << " w"
         << event.weight << ' ' << event.begin_time << '-' << event.end_time << ' ' << ascii(event.info);
    return text.str();
}

std::string told(const Triple& triple)
{
    std::ostringstream text;
    text << triple.min << ' ' << triple.avg << ' ' << triple.max;
    return text.str();
}

/// "T/s x2 weight 1 2 3 total 10 20 30 unit 10 20 30"
std::string told(const SessionStatistics& statistics)
{
    return ascii(statistics.type) + '/' + ascii(statistics.subject) + " x" + std::to_string(statistics.count) +
           " weight " + told(statistics.weight) + " total " + told(statistics.total_time) + " unit " +
           told(statistics.unit_time);
}

template <class Queue>
Texts told_all(const Queue& events)
{
    Texts all;
    for (const SessionEvent& event : events)
        all.push_back(told(event));
    return all;
}

/// Each with its key in front: "[T/] T/s 0x2 ..."
Texts context_of(const SessionEvents& events)
{
    Texts all;
    for (const auto& [key, event] : events.context())
        all.push_back('[' + ascii(key.type) + '/' + ascii(key.subject) + "] " + told(event));
    return all;
}

Texts statistics_of(const SessionEvents& events)
{
    Texts all;
    for (const auto& [key, statistics] : events.statistics())
    {
        EXPECT_TRUE(key.type == statistics.type && key.subject == statistics.subject);
        all.push_back(told(statistics));
    }
    return all;
}

Texts infos_of(const SessionEvents& events)
{
    Texts all;
    for (const SessionEvent& event : events.history())
        all.push_back(ascii(event.info));
    return all;
}

/// Reports a completed span of T/s.
void report_span(SessionEvents& events, std::uint32_t weight, std::uint64_t begin, std::uint64_t end)
{
    events.report(make_event(L"T", L"s", BEGIN | COUNTED, weight), begin);
    events.report(make_event(L"T", L"s", END, 0), end);
}

// What becomes of an event ----------------------------------------------------------------------------
constexpr std::uint32_t NOTHING = 0xFFFFFFFF;

/// What an event of these flags leaves where the context holds one, or nothing, under the same key.
struct ReportRow
{
    std::uint32_t present;
    std::uint32_t reported;
    Texts context;
    Texts history;
    Texts statistics;
};

/// present: weight 2, from 10 to 20, info "p". reported: weight 3 at 100, info "n".
void expect_report(const ReportRow& row)
{
    SCOPED_TRACE(testing::Message() << std::hex << "0x" << row.reported << " on 0x" << row.present);
    SessionEvents events(1);
    if (row.present != NOTHING)
    {
        const bool by_type = ((row.present | row.reported) & STATE_OF_TYPE) != 0;
        SessionEvent present = make_event(L"T", by_type ? L"" : L"s", row.present, 2, L"p");
        present.begin_time = 10;
        present.end_time = 20;
        events.load_context(std::move(present));
    }
    events.report(make_event(L"T", L"s", row.reported, 3, L"n"), 100);
    EXPECT_EQ(context_of(events), row.context);
    EXPECT_EQ(told_all(events.history()), row.history);
    EXPECT_EQ(statistics_of(events), row.statistics);
}

TEST(SessionEventsReport, AnInstantThatIsNoStateIsRecordedAtOnce)
{
    const ReportRow rows[] = {
        {NOTHING, 0, {}, {"T/s 0x0 w3 100-100 n"}, {}},
        {NOTHING, COUNTED, {}, {"T/s 0x100 w3 100-100 n"}, {"T/s x1 weight 3 3 3 total 0 0 0 unit 0 0 0"}},
        {NOTHING, CONFIGURATION | 0x7000, {}, {"T/s 0x7008 w3 100-100 n"}, {}},
        {NOTHING, 0xFFFFF8F8, {}, {"T/s 0xfffff8f8 w3 100-100 n"}, {}}, // bits without a meaning
        {NOTHING, HIDDEN, {}, {}, {}},
        {NOTHING, HIDDEN | COUNTED, {}, {}, {"T/s x1 weight 3 3 3 total 0 0 0 unit 0 0 0"}},
        {STATE, 0, {"[T/s] T/s 0x1 w2 10-20 p"}, {"T/s 0x0 w3 100-100 n"}, {}},
        {BEGIN, 0, {"[T/s] T/s 0x200 w2 10-20 p"}, {"T/s 0x0 w3 100-100 n"}, {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, AStateStaysInTheContextAndTheOneItReplacesIsRecorded)
{
    const ReportRow rows[] = {
        {NOTHING, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {}, {}},
        {NOTHING, STATE_OF_TYPE, {"[T/] T/s 0x2 w3 100-100 n"}, {}, {}},
        {NOTHING, STATE | STATE_OF_TYPE, {"[T/] T/s 0x3 w3 100-100 n"}, {}, {}},
        {NOTHING, STATE | COUNTED, {"[T/s] T/s 0x101 w3 100-100 n"}, {}, {}}, // counted when it is over
        {NOTHING, STATE | HIDDEN, {"[T/s] T/s 0x5 w3 100-100 n"}, {}, {}},
        {STATE, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {"T/s 0x1 w2 10-20 p"}, {}},
        {STATE | COUNTED,
         STATE,
         {"[T/s] T/s 0x1 w3 100-100 n"},
         {"T/s 0x101 w2 10-20 p"},
         {"T/s x1 weight 2 2 2 total 0 0 0 unit 0 0 0"}},
        {STATE | HIDDEN, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {}, {}},
        {STATE_OF_TYPE, STATE_OF_TYPE, {"[T/] T/s 0x2 w3 100-100 n"}, {"T/ 0x2 w2 10-20 p"}, {}},
        // Whatever it was, a span among them.
        {0, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {"T/s 0x0 w2 10-20 p"}, {}},
        {BEGIN, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {"T/s 0x0 w2 10-20 p"}, {}},
        {BEGIN | STATE, STATE, {"[T/s] T/s 0x1 w3 100-100 n"}, {"T/s 0x1 w2 10-20 p"}, {}},
        {BEGIN | END | STATE | COUNTED,
         STATE,
         {"[T/s] T/s 0x1 w3 100-100 n"},
         {"T/s 0x101 w2 10-20 p"},
         {"T/s x1 weight 2 2 2 total 0 0 0 unit 0 0 0"}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, ABeginOpensASpan)
{
    const ReportRow rows[] = {
        {NOTHING, BEGIN, {"[T/s] T/s 0x200 w3 100-0 n"}, {}, {}},
        {NOTHING, BEGIN | COUNTED, {"[T/s] T/s 0x300 w3 100-0 n"}, {}, {}},
        {NOTHING, BEGIN | STATE, {"[T/s] T/s 0x201 w3 100-0 n"}, {}, {}},
        {NOTHING, BEGIN | STATE_OF_TYPE, {"[T/] T/s 0x202 w3 100-0 n"}, {}, {}},
        {NOTHING, BEGIN | HIDDEN, {"[T/s] T/s 0x204 w3 100-0 n"}, {}, {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, ABeginFinishesWhatIsThereAsItIs)
{
    const ReportRow rows[] = {
        {BEGIN, BEGIN, {"[T/s] T/s 0x200 w3 100-0 n"}, {"T/s 0x200 w2 10-20 p"}, {}},
        {BEGIN | COUNTED,
         BEGIN,
         {"[T/s] T/s 0x200 w3 100-0 n"},
         {"T/s 0x300 w2 10-20 p"},
         {"T/s x1 weight 2 2 2 total 0 0 0 unit 0 0 0"}}, // which has no end
        {BEGIN | END | COUNTED,
         BEGIN,
         {"[T/s] T/s 0x200 w3 100-0 n"},
         {"T/s 0x700 w2 10-20 p"},
         {"T/s x1 weight 2 2 2 total 10 10 10 unit 5 5 5"}},
        {0, BEGIN, {"[T/s] T/s 0x200 w3 100-0 n"}, {"T/s 0x0 w2 10-20 p"}, {}},
        {BEGIN | HIDDEN, BEGIN, {"[T/s] T/s 0x200 w3 100-0 n"}, {}, {}},
        {STATE, BEGIN | STATE, {"[T/s] T/s 0x201 w3 100-0 n"}, {"T/s 0x1 w2 10-20 p"}, {}},
        {STATE_OF_TYPE, BEGIN | STATE_OF_TYPE, {"[T/] T/s 0x202 w3 100-0 n"}, {"T/ 0x2 w2 10-20 p"}, {}},
        {STATE | STATE_OF_TYPE,
         BEGIN | STATE | STATE_OF_TYPE,
         {"[T/] T/s 0x203 w3 100-0 n"},
         {"T/ 0x3 w2 10-20 p"},
         {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, ABeginThatIsNoStateLeavesAStateThereAndIsRecordedAtOnce)
{
    const ReportRow rows[] = {
        {STATE, BEGIN, {"[T/s] T/s 0x1 w2 10-20 p"}, {"T/s 0x0 w3 100-0 n"}, {}},
        {STATE | COUNTED,
         BEGIN | COUNTED,
         {"[T/s] T/s 0x101 w2 10-20 p"},
         {"T/s 0x100 w3 100-0 n"},
         {"T/s x1 weight 3 3 3 total 0 0 0 unit 0 0 0"}},
        {STATE | BEGIN, BEGIN, {"[T/s] T/s 0x201 w2 10-20 p"}, {"T/s 0x0 w3 100-0 n"}, {}},
        {STATE | BEGIN | END, BEGIN, {"[T/s] T/s 0x601 w2 10-20 p"}, {"T/s 0x0 w3 100-0 n"}, {}},
        {STATE | STATE_OF_TYPE, BEGIN | STATE_OF_TYPE, {"[T/] T/ 0x3 w2 10-20 p"}, {"T/s 0x2 w3 100-0 n"}, {}},
        {STATE, BEGIN | HIDDEN, {"[T/s] T/s 0x1 w2 10-20 p"}, {}, {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, AnEndWithoutAnOpenSpanIsRecordedAtOnceWithoutABegin)
{
    const ReportRow rows[] = {
        {NOTHING, END, {}, {"T/s 0x0 w3 0-100 n"}, {}},
        {NOTHING, END | COUNTED, {}, {"T/s 0x100 w3 0-100 n"}, {"T/s x1 weight 3 3 3 total 0 0 0 unit 0 0 0"}},
        {NOTHING, BEGIN | END | COUNTED, {}, {"T/s 0x100 w3 0-100 n"}, {"T/s x1 weight 3 3 3 total 0 0 0 unit 0 0 0"}},
        {NOTHING, END | STATE, {}, {"T/s 0x1 w3 0-100 n"}, {}},
        {NOTHING, END | STATE_OF_TYPE, {}, {"T/s 0x2 w3 0-100 n"}, {}},
        {NOTHING, END | HIDDEN, {}, {}, {}},
        {STATE, END, {"[T/s] T/s 0x1 w2 10-20 p"}, {"T/s 0x0 w3 0-100 n"}, {}},
        {0, END, {"[T/s] T/s 0x0 w2 10-20 p"}, {"T/s 0x0 w3 0-100 n"}, {}},
        {STATE | END, END, {"[T/s] T/s 0x401 w2 10-20 p"}, {"T/s 0x0 w3 0-100 n"}, {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, AnEndClosesTheOpenSpanWhichIsRecorded)
{
    const ReportRow rows[] = {
        {BEGIN, END, {}, {"T/s 0x600 w3 10-100 pn"}, {}},
        {BEGIN | COUNTED,
         END,
         {},
         {"T/s 0x600 w3 10-100 pn"}, // counted, and not to be counted again
         {"T/s x1 weight 3 3 3 total 90 90 90 unit 30 30 30"}},
        {BEGIN, END | COUNTED, {}, {"T/s 0x600 w3 10-100 pn"}, {"T/s x1 weight 3 3 3 total 90 90 90 unit 30 30 30"}},
        {BEGIN, BEGIN | END, {}, {"T/s 0x600 w3 10-100 pn"}, {}},
        {BEGIN | CONFIGURATION | 0x3000, END, {}, {"T/s 0x3608 w3 10-100 pn"}, {}},
        {BEGIN,
         END | HIDDEN | CONFIGURATION | 0x7000,
         {},
         {"T/s 0x600 w3 10-100 pn"},
         {}}, // only three flags come over
        {BEGIN | HIDDEN | COUNTED, END, {}, {}, {"T/s x1 weight 3 3 3 total 90 90 90 unit 30 30 30"}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, ASpanThatIsAStateStaysWhenItIsClosed)
{
    const ReportRow rows[] = {
        {BEGIN | STATE, END, {"[T/s] T/s 0x601 w3 10-100 pn"}, {}, {}},
        {BEGIN, END | STATE, {"[T/s] T/s 0x601 w3 10-100 pn"}, {}, {}},
        {BEGIN | STATE_OF_TYPE, END | STATE_OF_TYPE, {"[T/] T/ 0x602 w3 10-100 pn"}, {}, {}},
        {BEGIN, END | STATE_OF_TYPE, {"[T/] T/ 0x602 w3 10-100 pn"}, {}, {}},
        {BEGIN | STATE | COUNTED,
         END | COUNTED,
         {"[T/s] T/s 0x601 w3 10-100 pn"},
         {},
         {"T/s x1 weight 3 3 3 total 90 90 90 unit 30 30 30"}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, AnEndOfASpanThatIsClosedIsOnlyRecorded)
{
    const ReportRow rows[] = {
        {BEGIN | END | STATE, END, {"[T/s] T/s 0x601 w2 10-20 p"}, {"T/s 0x400 w3 0-100 n"}, {}},
        {BEGIN | END | STATE, END | COUNTED, {"[T/s] T/s 0x601 w2 10-20 p"}, {"T/s 0x500 w3 0-100 n"}, {}},
        {BEGIN | END | STATE, BEGIN | END, {"[T/s] T/s 0x601 w2 10-20 p"}, {"T/s 0x600 w3 0-100 n"}, {}},
        {BEGIN | END, END, {"[T/s] T/s 0x600 w2 10-20 p"}, {"T/s 0x400 w3 0-100 n"}, {}},
        {BEGIN | END | STATE, END | HIDDEN, {"[T/s] T/s 0x601 w2 10-20 p"}, {}, {}},
    };
    for (const ReportRow& row : rows)
        expect_report(row);
}

TEST(SessionEventsReport, ASpanThatIsClosedWithWeightZeroKeepsTheWeightOfItsBegin)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", BEGIN | COUNTED, 4, L"from"), 1000);
    events.report(make_event(L"T", L"s", END, 0, L" to"), 1100);
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/s 0x600 w4 1000-1100 from to"));
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 4 4 4 total 100 100 100 unit 25 25 25"));
}

TEST(SessionEventsReport, ASpanThatWasBegunTwiceLeavesItsFirstBeginWithoutAnEnd)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", BEGIN, 1, L"first"), 100);
    events.report(make_event(L"T", L"s", BEGIN, 1, L"second"), 200);
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/s 0x200 w1 100-0 first"));
    EXPECT_THAT(context_of(events), ElementsAre("[T/s] T/s 0x200 w1 200-0 second"));
    events.report(make_event(L"T", L"s", END, 1, L", over"), 300);
    EXPECT_THAT(
        told_all(events.history()), ElementsAre("T/s 0x200 w1 100-0 first", "T/s 0x600 w1 200-300 second, over"));
    EXPECT_THAT(context_of(events), IsEmpty());
}

TEST(SessionEventsReport, AClosedStateThatWasCountedIsNotCountedAgainWhenItIsReplaced)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", BEGIN | STATE | COUNTED, 1), 100);
    events.report(make_event(L"T", L"s", END, 1), 200);
    events.report(make_event(L"T", L"s", STATE, 1), 300);
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/s 0x1 w1 100-200 "));
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 1 1 1 total 100 100 100 unit 100 100 100"));
}

TEST(SessionEventsReport, SpansAreToldApartByTypeAndSubject)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"a", BEGIN), 100);
    events.report(make_event(L"T", L"b", BEGIN), 200);
    events.report(make_event(L"U", L"a", BEGIN), 300);
    events.report(make_event(L"T", L"b", END), 400);
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/b 0x600 w1 200-400 "));
    EXPECT_THAT(context_of(events), ElementsAre("[T/a] T/a 0x200 w1 100-0 ", "[U/a] U/a 0x200 w1 300-0 "));
}

TEST(SessionEventsReport, AStateOfATypeReplacesTheOneOfAnotherSubject)
{
    SessionEvents events(1);
    events.report(make_event(L"User", L"anna", STATE_OF_TYPE), 100);
    events.report(make_event(L"User", L"bert", STATE_OF_TYPE), 200);
    EXPECT_THAT(context_of(events), ElementsAre("[User/] User/bert 0x2 w1 200-200 "));
    EXPECT_THAT(told_all(events.history()), ElementsAre("User/anna 0x2 w1 100-100 "));
}

TEST(SessionEventsReport, AStateOfATypeIsCountedWithoutItsSubject)
{
    SessionEvents events(1);
    events.report(make_event(L"User", L"anna", STATE_OF_TYPE | COUNTED, 5), 100);
    events.report(make_event(L"User", L"bert", STATE_OF_TYPE), 200);
    EXPECT_THAT(statistics_of(events), ElementsAre("User/ x1 weight 5 5 5 total 0 0 0 unit 0 0 0"));
}

TEST(SessionEventsReport, TheEmptyTypeAndSubjectAreAnIdentityLikeAnyOther)
{
    SessionEvents events(1);
    events.report(make_event(L"", L"", BEGIN | COUNTED), 100);
    events.report(make_event(L"", L"", END), 107);
    EXPECT_THAT(told_all(events.history()), ElementsAre("/ 0x600 w1 100-107 "));
    EXPECT_THAT(statistics_of(events), ElementsAre("/ x1 weight 1 1 1 total 7 7 7 unit 7 7 7"));
}

TEST(SessionEventsReport, TheContextIsOrderedByTypeThenSubjectCodeUnitByCodeUnit)
{
    SessionEvents events(1);
    const std::pair<const wchar_t*, const wchar_t*> identities[] = {
        {L"b", L""}, {L"a", L"b"}, {L"B", L"z"}, {L"\x00E4", L""}, {L"a", L""}, {L"ab", L"a"}, {L"a", L"B"}};
    for (const auto& [type, subject] : identities)
        events.report(make_event(type, subject, STATE), 1);
    std::vector<std::wstring> keys;
    for (const auto& entry : events.context())
        keys.push_back(entry.first.type + L'/' + entry.first.subject);
    EXPECT_THAT(keys, ElementsAre(L"B/z", L"a/", L"a/B", L"a/b", L"ab/a", L"b/", L"\x00E4/"));
}

// History ---------------------------------------------------------------------------------------------
TEST(SessionHistory, HoldsAHundredAndTwentyEightEventsUnlessToldOtherwise)
{
    SessionEvents events(1);
    EXPECT_EQ(events.history_size(), 128u);
    for (std::uint32_t i = 1; i <= 130; ++i)
        events.add_history(make_event(L"T", L"s", 0, i));
    ASSERT_EQ(events.history().size(), 128u);
    EXPECT_EQ(events.history().front().weight, 3u);
    EXPECT_EQ(events.history().back().weight, 130u);
}

TEST(SessionHistory, OfSizeThreeHoldsTheThirdToFifthOfFiveEvents)
{
    SessionEvents events(1);
    events.set_history_size(3);
    for (const wchar_t* const info : {L"1", L"2", L"3", L"4", L"5"})
        events.report(make_event(L"T", L"s", 0, 1, info), 1);
    EXPECT_THAT(infos_of(events), ElementsAre("3", "4", "5"));
}

TEST(SessionHistory, OfSizeZeroHoldsNothing)
{
    SessionEvents events(1);
    events.set_history_size(0);
    events.report(make_event(L"T", L"s", COUNTED), 1);
    EXPECT_THAT(infos_of(events), IsEmpty());
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionHistory, ASmallerSizeTakesEffectAtTheNextAddition)
{
    SessionEvents events(1);
    for (const wchar_t* const info : {L"1", L"2", L"3", L"4"})
        events.add_history(make_event(L"T", L"s", 0, 1, info));
    events.set_history_size(2);
    EXPECT_EQ(events.history_size(), 2u);
    EXPECT_THAT(infos_of(events), ElementsAre("1", "2", "3", "4"));
    events.add_history(make_event(L"T", L"s", HIDDEN, 1, L"hidden"));
    EXPECT_THAT(infos_of(events), ElementsAre("1", "2", "3", "4")); // nothing was added
    events.add_history(make_event(L"T", L"s", 0, 1, L"5"));
    EXPECT_THAT(infos_of(events), ElementsAre("4", "5"));
}

TEST(SessionHistory, ALargerSizeHasRoomForMore)
{
    SessionEvents events(1);
    events.set_history_size(1);
    events.add_history(make_event(L"T", L"s", 0, 1, L"1"));
    events.add_history(make_event(L"T", L"s", 0, 1, L"2"));
    events.set_history_size(std::numeric_limits<std::uint32_t>::max());
    events.add_history(make_event(L"T", L"s", 0, 1, L"3"));
    EXPECT_THAT(infos_of(events), ElementsAre("2", "3"));
}

TEST(SessionHistory, ANewSessionHasNothing)
{
    const SessionEvents events(4711);
    EXPECT_EQ(events.statistics_start(), 4711u);
    EXPECT_TRUE(events.history().empty() && events.context().empty() && events.statistics().empty());
    EXPECT_TRUE(events.errors().empty() && events.warnings().empty());
}

TEST(SessionHistory, ErrorsAndWarningsAreKeptApartAndNeverTrimmed)
{
    SessionEvents events(1);
    events.set_history_size(3);
    for (std::uint32_t i = 1; i <= 1000; ++i)
    {
        events.report_error(make_event(L"Error", L"s", COUNTED | STATE, i));
        events.report_warning(make_event(L"Warning", L"s", COUNTED | STATE, i));
    }
    ASSERT_EQ(events.errors().size(), 1000u);
    ASSERT_EQ(events.warnings().size(), 1000u);
    EXPECT_EQ(told(events.errors().front()), "Error/s 0x101 w1 0-0 ");
    EXPECT_EQ(told(events.errors().back()), "Error/s 0x101 w1000 0-0 ");
    EXPECT_EQ(told(events.warnings().front()), "Warning/s 0x101 w1 0-0 ");
    EXPECT_TRUE(events.history().empty() && events.context().empty() && events.statistics().empty());
}

// Removing --------------------------------------------------------------------------------------------
/// Two types with two states each, and an open span between them.
SessionEvents made_context()
{
    SessionEvents events(1);
    events.report(make_event(L"A", L"x", STATE), 10);
    events.report(make_event(L"A", L"y", STATE | COUNTED), 20);
    events.report(make_event(L"B", L"x", STATE), 30);
    events.report(make_event(L"B", L"y", BEGIN | COUNTED), 40);
    events.report(make_event(L"B", L"z", STATE), 50);
    return events;
}

/// "A/x A/y"
std::string keys_of(const SessionEvents& events)
{
    std::string all;
    for (const auto& entry : events.context())
        all += (all.empty() ? "" : " ") + ascii(entry.first.type) + '/' + ascii(entry.first.subject);
    return all;
}

std::string history_keys_of(const SessionEvents& events)
{
    std::string all;
    for (const SessionEvent& event : events.history())
        all += (all.empty() ? "" : " ") + ascii(event.type) + '/' + ascii(event.subject);
    return all;
}

TEST(SessionContext, RemovingGoesForwardFromTheFirstEntryWhileEntriesMatch)
{
    struct Row
    {
        const wchar_t* type;
        const wchar_t* subject;
        bool spans;
        const char* left;
        const char* removed;
    };
    const Row rows[] = {
        {L"A", L"x", false, "A/y B/x B/y B/z", "A/x"},
        {L"A", L"y", false, "A/x B/x B/y B/z", "A/y"},
        {L"A", L"w", false, "A/x A/y B/x B/y B/z", ""}, // the first that is not less is another
        {L"A", L"z", false, "A/x A/y B/x B/y B/z", ""},
        {L"A", L"", false, "A/x A/y B/x B/y B/z", ""}, // an empty subject is one, too
        {L"A", nullptr, false, "B/x B/y B/z", "A/x A/y"},
        {L"B", nullptr, false, "A/x A/y B/y", "B/x B/z"}, // over the span
        {L"B", nullptr, true, "A/x A/y", "B/x B/y B/z"},
        {L"B", L"y", false, "A/x A/y B/x B/y B/z", ""},
        {L"B", L"y", true, "A/x A/y B/x B/z", "B/y"},
        {L"C", nullptr, true, "A/x A/y B/x B/y B/z", ""},
        {L"", nullptr, true, "A/x A/y B/x B/y B/z", ""},
        {nullptr, nullptr, false, "B/y", "A/x A/y B/x B/z"},
        {nullptr, nullptr, true, "", "A/x A/y B/x B/y B/z"},
        {nullptr, L"x", true, "A/y B/x B/y B/z", "A/x"}, // the next one has another subject
        {nullptr, L"y", true, "A/x A/y B/x B/y B/z", ""},
        {nullptr, L"", true, "A/x A/y B/x B/y B/z", ""},
    };
    for (const Row& row : rows)
    {
        SessionEvents events = made_context();
        events.remove_from_context(row.type, row.subject, row.spans);
        EXPECT_EQ(keys_of(events), row.left) << testing::PrintToString(std::make_pair(row.type, row.subject));
        EXPECT_EQ(history_keys_of(events), row.removed)
            << testing::PrintToString(std::make_pair(row.type, row.subject));
    }
}

TEST(SessionContext, WhatIsRemovedIsRecordedWithItsTimes)
{
    SessionEvents events = made_context();
    events.remove_from_context(nullptr, nullptr, true);
    EXPECT_THAT(
        told_all(events.history()), ElementsAre(
                                        "A/x 0x1 w1 10-10 ", "A/y 0x101 w1 20-20 ", "B/x 0x1 w1 30-30 ",
                                        "B/y 0x100 w1 40-0 ", "B/z 0x1 w1 50-50 "));
    EXPECT_THAT(
        statistics_of(events),
        ElementsAre("A/y x1 weight 1 1 1 total 0 0 0 unit 0 0 0", "B/y x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionContext, WhatIsRemovedLosesBothFlagsOfASpanIfItIsOne)
{
    struct Row
    {
        std::uint32_t flags;
        const char* removed;
    };
    const Row rows[] = {
        {BEGIN, "T/s 0x0 w1 0-0 "},
        {BEGIN | END | STATE, "T/s 0x1 w1 0-0 "},
        {BEGIN | STATE | 0x3000, "T/s 0x3001 w1 0-0 "},
        {END | STATE, "T/s 0x401 w1 0-0 "}, // never was one
        {0, "T/s 0x0 w1 0-0 "},
    };
    for (const Row& row : rows)
    {
        SessionEvents events(1);
        events.load_context(make_event(L"T", L"s", row.flags));
        events.remove_from_context(L"T", L"s", true);
        EXPECT_THAT(told_all(events.history()), ElementsAre(row.removed));
        EXPECT_THAT(context_of(events), IsEmpty());
    }
}

TEST(SessionContext, AClosedStateThatIsRemovedIsCountedWithoutItsTime)
{
    SessionEvents events(1);
    SessionEvent state = make_event(L"T", L"s", BEGIN | END | STATE | COUNTED, 2);
    state.begin_time = 10;
    state.end_time = 20;
    events.load_context(std::move(state));
    events.remove_from_context(L"T", L"s", false);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 2 2 2 total 0 0 0 unit 0 0 0"));
}

TEST(SessionContext, AHiddenStateThatIsRemovedIsCountedButNotRecorded)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", STATE | HIDDEN | COUNTED), 1);
    events.remove_from_context(L"T", L"s", false);
    EXPECT_THAT(told_all(events.history()), IsEmpty());
    EXPECT_THAT(context_of(events), IsEmpty());
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionContext, RemovingTrimsTheHistoryAtEachEntry)
{
    SessionEvents events = made_context();
    events.set_history_size(2);
    events.remove_from_context(nullptr, nullptr, false);
    EXPECT_EQ(history_keys_of(events), "B/x B/z");
}

TEST(SessionContext, AStateOfATypeIsRemovedByItsTypeAloneOrWithAnEmptySubject)
{
    for (const wchar_t* const subject : {static_cast<const wchar_t*>(nullptr), L""})
    {
        SessionEvents events(1);
        events.report(make_event(L"User", L"", STATE_OF_TYPE), 1);
        events.remove_from_context(L"User", subject, false);
        EXPECT_THAT(context_of(events), IsEmpty());
        EXPECT_THAT(told_all(events.history()), ElementsAre("User/ 0x2 w1 1-1 "));
    }
}

TEST(SessionContext, AnEntryThatIsLoadedDoesNotTakeThePlaceOfAnother)
{
    SessionEvents events(1);
    events.load_context(make_event(L"T", L"s", STATE, 1, L"first"));
    events.load_context(make_event(L"T", L"s", STATE, 1, L"second"));
    EXPECT_THAT(context_of(events), ElementsAre("[T/s] T/s 0x1 w1 0-0 first"));
    EXPECT_THAT(told_all(events.history()), IsEmpty());
}

// Triples ---------------------------------------------------------------------------------------------
TEST(SessionTriple, IsUpdatedByItsRule)
{
    struct Row
    {
        Triple before;
        double value, weight_before, weight;
        Triple after;
    };
    const Row rows[] = {
        {{0, 0, 0}, 5, 0, 1, {5, 5, 5}},
        {{1, 2, 3}, 5, 0, 7, {5, 5, 5}}, // without a weight, what was before does not count
        {{1, 2, 3}, 5, 0, 0, {5, 5, 5}},
        {{2, 2, 2}, 4, 1, 1, {2, 3, 4}},
        {{2, 4, 6}, 1, 2, 1, {1, 3, 6}},
        {{2, 4, 6}, 4, 5, 5, {2, 4, 6}},
        {{50, 50, 50}, 20, 2, 6, {20, 27.5, 50}},
        {{2, 4, 6}, 9, 3, 0, {2, 4, 9}}, // of no weight: the range grows, the average stays
        {{-1, 0, 1}, -5, 1, 1, {-5, -2.5, 1}},
        {{0, 0, 0}, 8, 3, 1, {0, 2, 8}},
    };
    for (const Row& row : rows)
    {
        Triple triple = row.before;
        kor::core::update_triple(triple, row.value, row.weight_before, row.weight);
        EXPECT_EQ(told(triple), told(row.after)) << row.value;
    }
}

// Statistics ------------------------------------------------------------------------------------------
TEST(SessionStatisticsOf, AnEventThatIsNotCountedAreNone)
{
    SessionEvents events(1);
    events.update_statistics({L"T", L"s"}, make_event(L"T", L"s", BEGIN | END));
    EXPECT_THAT(statistics_of(events), IsEmpty());
}

TEST(SessionStatisticsOf, InstantsAreTheirNumberAndWeights)
{
    SessionEvents events(1);
    for (const std::uint32_t weight : {4u, 1u, 7u, 0u})
        events.report(make_event(L"T", L"s", COUNTED, weight), 1000);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x4 weight 0 3 7 total 0 0 0 unit 0 0 0"));
}

TEST(SessionStatisticsOf, SpansHaveAnAverageTimeAndOneThatIsWeighted)
{
    SessionEvents events(1);
    report_span(events, 2, 1000, 1100);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 2 2 2 total 100 100 100 unit 50 50 50"));
    report_span(events, 2, 2000, 2040); // (2 * 20 + 2 * 50) / 4
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 2 2 2 total 40 70 100 unit 20 35 50"));
    report_span(events, 8, 3000, 3040); // (8 * 5 + 4 * 35) / 12
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x3 weight 2 4 8 total 40 60 100 unit 5 15 50"));
    report_span(events, 4, 4000, 4100); // (4 * 25 + 12 * 15) / 16
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x4 weight 2 4 8 total 40 70 100 unit 5 17.5 50"));
}

TEST(SessionStatisticsOf, SpansOfWeightZeroHaveTheirWholeTimeForAUnit)
{
    SessionEvents events(1);
    report_span(events, 0, 1000, 1010);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 0 0 0 total 10 10 10 unit 10 10 10"));
    report_span(events, 0, 2000, 2030); // units that came before had no weight
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 0 0 0 total 10 20 30 unit 30 30 30"));
}

TEST(SessionStatisticsOf, ASpanOfWeightZeroAfterOthersDoesNotMoveTheAverageUnit)
{
    SessionEvents events(1);
    report_span(events, 2, 1000, 1100);
    report_span(events, 0, 2000, 2200);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 0 1 2 total 100 150 200 unit 50 50 200"));
}

TEST(SessionStatisticsOf, ASpanAfterAnInstantFindsItsTimesOfZero)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", COUNTED, 2), 500);
    report_span(events, 2, 1000, 1100);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 2 2 2 total 0 50 100 unit 0 25 50"));
}

TEST(SessionStatisticsOf, AnInstantAfterASpanLeavesItsTimes)
{
    SessionEvents events(1);
    report_span(events, 2, 1000, 1100);
    events.report(make_event(L"T", L"s", COUNTED, 4), 2000);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 2 3 4 total 100 100 100 unit 50 50 50"));
}

TEST(SessionStatisticsOf, UnitsCountTheWholePartOfTheWeightsBefore)
{
    SessionEvents events(1);
    SessionStatistics known = make_statistics(3, {1, 1.5, 2}); // 4 of 4.5
    known.unit_time = {5, 5, 5};
    events.load_statistics(std::move(known));
    report_span(events, 1, 1000, 1010); // (1 * 10 + 4 * 5) / 5
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x4 weight 1 1.375 2 total 0 2.5 10 unit 5 6 10"));
}

TEST(SessionStatisticsOf, AnAverageWeightBelowOneIsNoWeightForUnits)
{
    SessionEvents events(1);
    SessionStatistics known = make_statistics(2, {0, 0.25, 1});
    known.unit_time = {5, 5, 5};
    events.load_statistics(std::move(known));
    report_span(events, 1, 1000, 1010);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x3 weight 0 0.5 1 total 0 3.33333 10 unit 10 10 10"));
}

TEST(SessionStatisticsOf, ASpanThatTheClockWasSetBackInHasANegativeTime)
{
    SessionEvents events(1);
    report_span(events, 2, 1000, 900);
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/s 0x600 w2 1000-900 "));
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 2 2 2 total -100 -100 -100 unit -50 -50 -50"));
}

TEST(SessionStatisticsOf, TheLargestWeightIsANumberLikeAnyOther)
{
    SessionEvents events(1);
    report_span(events, 4294967295u, 0, 4294967295u);
    report_span(events, 4294967295u, 0, 4294967295u);
    EXPECT_THAT(
        statistics_of(events), ElementsAre("T/s x2 weight 4.29497e+09 4.29497e+09 4.29497e+09 total 4.29497e+09 "
                                           "4.29497e+09 4.29497e+09 unit 1 1 1"));
}

TEST(SessionStatisticsOf, TheCountWraps)
{
    SessionEvents events(1);
    events.load_statistics(make_statistics(LARGEST, {1, 1, 1}));
    events.report(make_event(L"T", L"s", COUNTED, 1), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x0 weight 1 1 1 total 0 0 0 unit 0 0 0"));
    events.report(make_event(L"T", L"s", COUNTED, 7), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 7 7 7 total 0 0 0 unit 0 0 0"));
}

TEST(SessionStatisticsOf, NoNumberThatIsLoadedLeadsToOneThatIsNone)
{
    const double numbers[] = {0, -0.0, -1, 1, 1e308, -1e308, 1e-308, INFINITE, -INFINITE};
    for (const double average : numbers)
    {
        for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{1}, LARGEST - 1, LARGEST})
        {
            SCOPED_TRACE(testing::Message() << count << " of " << average);
            SessionEvents events(1);
            SessionStatistics known = make_statistics(count, {average, average, average});
            known.total_time = known.unit_time = known.weight;
            events.load_statistics(std::move(known));
            for (const std::uint32_t weight : {0u, 1u, 4294967295u})
            {
                report_span(events, weight, 10, 20);
                report_span(events, weight, LARGEST, 0);
                report_span(events, weight, 0, LARGEST);
            }
            const SessionStatistics& after = events.statistics().begin()->second;
            EXPECT_EQ(after.count, count + 9);
            for (const Triple* const triple : {&after.weight, &after.total_time, &after.unit_time})
                EXPECT_FALSE(std::isnan(triple->min) || std::isnan(triple->avg) || std::isnan(triple->max));
        }
    }
}

TEST(SessionStatisticsOf, WhatIsLoadedTakesThePlaceOfWhatIsKnown)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", COUNTED, 9), 1);
    events.load_statistics(make_statistics(2, {1, 2, 3}));
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x2 weight 1 2 3 total 0 0 0 unit 0 0 0"));
    events.report(make_event(L"T", L"s", COUNTED, 8), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x3 weight 1 4 8 total 0 0 0 unit 0 0 0"));
    events.set_statistics_start(77);
    EXPECT_EQ(events.statistics_start(), 77u);
}

// Aliases ---------------------------------------------------------------------------------------------
TEST(SessionAlias, EventsAreCountedUnderTheOtherIdentity)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"s"}, {L"All", L"T"});
    events.report(make_event(L"T", L"s", COUNTED, 2), 1);
    events.report(make_event(L"T", L"other", COUNTED, 3), 1);
    EXPECT_THAT(
        statistics_of(events),
        ElementsAre("All/T x1 weight 2 2 2 total 0 0 0 unit 0 0 0", "T/other x1 weight 3 3 3 total 0 0 0 unit 0 0 0"));
    EXPECT_THAT(told_all(events.history()), ElementsAre("T/s 0x100 w2 1-1 ", "T/other 0x100 w3 1-1 "));
}

TEST(SessionAlias, EventsOfSeveralIdentitiesCanBeCountedTogether)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"a"}, {L"T", L""});
    events.set_alias({L"T", L"b"}, {L"T", L""});
    for (const wchar_t* const subject : {L"a", L"b", L""})
        events.report(make_event(L"T", subject, COUNTED, 1), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/ x3 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionAlias, ALaterOneTakesThePlaceOfAnEarlierOne)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"s"}, {L"A", L""});
    events.report(make_event(L"T", L"s", COUNTED, 1), 1);
    events.set_alias({L"T", L"s"}, {L"B", L""});
    events.report(make_event(L"T", L"s", COUNTED, 2), 1);
    EXPECT_THAT(
        statistics_of(events),
        ElementsAre("A/ x1 weight 1 1 1 total 0 0 0 unit 0 0 0", "B/ x1 weight 2 2 2 total 0 0 0 unit 0 0 0"));
}

TEST(SessionAlias, IsNotFollowedToAnother)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"s"}, {L"A", L""});
    events.set_alias({L"A", L""}, {L"B", L""});
    events.report(make_event(L"T", L"s", COUNTED, 1), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("A/ x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionAlias, OfItselfChangesNothing)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"s"}, {L"T", L"s"});
    events.report(make_event(L"T", L"s", COUNTED, 1), 1);
    EXPECT_THAT(statistics_of(events), ElementsAre("T/s x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

TEST(SessionAlias, HoldsForSpansForStatesThatAreReplacedAndForThoseThatAreRemoved)
{
    SessionEvents events(1);
    events.set_alias({L"T", L"s"}, {L"A", L""});
    report_span(events, 2, 1000, 1100);
    events.report(make_event(L"T", L"s", STATE | COUNTED, 2), 1);
    events.report(make_event(L"T", L"s", STATE | COUNTED, 2), 1);
    events.remove_from_context(L"T", L"s", false);
    EXPECT_THAT(statistics_of(events), ElementsAre("A/ x3 weight 2 2 2 total 100 100 100 unit 50 50 50"));
}

TEST(SessionAlias, OfAStateOfATypeBelongsToTheTypeWithoutASubject)
{
    SessionEvents events(1);
    events.set_alias({L"User", L"anna"}, {L"A", L""});
    events.set_alias({L"User", L""}, {L"B", L""});
    events.report(make_event(L"User", L"anna", STATE_OF_TYPE | COUNTED, 1), 1);
    events.remove_from_context(L"User", nullptr, false);
    EXPECT_THAT(statistics_of(events), ElementsAre("B/ x1 weight 1 1 1 total 0 0 0 unit 0 0 0"));
}

// Times -----------------------------------------------------------------------------------------------
TEST(SessionTimes, AreKeptByTypeAndSubjectAndTheLastOneCounts)
{
    SessionEvents events(1);
    events.set_time({L"T", L"s"}, 100);
    events.set_time({L"T", L"s"}, 90);
    events.set_time({L"T", L""}, 200);
    EXPECT_EQ(events.time_of({L"T", L"s"}), 90u);
    EXPECT_EQ(events.time_of({L"T", L""}), 200u);
    EXPECT_EQ(events.time_of({L"", L"s"}), 0u);
    EXPECT_EQ(events.time_of({L"T", L"S"}), 0u);
}

TEST(SessionTimes, AreNoneOfEventsThatWereReported)
{
    SessionEvents events(1);
    events.report(make_event(L"T", L"s", STATE), 100);
    EXPECT_EQ(events.time_of({L"T", L"s"}), 0u);
}
} // namespace
