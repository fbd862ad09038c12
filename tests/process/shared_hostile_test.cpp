// shared_hostile_test.cpp - a block that another program filled with anything at all: every reading operation
// of a process that works on it survives and stays in range.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Kor_LogFile.h"
#include "child.h"
#include "log_lines.h"
#include "named_event.h"
#include "shared_actor.h"
#include "temp_directory.h"

namespace
{
/// Reads all there is to read, `rounds` times; a client address and an application name are set.
KOR_CHILD(shared_reads_everything)
{
    const int rounds = std::atoi(args.at(0).c_str());
    const std::string directory = args.at(1);
    const Kor_LogConf* const conf = KorGLog.GetConf();
    KorGLog.Open("app.log", "application-name-of-30-letters");
    for (int round = 0; round < rounds; ++round)
    {
        if (round == 1)
            KorGLog.SetIPAndSID("10.1.2.3", 3);
        for (int package = -1; package <= PACKAGE_COUNT; ++package)
        {
            const int level = KorGLog.GetLogLevel(package * PACKAGE_RANGE);
            if (level < 0 || level > 255)
                return 1;
            const int passes = KorGLog.CheckMsgLevel(package * PACKAGE_RANGE, 7);
            if (passes != 0 && passes != 1)
                return 2;
            if (KorGLog.StoreParams("f.cpp", "g", 1, 1, package, 1) != 0)
                KorGLog.Log("line of package %d", package);
        }
        for (int package = 0; package < PACKAGE_COUNT; package += 50)
        {
            const Kor_LogLevelRuleTable& table = conf->ruleTables[package];
            table.HasRules();
            if (table.ToString().length() > 200000)
                return 3;
            for (const Kor_LogLevelRule& rule : table.rules)
            {
                IP_Structure address = rule.ipAddresses[9];
                rule.IsValid();
                rule.DoesComply(address, "app", 1, 1);
                address.ToString();
            }
        }
        conf->GetOutput();
        conf->GetSizeLimitInMb();
        const auto copy = std::make_unique<Kor_LogConf>(*conf);
        copy->GetPrintToDebugger();
        if (!Kor_LogFile::DumpToLoggerFile(*conf, (directory + "\\dumped").c_str(), nullptr))
            return 4;
        if (round == 0)
        {
            const auto back = std::make_unique<Kor_LogConf>();
            Kor_LogFile::ReadFile((directory + "\\dumped").c_str(), *back);
            conf->Print();
        }
        KorGLog.InitConf();
        KorGLog.ReadSharedMemory();
    }
    std::printf("<survived>\n");
    return 0;
}

/// Bytes that are the same in every run.
void fill_randomly(Kor_LogConf& conf, std::uint32_t seed)
{
    std::uint32_t state = seed * 2654435761u + 1;
    auto* const words = reinterpret_cast<std::uint32_t*>(&conf);
    for (std::size_t i = 0; i < sizeof conf / 4; ++i)
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        words[i] = state;
    }
}

void fill_counts(Kor_LogConf& conf, int count)
{
    for (Kor_LogLevelRuleTable& table : conf.ruleTables)
    {
        table.ruleCount = count;
        for (Kor_LogLevelRule& rule : table.rules)
        {
            rule.ipCount = rule.serviceNameCount = rule.processIdCount = rule.sessionIdCount = count;
            rule.logLevel = 6;
        }
    }
}

/// Every list in use, so that nothing is skipped as not matching.
void fill_rules(Kor_LogConf& conf, const std::function<void(Kor_LogLevelRule&)>& change)
{
    for (Kor_LogLevelRuleTable& table : conf.ruleTables)
    {
        table.ruleCount = 1;
        table.rules[0].logLevel = 6;
        change(table.rules[0]);
    }
}

struct Scenario
{
    const char* name;
    std::function<void(Kor_LogConf&)> fill;
};

/// The block is filled before the process starts, so that it finds it so.
void expect_survival(const Scenario& scenario, int rounds = 2)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), logger_text(7, 15)));
    const BlockView block;
    ASSERT_TRUE(block.valid());
    ASSERT_TRUE(block.created());
    new (&block.conf()) Kor_LogConf;
    scenario.fill(block.conf());
    if (block.conf().changeCount == 0)
        block.conf().changeCount = 1; // 0 is a block that nobody has filled yet
    ChildOptions options;
    options.arguments = {std::to_string(rounds), directory.path()};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}, {"PRISMATE_LOG_DIR", directory.path()}};
    const ChildResult result = run_child("shared_reads_everything", options);
    EXPECT_TRUE(result.finished) << scenario.name;
    EXPECT_EQ(result.exit_code, 0u) << scenario.name << " exception " << std::hex << result.exit_code;
    EXPECT_NE(result.out.find("<survived>"), std::string::npos) << scenario.name;
}
} // namespace

TEST(SharedBlockHostile, BytesOfOneValueEverywhereAreSurvived)
{
    for (const int value : {0xFF, 0x80, 0x7F})
    {
        expect_survival(
            {"one value", [value](Kor_LogConf& conf) { std::memset(static_cast<void*>(&conf), value, sizeof conf); }});
    }
}

