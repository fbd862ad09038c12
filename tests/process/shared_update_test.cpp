// shared_update_test.cpp - a change of the shared configuration reaches every process at its next check.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "child.h"
#include "log_lines.h"
#include "named_event.h"
#include "shared_actor.h"
#include "temp_directory.h"

namespace
{
/// `logger` files that differ in the level of package 3, in that of package 8, which is 8 less it, and in
/// their size limit, which is the level too.
class LoggerFiles
{
public:
    LoggerFiles()
    {
        for (int level = 0; level <= 7; ++level)
            EXPECT_TRUE(write_file(file(level), logger_text(level, level, line_of_package_8(level))));
        EXPECT_TRUE(write_file(m_directory.file("logger"), logger_text(4, 4, line_of_package_8(4))));
    }
    const std::string& path() const { return m_directory.path(); } ///< starts with level 4
    std::string file(int level) const { return m_directory.file("logger" + std::to_string(level)); }
    std::string file(const std::string& name, const std::string& text) const
    {
        EXPECT_TRUE(write_file(m_directory.file(name), text));
        return m_directory.file(name);
    }

private:
    static std::string line_of_package_8(int level) { return "Other 8 " + std::to_string(8 - level) + "\n"; }

    TempDirectory m_directory;
};
} // namespace

TEST(SharedBlockUpdate, ItIsObeyedAtTheVeryNextCheck)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.level(3), 4);
    for (int i = 0; i < 150; ++i)
    {
        const int level = 1 + i % 7;
        ASSERT_EQ(tool.update(files.file(level)), 0);
        ASSERT_EQ(reader.check(3, level + 1), 0) << i;
        ASSERT_EQ(reader.check(3, level), 1) << i;
        ASSERT_EQ(reader.level(3), level) << i;
        ASSERT_EQ(reader.level(8), 8 - level) << i;
    }
    EXPECT_EQ(reader.level(4), 4);
}

TEST(SharedBlockUpdate, ItReachesEveryProcess)
{
    const LoggerFiles files;
    Actor first(files.path());
    ASSERT_TRUE(first.ready());
    Actor second(files.path()), third(files.path()), tool;
    for (const int level : {7, 1, 0, 6})
    {
        ASSERT_EQ(tool.update(files.file(level)), 0);
        EXPECT_EQ(first.level(3), level);
        EXPECT_EQ(second.level(3), level);
        EXPECT_EQ(third.level(3), level);
        EXPECT_EQ(third.limit(), level);
    }
}

TEST(SharedBlockUpdate, APackageRaisedTo7AcceptsDebugMessages)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.check(3, 7), 0);
    ASSERT_EQ(tool.update(files.file(7)), 0);
    EXPECT_EQ(reader.check(3, 7), 1);
    EXPECT_EQ(reader.check(4, 7), 0);
}

TEST(SharedBlockUpdate, AllOfTheConfigurationChangesWithIt)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.level(5), 4);
    const std::string text = "1\nfile_size_limit_in_mb=33\nNet 3 6\nCore 5 2 [(7;10.0.0.0)]\n";
    ASSERT_EQ(tool.update(files.file("other", text)), 0);
    EXPECT_EQ(reader.level(3), 6);
    EXPECT_EQ(reader.level(5), 2);
    EXPECT_EQ(reader.output(), 1);
    EXPECT_EQ(reader.limit(), 33);
    EXPECT_EQ(reader.set_ip("10.1.2.3"), 0);
    EXPECT_EQ(reader.level(5), 7);
    ASSERT_EQ(tool.update(files.file("without", "1\nl\nNet 3 6\nCore 5 2\n")), 0);
    EXPECT_EQ(reader.level(5), 2); // the rules are gone with the file
}

TEST(SharedBlockUpdate, AMissingFilePublishesTheDefaults)
{
    const LoggerFiles files;
    Actor tool;
    ASSERT_EQ(tool.update(files.file(7)), 0);
    Actor reader(files.path());
    ASSERT_EQ(reader.level(3), 7);
    EXPECT_EQ(tool.update(files.path() + "\\missing"), 0);
    EXPECT_EQ(reader.level(3), 4);
    EXPECT_EQ(reader.output(), 0);
    EXPECT_EQ(reader.limit(), 0);
}

TEST(SharedBlockUpdate, ItCreatesABlockThatLaterProcessesUse)
{
    const LoggerFiles files;
    Actor tool;
    ASSERT_EQ(tool.update(files.file(7)), 0);
    ASSERT_EQ(tool.update(files.file(6)), 0);
    Actor later(files.path());
    EXPECT_EQ(later.level(3), 6);
    EXPECT_EQ(later.limit(), 6);
    EXPECT_EQ(later.attach_static(), 17);
}

// Stamps --------------------------------------------------------------------------------------------

