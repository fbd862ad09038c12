// conf_cache_test.cpp - the levels in force: default and rules of the package, the local configuration, and
// when a process looks again. All on configurations of the test's own, none that is shared.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "child.h"
#include "environment.h"
#include "log_lines.h"
#include "temp_directory.h"

namespace
{
/// A log whose configuration is that of a `logger` file with these package lines.
class FileLog
{
public:
    explicit FileLog(const std::string& packages)
    {
        EXPECT_TRUE(write_file(m_directory.file("logger"), "2\nfile_size_limit_in_mb=0\n" + packages));
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
        const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_directory.path());
        m_log = std::make_unique<Kor_LogFile>(777, false);
    }

    Kor_LogFile* operator->() const { return m_log.get(); }
    Kor_LogFile& log() const { return *m_log; }
    int level(int package) const { return m_log->GetLogLevel(package * PACKAGE_RANGE); }

private:
    TempDirectory m_directory;
    std::unique_ptr<Kor_LogFile> m_log;
};

std::unique_ptr<Kor_LogConf> conf_with_rule(int package, const char* rules)
{
    auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_TRUE(conf->GetRuleTable(package).ParseRules(rules));
    return conf;
}
} // namespace

TEST(ConfCache, TheLevelOfAMessageIsComparedWithThatOfItsPackage)
{
    const FileLog log("Net 3 6\n");
    struct Row
    {
        long code;
        int level;
        int answer;
    };
    const Row rows[] = {
        {30012, 6, 1}, {30012, 7, 0}, {30000, 6, 1},  {39999, 6, 1},       {40000, 6, 0},       {29999, 6, 0},
        {30012, 4, 1}, {30012, 0, 1}, {30012, -1, 1}, {0, 4, 1},           {0, 5, 0},           {9999, 5, 0},
        {-1, 4, 1},    {-1, 5, 0},    {-9999, 5, 0},  {30012, INT_MAX, 0}, {30012, INT_MIN, 1},
    };
    for (const Row& row : rows)
        EXPECT_EQ(log->CheckMsgLevel(row.code, row.level), row.answer) << row.code << ' ' << row.level;
    EXPECT_EQ(log->GetLogLevel(30012), 6);
    EXPECT_EQ(log->GetLogLevel(40000), 4);
}

TEST(ConfCache, CodesOfNoPackageHaveTheDefaultLevel)
{
    const FileLog log("Net 3 6\n");
    for (const long code : {7500000L, -10000L, -30012L, 2147483647L, -2147483647L - 1})
    {
        EXPECT_EQ(log->CheckMsgLevel(code, 4), 1) << code;
        EXPECT_EQ(log->CheckMsgLevel(code, 5), 0) << code;
    }
    for (const int package : {-1, 750, INT_MAX, INT_MIN})
        log->UpdateCacheFromSharedMem(package); // no more than harmless
}

TEST(ConfCache, LevelsAbove7LetEveryMessagePass)
{
    const FileLog log("A 3 8\nB 4 255\n");
    EXPECT_EQ(log->GetLogLevel(30000), 8);
    EXPECT_EQ(log->GetLogLevel(40000), 255);
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 1);
    EXPECT_EQ(log->CheckMsgLevel(40000, 7), 1);
}

TEST(ConfCache, TheLargestOfDefaultAndMatchingRulesIsInForce)
{
    struct Row
    {
        const char* line;
        int level;
    };
    const std::string pid = std::to_string(::GetCurrentProcessId());
    const std::string by_process = "Net 3 2 [(6;;;" + pid + ")]";
    const std::string lower = "Net 3 5 [(3;;;" + pid + ")]";
    const std::string two = "Net 3 2 [(5;;;" + pid + ")(7;;;" + pid + ")]";
    const std::string other = "Net 3 2 [(7;;;" + pid + "0)]";
    const Row rows[] = {
        {"Net 3 2", 2}, {by_process.c_str(), 6}, {lower.c_str(), 5}, {two.c_str(), 7}, {other.c_str(), 2},
    };
    for (const Row& row : rows)
        EXPECT_EQ(FileLog(std::string(row.line) + "\n").level(3), row.level) << row.line;
}

