// Watchers, those who stand by, and hosts that somebody ends while they write: what there is of a crash is told once, by one.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/watch_reading.h"
#include "import_hook.h"

KOR_IMPORT(CreateFileW);
KOR_IMPORT(GetFileSizeEx);
KOR_IMPORT(GetModuleFileNameW);

namespace
{
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr unsigned long NOT_HOOKED = 42; // exit codes
constexpr unsigned long KILLED = 9;

/// What happens to a watcher when it opens a file whose name begins so, for the nth time; or has written a minidump.
struct Fate
{
    const char* file;
    int opening;
    const char* what; // "end", or "wait": until it may go on
};

constexpr char MINIDUMP_IS_WRITTEN[] = "written";

const wchar_t* name_in(const wchar_t* path)
{
    const wchar_t* const slash = std::wcsrchr(path, L'\\');
    return slash == nullptr ? path : slash + 1;
}
} // namespace

/// Watches, until its fate comes: args are a Fate. Whoever stands by for it is LUMlogWatch.exe as ever.
KOR_CHILD(watches_until)
{
    const std::string file = args[0];
    const std::wstring begin(file.begin(), file.end());
    const bool waits = args[2] == "wait";
    const Signal there("watch_fate_is_there");
    const Signal go_on("watch_goes_on");
    int openings = std::atoi(args[1].c_str());
    const auto meet_fate = [&]
    {
        if (!waits)
            ::TerminateProcess(::GetCurrentProcess(), KILLED);
        there.give();
        go_on.wait();
    };
    Hook<CreateFileWImport> files(
        [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
            HANDLE like) -> HANDLE
        {
            if (path != nullptr && std::wcsncmp(name_in(path), begin.c_str(), begin.size()) == 0 && --openings == 0)
                meet_fate();
            return ::CreateFileW(path, access, sharing, security, disposition, flags, like);
        });
    Hook<GetFileSizeExImport> sizes(
        [&](HANDLE of, PLARGE_INTEGER size) -> BOOL
        {
            if (file == MINIDUMP_IS_WRITTEN)
                meet_fate();
            return ::GetFileSizeEx(of, size);
        });
    Hook<GetModuleFileNameWImport> own_program(
        [](HMODULE, LPWSTR to, DWORD size) -> DWORD
        {
            const std::string path = folder_of_programs() + "LUMlogWatch.exe";
            const std::wstring text(path.begin(), path.end());
            to[text.copy(to, size - 1)] = L'\0';
            return static_cast<DWORD>(text.size());
        });
    if (!files.installed() || !sizes.installed() || !own_program.installed())
        return NOT_HOOKED;
    return static_cast<int>(Kor_SessionLogWatcher::Run(false));
}

namespace
{
/// A watcher with a fate.
class FatedWatcher
{
public:
    explicit FatedWatcher(const Fate& fate)
        : m_there("watch_fate_is_there"), m_go_on("watch_goes_on"), m_process("watches_until", options(fate))
    {
        m_place->process = ::GetCurrentProcessId(); // this process is about to be watched: a reason to wait
        m_process.ensure_begun();
    }
    FatedWatcher(const FatedWatcher&) = delete;
    FatedWatcher& operator=(const FatedWatcher&) = delete;
    ~FatedWatcher() { leave(); }

    /// Nobody has to wait any more.
    void leave() const { m_place->process = 0; }

    /// With somebody who stands by.
    bool is_watching() const
    {
        return comes_true(
            [&] { return Kor_SessionLogWatcher::FindWatcher() == m_process.pid() && m_table->stand_by != 0; });
    }
    bool is_there() const { return m_there.wait(); }
    void go_on() const { m_go_on.give(); }
    bool was_ended() const { return m_process.wait(PATIENCE_MS).exit_code == KILLED; }

private:
    static ChildOptions options(const Fate& fate)
    {
        ChildOptions options;
        options.arguments = {fate.file, std::to_string(fate.opening), fate.what};
        return options;
    }

