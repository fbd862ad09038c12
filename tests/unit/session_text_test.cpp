// session_text_test.cpp - events and statistics to the byte, as reports have them.

#include "core/session_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

using kor::core::SessionEvent;
using kor::core::SessionEvents;
using kor::core::SessionNumbers;
using kor::core::SessionStatistics;
using kor::core::SessionWriter;
using Gatherer = Kor_SessionLogGatherer;

namespace
{
constexpr std::uint64_t MORNING = 1706688000000; // 2024-01-31 08:00:00.000 UTC

class Collected final : public kor::core::TextBlocks
{
public:
    std::wstring text;

private:
    void write(const wchar_t* block, std::size_t length) override { text.append(block, length); }
};

/// A clock so many milliseconds ahead of UTC.
class Ahead final : public kor::core::LocalClock
{
public:
    explicit Ahead(std::int64_t ms) : m_ms(ms) {}
    std::int64_t local(std::int64_t utc) override
    {
        asked.push_back(utc);
        return utc + m_ms;
    }

    std::vector<std::int64_t> asked;

private:
    std::int64_t m_ms;
};

std::wstring written(const std::function<void(SessionWriter&)>& write, std::int64_t ahead = 0)
{
    Collected to;
    Ahead clock(ahead);
    SessionWriter writer(to, clock);
    write(writer);
    to.flush();
    return to.text;
}

std::wstring text_of(const SessionEvent& event)
{
    return written([&](SessionWriter& writer) { writer.put_event(event); });
}

std::wstring text_of(const SessionStatistics& statistics)
{
    return written(
        [&](SessionWriter& writer) {
            writer.put_statistics({statistics.type, statistics.subject}, SessionNumbers(statistics));
        });
}

std::wstring time_text(std::uint64_t time, std::int64_t ahead = 0)
{
    return written([&](SessionWriter& writer) { writer.put_time(time); }, ahead);
}

SessionEvent plain_event(const wchar_t* type)
{
    SessionEvent event;
    event.type = type;
    return event;
}

const std::wstring NO_TIMES = L" begintime='1970-01-01 00:00:00.000' endtime='1970-01-01 00:00:00.000'>";
const std::wstring ZERO = L" min='0.000000' avg='0.000000' max='0.000000' />";
} // namespace

// Events -------------------------------------------------------------------------------
TEST(SessionText, OfAnEventHasItsAttributesInOrderAndItsInfo)
{
    const SessionEvent event{L"Login", L"user1", 2 << 12, 1, MORNING, MORNING + 5250, L"ok"};
    EXPECT_EQ(
        text_of(event), L"<event type='Login' subject='user1' weight='1' level='2' begintime='2024-01-31 08:00:00.000' "
                        L"endtime='2024-01-31 08:00:05.250'><info>ok</info></event>");
}

TEST(SessionText, OfAnEventThatIsAConfigurationHasThatName)
{
    const SessionEvent event{L"Login", L"user1", Gatherer::CONFIGURATION | (7 << 12), 1, MORNING, MORNING, L"ok"};
    EXPECT_EQ(
        text_of(event),
        L"<configuration type='Login' subject='user1' weight='1' level='7' begintime='2024-01-31 08:00:00.000' "
        L"endtime='2024-01-31 08:00:00.000'><info>ok</info></configuration>");
}

TEST(SessionText, OfAnEventWithoutSubjectAndInfoHasAnEmptyInfoAndNoSubject)
{
    EXPECT_EQ(
        text_of(plain_event(L"Login")),
        L"<event type='Login' weight='0' level='0'" + NO_TIMES + L"<info></info></event>");
    EXPECT_EQ(text_of(plain_event(L"")), L"<event type='' weight='0' level='0'" + NO_TIMES + L"<info></info></event>");
}

TEST(SessionText, OfAHiddenEventIsNothing)
{
    SessionEvent event{L"Login", L"user1", Gatherer::HIDDEN, 1, MORNING, MORNING, L"ok"};
    EXPECT_EQ(text_of(event), L"");
    event.flags = 0xFFFFFFFF;
    EXPECT_EQ(text_of(event), L"");
}

