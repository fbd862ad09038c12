// Crashes of watched processes, with watchers that do not do what they should: a minidump is written, and by one alone.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"

namespace
{
using kor::core::DumpRequest;
using kor::core::WatchedProcess;
using kor::core::WatchName;
using ::testing::HasSubstr;

constexpr unsigned long NOT_WATCHED = 40; // exit codes
constexpr unsigned long NOT_CRASHED = 41;

enum class Watcher
{
    NEVER_CLAIMS,
    IS_KILLED_BEFORE_IT_CLAIMS,
    IS_KILLED_AFTER_IT_CLAIMED,
    CANNOT,
    SAYS_THAT_IT_IS_DONE
};

/// The section and the events of one watched process, as a watcher opens them.
class OpenedProcess
{
public:
    explicit OpenedProcess(const kor::core::WatchedEntry& entry)
    {
        const kor::core::ProcessIdentity identity{entry.process, entry.created};
        m_section = ::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, WatchName(identity).text());
        m_view = ::MapViewOfFile(m_section, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(WatchedProcess));
        m_news = ::OpenEventA(SYNCHRONIZE, FALSE, WatchName(identity, kor::core::WATCH_NEWS).text());
        m_answer = ::OpenEventA(EVENT_MODIFY_STATE, FALSE, WatchName(identity, kor::core::WATCH_ANSWER).text());
    }

    bool wait_for_request() const
    {
        return comes_true([this] { return state() == DumpRequest::REQUESTED; });
    }
    DumpRequest state() const { return static_cast<DumpRequest>(told().request.load()); }
    void answer(DumpRequest state) const
    {
        told().request = static_cast<std::uint32_t>(state);
        ::SetEvent(m_answer);
    }
    WatchedProcess& told() const { return *static_cast<WatchedProcess*>(m_view); }

private:
    HANDLE m_section;
    void* m_view;
    HANDLE m_news;
    HANDLE m_answer;
};

const kor::core::WatchedEntry* only_entry(const kor::core::WatchTable& table)
{
    for (const kor::core::WatchedEntry& entry : table.entries)
        if (entry.process != 0 && entry.is_ready != 0)
            return &entry;
    return nullptr;
}
} // namespace

/// Says that it watches, and does with the first request what args tell.
KOR_CHILD(watches_badly)
{
    const auto how = static_cast<Watcher>(std::atoi(args[0].c_str()));
    const SharedTable table;
    table->watcher_created = creation_time_of(::GetCurrentProcess());
    table->watcher = ::GetCurrentProcessId();
    Signal(args[1]).give();
    if (!comes_true([&] { return only_entry(*table) != nullptr; }))
        return 1;
    const OpenedProcess process(*only_entry(*table));
    if (!process.wait_for_request())
        return 2;
    if (how == Watcher::IS_KILLED_BEFORE_IT_CLAIMS)
        ::TerminateProcess(::GetCurrentProcess(), 9);
    if (how == Watcher::IS_KILLED_AFTER_IT_CLAIMED)
    {
        process.answer(DumpRequest::CLAIMED);
        ::TerminateProcess(::GetCurrentProcess(), 9);
    }
    if (how == Watcher::CANNOT)
        process.answer(DumpRequest::FAILED);
    if (how == Watcher::SAYS_THAT_IT_IS_DONE)
        process.answer(DumpRequest::DONE);
    const Signal end(args[2]);
    return end.wait() ? 0 : 3;
}

KOR_CHILD(crashes_watched)
{
    KorGLog.Open("test.log", "viewer");
    if (!Kor_CrashHandlers::Install() || !Kor_SessionLogHost::startWatcher())
        return NOT_WATCHED;
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
    return NOT_CRASHED;
}

namespace
{
/// What is left of a crash with such a watcher.
class CrashedHost : public Leavings
{
public:
    explicit CrashedHost(Watcher how)
    {
        const SharedTable table; // keeps the table from being a new one
        const Signal ready("watch_bad_ready");
        const Signal end("watch_bad_end");
        ChildOptions watching;
        watching.arguments = {std::to_string(static_cast<int>(how)), "watch_bad_ready", "watch_bad_end"};
        Child watcher("watches_badly", watching);
        watcher.ensure_begun();
        EXPECT_TRUE(ready.wait());
        Child host("crashes_watched", directory().for_child());
        host.ensure_begun();
        exit_code = host.wait(PATIENCE_MS).exit_code;
        end.give();
        watcher.wait(PATIENCE_MS);
        forget_all(*table);
    }

    unsigned long exit_code = 0;

private:
    /// No real watcher has seen it.
    static void forget_all(kor::core::WatchTable& table)
    {
        table.watcher = 0;
        for (kor::core::WatchedEntry& entry : table.entries)
        {
            entry.is_ready = 0;
            entry.process = 0;
        }
    }
};

void expect_own_minidump(Watcher how)
{
    const CrashedHost host(how);
    EXPECT_EQ(host.exit_code, 0xC0000005);
    EXPECT_EQ(host.dumps(), 1u);
    EXPECT_EQ(host.crashes(), 1u);
    EXPECT_EQ(host.reports(), 1u);
    EXPECT_GE(elements(host.report(), "Module").size(), 4u);
}

TEST(WatchedCrashes, WithAWatcherThatNeverClaimsAreWrittenByTheProcess) { expect_own_minidump(Watcher::NEVER_CLAIMS); }

TEST(WatchedCrashes, WithAWatcherThatIsKilledBeforeItClaimsAreWrittenByTheProcess)
{
    expect_own_minidump(Watcher::IS_KILLED_BEFORE_IT_CLAIMS);
}

TEST(WatchedCrashes, WithAWatcherThatIsKilledAfterItClaimedAreWrittenByTheProcess)
{
    expect_own_minidump(Watcher::IS_KILLED_AFTER_IT_CLAIMED);
}

TEST(WatchedCrashes, WithAWatcherThatCannotAreWrittenByTheProcess) { expect_own_minidump(Watcher::CANNOT); }

TEST(WatchedCrashes, WithAWatcherThatIsDoneAreNotWrittenAgain)
{
    const CrashedHost host(Watcher::SAYS_THAT_IT_IS_DONE);
    EXPECT_EQ(host.exit_code, 0xC0000005);
    EXPECT_EQ(host.dumps(), 0u); // this watcher lies, and nobody else writes one
    EXPECT_EQ(host.reports(), 1u);
}
} // namespace
