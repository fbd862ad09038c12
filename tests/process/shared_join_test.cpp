// shared_join_test.cpp - a log that joins the machine's block while others look at the configuration that it had of its
// own; and what is left of that one.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "captured_stream.h"
#include "child.h"
#include "import_hook.h"
#include "log_lines.h"
#include "shared_actor.h"
#include "temp_directory.h"

KOR_IMPORT(malloc);
KOR_IMPORT(free);

namespace
{
std::string rules_for_all_packages()
{
    std::string text;
    for (int package = 0; package < 100; ++package)
        text += "Album" + std::to_string(package) + ' ' + std::to_string(package) + " 5 [(7;10.1.2.3)(6;;;;3)]\n";
    return text;
}

/// A directory whose `logger` file has rules, and the block, filled from it.
class Machine
{
public:
    explicit Machine(const std::string& packages = rules_for_all_packages())
    {
        EXPECT_TRUE(write_file(m_directory.file("logger"), "2\nfile_size_limit_in_mb=15\n" + packages));
        m_holder = std::make_unique<Actor>(m_directory.path());
        EXPECT_TRUE(m_holder->ready());
    }

    const std::string& path() const { return m_directory.path(); }

    ChildOptions for_child() const
    {
        ChildOptions options;
        options.arguments = {path()};
        options.environment = {{"KORAL_LOG_DEVELOP", ""}};
        return options;
    }

private:
    TempDirectory m_directory;
    std::unique_ptr<Actor> m_holder;
};

void expect_survival(const char* child)
{
    const Machine machine;
    const ChildResult result = run_child(child, machine.for_child());
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code << ' ' << result.out << result.err;
}

void set_directory(const std::string& path) { ::_putenv(("PRISMATE_LOG_DIR=" + path).c_str()); }

/// Four threads ask for levels while the log opens; the folder of its configuration is known only then.
KOR_CHILD(join_while_threads_ask)
{
    KorGLog.SetIP("10.1.2.3");
    for (int round = 0; round < 40; ++round)
    {
        set_directory("");
        Kor_LogFile log(777, false);
        if (round % 2 == 0) // with rules of its own
            const_cast<Kor_LogConf*>(log.GetConf())->GetRuleTable(3).ParseRules("(7;10.1.2.4)(7;10.1.2.3)");
        std::atomic<bool> over{false};
        std::atomic<int> warm{0};
        {
            std::vector<std::unique_ptr<BoundedThread>> threads;
            for (int i = 0; i < 4; ++i)
                threads.push_back(std::make_unique<BoundedThread>(
                    [&]
                    {
                        for (int package = 0; !over; package = (package + 1) % 100)
                        {
                            log.ClearCacheTable();
                            const int level = log.GetLogLevel(package * PACKAGE_RANGE);
                            if (level != 4 && level != 7)
                                std::_Exit(2);
                            ++warm;
                        }
                    }));
            while (warm < 100)
                ::SwitchToThread();
            set_directory(args.at(0));
            log.InitConf();
            const int joined = warm;
            while (warm < joined + 100)
                ::SwitchToThread();
            over = true;
        }
        if (log.GetLogLevel(99 * PACKAGE_RANGE) != 7 || log.GetConf()->GetSizeLimitInMb() != 15)
            return 3;
    }
    return 0;
}

/// Who has asked for the configuration looks at it after the log has joined.
KOR_CHILD(join_with_the_own_configuration_in_somebodys_hands)
{
    set_directory("");
    Kor_LogFile log(777, false);
    const Kor_LogConf* const before = log.GetConf();
    const unsigned long long stamp = before->GetChangeCount();
    set_directory(args.at(0));
    log.InitConf();
    if (log.GetConf() == before || log.GetLogLevel(3 * PACKAGE_RANGE) != 5)
        return 2;
    const auto copy = std::make_unique<Kor_LogConf>(*before); // all of it is there
    return copy->GetChangeCount() == stamp && copy->GetPackageDefaultLogLevel(749) == 4 ? 0 : 3;
}

/// The same for a log that publishes what it has.
KOR_CHILD(publish_with_the_own_configuration_in_somebodys_hands)
{
    set_directory("");
    Kor_LogFile log(777, false);
    log.SetCustomLogLevel(749, 6, false);
    const Kor_LogConf* const before = log.GetConf();
    log.AttachSharedMemory();
    log.WriteToSharedMemory();
    if (log.GetConf() == before || log.GetLogLevel(749 * PACKAGE_RANGE) != 6)
        return 2;
    const auto copy = std::make_unique<Kor_LogConf>(*before);
    return copy->GetPackageDefaultLogLevel(749) == 6 ? 0 : 3;
}

/// Attaching again maps the block a second time; neither view is the log's to free.
KOR_CHILD(join_twice)
{
    {
        Kor_LogFile log(777, false);
        for (int times = 0; times < 3; ++times)
        {
            if (log.AttachSharedMemory() != 17 || log.ReadSharedMemory() != 0)
                return 2;
            if (log.GetLogLevel(3 * PACKAGE_RANGE) != 5)
                return 3;
        }
        log.AttachSharedMemory(); // and not read
    }
    return 0;
}
} // namespace