TEST(SessionText, TheLevelIsThreeBitsOfTheFlagsAndNoOtherFlagShows)
{
    for (std::uint32_t level = 0; level <= 7; ++level)
    {
        for (const std::uint32_t others : {0u, 0xFFFF8FF3u}) // all but hidden, configuration and the level
        {
            SessionEvent event = plain_event(L"A");
            event.flags = others | level << 12;
            EXPECT_EQ(
                text_of(event), L"<event type='A' weight='0' level='" + std::to_wstring(level) + L"'" + NO_TIMES +
                                    L"<info></info></event>");
        }
    }
}

TEST(SessionText, TheWeightIsWrittenAsASignedNumberOf32Bits)
{
    struct Row
    {
        std::uint32_t weight;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {0, L"0"},
        {2147483647, L"2147483647"},
        {2147483648, L"-2147483648"},
        {4294967295, L"-1"},
    };
    for (const Row& row : rows)
    {
        SessionEvent event = plain_event(L"A");
        event.weight = row.weight;
        EXPECT_EQ(
            text_of(event), std::wstring(L"<event type='A' weight='") + row.expected + L"' level='0'" + NO_TIMES +
                                L"<info></info></event>");
    }
}

TEST(SessionText, TypeSubjectAndInfoAreEscaped)
{
    SessionEvent event = plain_event(L"a&b<c>d\"e'f");
    event.subject = L"'/><x y='";
    event.info = L"</info>]]>\x01\xD800";
    EXPECT_EQ(
        text_of(event), L"<event type='a&amp;b&lt;c&gt;d&quot;e&apos;f' subject='&apos;/&gt;&lt;x y=&apos;' weight='0' "
                        L"level='0'" +
                            NO_TIMES + L"<info>&lt;/info&gt;]]&gt;\xFFFD\xFFFD</info></event>");
}

// Times --------------------------------------------------------------------------------
TEST(SessionText, TimesAreThoseOfTheClockOnTheWall)
{
    constexpr std::int64_t HOUR = 3'600'000;
    EXPECT_EQ(time_text(MORNING), L"2024-01-31 08:00:00.000");
    EXPECT_EQ(time_text(MORNING + 7, 5 * HOUR + HOUR / 2), L"2024-01-31 13:30:00.007");
    EXPECT_EQ(time_text(MORNING, -10 * HOUR), L"2024-01-30 22:00:00.000");
    EXPECT_EQ(time_text(0, 14 * HOUR), L"1970-01-01 14:00:00.000");
    EXPECT_EQ(time_text(0, -8 * HOUR), L"1969-12-31 16:00:00.000");
    EXPECT_EQ(time_text(500, -HOUR), L"1969-12-31 23:00:00.500");
}