namespace
{
std::uint64_t now_in_milliseconds()
{
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return (ticks - 116444736000000000ULL) / 10000;
}
} // namespace

TEST(SharedBlockUpdate, SeveralUpdatesOfOneMillisecondAreAllObeyed)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.level(3), 4);
    ASSERT_EQ(tool.stop_clock_at(now_in_milliseconds() + 1000), 0);
    for (int i = 0; i < 30; ++i)
    {
        const int level = 1 + i % 7;
        ASSERT_EQ(tool.update(files.file(level)), 0);
        ASSERT_EQ(reader.level(3), level) << i;
    }
    for (int i = 0; i < 6; ++i) // with updates in between that the reader does not see
    {
        ASSERT_EQ(tool.update(files.file(1)), 0);
        ASSERT_EQ(reader.level(3), 1) << i;
        for (int unseen = 0; unseen <= i; ++unseen)
            ASSERT_EQ(tool.update(files.file(2 + unseen % 5)), 0);
        ASSERT_EQ(tool.update(files.file(7)), 0);
        ASSERT_EQ(reader.level(3), 7) << i;
    }
}

TEST(SharedBlockUpdate, AnUpdateByAClockThatWentBackIsObeyed)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.level(3), 4);
    std::uint64_t clock = now_in_milliseconds();
    ASSERT_EQ(tool.stop_clock_at(clock), 0);
    for (const std::uint64_t back : {std::uint64_t{1}, std::uint64_t{1000}, std::uint64_t{3600000}})
    {
        ASSERT_EQ(tool.update(files.file(7)), 0);
        ASSERT_EQ(reader.level(3), 7) << back;
        clock -= back;
        ASSERT_EQ(tool.stop_clock_at(clock), 0);
        ASSERT_EQ(tool.update(files.file(1)), 0);
        ASSERT_EQ(reader.level(3), 1) << back;
        ASSERT_EQ(tool.update(files.file(6)), 0);
        ASSERT_EQ(reader.level(3), 6) << back;
    }
}

TEST(SharedBlockUpdate, AnUpdateThatStampsWhatTheBlockAlreadyHasIsObeyed)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_EQ(reader.level(3), 4);
    const BlockView block;
    ASSERT_TRUE(block.valid());
    const std::uint64_t clock = now_in_milliseconds();
    ASSERT_EQ(tool.stop_clock_at(clock), 0);
    for (const std::uint64_t stamp : {clock, clock + 1, ~std::uint64_t{0}})
    {
        block.conf().packageLevels[3] = 2;
        for (const std::uint64_t seen : {std::uint64_t{12345}, stamp}) // the first one so that the second is new
        {
            block.conf().changeCount = seen;
            ASSERT_EQ(reader.level(3), 2) << stamp;
        }
        ASSERT_EQ(tool.update(files.file(7)), 0);
        ASSERT_EQ(reader.level(3), 7) << stamp;
    }
}

// Custom levels -------------------------------------------------------------------------------------

TEST(SharedBlockUpdate, APublishedCustomLevelIsObeyedByEveryProcess)
{
    const LoggerFiles files;
    Actor first(files.path());
    ASSERT_TRUE(first.ready());
    Actor second(files.path());
    for (int i = 0; i < 30; ++i)
    {
        const int level = 1 + i % 7;
        ASSERT_EQ(first.custom_level(3, level, true), 0);
        ASSERT_EQ(second.level(3), level) << i;
        ASSERT_EQ(first.level(3), level) << i;
        ASSERT_EQ(second.custom_level(4, 8 - level, true), 0);
        ASSERT_EQ(first.level(4), 8 - level) << i;
        ASSERT_EQ(first.level(3), level) << i;
    }
}

TEST(SharedBlockUpdate, ACustomLevelThatIsNotPublishedIsNotNoticedElsewhere)
{
    const LoggerFiles files;
    Actor first(files.path());
    ASSERT_TRUE(first.ready());
    Actor second(files.path());
    ASSERT_EQ(second.level(3), 4);
    ASSERT_EQ(first.custom_level(3, 7, false), 0);
    EXPECT_EQ(second.level(3), 4);
    ASSERT_EQ(first.custom_level(5, 6, true), 0); // publishes the earlier one with it
    EXPECT_EQ(second.level(3), 7);
    EXPECT_EQ(second.level(5), 6);
}

// Several at once -----------------------------------------------------------------------------------