TEST(SharedBlockJoin, ThreadsMayAskForLevelsWhileTheLogOpens) { expect_survival("join_while_threads_ask"); }

TEST(SharedBlockJoin, WhoHasTheOwnConfigurationMayLookAtItAfterwards)
{
    expect_survival("join_with_the_own_configuration_in_somebodys_hands");
    expect_survival("publish_with_the_own_configuration_in_somebodys_hands");
}

TEST(SharedBlockJoin, ALogMayJoinAgain) { expect_survival("join_twice"); }

// The memory of a configuration that nobody looks at ---------------------------------------------------

namespace
{
/// Gives the library memory for configurations that may not be touched, until it is allowed.
struct ForbiddenConfigurations
{
    static constexpr std::size_t SIZE = sizeof(Kor_LogConf);

    Hook<mallocImport> takes{
        [this](std::size_t size) -> void*
        {
            if (size < SIZE)
                return takes.original(size);
            ++taken;
            memory = ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
            return memory;
        }};
    Hook<freeImport> gives{[this](void* given)
                           {
                               if (given == nullptr || given != memory)
                                   return gives.original(given);
                               ++returned;
                               ::VirtualFree(memory, 0, MEM_RELEASE);
                           }};

    bool installed() const { return takes.installed() && gives.installed(); }
    void allow() const
    {
        DWORD before = 0;
        ::VirtualProtect(memory, SIZE, PAGE_READWRITE, &before);
    }

    void* memory = nullptr;
    int taken = 0;
    int returned = 0;
};

/// What a host does that only logs. args: folder, "first" for the machine's first process.
KOR_CHILD(join_without_a_look_at_the_own_configuration)
{
    const auto configurations = std::make_unique<ForbiddenConfigurations>();
    if (!configurations->installed())
        return 90;
    set_directory("");
    {
        Kor_LogFile log(777, true);
        // Before it is opened: levels, a line, a client, a local configuration's absence.
        if (log.IsCacheTableUpToDate() || log.GetLogLevel(3 * PACKAGE_RANGE) != 4 || !log.IsCacheTableUpToDate())
            return 2;
        if (log.CheckMsgLevel(3 * PACKAGE_RANGE, 5) != 0 || !log.IsRejected(5, 3) || log.IsRejected(4, 3))
            return 3;
        KOR_LOG(log, 4, 3, "before");
        log.SetIP("10.1.2.3");
        log.SetThreadName("main");
        if (log.ReadSharedMemory() != 0 || log.GetLogLevel(3 * PACKAGE_RANGE) != 4)
            return 4;
        if (configurations->taken != 1 || configurations->returned != 0)
            return 5;
        set_directory(args.at(0));
        log.Open("app.log", "app");
        if (configurations->taken != 1 || configurations->returned != 1)
            return 6;
        KOR_LOG(log, 7, 3, "after");
        if (log.GetLogLevel(3 * PACKAGE_RANGE) != 7 || log.GetConf()->GetSizeLimitInMb() != 15)
            return 7;
        if (log.SetCustomLogLevel(4, 6, true) != 0)
            return 8;
    }
    return configurations->taken == 1 && configurations->returned == 1 ? 0 : 9;
}
} // namespace