TEST(ConfCache, RulesSeeTheApplicationNameThatTheLogWasOpenedWith)
{
    const FileLog log("Net 3 4 [(7;;viewer)]\nCore 4 4 [(7;;other)]\n");
    log->Open("viewer");
    EXPECT_EQ(log.level(3), 7);
    EXPECT_EQ(log.level(4), 4);
}

TEST(ConfCache, ANewClientAddressIsObeyedAtTheNextCheck)
{
    const FileLog log("Net 3 4 [(7;10.0.0.0)]\n");
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 0);
    log->SetIP("10.1.2.3");
    EXPECT_FALSE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 1);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    log->SetIP("11.1.2.3");
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 0);
    log->SetIP("10.9.9.9");
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 1);
    log->SetIP(nullptr);
    EXPECT_EQ(log->CheckMsgLevel(30000, 7), 0);
}

TEST(ConfCache, ANewSessionIsObeyedAtTheNextCheck)
{
    const FileLog log("Net 3 4 [(7;;;;3)]\n");
    EXPECT_EQ(log.level(3), 4);
    log->SetIPAndSID("10.1.2.3", 3);
    EXPECT_FALSE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log.level(3), 7);
    log->SetIPAndSID("10.1.2.3", 4);
    EXPECT_EQ(log.level(3), 4);
    log->SetIPAndSID(nullptr, 3);
    EXPECT_EQ(log.level(3), 7);
    log->SetIP(nullptr); // forgets the session
    EXPECT_EQ(log.level(3), 4);
}

TEST(ConfCache, CheckingBringsTheCacheUpToDate)
{
    const FileLog log("Net 3 6\n");
    log->UpdateCacheFromSharedMem(3);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log.level(3), 6);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
}

TEST(ConfCache, ALevelIsComputedOnceUntilTheChangeCountMoves)
{
    const FileLog log("Net 3 6\n");
    EXPECT_EQ(log.level(3), 6);
    auto* const conf = const_cast<Kor_LogConf*>(log->GetConf()); // as another process would
    conf->packageLevels[3] = 5;
    EXPECT_EQ(log.level(3), 6);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    conf->changeCount += 1;
    EXPECT_FALSE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log.level(3), 5);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    conf->packageLevels[3] = 2;
    conf->changeCount -= 1000; // any other count is a change, an older one too
    EXPECT_EQ(log.level(3), 2);
}

TEST(ConfCache, AClearedCacheIsComputedAgain)
{
    const FileLog log("Net 3 6\n");
    EXPECT_EQ(log.level(3), 6);
    const_cast<Kor_LogConf*>(log->GetConf())->packageLevels[3] = 5;
    log->ClearCacheTable();
    EXPECT_EQ(log.level(3), 5);
}

TEST(ConfCache, ALevelOf0IsComputedAtEveryCheckAndRejectsLevel1)
{
    const FileLog log("Net 3 0 [(7;10.0.0.0)]\n");
    EXPECT_EQ(log->CheckMsgLevel(30000, 1), 0);
    EXPECT_EQ(log->CheckMsgLevel(30000, 0), 1);
    EXPECT_EQ(log.level(3), 0);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    const_cast<Kor_LogConf*>(log->GetConf())->packageLevels[3] = 5; // without a new change count
    EXPECT_EQ(log.level(3), 5);
}

TEST(ConfCache, RulesOfTheLocalConfigurationRaiseTheLevel)
{
    const FileLog log("Net 3 4\nCore 4 6\n");
    EXPECT_EQ(log->GetLocalConf(), nullptr);
    EXPECT_EQ(log.level(3), 4);
    const std::string rule = "(7;;;" + std::to_string(::GetCurrentProcessId()) + ")";
    const auto local = conf_with_rule(3, rule.c_str());
    local->GetRuleTable(4).ParseRules(("(5;;;" + std::to_string(::GetCurrentProcessId()) + ")").c_str());
    log->SetLocalConf(local.get());
    EXPECT_EQ(log->GetLocalConf(), local.get());
    EXPECT_FALSE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log.level(3), 7);
    EXPECT_EQ(log.level(4), 6);
    EXPECT_EQ(log.level(5), 4);
    EXPECT_TRUE(log->IsCacheTableUpToDate());
    log->SetLocalConf(nullptr);
}

