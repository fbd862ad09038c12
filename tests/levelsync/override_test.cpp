// override_test.cpp - changes with an end: they are taken back by whoever made them, whatever ends that, or by the next
// LevelSync that anybody starts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "level_sync.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace
{
constexpr unsigned PATIENCE_MS = 30000;

/// A host, and an override of Replay that somebody looks after.
class Override
{
public:
    explicit Override(const std::string& more = "")
        : m_viewer(m_site.host("viewer")), m_call(m_site.start("set replay 7 --for 10m" + more))
    {
        EXPECT_TRUE(comes_true([this] { return ran(*m_call, 0).says("It stays until "); })) << ran(*m_call, 0);
        EXPECT_EQ(m_viewer->level(320), 7);
    }

    const Site& site() const { return m_site; }
    Child& call() { return *m_call; }
    int level() { return m_viewer->level(320); }

    /// What the call says once it has ended by itself.
    Ran end() { return ran(*m_call, PATIENCE_MS); }

private:
    Site m_site;
    std::unique_ptr<Host> m_viewer;
    std::unique_ptr<Child> m_call;
};

/// What the system does in a process when its user presses Ctrl-C, closes its window or logs off: it runs the handlers on
/// a thread of its own. Returns when they have.
bool control(const Child& child, int event)
{
    const FARPROC routine = ::GetProcAddress(::GetModuleHandleA("kernelbase.dll"), "CtrlRoutine");
    const HANDLE process = ::OpenProcess(PROCESS_ALL_ACCESS, FALSE, child.pid());
    const HANDLE thread = ::CreateRemoteThread(
        process, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine)),
        reinterpret_cast<void*>(static_cast<std::intptr_t>(event)), 0, nullptr);
    const bool is_handled = thread != nullptr && ::WaitForSingleObject(thread, PATIENCE_MS) == WAIT_OBJECT_0;
    if (thread != nullptr)
        ::CloseHandle(thread);
    ::CloseHandle(process);
    return is_handled;
}

constexpr char TAKEN_BACK[] = "is taken back, as LevelSync was told to stop. Changed: Replay 7 to 6 for everybody.\n";

TEST(LevelSyncOverride, IsTakenBackAtItsEnd)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto call = site.start("set replay 7 --for 2s");
    ASSERT_TRUE(comes_true([&] { return ran(*call, 0).says("It stays until "); }));
    EXPECT_EQ(viewer->level(320), 7);
    const Ran ended = ran(*call, PATIENCE_MS);
    EXPECT_EQ(ended.exit_code, 0);
    EXPECT_THAT(
        ended.out,
        HasSubstr("(LevelSync set replay 7 --for 2s) is taken back, as its time is over. Changed: Replay 7 to "
                  "6 for everybody.\n"));
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_THAT(
        site.run("history").out, HasSubstr("taking back change 1 (LevelSync set replay 7 --for 2s): its time is"));
}

TEST(LevelSyncOverride, StandsInTheStatusWithItsEnd)
{
    Override override;
    const Ran status = override.site().run("");
    EXPECT_THAT(status.out, HasSubstr("Overrides, taken back at their end or by LevelSync undo N:\n  1    until "));
    EXPECT_THAT(status.out, HasSubstr(": Replay 6 to 7 for everybody ("));
    EXPECT_EQ(status.err, "") << "it is looked after, and so not taken back";
    const Ran json = override.site().run("--json");
    EXPECT_EQ(json.at("/overrides/0/id"), "1");
    EXPECT_THAT(json.at("/overrides/0/until"), HasSubstr("Z\""));
    EXPECT_EQ(override.level(), 7);
}

TEST(LevelSyncOverride, IsTakenBackAtCtrlC)
{
    for (const int event : {CTRL_C_EVENT, CTRL_BREAK_EVENT})
    {
        Override override;
        ASSERT_TRUE(control(override.call(), event));
        const Ran ended = override.end();
        EXPECT_EQ(ended.exit_code, 0) << ended;
        EXPECT_THAT(ended.out, HasSubstr(TAKEN_BACK));
        EXPECT_EQ(override.level(), 6);
        EXPECT_EQ(override.site().logger(), Site::LOGGER);
    }
}