TEST(SharedBlockJoin, AProcessThatJoinsHasNeverTouchedItsOwnConfiguration)
{
    expect_survival("join_without_a_look_at_the_own_configuration");
}

TEST(SharedBlockJoin, NeitherHasTheOneThatFillsTheBlock)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nfile_size_limit_in_mb=15\n" + rules_for_all_packages()));
    ChildOptions options;
    options.arguments = {directory.path()};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}};
    const ChildResult result = run_child("join_without_a_look_at_the_own_configuration", options);
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code << result.out << result.err;
}

TEST(SharedBlockJoin, ABlockThatTheFirstProcessFillsIsByteForByteWhatItsOwnConfigurationWouldBe)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(
        directory.file("logger"),
        "3\nfile_size_limit_in_mb=15\nAlbum 3 7 [(6;10.1.2.3,10.0.0.0;viewer;12;3)(9;;x)]\n"
        "Page 749 0\nAlbum 3 5\nLost 750 5\nPage_with_a_name_of_more_than_39_characters 5 6\n"));
    Actor first(directory.path());
    ASSERT_TRUE(first.ready());
    const auto expected = std::make_unique<Kor_LogConf>();
    {
        const CapturedStream warnings(stdout);
        Kor_LogFile::ReadFile(directory.file("logger").c_str(), *expected);
    }
    const BlockView block;
    ASSERT_FALSE(block.created());
    EXPECT_GT(block.conf().changeCount, expected->changeCount - 600'000);
    expected->changeCount = block.conf().changeCount;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(expected.get());
    for (std::size_t i = 0; i < offsetof(Kor_LogConf, packageLevels) + PACKAGE_COUNT; ++i)
        ASSERT_EQ(block.bytes()[i], bytes[i]) << i;
}

// Whoever looks --------------------------------------------------------------------------------------

namespace
{
/// A log's configuration before and after its first step, as a caller who asks for it sees it.
KOR_CHILD(look_at_the_own_configuration)
{
    set_directory("");
    Kor_LogFile log(777, false);
    const int level = log.GetLogLevel(3 * PACKAGE_RANGE); // from before there was one to look at
    const Kor_LogConf* const own = log.GetConf();
    if (own == nullptr || own != log.GetConf() || level != 4)
        return 2;
    if (!log.IsCacheTableUpToDate() || own->GetOutput() != 0 || own->ruleTables[749].rules[9].logLevel != 4)
        return 3;
    if (log.SetCustomLogLevel(Kor_LogConf::OUTPUT_PRIVATE_FILE, 3, 6, false) != 0 || own->packageLevels[3] != 6)
        return 4;
    set_directory(args.at(0));
    log.InitConf();
    if (log.GetConf() != own || own->packageLevels[3] != 5 || log.GetLogLevel(3 * PACKAGE_RANGE) != 7)
        return 5;
    return 0;
}

/// The levels of before do not outlast the reading of the file.
KOR_CHILD(ask_before_the_own_configuration_is_read)
{
    set_directory("");
    Kor_LogFile log(777, false);
    if (log.GetLogLevel(3 * PACKAGE_RANGE) != 4)
        return 2;
    set_directory(args.at(0));
    log.Open("app.log", "app");
    return log.GetLogLevel(3 * PACKAGE_RANGE) == 5 && !log.IsRejected(5, 3) && log.IsRejected(6, 3) ? 0 : 3;
}
} // namespace

namespace
{
/// In a process that keeps off the block.
void expect_right(const char* child, const std::string& package_line)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nfile_size_limit_in_mb=15\n" + package_line));
    ChildOptions options;
    options.arguments = {directory.path()};
    const ChildResult result = run_child(child, options);
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code << result.out << result.err;
}
} // namespace

TEST(ConfOwn, WhoAsksForItFindsItAsItAlwaysWas)
{
    expect_right("look_at_the_own_configuration", "Album 3 5 [(7;;;;0)]\n");
}

TEST(ConfOwn, LevelsThatWereAskedForBeforeItWasReadDoNotOutlastThat)
{
    expect_right("ask_before_the_own_configuration_is_read", "Album 3 5\n");
}