    Signal m_there;
    Signal m_go_on;
    SharedTable m_table;
    kor::core::WatchedEntry* m_place = &m_table->entries[kor::core::MOST_WATCHED - 1];
    Child m_process;
};

/// Its handler writes everything. The body is in ends_test.cpp.
std::unique_ptr<Child> begin_host_that_crashes(const LogDirectory& directory)
{
    ChildOptions options = directory.for_child();
    options.arguments = {"null-write", "0"};
    auto host = std::make_unique<Child>("ends_watched", options);
    host->ensure_begun();
    return host;
}

// A watcher is killed while it writes --------------------------------------------------------------------------------
/// A crash that the handler sees: the process writes its minidump itself.
void expect_all_of_a_crash_once(const Fate& fate)
{
    const Leavings left;
    const FatedWatcher watcher(fate);
    ASSERT_TRUE(watcher.is_watching());
    EXPECT_EQ(begin_host_that_crashes(left.directory())->wait(PATIENCE_MS).exit_code, 0xC0000005);
    EXPECT_TRUE(watcher.was_ended());
    watcher.leave();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines();
    EXPECT_EQ(left.reports(), 1u);
    EXPECT_EQ(left.files("lastlines-", ".log").size(), 1u);
    const auto dumps = left.files("minidump-", ".dmp");
    ASSERT_EQ(dumps.size(), 1u);
    EXPECT_THAT(read_file(left.directory().file(dumps.front())), StartsWith("MDMP"));
}

TEST(WatchersThatAreKilled, AtTheStartOfAMinidumpLeaveItToTheProcess)
{
    expect_all_of_a_crash_once({"minidump-", 1, "end"});
}

TEST(WatchersThatAreKilled, BehindAMinidumpLeaveItToTheProcess)
{
    expect_all_of_a_crash_once({MINIDUMP_IS_WRITTEN, 1, "end"});
}

/// An end that no handler sees: what the watcher has written by then is there, once.
void expect_of_a_kill(const Fate& fate, std::size_t lines, std::size_t last_lines, std::size_t reports)
{
    const Leavings left;
    const FatedWatcher watcher(fate);
    ASSERT_TRUE(watcher.is_watching());
    const WaitingHost host(left.directory());
    ASSERT_TRUE(host.is_watched());
    host.kill();
    EXPECT_TRUE(watcher.was_ended());
    watcher.leave();
    ASSERT_TRUE(nobody_is_watched());
    // The next one goes on with the next step, when it still has the memory of the process.
    const auto is_there_once = [](std::size_t found, std::size_t least) { return found >= least && found <= 1; };
    EXPECT_TRUE(is_there_once(left.crashes(), lines)) << left.crash_lines();
    EXPECT_TRUE(is_there_once(left.files("lastlines-", ".log").size(), last_lines));
    EXPECT_TRUE(is_there_once(left.reports(), reports));
}

TEST(WatchersThatAreKilled, InFrontOfTheLineLeaveItToTheNext) { expect_of_a_kill({"crashes.log", 1, "end"}, 0, 0, 0); }
TEST(WatchersThatAreKilled, BehindTheLineHaveWrittenIt) { expect_of_a_kill({"lastlines-", 1, "end"}, 1, 0, 0); }
TEST(WatchersThatAreKilled, BehindTheLastLinesHaveWrittenThem) { expect_of_a_kill({"crash-", 1, "end"}, 1, 1, 0); }
TEST(WatchersThatAreKilled, InTheReportHaveBegunIt) { expect_of_a_kill({"crash-", 2, "end"}, 1, 1, 1); }

TEST(WatchersThatAreKilled, LeaveTheNextOneToSeeTheEnd)
{
    const Leavings left;
    const WaitingHost host(left.directory());
    ASSERT_TRUE(host.is_watched());
    const SharedTable table;
    for (int kills = 0; kills < 2; ++kills)
    {
        ASSERT_TRUE(comes_true([&] { return Kor_SessionLogWatcher::FindWatcher() != 0 && table->stand_by != 0; }));
        const unsigned long watcher = Kor_SessionLogWatcher::FindWatcher();
        table->stand_by = 0; // until the next one has found one of its own
        ASSERT_TRUE(end_process(watcher));
        ASSERT_TRUE(comes_true(
            [=]
            {
                const unsigned long next = Kor_SessionLogWatcher::FindWatcher();
                return next != 0 && next != watcher;
            }));
    }
    // It has the process open by the time that it has a stand-by.
    ASSERT_TRUE(comes_true([&] { return table->stand_by != 0; }));
    host.kill();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_THAT(left.crash_lines(), HasSubstr("Exception Code: 0x0000dead\n"));
    EXPECT_THAT(left.report(), HasSubstr("<info>cannot read front.png</info>"));
}

// Others are killed --------------------------------------------------------------------------------------------------
TEST(WatchersThatStandBy, AreReplacedWhenTheyAreKilled)
{
    const Leavings left;
    const WaitingHost host(left.directory());
    ASSERT_TRUE(host.is_watched());
    const SharedTable table;
    ASSERT_TRUE(comes_true([&] { return Kor_SessionLogWatcher::FindWatcher() != 0 && table->stand_by != 0; }));
    const unsigned long watcher = Kor_SessionLogWatcher::FindWatcher();
    const unsigned long stands_by = table->stand_by;
    ASSERT_TRUE(end_process(stands_by));
    ASSERT_TRUE(comes_true([&] { return table->stand_by != 0 && table->stand_by != stands_by; }));
    EXPECT_EQ(Kor_SessionLogWatcher::FindWatcher(), watcher);
    host.kill();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines();
    EXPECT_EQ(left.reports(), 1u);
}

TEST(WatchedHosts, ThatAreKilledWhileTheirMinidumpIsWrittenAreToldOnce)
{
    const Leavings left;
    const FatedWatcher watcher({"minidump-", 1, "wait"});
    ASSERT_TRUE(watcher.is_watching());
    const std::unique_ptr<Child> host = begin_host_that_crashes(left.directory());
    ASSERT_TRUE(watcher.is_there());
    host->kill();
    EXPECT_EQ(host->wait(PATIENCE_MS).exit_code, 0xDEADu);
    watcher.go_on();
    watcher.leave();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines(); // by the host, which has been as far as that
    EXPECT_THAT(left.crash_lines(), HasSubstr("Exception Code: 0xc0000005\n"));
    EXPECT_EQ(left.files("lastlines-", ".log").size(), 1u);
    EXPECT_EQ(left.reports(), 1u); // by the watcher
    EXPECT_THAT(left.report(), HasSubstr("Written by the watcher"));
    EXPECT_LE(left.dumps(), 1u);
}

// Many ---------------------------------------------------------------------------------------------------------------
/// A process that does nothing, entered into the table from outside as it would do itself: seventy that do take a minute.
class EnteredProcess
{
public:
    EnteredProcess() : m_process("waits_for_its_end", options()) {}
    EnteredProcess(const EnteredProcess&) = delete;
    EnteredProcess& operator=(const EnteredProcess&) = delete;
    ~EnteredProcess()
    {
        ::UnmapViewOfFile(m_told);
        ::CloseHandle(m_section);
    }