TEST(ConfCache, DefaultLevelsOfTheLocalConfigurationDoNotCount)
{
    const FileLog log("Net 3 5\n");
    const auto local = std::make_unique<Kor_LogConf>();
    for (int package = 0; package < 750; ++package)
        local->SetPackageDefaultLogLevel(package, 7);
    log->SetLocalConf(local.get());
    EXPECT_EQ(log.level(3), 5);
    EXPECT_EQ(log.level(4), 4);
    log->SetLocalConf(nullptr);
}

TEST(ConfCache, AChangedLocalConfigurationIsObeyedAtTheNextCheck)
{
    const FileLog log("Net 3 4\n");
    const auto local = std::make_unique<Kor_LogConf>();
    log->SetLocalConf(local.get());
    EXPECT_EQ(log.level(3), 4);
    local->GetRuleTable(3).ParseRules(("(7;;;" + std::to_string(::GetCurrentProcessId()) + ")").c_str());
    EXPECT_EQ(log.level(3), 4); // not before it is stamped
    local->GenerateChangeCount();
    EXPECT_FALSE(log->IsCacheTableUpToDate());
    EXPECT_EQ(log.level(3), 7);
    log->SetLocalConf(nullptr);
}

TEST(ConfCache, StoreParamsTestsAgainstTheLevelInForce)
{
    const FileLog log("Net 3 6 [(7;10.0.0.0)]\n");
    EXPECT_EQ(log->StoreParams("file", "function", 1, 6, 3, 1), 1);
    EXPECT_EQ(log->StoreParams("file", "function", 1, 7, 3, 1), 0);
    log->SetIP("10.1.2.3");
    EXPECT_EQ(log->StoreParams("file", "function", 1, 7, 3, 1), 1);
    log->SetIP(nullptr);
    EXPECT_EQ(log->StoreParams("file", "function", 1, 7, 3, 1), 0);
}

TEST(ConfCache, ARejectedMessageIsOneThatStoreParamsRefuses)
{
    const FileLog log("A 0 0\nB 1 1\nC 2 7\nD 3 255\n");
    for (int round = 0; round < 3; ++round)
    {
        for (int package = -1; package < 6; ++package)
        {
            for (int level = 0; level <= 8; ++level)
            {
                const bool rejected = log->IsRejected(level, package);
                const int stored = log->StoreParams("f", "g", 1, level, package, 1);
                ASSERT_FALSE(rejected && stored == 1) << package << ' ' << level;
            }
        }
        if (round == 1)
            log->SetIP("10.1.2.3");
    }
    log->SetIP(nullptr);
}

TEST(ConfCache, ALevelIsQuicklyRejectedOnlyAboveTheOneInForce)
{
    const FileLog log("A 0 0\nB 1 1\nC 2 7\nD 3 255\n");
    const int levels[] = {0, 1, 7, 255};
    for (int package = 0; package < 4; ++package)
    {
        EXPECT_FALSE(log->IsRejected(300, package)); // nobody has asked yet
        EXPECT_EQ(log.level(package), levels[package]);
        for (const int level : {INT_MIN, -1, 0, 1, 2, 6, 7, 8, 254, 255})
            EXPECT_EQ(log->IsRejected(level, package), level > levels[package] && levels[package] != 0)
                << package << ' ' << level;
    }
}

TEST(ConfCache, NothingIsQuicklyRejectedWhereALocalConfigurationCountsToo)
{
    const FileLog log("Net 3 4\n");
    EXPECT_EQ(log.level(3), 4);
    EXPECT_TRUE(log->IsRejected(7, 3));
    const auto local = std::make_unique<Kor_LogConf>();
    log->SetLocalConf(local.get());
    EXPECT_FALSE(log->IsRejected(7, 3));
    EXPECT_EQ(log.level(3), 4);
    EXPECT_FALSE(log->IsRejected(7, 3)); // its stamp may change at any time
    log->SetLocalConf(nullptr);
    EXPECT_EQ(log.level(3), 4);
    EXPECT_TRUE(log->IsRejected(7, 3));
}

TEST(ConfCache, AConfigurationWithTheHighestStampIsObeyed)
{
    const FileLog log("Net 3 4\n");
    const_cast<Kor_LogConf*>(log->GetConf())->changeCount = UINT64_MAX;
    EXPECT_EQ(log.level(3), 4);
    const auto local = std::make_unique<Kor_LogConf>();
    log->SetLocalConf(local.get());
    EXPECT_EQ(log.level(3), 4);
    EXPECT_FALSE(log->IsRejected(7, 3));
    local->GetRuleTable(3).ParseRules(("(7;;;" + std::to_string(::GetCurrentProcessId()) + ")").c_str());
    local->GenerateChangeCount();
    EXPECT_EQ(log.level(3), 7);
    log->SetLocalConf(nullptr);
    EXPECT_EQ(log.level(3), 4);
}