TEST(SessionText, TimesOneAfterTheOtherAreEachTheirOwn)
{
    const std::wstring text = written(
        [](SessionWriter& writer)
        {
            for (const std::uint64_t time :
                 {MORNING, MORNING, MORNING + 7, MORNING + 999, MORNING + 1000, MORNING + 61'000, MORNING + 1})
                writer.put_time(time);
        },
        -1);
    EXPECT_EQ(
        text, L"2024-01-31 07:59:59.9992024-01-31 07:59:59.9992024-01-31 08:00:00.0062024-01-31 08:00:00.998"
              L"2024-01-31 08:00:00.9992024-01-31 08:01:00.9992024-01-31 08:00:00.000");
}

TEST(SessionText, TimesBeyondTheYear9999AreItsLastMoment)
{
    for (const std::uint64_t time :
         {253402300799999ull, 253402300800000ull, 9223372036854775807ull, 9223372036854775808ull,
          18446744073709551615ull})
    {
        EXPECT_EQ(time_text(time), L"9999-12-31 23:59:59.999") << time;
        EXPECT_EQ(time_text(time, 3'600'000), L"9999-12-31 23:59:59.999") << time;
        EXPECT_EQ(time_text(time, -3'600'000), L"9999-12-31 22:59:59.999") << time;
    }
}

TEST(SessionText, TheClockIsNeverAskedForATimeThatItCannotHave)
{
    Ahead clock(0);
    kor::core::local_session_time(clock, 18446744073709551615ull);
    kor::core::local_session_time(clock, 253402300800000ull);
    kor::core::local_session_time(clock, 0);
    EXPECT_EQ(clock.asked, (std::vector<std::int64_t>{253402300799999, 253402300799999, 0}));
}

// Statistics ---------------------------------------------------------------------------
TEST(SessionText, OfStatisticsHasThreeTriplesOfSixDigits)
{
    SessionStatistics statistics;
    statistics.type = L"Load";
    statistics.subject = L"album";
    statistics.count = 3;
    statistics.weight = {1, 2.5, 4};
    statistics.total_time = {10.125, 1234567.891, 99999999};
    statistics.unit_time = {0.0000004, 2.0 / 3, -1};
    EXPECT_EQ(
        text_of(statistics), L"<statentry type='Load' subject='album' count='3'>"
                             L"<weight min='1.000000' avg='2.500000' max='4.000000' />"
                             L"<totaltimeinmilliseconds min='10.125000' avg='1234567.891000' max='99999999.000000' />"
                             L"<unittimeinmilliseconds min='0.000000' avg='0.666667' max='-1.000000' />"
                             L"</statentry>");
}

TEST(SessionText, OfStatisticsWithoutSubjectHasNoneAndEscapesTheType)
{
    SessionStatistics statistics;
    statistics.type = L"a'b&";
    EXPECT_EQ(
        text_of(statistics), L"<statentry type='a&apos;b&amp;' count='0'><weight" + ZERO + L"<totaltimeinmilliseconds" +
                                 ZERO + L"<unittimeinmilliseconds" + ZERO + L"</statentry>");
    statistics.type = L"a";
    statistics.subject = L"<b>";
    EXPECT_EQ(
        text_of(statistics), L"<statentry type='a' subject='&lt;b&gt;' count='0'><weight" + ZERO +
                                 L"<totaltimeinmilliseconds" + ZERO + L"<unittimeinmilliseconds" + ZERO +
                                 L"</statentry>");
}

TEST(SessionText, ACountBeyondTheSigned32BitsIsWrapped)
{
    struct Row
    {
        std::uint64_t count;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {2147483647, L"2147483647"}, {2147483648, L"-2147483648"}, {4294967295, L"-1"},
        {4294967296, L"0"},          {4294967303, L"7"},           {std::numeric_limits<std::uint64_t>::max(), L"-1"},
    };
    for (const Row& row : rows)
    {
        SessionStatistics statistics;
        statistics.type = L"a";
        statistics.count = row.count;
        EXPECT_EQ(
            text_of(statistics), std::wstring(L"<statentry type='a' count='") + row.expected + L"'><weight" + ZERO +
                                     L"<totaltimeinmilliseconds" + ZERO + L"<unittimeinmilliseconds" + ZERO +
                                     L"</statentry>");
    }
}

// Lists --------------------------------------------------------------------------------
TEST(SessionText, ListsOfNothingAreTheirTagsAlone)
{
    const SessionEvents events(MORNING);
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_lists(events); }),
        L"<context></context><history></history><errors></errors><warnings></warnings>");
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_all_statistics(events); }),
        L"<stats start='2024-01-31 08:00:00.000'></stats>");
}

TEST(SessionText, ContextAndStatisticsAreInTheOrderOfTheirIdentitiesAndTheOtherListsInThatOfTheirTimes)
{
    SessionEvents events(0);
    for (const wchar_t* const subject : {L"b", L"", L"B", L"a"})
    {
        SessionEvent state = plain_event(L"T");
        state.subject = subject;
        state.flags = Gatherer::STATE;
        events.report(std::move(state), 0);
        SessionEvent counted = plain_event(L"T");
        counted.subject = subject;
        counted.flags = Gatherer::COUNTED;
        events.report(std::move(counted), 0);
        SessionEvent error = plain_event(L"Error");
        error.subject = subject;
        events.report_error(std::move(error));
        SessionEvent warning = plain_event(L"Warning");
        warning.subject = subject;
        events.report_warning(std::move(warning));
    }
    const auto list = [](const wchar_t* type, const std::vector<const wchar_t*>& subjects, const wchar_t* weight)
    {
        std::wstring text;
        for (const wchar_t* const subject : subjects)
        {
            text += std::wstring(L"<event type='") + type + L"'";
            if (*subject != L'\0')
                text += std::wstring(L" subject='") + subject + L"'";
            text += std::wstring(L" weight='") + weight + L"' level='0'" + NO_TIMES + L"<info></info></event>";
        }
        return text;
    };
    const std::vector<const wchar_t*> by_time = {L"b", L"", L"B", L"a"};
    const std::vector<const wchar_t*> by_name = {L"", L"B", L"a", L"b"};
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_lists(events); }),
        L"<context>" + list(L"T", by_name, L"0") + L"</context><history>" + list(L"T", by_time, L"0") +
            L"</history><errors>" + list(L"Error", by_time, L"0") + L"</errors><warnings>" +
            list(L"Warning", by_time, L"0") + L"</warnings>");

    std::wstring entries;
    for (const wchar_t* const subject : by_name)
    {
        entries += L"<statentry type='T'";
        if (*subject != L'\0')
            entries += std::wstring(L" subject='") + subject + L"'";
        entries += L" count='1'><weight" + ZERO + L"<totaltimeinmilliseconds" + ZERO + L"<unittimeinmilliseconds" +
                   ZERO + L"</statentry>";
    }
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_all_statistics(events); }),
        L"<stats start='1970-01-01 00:00:00.000'>" + entries + L"</stats>");
}