TEST(SharedBlockHostile, RandomBytesEverywhereAreSurvived)
{
    for (std::uint32_t seed = 1; seed <= 3; ++seed)
        expect_survival({"random bytes", [seed](Kor_LogConf& conf) { fill_randomly(conf, seed); }});
}

TEST(SharedBlockHostile, CountsBeyondTheirListsAreSurvived)
{
    for (const int count : {INT_MIN, -1, 11, INT_MAX})
        expect_survival({"counts", [count](Kor_LogConf& conf) { fill_counts(conf, count); }});
}

TEST(SharedBlockHostile, TextsWithoutATerminatorAreSurvived)
{
    expect_survival(
        {"names", [](Kor_LogConf& conf)
         {
             std::memset(conf.packageNames, 'n', sizeof conf.packageNames);
             conf.sizeLimitInMb = 0x6E6E6E6E; // no terminator behind them either
             std::memset(conf.packageLevels, 'n', sizeof conf.packageLevels);
         }});
    expect_survival(
        {"application names", [](Kor_LogConf& conf)
         {
             fill_rules(
                 conf,
                 [](Kor_LogLevelRule& rule)
                 {
                     rule.serviceNameCount = 10;
                     std::memset(rule.serviceNames, 'a', sizeof rule.serviceNames);
                     rule.logLevel = 0x61616161;
                 });
         }});
}

TEST(SharedBlockHostile, AddressesOfAnyFamilyAndPrefixAreSurvived)
{
    for (const int family : {2, 23, -1})
    {
        expect_survival(
            {"addresses", [family](Kor_LogConf& conf)
             {
                 int prefix = -128;
                 fill_rules(
                     conf,
                     [family, &prefix](Kor_LogLevelRule& rule)
                     {
                         rule.ipCount = 10;
                         for (IP_Structure& address : rule.ipAddresses)
                         {
                             std::memset(static_cast<void*>(&address), 0xFF, sizeof address);
                             address.family = family;
                             address.prefixBytes = static_cast<std::int8_t>(prefix);
                             prefix = prefix == 127 ? -128 : prefix + 1;
                         }
                     });
             }});
    }
}

TEST(SharedBlockHostile, LevelsOutputsAndLimitsOfAnyValueAreSurvived)
{
    struct Row
    {
        int output;
        std::uint32_t limit;
        std::uint8_t level;
        std::int32_t rule_level;
        unsigned char debugger;
    };
    for (const Row& row :
         {Row{INT_MIN, 0xFFFFFFFF, 255, INT_MAX, 0xFF}, {INT_MAX, 0x80000000, 0, INT_MIN, 2}, {-1, 1, 8, 256, 0x80}})
    {
        expect_survival(
            {"values", [row](Kor_LogConf& conf)
             {
                 conf.output = row.output;
                 conf.sizeLimitInMb = row.limit;
                 std::memset(conf.packageLevels, row.level, sizeof conf.packageLevels);
                 std::memset(static_cast<void*>(&conf.printToDebugger), row.debugger, 1);
                 fill_rules(
                     conf,
                     [row](Kor_LogLevelRule& rule)
                     {
                         rule.logLevel = row.rule_level;
                         rule.sessionIdCount = 1;
                         rule.sessionIds[0] = 3;
                     });
             }});
    }
}

TEST(SharedBlockHostile, LevelsThatChangeWhileTheyAreReadAreSurvived)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), logger_text(7, 15)));
    const BlockView block;
    ASSERT_TRUE(block.created());
    fill_randomly(block.conf(), 99);
    ChildOptions options;
    options.arguments = {"6", directory.path()};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}, {"PRISMATE_LOG_DIR", directory.path()}};
    Child reader("shared_reads_everything", options);
    std::atomic<bool> over{false};
    std::thread changes(
        [&]
        {
            for (std::uint32_t seed = 100; !over; ++seed)
                fill_randomly(block.conf(), seed);
        });
    reader.ensure_begun();
    const ChildResult result = reader.wait(30000);
    over = true;
    changes.join();
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code;
    EXPECT_NE(result.out.find("<survived>"), std::string::npos);
}

TEST(SharedBlockHostile, TheNextUpdateMakesTheBlockGoodAgain)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), logger_text(7, 15)));
    for (const int value : {0xFF, 0x01})
    {
        const BlockView block;
        ASSERT_TRUE(block.valid());
        std::memset(block.bytes(), value, BlockView::SIZE);
        Actor reader(directory.path());
        ASSERT_TRUE(reader.ready()) << value;
        EXPECT_NE(reader.level(3), Actor::LOST) << value;
        Actor tool;
        EXPECT_EQ(tool.update(directory.file("logger")), 0) << value;
        EXPECT_EQ(reader.level(3), 7) << value;
        EXPECT_EQ(reader.level(4), 4) << value;
        EXPECT_EQ(reader.limit(), 15) << value;
        EXPECT_EQ(reader.output(), 2) << value;
    }
}