TEST(ConfCache, PublishingWithoutASharedBlockStampsTheOwnConfiguration)
{
    const FileLog log("Net 3 4\n");
    EXPECT_EQ(log.level(3), 4);
    const unsigned long long before = log->GetConf()->GetChangeCount();
    EXPECT_EQ(log->SetCustomLogLevel(3, 7, true), 0);
    EXPECT_NE(log->GetConf()->GetChangeCount(), before);
    EXPECT_EQ(log.level(3), 7);
    EXPECT_EQ(log->WriteToSharedMemory(), 0);
    EXPECT_EQ(log.level(3), 7);
}

TEST(ConfCache, ACustomLevelMaySetTheOutputToo)
{
    const FileLog log("Net 3 4\n");
    EXPECT_EQ(log->GetConf()->GetOutput(), 2);
    EXPECT_EQ(log->SetCustomLogLevel(Kor_LogConf::OUTPUT_STDERR, 3, 6, true), 0);
    EXPECT_EQ(log->GetConf()->GetOutput(), 0);
    EXPECT_EQ(log->SetCustomLogLevel(static_cast<Kor_LogConf::Output>(-1), 3, 5, true), 0);
    EXPECT_EQ(log->GetConf()->GetOutput(), 0);
    EXPECT_EQ(log.level(3), 5);
}

// Programs of earlier headers compare a generation of eight bits, which would come back.
TEST(ConfCache, ALevelFromLongAgoDoesNotComeBack)
{
    const FileLog log("Net 3 4 [(7;10.0.0.0)]\n");
    for (int changes = 250; changes <= 260; ++changes)
    {
        log->SetIP(nullptr);
        EXPECT_EQ(log.level(3), 4);
        EXPECT_TRUE(log->IsRejected(7, 3));
        for (int i = 0; i < changes; ++i)
        {
            log->SetIP("10.1.2.3");
            ASSERT_FALSE(log->IsRejected(7, 3)) << changes << ' ' << i;
        }
    }
    log->SetIP(nullptr);
}

// Several threads -----------------------------------------------------------------------------------

namespace
{
constexpr int CHECKED_PACKAGES = 50;
constexpr int CHANGES = 80000;

/// Changes of a configuration, all packages alike, and checks of them by threads that run beside. A
/// level is right when it is that of a change between the last one that was complete before the check
/// and the last one that had begun after it.
struct Race
{
    std::atomic<int> started{0};
    std::atomic<int> ended{0};
    std::atomic<int> wrong{0};

    static int level_after(int change) { return 1 + change % 7; }

    template <class Fits>
    bool any_level_since(int change, Fits fits) const
    {
        for (const int last = started; change <= last; ++change)
        {
            if (fits(level_after(change)))
                return true;
        }
        return false;
    }

    void change(Kor_LogConf& conf)
    {
        const int next = ++started;
        std::memset(conf.packageLevels, level_after(next), sizeof conf.packageLevels);
        conf.SetChangeCount(conf.GetChangeCount() + 1);
        ended = next;
    }

    void check(Kor_LogFile& log)
    {
        for (int package = 0; package < CHECKED_PACKAGES; ++package)
        {
            int before = ended;
            const int level = log.GetLogLevel(package * PACKAGE_RANGE);
            if (!any_level_since(before, [level](int known) { return known == level; }))
                ++wrong;
            before = ended;
            const int message = 1 + package % 7;
            if (log.IsRejected(message, package) &&
                !any_level_since(before, [message](int known) { return message > known; }))
                ++wrong;
        }
    }
};
} // namespace

TEST(ConfCache, NoThreadGetsAnOldLevelOnceANewOneIsStamped)
{
    std::string packages;
    for (int package = 0; package < CHECKED_PACKAGES; ++package)
        packages += "P " + std::to_string(package) + " 1\n";
    const FileLog log(packages);
    auto& conf = const_cast<Kor_LogConf&>(*log->GetConf()); // as another process would
    Race race;
    race.change(conf);
    run_on_threads(
        2,
        [&](int thread)
        {
            while (race.started < CHANGES)
            {
                if (thread == 0)
                    race.change(conf);
                race.check(log.log());
            }
        });
    EXPECT_EQ(race.wrong, 0);
}

