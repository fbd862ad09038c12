// What a watcher makes of a process's memory, whatever is in it.

#include "core/watch_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "core/session_changes.h"

namespace
{
using kor::core::HeartbeatWatch;
using kor::core::LateHeartbeat;
using kor::core::ReportList;
using kor::core::SessionEvent;
using kor::core::WatchedEvents;
using kor::core::WatchedProcess;

constexpr kor::core::ProcessIdentity IDENTITY{4312, 133773984000000000};

/// The memory of a process as it is to be.
std::unique_ptr<WatchedProcess> make_process()
{
    auto process = std::make_unique<WatchedProcess>();
    process->version = kor::core::WATCH_VERSION;
    process->size = sizeof *process;
    process->identity = IDENTITY;
    process->magic = kor::core::WATCH_MAGIC;
    return process;
}

SessionEvent make_event(const std::wstring& type, const std::wstring& info)
{
    SessionEvent event;
    event.type = type;
    event.subject = L"album 12";
    event.info = info;
    event.weight = 3;
    event.flags = 0x5000;
    return event;
}

void tell(WatchedProcess& process, const std::wstring& info, ReportList list = ReportList::HISTORY)
{
    kor::core::tell_event(process, make_event(L"Load", info), static_cast<std::uint32_t>(list), 10, 20);
}

/// What a beat of that name came to.
enum class Told
{
    NOT,
    AND_THAT_IS_ALL,
    AND_THE_NEXT_LOOK_IS_HASTENED
};

Told beat(WatchedProcess& process, const std::string& name, std::uint32_t period_ms, kor::core::WatchTime now)
{
    kor::core::WatchedHeartbeat* const heartbeat = kor::core::add_heartbeat(process, name);
    EXPECT_EQ(kor::core::find_heartbeat(process, name), heartbeat);
    if (heartbeat == nullptr)
        return Told::NOT;
    return kor::core::tell_heartbeat(*heartbeat, period_ms, now) ? Told::AND_THE_NEXT_LOOK_IS_HASTENED
                                                                 : Told::AND_THAT_IS_ALL;
}

TEST(WatchedMemory, IsKnownByAllThatItSaysOfItself)
{
    const auto process = make_process();
    const auto is_known = [&] { return kor::core::is_watched_process(*process, sizeof *process, IDENTITY); };
    EXPECT_TRUE(is_known());
    EXPECT_FALSE(kor::core::is_watched_process(*process, sizeof *process - 1, IDENTITY));
    EXPECT_FALSE(kor::core::is_watched_process(*process, sizeof *process, {4312, 1}));
    EXPECT_FALSE(kor::core::is_watched_process(*process, sizeof *process, {4313, IDENTITY.created}));
    process->version = 2;
    EXPECT_FALSE(is_known());
    process->version = kor::core::WATCH_VERSION;
    process->size = 64;
    EXPECT_FALSE(is_known());
    process->size = sizeof *process;
    process->magic = 1;
    EXPECT_FALSE(is_known());
}

TEST(WatchedNames, AreThoseOfTheProcess)
{
    EXPECT_STREQ(kor::core::WatchName(IDENTITY).text(), "Local\\LUMLOG_WATCH_1_4312_133773984000000000");
    EXPECT_STREQ(
        kor::core::WatchName(IDENTITY, kor::core::WATCH_ANSWER).text(),
        "Local\\LUMLOG_WATCH_1_4312_133773984000000000_ANSWER");
}

// Texts ------------------------------------------------------------------------------------------------------------
TEST(WatchedTexts, EndWhereTheirRoomEnds)
{
    char16_t text[4] = {u'a', u'b', u'c', u'd'};
    EXPECT_EQ(kor::core::watched_text(text, 4), L"abcd");
    text[2] = u'\0';
    EXPECT_EQ(kor::core::watched_text(text, 4), L"ab");
    EXPECT_EQ(kor::core::watched_text(text, 0), L"");
    kor::core::tell_text(text, 4, L"front.png");
    EXPECT_EQ(kor::core::watched_text(text, 4), L"fro");
    EXPECT_EQ(text[3], u'\0');
}

TEST(WatchedTexts, NameNoFileElsewhere)
{
    char16_t text[32] = {};
    for (const wchar_t* const elsewhere : {L"..\\x.dmp", L"a/b.dmp", L"C:x.dmp", L"a.dmp:stream"})
    {
        kor::core::tell_text(text, 32, elsewhere);
        EXPECT_EQ(kor::core::watched_file_name(text, 32), L"");
    }
    kor::core::tell_text(text, 32, L"minidump-viewer.dmp");
    EXPECT_EQ(kor::core::watched_file_name(text, 32), L"minidump-viewer.dmp");
}

TEST(WatchedTexts, NameNoOtherFileOfTheFolder)
{
    const auto name_of = [](const wchar_t* told)
    {
        char16_t text[32] = {};
        kor::core::tell_text(text, 32, told);
        return kor::core::watched_file_name(text, 32, L"minidump-", L".dmp");
    };
    EXPECT_EQ(name_of(L"minidump-viewer.dmp"), L"minidump-viewer.dmp");
    EXPECT_EQ(name_of(L"CLGState.mp"), L"");
    EXPECT_EQ(name_of(L"minidump-viewer.xml"), L"");
    EXPECT_EQ(name_of(L"a minidump-viewer.dmp"), L"");
    EXPECT_EQ(name_of(L"minidump.dmp"), L"");
    EXPECT_EQ(name_of(L""), L"");
}

TEST(WatchedTexts, NameAWholeFolderOrNone)
{
    const auto process = make_process();
    const auto folder_of = [&](const wchar_t* told)
    {
        kor::core::tell_text(process->folder, std::size(process->folder), told);
        return kor::core::watched_folder(*process);
    };
    for (const wchar_t* const whole : {L"C:\\logs\\", L"C:\\", L"\\\\server\\logs\\", L"\\\\?\\C:\\logs\\"})
        EXPECT_EQ(folder_of(whole), whole);
    for (const wchar_t* const none : {L"", L"C", L"C:", L"C:\\logs", L"logs\\", L"\\logs\\", L"\\\\server"})
        EXPECT_EQ(folder_of(none), L"");
}

TEST(WatchedTexts, OfAProgramAreOneLine)
{
    const auto process = make_process();
    std::memset(process->program_text, 'x', sizeof process->program_text); // without its nul
    EXPECT_EQ(kor::core::watched_program_text(*process), std::string(256, 'x'));
    std::memcpy(process->program_text, "a\r\n\x1F\x7F", 6);
    EXPECT_EQ(kor::core::watched_program_text(*process), "a???\x7F");
}

// Ends -------------------------------------------------------------------------------------------------------------
TEST(WatchedEnd, IsOrderlyByItsCodeAndHowFarItCame)
{
    EXPECT_TRUE(kor::core::is_orderly_end(0, true));
    EXPECT_TRUE(kor::core::is_orderly_end(0xDEAD, true));
    EXPECT_TRUE(kor::core::is_orderly_end(0xE06D7363, true)); // no code of the system
    EXPECT_FALSE(kor::core::is_orderly_end(0xC0000005, true));
    EXPECT_FALSE(kor::core::is_orderly_end(0xC0000409, true));
    EXPECT_FALSE(kor::core::is_orderly_end(0, false));
    EXPECT_FALSE(kor::core::is_orderly_end(0xC0000602, false));
}

TEST(WatchedEnd, OfALogoffOrAControlCIsOrderlyHoweverFarItCame)
{
    for (const bool came_to_end : {false, true})
    {
        EXPECT_TRUE(kor::core::is_orderly_end(0x40010004, came_to_end));
        EXPECT_TRUE(kor::core::is_orderly_end(0xC000013A, came_to_end));
    }
}

TEST(WatchedEnd, MissesTheStepsThatWereNotTaken)
{
    using namespace kor::core;
    const auto process = make_process();
    EXPECT_EQ(missing_steps(*process, 1000), WATCH_LINE | WATCH_LAST_LINES | WATCH_REPORT);
    process->steps = WATCH_LINE | WATCH_DUMP;
    process->step_time = 1000;
    EXPECT_EQ(missing_steps(*process, 121'000), WATCH_LAST_LINES | WATCH_REPORT);
    EXPECT_EQ(missing_steps(*process, 121'001), WATCH_LINE | WATCH_LAST_LINES | WATCH_REPORT); // of an earlier crash
    EXPECT_EQ(missing_steps(*process, 999), WATCH_LINE | WATCH_LAST_LINES | WATCH_REPORT);     // of no clock
    process->line_only = 1;
    EXPECT_EQ(missing_steps(*process, 1000), std::uint32_t{WATCH_LAST_LINES});
}

// Events -----------------------------------------------------------------------------------------------------------
TEST(WatchedEventList, HasTheLatestInTheirOrderAndLists)
{
    const auto process = make_process();
    for (int i = 1; i <= 100; ++i)
        tell(*process, std::to_wstring(i));
    tell(*process, L"error", ReportList::ERRORS);
    tell(*process, L"warning", ReportList::WARNINGS);
    const WatchedEvents events(*process);
    ASSERT_EQ(events.history.size(), 62u);
    EXPECT_EQ(events.history.front().info, L"39");
    EXPECT_EQ(events.history.back().info, L"100");
    ASSERT_EQ(events.errors.size(), 1u);
    EXPECT_EQ(events.errors.front().info, L"error");
    ASSERT_EQ(events.warnings.size(), 1u);
    const SessionEvent& one = events.warnings.front();
    EXPECT_EQ(one.type, L"Load");
    EXPECT_EQ(one.subject, L"album 12");
    EXPECT_EQ(one.info, L"warning");
    EXPECT_EQ(one.weight, 3u);
    EXPECT_EQ(one.flags, 0x5000u);
    EXPECT_EQ(one.begin_time, 10u);
    EXPECT_EQ(one.end_time, 20u);
}

TEST(WatchedEventList, LeavesOutWhatIsJustBeingWritten)
{
    const auto process = make_process();
    tell(*process, L"whole");
    tell(*process, L"torn");
    process->event_ring[2].sequence = kor::core::WatchedEvent::CHANGING;
    const WatchedEvents events(*process);
    ASSERT_EQ(events.history.size(), 1u);
    EXPECT_EQ(events.history.front().info, L"whole");
}

TEST(WatchedEventList, CutsLongTexts)
{
    const auto process = make_process();
    tell(*process, std::wstring(1000, L'x'));
    EXPECT_EQ(WatchedEvents(*process).history.front().info, std::wstring(319, L'x'));
}

// Heartbeats -------------------------------------------------------------------------------------------------------
TEST(WatchedHeartbeats, AreToldOnceWhenTheyAreLateAndOnceWhenTheyAreBack)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    EXPECT_TRUE(watch.look(*process, 1100).empty());
    EXPECT_EQ(watch.next_look(*process, 1050), 1101u);
    const auto late = watch.look(*process, 1101);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_EQ(late[0].name, "gui");
    EXPECT_EQ(late[0].silence, 101u);
    EXPECT_FALSE(late[0].is_back);
    EXPECT_TRUE(watch.look(*process, 5000).empty());
    EXPECT_EQ(watch.next_look(*process, 5000), 5500u);
    beat(*process, "gui", 100, 6000);
    const auto back = watch.look(*process, 6500); // late again, but first of all it was back
    ASSERT_EQ(back.size(), 1u);
    EXPECT_TRUE(back[0].is_back);
    EXPECT_EQ(back[0].silence, 5000u);
    ASSERT_EQ(watch.look(*process, 6500).size(), 1u);
}

TEST(WatchedHeartbeats, ThatPromiseNothingAreNeverLate)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    EXPECT_EQ(watch.next_look(*process, 0), HeartbeatWatch::NEVER);
    beat(*process, "gui", 100, 1000);
    beat(*process, "gui", 0, 1000);
    EXPECT_TRUE(watch.look(*process, 1'000'000).empty());
    EXPECT_EQ(watch.next_look(*process, 1'000'000), HeartbeatWatch::NEVER);
}

TEST(WatchedHeartbeats, ThatAreTakenBackWhileTheyAreLateAreBack)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    ASSERT_EQ(watch.look(*process, 2000).size(), 1u);
    beat(*process, "gui", 0, 3000);
    const auto back = watch.look(*process, 3500);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_TRUE(back[0].is_back);
    EXPECT_EQ(back[0].silence, 2000u);
}

TEST(WatchedHeartbeats, ThatAreLateAlreadyAreNotToldAgainByTheNextWatcher)
{
    const auto process = make_process();
    HeartbeatWatch first;
    beat(*process, "reader", 10'000, 1000);
    beat(*process, "gui", 100, 1000);
    ASSERT_EQ(first.look(*process, 2000).size(), 1u);
    process->late_heartbeats = first.late();
    EXPECT_EQ(process->late_heartbeats, 2u);

    HeartbeatWatch next;
    next.take_over(*process);
    EXPECT_TRUE(next.look(*process, 3000).empty());
    beat(*process, "gui", 60'000, 3200);
    const auto back = next.look(*process, 3500);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_TRUE(back[0].is_back);
    EXPECT_EQ(back[0].silence, 2200u);
    EXPECT_EQ(next.late(), 0u);
    EXPECT_EQ(next.look(*process, 11'500).size(), 1u); // the other one
}

TEST(WatchedHeartbeats, FromTheFutureAreBackNow)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    ASSERT_EQ(watch.look(*process, 2000).size(), 1u);
    process->heartbeats[0].beat = ~std::uint64_t{0}; // written over
    const auto back = watch.look(*process, 2500);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_TRUE(back[0].is_back);
    EXPECT_EQ(back[0].silence, 1500u);
}

TEST(WatchedHeartbeats, AreNotWaitedForInACrash)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    process->steps = kor::core::WATCH_LINE;
    process->step_time = 1050;
    EXPECT_TRUE(watch.look(*process, 1200).empty());
    EXPECT_EQ(watch.next_look(*process, 1200), 1700u);
    EXPECT_TRUE(watch.look(*process, 121'050).empty());
    EXPECT_EQ(watch.look(*process, 121'051).size(), 1u); // it has gone on: the line was of something else
}

TEST(WatchedHeartbeats, AreWaitedForWhileTheHostWritesReportsOfItsSession)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    process->steps = kor::core::WATCH_REPORT;
    process->step_time = 1050;
    EXPECT_EQ(watch.look(*process, 1200).size(), 1u);
}

TEST(WatchedHeartbeats, ThatWereLateBeforeACrashAreNotBackInIt)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    ASSERT_EQ(watch.look(*process, 1200).size(), 1u);
    process->steps = kor::core::WATCH_LINE;
    process->step_time = 1300;
    EXPECT_TRUE(watch.look(*process, 1400).empty());
}

TEST(WatchedHeartbeats, HaveTheirTimeAgainWhenNobodyCouldLook)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    beat(*process, "gui", 100, 1000);
    ASSERT_TRUE(watch.look(*process, 1000).empty()); // to be looked at again at 1101
    EXPECT_TRUE(watch.look(*process, 1602).empty()); // 501 ms after that
    EXPECT_EQ(watch.next_look(*process, 1602), 1703u);
    EXPECT_TRUE(watch.look(*process, 1702).empty());
    const auto late = watch.look(*process, 3000); // and once only, however late the look is
    ASSERT_EQ(late.size(), 1u);
    EXPECT_EQ(late[0].silence, 2000u);
    beat(*process, "gui", 100, 4000);
    ASSERT_EQ(watch.look(*process, 4050).size(), 1u); // back
    EXPECT_EQ(watch.look(*process, 4600).size(), 1u); // 499 ms after the time is none
}

TEST(WatchedHeartbeats, AreWaitedForAsLongAsTheSystemCan)
{
    const auto process = make_process();
    const HeartbeatWatch watch;
    EXPECT_EQ(watch.time_to_next_look(*process, 1000), HeartbeatWatch::WAIT_FOR_EVER);
    beat(*process, "gui", 0xFFFFFFFF, 1000);
    EXPECT_EQ(watch.time_to_next_look(*process, 1000), 0xFFFFFFFEu); // and not 0
    EXPECT_EQ(watch.time_to_next_look(*process, 1001), 0xFFFFFFFEu); // and not for ever
    beat(*process, "gui", 100, 1000);
    EXPECT_EQ(watch.time_to_next_look(*process, 1050), 51u);
}

TEST(WatchedHeartbeats, HastenTheNextLookWhenTheyPromiseMore)
{
    const auto process = make_process();
    EXPECT_EQ(beat(*process, "gui", 0, 1000), Told::AND_THAT_IS_ALL);
    EXPECT_EQ(beat(*process, "gui", 100, 1000), Told::AND_THE_NEXT_LOOK_IS_HASTENED);
    EXPECT_EQ(beat(*process, "gui", 100, 1000), Told::AND_THAT_IS_ALL);
    EXPECT_EQ(beat(*process, "gui", 200, 1000), Told::AND_THAT_IS_ALL);
    EXPECT_EQ(beat(*process, "gui", 199, 1000), Told::AND_THE_NEXT_LOOK_IS_HASTENED);
    EXPECT_EQ(beat(*process, "gui", 0, 1000), Told::AND_THAT_IS_ALL);
    EXPECT_EQ(beat(*process, "gui", 3'600'000, 1000), Told::AND_THE_NEXT_LOOK_IS_HASTENED);
}

TEST(WatchedHeartbeats, PromiseNothingBeforeTheFirstBeat)
{
    const auto process = make_process();
    HeartbeatWatch watch;
    ASSERT_NE(kor::core::add_heartbeat(*process, "gui"), nullptr);
    EXPECT_TRUE(watch.look(*process, 1'000'000).empty());
    EXPECT_EQ(watch.next_look(*process, 1'000'000), HeartbeatWatch::NEVER);
}

TEST(WatchedHeartbeats, HaveNamesThatFitAndRoomForSixteen)
{
    const auto process = make_process();
    EXPECT_EQ(beat(*process, "", 100, 0), Told::NOT);
    EXPECT_EQ(beat(*process, std::string(48, 'x'), 100, 0), Told::NOT);
    for (int i = 0; i < 16; ++i)
        EXPECT_NE(beat(*process, std::string(47, static_cast<char>('a' + i)), 100, 0), Told::NOT);
    EXPECT_EQ(beat(*process, "one more", 100, 0), Told::NOT);
    EXPECT_NE(beat(*process, std::string(47, 'a'), 50, 0), Told::NOT);
    EXPECT_NE(kor::core::find_heartbeat(*process, std::string(47, 'p')), nullptr);
}

// Whatever is there ------------------------------------------------------------------------------------------------
TEST(WatchedMemory, MayHoldAnything)
{
    std::mt19937 random(4711);
    const auto process = make_process();
    for (int round = 0; round < 50; ++round)
    {
        auto* const bytes = reinterpret_cast<unsigned char*>(process.get());
        for (std::size_t i = 0; i < sizeof *process; ++i)
            bytes[i] = static_cast<unsigned char>(round % 2 == 0 ? random() : 0xFF);
        const WatchedEvents events(*process);
        EXPECT_LE(events.history.size() + events.errors.size() + events.warnings.size(), 64u);
        EXPECT_LE(kor::core::watched_module_count(*process), 768u);
        HeartbeatWatch watch;
        const auto late = watch.look(*process, 1000);
        EXPECT_LE(late.size(), 16u);
        for (const LateHeartbeat& one : late)
            for (const char c : one.name)
                EXPECT_GE(static_cast<unsigned char>(c), 0x20);
        EXPECT_GE(watch.next_look(*process, 1000), 1000u);
        kor::core::missing_steps(*process, 1000);
        EXPECT_LT(kor::core::watched_text(process->folder, kor::core::WATCH_FOLDER_SIZE).size(), 32'769u);
    }
}
} // namespace
