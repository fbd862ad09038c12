// Processes that do not keep their promise to come back.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"

namespace
{
using ::testing::HasSubstr;

constexpr unsigned long NOT_WATCHED = 40; // exit codes
constexpr char GUI[] = "gui \xC3\xA4";    // in UTF-8

bool begin_watched()
{
    KorGLog.Open("test.log", "viewer");
    return Kor_CrashHandlers::Install() && Kor_SessionLogHost::startWatcher();
}
} // namespace

KOR_CHILD(hangs_and_comes_back)
{
    const Signal come_back(args[0]);
    const Signal end(args[1]);
    if (!begin_watched())
        return NOT_WATCHED;
    Kor_SessionLogHost::heartbeat(GUI, 200);
    Kor_SessionLogHost::heartbeat("reader", 200);
    Kor_SessionLogHost::heartbeat("reader", 0); // promises nothing any more
    come_back.wait();
    Kor_SessionLogHost::heartbeat(GUI, 3'600'000);
    return end.wait() ? 0 : 1;
}

KOR_CHILD(promises_more)
{
    const auto before = static_cast<unsigned>(std::stoul(args[0]));
    const Signal end(args[1]);
    if (!begin_watched())
        return NOT_WATCHED;
    Kor_SessionLogHost::heartbeat(GUI, 3'600'000);
    Kor_SessionLogHost::heartbeat(GUI, before);
    // When the watcher has answered it has seen that; twice, as it may have had news left to look at.
    Kor_SessionLog::GetInstance()->produceMinidump(nullptr);
    Kor_SessionLog::GetInstance()->produceMinidump(nullptr);
    Kor_SessionLogHost::heartbeat(GUI, 200);
    return end.wait() ? 0 : 1;
}

KOR_CHILD(promises_and_crashes)
{
    // A crash that takes longer than the promise.
    ::SetUnhandledExceptionFilter(
        [](EXCEPTION_POINTERS*) -> LONG
        {
            ::SleepEx(1'500, FALSE);
            return EXCEPTION_CONTINUE_SEARCH;
        });
    if (!begin_watched())
        return NOT_WATCHED;
    Kor_SessionLogHost::heartbeat(GUI, 1'000);
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return 0;
}

namespace
{
/// False when there was no whole report of a hang in time.
bool tells_of_hang(const Leavings& left)
{
    return comes_true([&] { return left.report("hang-").find("</lumariscontext>") != std::string::npos; });
}

TEST(Heartbeats, ThatDoNotComeAreToldOnceAndAgainWhenTheyAreBack)
{
    const Leavings left;
    const Signal come_back("watch_come_back");
    const HostToEnd host(left.directory(), "hangs_and_comes_back", {"watch_come_back"});

    const auto lines = [&] { return lines_of(left.directory().text("hangs.log")); };
    ASSERT_TRUE(tells_of_hang(left));
    ASSERT_EQ(lines().size(), 1u);
    EXPECT_THAT(lines()[0], HasSubstr("Hanging Process Details: "));
    EXPECT_THAT(lines()[0], HasSubstr('[' + std::to_string(host.pid()) + "] Heartbeat: " + GUI + ", silent for "));
    EXPECT_THAT(left.report("hang-"), HasSubstr(std::string(" Code=\"0xe0000003\" EventID=\"") + GUI + '"'));
    EXPECT_GE(elements(left.report("hang-"), "Module").size(), 4u);
    EXPECT_EQ(left.dumps(), 1u);

    come_back.give();
    ASSERT_TRUE(comes_true([&] { return lines().size() == 2; }));
    EXPECT_THAT(lines()[1], HasSubstr(std::string("] Heartbeat: ") + GUI + ", back after "));
    EXPECT_EQ(host.end(), 0u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(lines().size(), 2u);
    EXPECT_EQ(left.dumps(), 1u);
    EXPECT_EQ(left.files("hang-", ".xml").size(), 1u);
    EXPECT_EQ(left.crashes(), 0u);
}

void end_watcher(unsigned long process)
{
    const HANDLE watcher = ::OpenProcess(PROCESS_TERMINATE, FALSE, process);
    EXPECT_TRUE(::TerminateProcess(watcher, 1));
    ::CloseHandle(watcher);
}

TEST(Heartbeats, ThatDoNotComeAreToldOnceThoughAnotherWatcherTakesOver)
{
    const Leavings left;
    const Signal come_back("watch_come_back");
    const HostToEnd host(left.directory(), "hangs_and_comes_back", {"watch_come_back"});
    ASSERT_TRUE(tells_of_hang(left));

    const unsigned long first = Kor_SessionLogWatcher::FindWatcher();
    end_watcher(first);
    const auto next = [] { return Kor_SessionLogWatcher::FindWatcher(); };
    ASSERT_TRUE(comes_true([&] { return next() != 0 && next() != first; }));
    come_back.give();
    const auto lines = [&] { return lines_of(left.directory().text("hangs.log")); };
    ASSERT_TRUE(comes_true([&] { return left.directory().text("hangs.log").find("back after") != std::string::npos; }));
    EXPECT_EQ(lines().size(), 2u);
    EXPECT_EQ(left.dumps(), 1u);
    EXPECT_EQ(left.files("hang-", ".xml").size(), 1u);
    EXPECT_EQ(host.end(), 0u);
    EXPECT_TRUE(nobody_is_watched());
}

TEST(Heartbeats, ThatPromiseMoreThanBeforeAreWaitedForAtOnce)
{
    for (const char* const before : {"0", "1800000"})
    {
        const Leavings left;
        const HostToEnd host(left.directory(), "promises_more", {before}, std::string("promises_after_") + before);
        EXPECT_TRUE(tells_of_hang(left)) << before;
        EXPECT_EQ(host.end(), 0u);
        ASSERT_TRUE(nobody_is_watched());
    }
}

TEST(Heartbeats, AreNotWaitedForInACrash)
{
    const Leavings left;
    Child host("promises_and_crashes", left.directory().for_child());
    EXPECT_EQ(host.wait(PATIENCE_MS).exit_code, 0xC0000005u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u);
    EXPECT_EQ(left.reports(), 1u);
    EXPECT_EQ(left.files("hang-", ".xml").size(), 0u);
    EXPECT_EQ(left.directory().text("hangs.log"), "");
}
} // namespace