// A rebuild and the file size -------------------------------------------------------------------------

namespace
{
/// A log on a private file that is larger than its limit of 1 MB, and how many lines it still takes.
class BigFileLog
{
public:
    BigFileLog() : m_path(m_directory.file("big.log"))
    {
        EXPECT_TRUE(write_file(m_directory.file("logger"), "2\nfile_size_limit_in_mb=1\nNet 3 4\n"));
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
        const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_directory.path());
        m_log = std::make_unique<Kor_LogFile>(777, false);
        std::FILE* const stream = std::fopen(m_path.c_str(), "ab");
        const std::string filling(3 * 1024 * 1024, 'x');
        std::fwrite(filling.data(), 1, filling.size(), stream);
        std::fflush(stream);
        EXPECT_EQ(m_log->Open(stream, "app"), 0);
    }

    Kor_LogFile& log() const { return *m_log; }

    int lines_until_the_notice() const
    {
        for (int line = 0; line < 1000; ++line)
        {
            const std::string text = "line " + std::to_string(line) + "\n";
            m_log->LogNoHeadline("%s", text.c_str());
            if (read_file(m_path).find("*** Log file size") != std::string::npos)
                return line;
        }
        return -1;
    }

private:
    TempDirectory m_directory;
    std::string m_path;
    std::unique_ptr<Kor_LogFile> m_log;
};
} // namespace

TEST(ConfCache, TheFirstSizeCheckComesAtThe16thLine) { EXPECT_EQ(BigFileLog().lines_until_the_notice(), 15); }

TEST(ConfCache, ARebuildMakesTheNextLineCheckTheFileSize)
{
    const BigFileLog big;
    EXPECT_EQ(big.log().GetLogLevel(30000), 4);
    EXPECT_EQ(big.lines_until_the_notice(), 0);
}

// Tracing -------------------------------------------------------------------------------------------

namespace
{
KOR_CHILD(conf_cache_trace)
{
    const auto check = [](const char* name, int package)
    {
        std::printf("<%s>\n", name);
        KorGLog.GetLogLevel(package * PACKAGE_RANGE);
    };
    check("first", 3);
    check("again", 3);
    check("another", 5);
    check("level 0", 4);
    check("level 0 again", 4);
    KorGLog.ClearCacheTable();
    check("cleared", 3);
    return 0;
}
} // namespace

TEST(ConfCacheTrace, RebuildsAndComputedLevelsArePrinted)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 6\nCore 4 0\nApp 5 2 [(7;;;0)]\n"));
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DEBUG", "1"}, {"PRISMATE_LOG_DIR", directory.path()}};
    const std::string out = text_of(run_child("conf_cache_trace", options).out);
    const std::size_t start = out.find("<first>\n");
    ASSERT_NE(start, std::string::npos) << out;
    std::string trace = out.substr(start);
    const std::string checking = "Checking log level to [IP, Application name, Process ID, Session ID]: [";
    const std::size_t line = trace.find(checking);
    ASSERT_NE(line, std::string::npos) << out;
    trace.replace(line, trace.find('\n', line) - line, checking); // what it says of no address is not laid down
    EXPECT_EQ(
        trace, "<first>\n"
               "Cache table is not up-to-date. clearing table and getting configuration for package 3\n"
               "Package 3 Log level set to 6\n"
               "<again>\n"
               "<another>\n" +
                   checking +
                   "\n"
                   "Checking rule #1\n"
                   "Process ID did not fit\n"
                   "Package 5 Log level set to 2\n"
                   "<level 0>\n"
                   "Package 4 Log level set to 0\n"
                   "<level 0 again>\n"
                   "Package 4 Log level set to 0\n"
                   "<cleared>\n"
                   "Package 3 Log level set to 6\n");
}

TEST(ConfCacheTrace, NothingIsPrintedWithoutTheDebugVariable)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 6\nCore 4 0\n"));
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DIR", directory.path()}};
    EXPECT_EQ(
        text_of(run_child("conf_cache_trace", options).out),
        "<first>\n<again>\n<another>\n<level 0>\n<level 0 again>\n<cleared>\n");
}