TEST(LevelSyncOverride, LeavesItsLinesByTheLevelsThatAreInForceThen)
{
    Override override;
    EXPECT_THAT(override.site().file("LevelSync.log"), HasSubstr("change 1, "));
    ASSERT_EQ(override.site().run("set 106 error").exit_code, 0); // the library's package: no more warnings of it
    ASSERT_TRUE(control(override.call(), CTRL_C_EVENT));
    EXPECT_THAT(override.end().out, HasSubstr(TAKEN_BACK));
    EXPECT_THAT(override.site().run("history").out, HasSubstr("taking back change 1 "));
    EXPECT_THAT(override.site().file("LevelSync.log"), Not(HasSubstr("taking back change 1 ")));
}

TEST(LevelSyncOverride, IsTakenBackWhileTheSystemWaitsToCloseTheWindowOrToLogOff)
{
    for (const int event : {CTRL_CLOSE_EVENT, CTRL_LOGOFF_EVENT, CTRL_SHUTDOWN_EVENT})
    {
        Override override;
        ASSERT_TRUE(control(override.call(), event));
        // The system ends the process now, whatever that is still at.
        EXPECT_EQ(override.site().logger(), Site::LOGGER) << event;
        EXPECT_EQ(override.level(), 6);
        EXPECT_THAT(override.end().out, HasSubstr(TAKEN_BACK));
    }
}

TEST(LevelSyncOverride, IsTakenBackAtTheEndOfTheWindowsSession)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const std::string name = unique_name("level-sync-session");
    const NamedEvent stays(name + "-stays");
    const NamedEvent ends(name + "-ends");
    const NamedEvent done(name + "-done");
    ChildOptions options = site.options(words_of("set replay 7 --for 10m"));
    options.program = level_sync_with_faults();
    options.environment.emplace_back("LEVELSYNC_FAULT", "session " + name); // Wine has no windows without a display
    const Child call("LevelSync", options);
    ASSERT_TRUE(comes_true([&] { return ran(call, 0).says("It stays until "); }));
    stays.set();
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(viewer->level(320), 7) << "somebody else has stopped the end of the session";
    EXPECT_FALSE(call.wait(0).finished);
    done.reset();
    ends.set();
    ASSERT_TRUE(done.wait());
    // The system ends the process now, whatever that is still at.
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_THAT(ran(call, PATIENCE_MS).out, HasSubstr(TAKEN_BACK));
}

TEST(LevelSyncOverride, IsTakenBackByTheNextLevelSyncAfterAKill)
{
    Override override;
    override.call().kill();
    override.end();
    EXPECT_EQ(override.level(), 7);
    const Ran next = override.site().run("list replay");
    EXPECT_EQ(next.exit_code, 0);
    EXPECT_THAT(next.err, HasSubstr("Override 1 of "));
    EXPECT_THAT(
        next.err, HasSubstr("(LevelSync set replay 7 --for 10m) is taken back, as whoever looked after it has ended. "
                            "Changed: Replay 7 to 6 for everybody.\n"));
    EXPECT_EQ(next.out, "320  Replay  6 info     // replays its lines\n") << "first taken back, then listed";
    EXPECT_EQ(override.level(), 6);
    EXPECT_EQ(override.site().logger(), Site::LOGGER);
    EXPECT_EQ(override.site().run("list replay").err, "") << "once";
}

TEST(LevelSyncOverride, IsTakenBackAlsoWhereTheKillCameBeforeAnybodyKnewThatItStands)
{
    const Site site;
    const auto viewer = site.host("viewer");
    EXPECT_EQ(site.run_with("dies behind the file", "set replay 7 --for 10m").exit_code, 0xDEAD);
    EXPECT_EQ(viewer->level(320), 7);
    const Ran next = site.run("list replay");
    EXPECT_THAT(next.err, HasSubstr("is taken back, as whoever looked after it has ended."));
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_EQ(site.logger(), Site::LOGGER);

    EXPECT_EQ(site.run_with("dies before the file", "set replay 7 --for 10m").exit_code, 0xDEAD);
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_EQ(site.run("list replay").err, "");
    EXPECT_THAT(site.run("history").out, HasSubstr("not done: interrupted before the file was changed"));
}