    bool enter(kor::core::WatchTable& table, const Leavings& left)
    {
        m_process.ensure_begun();
        const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, m_process.pid());
        const kor::core::ProcessIdentity identity{m_process.pid(), creation_time_of(process)};
        ::CloseHandle(process);
        if (!tell(identity, left))
            return false;
        for (kor::core::WatchedEntry& entry : table.entries)
        {
            std::uint32_t nobody = 0;
            if (!entry.process.compare_exchange_strong(nobody, identity.process))
                continue;
            entry.created = identity.created;
            entry.is_ready = 1;
            return true;
        }
        return false;
    }

    unsigned long pid() const noexcept { return m_process.pid(); }
    void kill() const noexcept { m_process.kill(); }
    void end_orderly() const { m_told->steps = kor::core::WATCH_ENDED_ORDERLY; }

private:
    static ChildOptions options()
    {
        ChildOptions options;
        options.arguments = {"watch_end_of_many"};
        return options;
    }

    bool tell(const kor::core::ProcessIdentity& identity, const Leavings& left)
    {
        m_section = ::CreateFileMappingA(
            INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(kor::core::WatchedProcess),
            kor::core::WatchName(identity).text());
        m_told = static_cast<kor::core::WatchedProcess*>(
            ::MapViewOfFile(m_section, FILE_MAP_ALL_ACCESS, 0, 0, sizeof *m_told));
        if (m_told == nullptr)
            return false;
        m_told->version = kor::core::WATCH_VERSION;
        m_told->size = sizeof *m_told;
        m_told->identity = identity;
        const std::wstring folder = std::filesystem::path(left.directory().path()).wstring() + L"\\";
        kor::core::tell_text(m_told->folder, std::size(m_told->folder), folder);
        kor::core::tell_text(m_told->program, std::size(m_told->program), L"one_of_many");
        m_told->magic = kor::core::WATCH_MAGIC;
        return true;
    }

    Child m_process;
    HANDLE m_section = nullptr;
    kor::core::WatchedProcess* m_told = nullptr;
};
} // namespace

KOR_CHILD(waits_for_its_end)
{
    const Signal end(args[0]);
    return end.wait(3 * PATIENCE_MS) ? 0 : 1;
}

namespace
{
TEST(WatchedHosts, AreSeventyAndMore)
{
    constexpr std::size_t MANY = 70; // a thread can wait for 64 things
    const Leavings left;
    const WaitingHost first(left.directory());
    ASSERT_TRUE(first.is_watched());
    const Signal end("watch_end_of_many");
    const SharedTable table;
    std::vector<std::unique_ptr<EnteredProcess>> others;
    while (others.size() < MANY - 1)
        others.push_back(std::make_unique<EnteredProcess>());
    for (const auto& one : others)
        ASSERT_TRUE(one->enter(*table, left));
    EXPECT_EQ(count_watched(), MANY);
    const HANDLE wake = ::OpenEventA(EVENT_MODIFY_STATE, FALSE, kor::core::WATCH_WAKE_NAME.data());
    ::SetEvent(wake);
    ::CloseHandle(wake);

    others.back()->kill();
    ASSERT_TRUE(comes_true([] { return count_watched() == MANY - 1; }));
    EXPECT_THAT(
        left.crash_lines(), HasSubstr('[' + std::to_string(others.back()->pid()) + ",0] Exception Code: 0x0000dead\n"));
    EXPECT_EQ(left.reports(), 1u);
    for (const auto& one : others)
        one->end_orderly();
    end.give();
    EXPECT_EQ(first.end_orderly(), 0u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines();
}
} // namespace