namespace
{
struct Progress
{
    std::atomic<int> started; ///< updates that have begun
    std::atomic<int> ended;   ///< updates that have returned
    std::atomic<bool> over;
    std::atomic<int> checks;
    std::atomic<int> wrong;
};
static_assert(std::atomic<int>::is_always_lock_free, "shared by processes");

int level_after(int updates) { return 1 + updates % 7; }

/// A page that a test shares with its children.
class ProgressPage
{
public:
    explicit ProgressPage(const std::string& name)
        : m_mapping(::CreateFileMappingA(
              INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Progress), (name + "-progress").c_str())),
          m_progress(static_cast<Progress*>(::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0)))
    {
    }
    ProgressPage(const ProgressPage&) = delete;
    ProgressPage& operator=(const ProgressPage&) = delete;
    ~ProgressPage()
    {
        ::UnmapViewOfFile(m_progress);
        ::CloseHandle(m_mapping);
    }
    Progress* operator->() const { return m_progress; }

private:
    HANDLE m_mapping;
    Progress* m_progress;
};

/// Four threads check without a pause. A level is right when it is that of an update between the last
/// one that had returned before the check and the last one that had begun after it.
KOR_CHILD(shared_checks_continuously)
{
    const ProgressPage progress(args.at(0));
    const NamedEvent ready(args.at(0) + "-ready");
    std::atomic<int> warm{0};
    run_on_threads(
        4,
        [&](int thread)
        {
            while (!progress->over)
            {
                const int ended = progress->ended;
                // Each way of asking has its own road to the cache.
                int level = 0;
                if (thread % 2 == 0)
                {
                    level = KorGLog.GetLogLevel(30000);
                }
                else
                {
                    while (level < 8 && KorGLog.CheckMsgLevel(30000, level + 1) != 0)
                        ++level;
                }
                const int started = progress->started;
                // A walk over CheckMsgLevel may meet several updates on its way, so it is judged only
                // when there was none.
                bool right = thread % 2 != 0 && started != ended;
                for (int update = ended; update <= started && !right; ++update)
                    right = level == level_after(update);
                if (!right)
                    ++progress->wrong;
                ++progress->checks;
                if (warm < 4 && ++warm == 4)
                    ready.set();
            }
        },
        60000);
    return 0;
}
} // namespace

TEST(SharedBlockUpdate, NoCheckOfFourBusyThreadsGivesAnOldLevelAfterAnUpdateHasReturned)
{
    const LoggerFiles files;
    Actor tool;
    ASSERT_EQ(tool.update(files.file(level_after(0))), 0);
    const std::string name = unique_name("busy");
    const ProgressPage progress(name);
    const NamedEvent ready(name + "-ready");
    ChildOptions options;
    options.arguments = {name};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}, {"PRISMATE_LOG_DIR", files.path()}};
    Child reader("shared_checks_continuously", options);
    reader.ensure_begun();
    ASSERT_TRUE(ready.wait());
    for (int update = 1; update <= 60; ++update)
    {
        progress->started = update;
        ASSERT_EQ(tool.update(files.file(level_after(update))), 0);
        progress->ended = update;
        const int checks = progress->checks; // all four look before the next
        for (int waited = 0; waited < 2000 && progress->checks < checks + 20; ++waited)
            ::Sleep(1);
    }
    progress->over = true;
    const ChildResult result = reader.wait(30000);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u);
    EXPECT_GT(progress->checks, 60 * 20);
    EXPECT_EQ(progress->wrong, 0);
}

TEST(SharedBlockUpdate, AfterUpdatesBySeveralProcessesAtOnceTheNextOneHolds)
{
    const LoggerFiles files;
    Actor reader(files.path());
    ASSERT_TRUE(reader.ready());
    Actor one, other, tool;
    one.begin_update(files.file(1), 20);
    other.begin_update(files.file(7), 20);
    EXPECT_EQ(one.finish(), 0);
    EXPECT_EQ(other.finish(), 0);
    const int level = reader.level(3);
    EXPECT_TRUE(level == 1 || level == 7) << level;
    ASSERT_EQ(tool.update(files.file(5)), 0);
    EXPECT_EQ(reader.level(3), 5);
    EXPECT_EQ(reader.limit(), 5);
}

TEST(SharedBlockUpdate, AProcessKilledInTheMiddleOfAnUpdateStopsNobody)
{
    const LoggerFiles files;
    Actor reader(files.path()), tool;
    ASSERT_TRUE(reader.ready());
    for (int round = 0; round < 5; ++round)
    {
        Actor updater;
        ASSERT_TRUE(updater.ready());
        updater.begin_update(files.file(1), 1000000);
        const std::uint64_t before = BlockView().conf().changeCount;
        for (int waited = 0; waited < 5000 && BlockView().conf().changeCount == before; ++waited)
            ::Sleep(1);
        ::Sleep(static_cast<DWORD>(round)); // another place in its update each time
        updater.kill();
        const int level = 2 + round % 6;
        ASSERT_EQ(tool.update(files.file(level)), 0);
        ASSERT_EQ(reader.level(3), level) << round;
        Actor later(files.path());
        ASSERT_EQ(later.level(3), level) << round;
    }
}