TEST(LevelSyncOverride, OfAKilledCallLeavesWhatOthersHaveSetSince)
{
    Override override;
    override.call().kill();
    override.end();
    std::string logger = override.site().logger();
    const std::size_t at = logger.find("320       7");
    ASSERT_NE(at, std::string::npos);
    override.site().configure(logger.replace(at, 11, "320       3"));
    const Ran next = override.site().run("history");
    EXPECT_THAT(next.err, HasSubstr("Left as somebody has set it since: Replay."));
    EXPECT_EQ(override.site().logger(), logger);
}

TEST(LevelSyncOverride, EndsWhereSomebodyElseTakesItBack)
{
    Override override;
    ASSERT_EQ(override.site().run("undo").exit_code, 0);
    const Ran ended = override.end();
    EXPECT_EQ(ended.exit_code, 0);
    EXPECT_THAT(ended.out, HasSubstr("Somebody else has taken it back.\n"));
    EXPECT_EQ(override.level(), 6);
    EXPECT_EQ(override.site().logger(), Site::LOGGER);
}

TEST(LevelSyncOverride, OfTwoOfOnePackageEachEndsByItself)
{
    const Site site;
    const auto viewer = site.host("viewer");
    viewer->serve("192.0.2.7");
    const auto first = site.start("set replay 7 --client 192.0.2.7 --for 10m");
    ASSERT_TRUE(comes_true([&] { return ran(*first, 0).says("It stays until "); }));
    const auto second = site.start("set replay 7 --app viewer --for 10m");
    ASSERT_TRUE(comes_true([&] { return ran(*second, 0).says("It stays until "); }));
    ASSERT_TRUE(control(*first, CTRL_C_EVENT));
    EXPECT_EQ(ran(*first, PATIENCE_MS).exit_code, 0);
    EXPECT_THAT(site.logger(), HasSubstr("[(7;;viewer)]"));
    EXPECT_EQ(viewer->level(320), 7);
    ASSERT_TRUE(control(*second, CTRL_C_EVENT));
    EXPECT_EQ(ran(*second, PATIENCE_MS).exit_code, 0);
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_EQ(without_columns(site.logger()), without_columns(Site::LOGGER));
}

TEST(LevelSyncOverride, GoesToTheBackgroundWhereItIsToldTo)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto call = site.start("set replay 7 --for 3s --detach"); // which lives as long as what it leaves behind
    const Ran ended = ran(*call, PATIENCE_MS);
    ASSERT_TRUE(ended.finished);
    EXPECT_EQ(ended.exit_code, 0) << ended;
    EXPECT_THAT(ended.out, HasSubstr(" takes it back then. LevelSync undo 1 does so now.\n"));
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(site.run("list replay").err, "") << "it is looked after";
    EXPECT_TRUE(comes_true([&] { return viewer->level(320) == 6; }, PATIENCE_MS));
    EXPECT_EQ(site.logger(), Site::LOGGER);
}

TEST(LevelSyncOverride, InTheBackgroundEndsWithAnUndo)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto call = site.start("set replay 7 --for 10m --detach");
    const Ran ended = ran(*call, PATIENCE_MS);
    ASSERT_EQ(ended.exit_code, 0) << ended;
    const std::size_t at = ended.out.find("; process ") + 10;
    const auto keeper = static_cast<DWORD>(std::stoul(ended.out.substr(at)));
    const HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, keeper);
    ASSERT_NE(process, nullptr);
    ASSERT_EQ(site.run("undo 1").exit_code, 0);
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_EQ(::WaitForSingleObject(process, PATIENCE_MS), static_cast<DWORD>(WAIT_OBJECT_0));
    ::CloseHandle(process);
    EXPECT_EQ(site.logger(), Site::LOGGER);
}

TEST(LevelSyncOverride, IsTakenBackWhenItsTimeIsOverAndNobodyWasThere)
{
    const Site site;
    const auto call = site.start("set replay 7 --for 1s");
    ASSERT_TRUE(comes_true([&] { return ran(*call, 0).says("It stays until "); }));
    call->kill();
    ran(*call, PATIENCE_MS);
    const ULONGLONG end = ::GetTickCount64() + 1100;
    ASSERT_TRUE(comes_true([&] { return ::GetTickCount64() > end; }));
    EXPECT_THAT(site.run("list").err, HasSubstr("is taken back, as its time is over since "));
    EXPECT_EQ(site.logger(), Site::LOGGER);
}
} // namespace