TEST(SessionText, HiddenEventsAreMissingFromEveryList)
{
    SessionEvents events(0);
    SessionEvent hidden = plain_event(L"T");
    hidden.flags = Gatherer::HIDDEN | Gatherer::STATE;
    events.report(SessionEvent(hidden), 0);
    hidden.flags = Gatherer::HIDDEN;
    events.report_error(SessionEvent(hidden));
    events.report_warning(SessionEvent(hidden));
    ASSERT_EQ(events.context().size() + events.errors().size() + events.warnings().size(), 3u);
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_lists(events); }),
        L"<context></context><history></history><errors></errors><warnings></warnings>");
}

TEST(SessionText, WhatWaitsForASessionIsToldWithoutIt)
{
    using kor::core::WaitingChange;
    kor::core::WaitingChanges waiting;
    const auto put = [&](auto change, std::uint64_t time)
    { waiting.put(std::make_unique<WaitingChange<decltype(change)>>(std::move(change), time)); };
    SessionEvent begin = plain_event(L"Span");
    begin.flags = Gatherer::BEGIN_OF_SPAN;
    SessionEvent end = plain_event(L"Span");
    end.flags = Gatherer::END_OF_SPAN;
    SessionEvent both = plain_event(L"Both");
    both.flags = Gatherer::BEGIN_OF_SPAN | Gatherer::END_OF_SPAN;
    SessionEvent added = plain_event(L"Added");
    added.begin_time = MORNING - 2000;
    added.end_time = MORNING - 1000;
    put(kor::core::EventReport(std::move(begin)), MORNING);
    put(kor::core::ErrorReport(plain_event(L"Error")), MORNING);
    put(kor::core::HistorySize{5}, MORNING);
    put(kor::core::EventReport(std::move(end)), MORNING);
    put(kor::core::WarningReport(plain_event(L"Warning")), MORNING);
    put(kor::core::EventReport(std::move(both)), MORNING);
    put(kor::core::HistoryAddition(std::move(added)), MORNING);
    const kor::core::SessionChangeList list = waiting.take();

    const std::wstring zero = L"'1970-01-01 00:00:00.000'";
    const std::wstring now = L"'2024-01-31 08:00:00.000'";
    const auto line = [](const std::wstring& type, const std::wstring& from, const std::wstring& to)
    {
        return L"<event type='" + type + L"' weight='0' level='0' begintime=" + from + L" endtime=" + to +
               L"><info></info></event>";
    };
    const std::wstring own = L"<event type='Warning' subject='Kor_SessionLogGatherer' weight='1' level='0' begintime=" +
                             now + L" endtime=" + now + L"><info>";
    const std::wstring lists =
        L"<context></context><history>" + line(L"Span", now, zero) + line(L"Span", zero, now) +
        line(L"Both", zero, now) + line(L"Added", L"'2024-01-31 07:59:58.000'", L"'2024-01-31 07:59:59.000'") +
        L"</history><errors>" + line(L"Error", now, now) + L"</errors><warnings>" + line(L"Warning", now, now);
    const std::wstring rest =
        own + std::wstring(kor::core::REST_MISSING) + L"</info></event></warnings><stats start=" + now + L"></stats>";
    EXPECT_EQ(written([&](SessionWriter& writer) { writer.put_what_waits(list, 0, MORNING); }), lists + rest);
    EXPECT_EQ(
        written([&](SessionWriter& writer) { writer.put_what_waits(list, 7, MORNING); }),
        lists + own + L"7 events were lost: another thread had the gatherer for too long.</info></event>" + rest);
}
