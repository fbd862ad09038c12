// conf_layout_test.cpp - the records that separately built processes share: sizes, offsets, empty states,
// byte copies and plain accessors of the configuration, and the tools' table of it.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Kor_LogConf.h"
#include "captured_stream.h"

namespace
{
struct Place
{
    const char* field;
    std::size_t actual;
    std::size_t expected;
};

void expect_places(const std::vector<Place>& places)
{
    for (const Place& place : places)
        EXPECT_EQ(place.actual, place.expected) << place.field;
}

/// Bytes that repeat only after 251, so that a shifted copy never looks right.
void fill_with_pattern(void* memory, std::size_t size)
{
    auto* const bytes = static_cast<unsigned char*>(memory);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(1 + i % 251);
}

std::unique_ptr<Kor_LogConf> conf_with_pattern()
{
    auto conf = std::make_unique<Kor_LogConf>();
    fill_with_pattern(static_cast<void*>(conf.get()), sizeof *conf);
    std::memset(static_cast<void*>(&conf->printToDebugger), 1, 1); // the one byte that may not hold anything
    return conf;
}

void expect_same_fields(const Kor_LogConf& a, const Kor_LogConf& b)
{
    EXPECT_EQ(a.output, b.output);
    EXPECT_EQ(a.printToDebugger, b.printToDebugger);
    EXPECT_EQ(std::memcmp(a.ruleTables, b.ruleTables, 4353000), 0);
    EXPECT_EQ(a.changeCount, b.changeCount);
    EXPECT_EQ(std::memcmp(a.packageNames, b.packageNames, 30000), 0);
    EXPECT_EQ(a.sizeLimitInMb, b.sizeLimitInMb);
    EXPECT_EQ(std::memcmp(a.packageLevels, b.packageLevels, 750), 0);
}

unsigned long long now_in_milliseconds()
{
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const unsigned long long ticks = (static_cast<unsigned long long>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return (ticks - 116444736000000000ULL) / 10000;
}

std::string printed(const Kor_LogConf& conf)
{
    CapturedStream captured_out(stdout);
    conf.Print();
    captured_out.stop();
    return captured_out.text();
}

const char DASHES[] = "----------------------------------------------------\n"; // 52
} // namespace

TEST(ConfLayout, AnAddressHas28BytesAndEachFieldAtItsOffset)
{
    EXPECT_EQ(sizeof(IP_Structure), 28u);
    expect_places({
        {"family", offsetof(IP_Structure, family), 0},
        {"mask", offsetof(IP_Structure, mask), 4},
        {"address", offsetof(IP_Structure, address), 8},
        {"prefixBytes", offsetof(IP_Structure, prefixBytes), 24},
    });
    EXPECT_EQ(sizeof(IP_Structure::family), 4u);
    EXPECT_EQ(sizeof(IP_Structure::mask), 4u);
    EXPECT_EQ(sizeof(IP_Structure::address), 16u);
    EXPECT_EQ(sizeof(IP_Structure::prefixBytes), 1u);
}

TEST(ConfLayout, ARuleHas580BytesAndEachFieldAtItsOffset)
{
    EXPECT_EQ(sizeof(Kor_LogLevelRule), 580u);
    expect_places({
        {"ipCount", offsetof(Kor_LogLevelRule, ipCount), 0},
        {"serviceNameCount", offsetof(Kor_LogLevelRule, serviceNameCount), 4},
        {"processIdCount", offsetof(Kor_LogLevelRule, processIdCount), 8},
        {"sessionIdCount", offsetof(Kor_LogLevelRule, sessionIdCount), 12},
        {"ipAddresses", offsetof(Kor_LogLevelRule, ipAddresses), 16},
        {"processIds", offsetof(Kor_LogLevelRule, processIds), 296},
        {"sessionIds", offsetof(Kor_LogLevelRule, sessionIds), 336},
        {"serviceNames", offsetof(Kor_LogLevelRule, serviceNames), 376},
        {"logLevel", offsetof(Kor_LogLevelRule, logLevel), 576},
    });
    EXPECT_EQ(sizeof(Kor_LogLevelRule::ipAddresses), 280u);
    EXPECT_EQ(sizeof(Kor_LogLevelRule::processIds), 40u);
    EXPECT_EQ(sizeof(Kor_LogLevelRule::sessionIds), 40u);
    EXPECT_EQ(sizeof(Kor_LogLevelRule::serviceNames), 200u);
    EXPECT_EQ(sizeof(Kor_LogLevelRule::serviceNames[0]), 20u);
}

TEST(ConfLayout, ARuleTableHas5804BytesWithItsCountBehindTenRules)
{
    EXPECT_EQ(sizeof(Kor_LogLevelRuleTable), 5804u);
    expect_places({
        {"rules", offsetof(Kor_LogLevelRuleTable, rules), 0},
        {"ruleCount", offsetof(Kor_LogLevelRuleTable, ruleCount), 5800},
    });
    EXPECT_EQ(sizeof(Kor_LogLevelRuleTable::ruleCount), 4u);
}

TEST(ConfLayout, TheConfigurationHas4383776BytesAndEachFieldAtItsOffset)
{
    EXPECT_EQ(sizeof(Kor_LogConf), 4383776u);
    EXPECT_EQ(sizeof(Kor_LogConf), 0x42E420u);
    expect_places({
        {"output", offsetof(Kor_LogConf, output), 0},
        {"printToDebugger", offsetof(Kor_LogConf, printToDebugger), 4},
        {"ruleTables", offsetof(Kor_LogConf, ruleTables), 8},
        {"changeCount", offsetof(Kor_LogConf, changeCount), 4353008},
        {"packageNames", offsetof(Kor_LogConf, packageNames), 4353016},
        {"sizeLimitInMb", offsetof(Kor_LogConf, sizeLimitInMb), 4383016},
        {"packageLevels", offsetof(Kor_LogConf, packageLevels), 4383020},
    });
    EXPECT_EQ(sizeof(Kor_LogConf::output), 4u);
    EXPECT_EQ(sizeof(Kor_LogConf::printToDebugger), 1u);
    EXPECT_EQ(sizeof(Kor_LogConf::ruleTables), 4353000u);
    EXPECT_EQ(sizeof(Kor_LogConf::changeCount), 8u);
    EXPECT_EQ(sizeof(Kor_LogConf::packageNames), 30000u);
    EXPECT_EQ(sizeof(Kor_LogConf::sizeLimitInMb), 4u);
    EXPECT_EQ(sizeof(Kor_LogConf::packageLevels), 750u);
}

TEST(ConfLayout, AccessorsReachExactlyTheBytesThatOtherProcessesRead)
{
    auto conf = std::make_unique<Kor_LogConf>();
    const auto* const bytes = reinterpret_cast<const unsigned char*>(conf.get());
    const auto u32_at = [bytes](std::size_t offset)
    { return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 | bytes[offset + 3] << 24; };

    conf->SetOutput(Kor_LogConf::OUTPUT_PRIVATE_FILE);
    conf->SetPrintToDebugger(true);
    conf->SetChangeCount(0x0807060504030201ULL);
    conf->SetPackageName(3, "Net");
    conf->SetPackageName(749, "Last");
    conf->SetSizeLimitInMb(0x04030201);
    conf->SetPackageDefaultLogLevel(0, 1);
    conf->SetPackageDefaultLogLevel(749, 7);
    conf->GetRuleTable(749).AddRule("6;;;12");

    EXPECT_EQ(u32_at(0), 2);
    EXPECT_EQ(bytes[4], 1);
    EXPECT_EQ(std::memcmp(bytes + 4353008, "\1\2\3\4\5\6\7\10", 8), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes + 4353016 + 3 * 40), "Net");
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes + 4353016 + 749 * 40), "Last");
    EXPECT_EQ(u32_at(4383016), 0x04030201);
    EXPECT_EQ(bytes[4383020], 1);
    EXPECT_EQ(bytes[4383020 + 749], 7);
    const std::size_t table = 8 + 749 * 5804;
    EXPECT_EQ(u32_at(table + 8), 1);    // processIdCount
    EXPECT_EQ(u32_at(table + 296), 12); // first process id
    EXPECT_EQ(u32_at(table + 576), 6);  // logLevel
    EXPECT_EQ(u32_at(table + 5800), 1); // ruleCount
}

TEST(ConfLayout, AFreshAddressIsEmptyAndHasNoPrefix)
{
    const IP_Structure address;
    EXPECT_EQ(address.family, 0);
    EXPECT_EQ(address.mask, 0u);
    EXPECT_EQ(address.prefixBytes, -1);
    for (const std::uint8_t octet : address.address)
        EXPECT_EQ(octet, 0);
}

TEST(ConfLayout, AFreshRuleHasEmptyListsLevel4AndIsNotValid)
{
    const Kor_LogLevelRule rule;
    EXPECT_EQ(rule.ipCount, 0);
    EXPECT_EQ(rule.serviceNameCount, 0);
    EXPECT_EQ(rule.processIdCount, 0);
    EXPECT_EQ(rule.sessionIdCount, 0);
    EXPECT_EQ(rule.logLevel, 4);
    EXPECT_EQ(rule.LogLevel(), 4);
    EXPECT_FALSE(rule.IsValid());
    for (const IP_Structure& address : rule.ipAddresses)
    {
        EXPECT_EQ(address.family, 0);
        EXPECT_EQ(address.prefixBytes, -1);
    }
}

TEST(ConfLayout, InitEmptiesTheFourListsAndSetsLevel4)
{
    Kor_LogLevelRule rule("7;10.1.2.3;app.exe;12;3");
    ASSERT_EQ(rule.ipCount + rule.serviceNameCount + rule.processIdCount + rule.sessionIdCount, 4);
    rule.Init();
    EXPECT_EQ(rule.ipCount, 0);
    EXPECT_EQ(rule.serviceNameCount, 0);
    EXPECT_EQ(rule.processIdCount, 0);
    EXPECT_EQ(rule.sessionIdCount, 0);
    EXPECT_EQ(rule.LogLevel(), 4);
}

TEST(ConfLayout, AFreshRuleTableHasNoRulesAndEverySlotIsAFreshRule)
{
    const Kor_LogLevelRuleTable table;
    EXPECT_EQ(table.ruleCount, 0);
    EXPECT_FALSE(table.HasRules());
    for (const Kor_LogLevelRule& rule : table.rules)
    {
        EXPECT_EQ(rule.logLevel, 4);
        EXPECT_EQ(rule.ipCount, 0);
        EXPECT_EQ(rule.serviceNameCount, 0);
        EXPECT_EQ(rule.processIdCount, 0);
        EXPECT_EQ(rule.sessionIdCount, 0);
    }
}

TEST(ConfLayout, ClearForgetsTheRulesOfATable)
{
    Kor_LogLevelRuleTable table;
    ASSERT_TRUE(table.AddRule("7;;;1"));
    EXPECT_TRUE(table.HasRules());
    table.Clear();
    EXPECT_EQ(table.ruleCount, 0);
    EXPECT_FALSE(table.HasRules());
}

TEST(ConfLayout, ARuleIsValidWithAnEntryInAnyListAndALevelFrom1To7)
{
    struct Row
    {
        const char* name;
        int ip, service, process, session, level;
        bool valid;
    };
    const Row rows[] = {
        {"no list", 0, 0, 0, 0, 4, false},
        {"address", 1, 0, 0, 0, 4, true},
        {"application", 0, 1, 0, 0, 4, true},
        {"process id", 0, 0, 1, 0, 4, true},
        {"session id", 0, 0, 0, 1, 4, true},
        {"all", 1, 1, 1, 1, 4, true},
        {"level 0", 1, 0, 0, 0, 0, false},
        {"level 1", 1, 0, 0, 0, 1, true},
        {"level 7", 1, 0, 0, 0, 7, true},
        {"level 8", 1, 0, 0, 0, 8, false},
        {"negative level", 1, 0, 0, 0, -1, false},
        {"huge level", 1, 0, 0, 0, INT_MAX, false},
        {"negative counts", -1, -1, -1, -1, 4, false},
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRule rule;
        rule.ipCount = row.ip;
        rule.serviceNameCount = row.service;
        rule.processIdCount = row.process;
        rule.sessionIdCount = row.session;
        rule.logLevel = row.level;
        EXPECT_EQ(rule.IsValid(), row.valid) << row.name;
    }
}

TEST(ConfLayout, CopyingARecordCopiesAllItsBytes)
{
    const auto check = [](auto record, const char* name)
    {
        fill_with_pattern(static_cast<void*>(&record), sizeof record);
        const auto constructed(record);
        EXPECT_EQ(std::memcmp(&constructed, &record, sizeof record), 0) << name << " constructed";
        decltype(record) assigned;
        assigned = record;
        EXPECT_EQ(std::memcmp(&assigned, &record, sizeof record), 0) << name << " assigned";
    };
    check(IP_Structure(), "address");
    check(Kor_LogLevelRule(), "rule");
    check(Kor_LogLevelRuleTable(), "table");
}

TEST(ConfDefaults, AFreshConfigurationWritesToStandardErrorAtLevel4WithoutLimit)
{
    auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(conf->GetOutput(), 0);
    EXPECT_FALSE(conf->GetPrintToDebugger());
    EXPECT_EQ(conf->GetSizeLimitInMb(), 0);
    for (int package = 0; package < 750; ++package)
    {
        ASSERT_EQ(conf->GetPackageDefaultLogLevel(package), 4) << package;
        ASSERT_STREQ(conf->GetPackageName(package), "") << package;
        ASSERT_FALSE(conf->GetRuleTable(package).HasRules()) << package;
    }
}

TEST(ConfDefaults, AFreshConfigurationIsStampedWithThePresentTimeInMilliseconds)
{
    const unsigned long long before = now_in_milliseconds();
    auto conf = std::make_unique<Kor_LogConf>();
    const unsigned long long after = now_in_milliseconds();
    EXPECT_GE(conf->GetChangeCount(), before);
    EXPECT_LE(conf->GetChangeCount(), after);
}

TEST(ConfDefaults, GeneratingAChangeCountStampsThePresentTime)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetChangeCount(17);
    EXPECT_EQ(conf->GetChangeCount(), 17u);
    const unsigned long long before = now_in_milliseconds();
    conf->GenerateChangeCount();
    const unsigned long long after = now_in_milliseconds();
    EXPECT_GE(conf->GetChangeCount(), before);
    EXPECT_LE(conf->GetChangeCount(), after);
}

TEST(ConfDefaults, AThousandChangeCountsInARowAreAllDifferentFromTheOneBefore)
{
    auto conf = std::make_unique<Kor_LogConf>();
    for (int i = 0; i < 1000; ++i)
    {
        const unsigned long long before = conf->GetChangeCount();
        conf->GenerateChangeCount();
        ASSERT_NE(conf->GetChangeCount(), before);
    }
}

TEST(ConfDefaults, ACopyHoldsEveryFieldOfItsSourceChangeCountIncluded)
{
    const auto source = conf_with_pattern();
    const auto copy = std::make_unique<Kor_LogConf>(*source);
    expect_same_fields(*copy, *source);
}

TEST(ConfDefaults, AssignmentTakesOverEveryFieldChangeCountIncluded)
{
    const auto source = conf_with_pattern();
    auto target = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(&(*target = *source), target.get());
    expect_same_fields(*target, *source);
}

TEST(ConfDefaults, AssigningAConfigurationToItselfChangesNothing)
{
    const auto conf = conf_with_pattern();
    const auto before = std::make_unique<Kor_LogConf>(*conf);
    const Kor_LogConf& same = *conf;
    *conf = same;
    expect_same_fields(*conf, *before);
}

TEST(ConfAccessors, OutputKindsAreNumbered0To2)
{
    EXPECT_EQ(Kor_LogConf::OUTPUT_STDERR, 0);
    EXPECT_EQ(Kor_LogConf::OUTPUT_SYSLOG_FILE, 1);
    EXPECT_EQ(Kor_LogConf::OUTPUT_PRIVATE_FILE, 2);
    EXPECT_EQ(PACKAGE_RANGE, 10000);
    EXPECT_EQ(PACKAGE_COUNT, 750);
}

TEST(ConfAccessors, WhatIsSetIsReadBack)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetOutput(Kor_LogConf::OUTPUT_PRIVATE_FILE);
    EXPECT_EQ(conf->GetOutput(), 2);
    conf->SetOutput(Kor_LogConf::OUTPUT_SYSLOG_FILE);
    EXPECT_EQ(conf->GetOutput(), 1);
    conf->SetPrintToDebugger(true);
    EXPECT_TRUE(conf->GetPrintToDebugger());
    conf->SetPrintToDebugger(false);
    EXPECT_FALSE(conf->GetPrintToDebugger());
    conf->SetSizeLimitInMb(15);
    EXPECT_EQ(conf->GetSizeLimitInMb(), 15);
    conf->SetChangeCount(ULLONG_MAX);
    EXPECT_EQ(conf->GetChangeCount(), ULLONG_MAX);
}

TEST(ConfAccessors, SettingALevelReturnsTheOneBefore)
{
    auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(conf->SetPackageDefaultLogLevel(3, 7), 4);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 7);
    EXPECT_EQ(conf->SetPackageDefaultLogLevel(3, 1), 7);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(2), 4);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(4), 4);
}

TEST(ConfAccessors, PackageNumbersAreLegalFrom0To749)
{
    struct Row
    {
        int number;
        bool legal;
    };
    for (const Row& row :
         {Row{-1, false}, {0, true}, {1, true}, {749, true}, {750, false}, {INT_MAX, false}, {INT_MIN, false}})
        EXPECT_EQ(Kor_LogConf::IsPackageNoLegal(row.number), row.legal) << row.number;
}

TEST(ConfAccessors, AnIllegalPackageNumberNamesNoPackageAndChangesNothing)
{
    auto conf = conf_with_pattern();
    const auto before = std::make_unique<Kor_LogConf>(*conf);
    for (const int number : {-1, 750, 751, INT_MAX, INT_MIN})
    {
        EXPECT_EQ(conf->GetPackageName(number), nullptr) << number;
        conf->SetPackageName(number, "x");
        EXPECT_EQ(conf->SetPackageDefaultLogLevel(number, 7), 4) << number;
        EXPECT_EQ(conf->GetPackageDefaultLogLevel(number), 4) << number;
    }
    expect_same_fields(*conf, *before);
}

TEST(ConfAccessors, ANameOf39CharactersFitsItsSlot)
{
    auto conf = std::make_unique<Kor_LogConf>();
    const std::string name(39, 'n');
    CapturedStream captured_out(stdout);
    conf->SetPackageName(3, name.c_str());
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_STREQ(conf->GetPackageName(3), name.c_str());
    EXPECT_STREQ(conf->GetPackageName(4), "");
}

TEST(ConfAccessors, ANameOf40CharactersOrMoreIsCutTo39WithAWarning)
{
    for (const std::size_t length : {40u, 41u, 100u, 100000u})
    {
        auto conf = std::make_unique<Kor_LogConf>();
        conf->SetPackageName(4, "Next");
        CapturedStream captured_out(stdout);
        conf->SetPackageName(3, std::string(length, 'n').c_str());
        captured_out.stop();
        const std::string out = captured_out.text();
        EXPECT_EQ(out.rfind("Kor_LogFile - Warning - ", 0), 0u) << length << ": " << out;
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << length;
        EXPECT_STREQ(conf->GetPackageName(3), std::string(39, 'n').c_str()) << length;
        EXPECT_STREQ(conf->GetPackageName(4), "Next") << length;
    }
}

TEST(ConfAccessors, AnOverlongNameOfTheLastPackageLeavesTheSizeLimitAlone)
{
    auto conf = std::make_unique<Kor_LogConf>();
    CapturedStream captured_out(stdout);
    conf->SetPackageName(749, std::string(60, 'n').c_str());
    captured_out.stop();
    EXPECT_EQ(conf->GetSizeLimitInMb(), 0);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(0), 4);
}

TEST(ConfAccessors, AShorterNameReplacesALongerOne)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetPackageName(3, "Network");
    conf->SetPackageName(3, "Net");
    EXPECT_STREQ(conf->GetPackageName(3), "Net");
    conf->SetPackageName(3, "");
    EXPECT_STREQ(conf->GetPackageName(3), "");
}

TEST(ConfAccessors, AllLevelsAndAllNamesCanBeSetAtOnce)
{
    auto conf = std::make_unique<Kor_LogConf>();
    unsigned char levels[751];
    for (int i = 0; i < 751; ++i)
        levels[i] = static_cast<unsigned char>(i % 8);
    conf->SetPackages(levels);
    EXPECT_EQ(std::memcmp(conf->GetPackages(), levels, 750), 0);
    EXPECT_EQ(conf->GetPackages(), conf->packageLevels);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(749), 749 % 8);

    std::vector<char> names(30000, '\0');
    std::memcpy(names.data(), "First", 6);
    std::memcpy(names.data() + 749 * 40, "Last", 5);
    std::memcpy(names.data() + 749 * 40 + 36, "end", 4);
    conf->SetPackageNames(names.data());
    EXPECT_STREQ(conf->GetPackageName(0), "First");
    EXPECT_STREQ(conf->GetPackageName(749), "Last");
    EXPECT_EQ(std::memcmp(conf->packageNames, names.data(), 30000), 0); // the whole block, as it is
    EXPECT_EQ(conf->GetSizeLimitInMb(), 0);
}

TEST(ConfAccessors, EachPackageHasARuleTableOfItsOwn)
{
    auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(&conf->GetRuleTable(0), &conf->ruleTables[0]);
    EXPECT_EQ(&conf->GetRuleTable(749), &conf->ruleTables[749]);
    EXPECT_TRUE(conf->GetRuleTable(5).AddRule("7;;;1"));
    EXPECT_FALSE(conf->GetRuleTable(4).HasRules());
    EXPECT_TRUE(conf->GetRuleTable(5).HasRules());
    EXPECT_FALSE(conf->GetRuleTable(6).HasRules());
}

TEST(ConfPrint, AFreshConfigurationPrintsItsFrameAnd750UnusedPackages)
{
    const auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(
        printed(*conf),
        std::string(DASHES) + "output = 0\n" + "pckges err_lvl = \n" + DASHES + "Unused Packages: 750\n" + DASHES);
}

TEST(ConfPrint, EveryLineAfterANamedPackageStartsWithABlank)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetOutput(Kor_LogConf::OUTPUT_PRIVATE_FILE);
    conf->SetPackageName(3, "Net");
    conf->SetPackageDefaultLogLevel(3, 6);
    conf->SetPackageName(0, "Core");
    conf->SetPackageName(749, "Last");
    conf->SetPackageDefaultLogLevel(749, 255);
    conf->GetRuleTable(749).ParseRules("(7;10.0.0.0;app.exe)(5;;;12)");
    conf->GetRuleTable(8).ParseRules("(7;;;1)"); // a package without a name is only counted
    EXPECT_EQ(
        printed(*conf), std::string(DASHES) +
                            "output = 2\n"
                            "pckges err_lvl = \n"
                            "0-Core 4 \n"
                            " 3-Net 6 \n"
                            " 749-Last 255 [(7;10.0.0.0;app.exe)(5;;;12)]\n"
                            " " +
                            DASHES + "Unused Packages: 747\n" + DASHES);
}

TEST(ConfPrint, ANameWithoutATerminatorDoesNotRunIntoTheNext)
{
    auto conf = std::make_unique<Kor_LogConf>();
    std::memset(conf->packageNames, 'n', sizeof conf->packageNames);
    const std::string out = printed(*conf);
    EXPECT_EQ(out.find(std::string(41, 'n')), std::string::npos);
    EXPECT_NE(out.find("749-nnn"), std::string::npos);
    EXPECT_NE(out.find("Unused Packages: 0\n"), std::string::npos);
}

// The tools' table ----------------------------------------------------------------------------------

TEST(LoggerTable, ARowHas1060BytesAndEachFieldAtItsOffset)
{
    EXPECT_EQ(sizeof(LoggerTableEntry), 1060u);
    expect_places({
        {"flag", offsetof(LoggerTableEntry, flag), 0},
        {"index", offsetof(LoggerTableEntry, index), 4},
        {"name", offsetof(LoggerTableEntry, name), 8},
        {"defaultLogLevel", offsetof(LoggerTableEntry, defaultLogLevel), 52},
        {"rule", offsetof(LoggerTableEntry, rule), 56},
    });
    EXPECT_EQ(sizeof(LoggerTableEntry::name), 44u);
    EXPECT_EQ(sizeof(LoggerTableEntry::rule), 1004u);
}

TEST(LoggerTable, TheTableHasItsCountsBetweenTwoBlocksOf750Rows)
{
    expect_places({
        {"entries", offsetof(LoggerTable, entries), 0},
        {"tableEntries", offsetof(LoggerTable, tableEntries), 795000},
        {"lastEntryIndex", offsetof(LoggerTable, lastEntryIndex), 795004},
        {"output", offsetof(LoggerTable, output), 795008},
        {"second block", offsetof(LoggerTable, reserve), 795012},
    });
    EXPECT_EQ(sizeof(LoggerTable), 1590012u);
}

TEST(LoggerTable, ANewRowClearsItsFlagAndNothingElse)
{
    alignas(LoggerTableEntry) static unsigned char storage[sizeof(LoggerTableEntry)];
    volatile unsigned char* const bytes = storage; // the row is built over what was there
    for (std::size_t i = 0; i < sizeof storage; ++i)
        bytes[i] = 0x41;
    const auto* const row = new (storage) LoggerTableEntry();
    EXPECT_FALSE(row->flag);
    EXPECT_EQ(row->index, 0x41414141);
    EXPECT_EQ(row->name[0], 'A');
    EXPECT_EQ(row->defaultLogLevel, 0x41414141);
    EXPECT_EQ(row->rule[1003], 'A');
}

TEST(LoggerTable, ARowMadeFromValuesDoesNotTakeTheRuleText)
{
    alignas(LoggerTableEntry) static unsigned char storage[sizeof(LoggerTableEntry)];
    volatile unsigned char* const bytes = storage;
    for (std::size_t i = 0; i < sizeof storage; ++i)
        bytes[i] = 0x41;
    const auto* const row = new (storage) LoggerTableEntry(5, "Net", 6, "(7;;;1)");
    EXPECT_FALSE(row->flag);
    EXPECT_EQ(row->Index(), 5);
    EXPECT_STREQ(row->Name(), "Net");
    EXPECT_EQ(row->DefaultLogLevel(), 6);
    EXPECT_EQ(std::string(row->rule, sizeof row->rule), std::string(1004, 'A'));
}

TEST(LoggerTable, RowAccessorsReadBackWhatWasSet)
{
    LoggerTableEntry row(1, "a", 2, "");
    row.SetIndex(7);
    row.SetName("Net");
    row.SetDefaultLogLevel(5);
    row.SetRule("[(7;;;1)]");
    EXPECT_EQ(row.Index(), 7);
    EXPECT_STREQ(row.Name(), "Net");
    EXPECT_EQ(row.DefaultLogLevel(), 5);
    EXPECT_STREQ(row.GetRule(), "[(7;;;1)]");
    row.SetFlag();
    EXPECT_TRUE(row.flag);
    row.ResetFlag();
    EXPECT_FALSE(row.flag);
}

TEST(LoggerTable, AssigningARowLeavesTheFlagAlone)
{
    for (const bool flag : {false, true})
    {
        LoggerTableEntry source(5, "Net", 6, "");
        source.SetRule("(7;;;1)");
        LoggerTableEntry target(1, "Other", 2, "");
        target.SetRule("");
        source.flag = !flag;
        target.flag = flag;
        target = source;
        EXPECT_EQ(target.Index(), 5);
        EXPECT_STREQ(target.Name(), "Net");
        EXPECT_EQ(target.DefaultLogLevel(), 6);
        EXPECT_STREQ(target.GetRule(), "(7;;;1)");
        EXPECT_EQ(target.flag, flag);
    }
}

TEST(LoggerTable, OverlongTextsAreCutAtTheirField)
{
    LoggerTableEntry rows[2] = {LoggerTableEntry(1, "a", 2, ""), LoggerTableEntry(3, "b", 4, "")};
    rows[1].SetRule("next");
    rows[1].SetFlag();
    rows[0].SetName(std::string(43, 'n').c_str());
    EXPECT_EQ(rows[0].Name(), std::string(43, 'n'));
    rows[0].SetRule(std::string(1003, 'r').c_str());
    EXPECT_EQ(rows[0].GetRule(), std::string(1003, 'r'));

    rows[0].SetName(std::string(5000, 'm').c_str());
    rows[0].SetRule(std::string(5000, 's').c_str());

    EXPECT_EQ(rows[0].Name(), std::string(43, 'm'));
    EXPECT_EQ(rows[0].GetRule(), std::string(1003, 's'));
    EXPECT_EQ(rows[0].DefaultLogLevel(), 2);
    EXPECT_TRUE(rows[1].flag);
    EXPECT_EQ(rows[1].Index(), 3);
    EXPECT_STREQ(rows[1].GetRule(), "next");

    const LoggerTableEntry made(9, std::string(5000, 'k').c_str(), 1, "");
    EXPECT_EQ(made.Name(), std::string(43, 'k'));
    EXPECT_EQ(made.DefaultLogLevel(), 1);
}

TEST(LoggerTable, ComparisonsByNumberAreDifferences)
{
    const LoggerTableEntry a(3, "a", 7, ""), b(10, "b", 2, "");
    const LoggerTableEntry* const pa = &a;
    const LoggerTableEntry* const pb = &b;
    EXPECT_EQ(LoggerTableEntry::CompareByIndex(&pa, &pb), -7);
    EXPECT_EQ(LoggerTableEntry::CompareByIndex(&pb, &pa), 7);
    EXPECT_EQ(LoggerTableEntry::CompareByIndex(&pa, &pa), 0);
    EXPECT_EQ(LoggerTableEntry::CompareByLevel(&pa, &pb), 5);
    EXPECT_EQ(LoggerTableEntry::CompareByLevel(&pb, &pa), -5);
}

TEST(LoggerTable, NamesCompareByteByByteAsUnsignedBytes)
{
    struct Row
    {
        const char* first;
        const char* second;
        int result;
    };
    const Row rows[] = {
        {"Abc", "abc", -1}, {"abc", "Abc", 1}, {"abc", "abc", 0},    {"ab", "abc", -1}, {"abc", "ab", 1},
        {"", "", 0},        {"", "a", -1},     {"Z", "a", -1},       {"\xE9", "z", 1},  {"z", "\xE9", -1},
        {"a1", "a2", -1},   {"b", "aaaa", 1},  {"\x7F", "\x80", -1},
    };
    for (const Row& row : rows)
    {
        const LoggerTableEntry first(1, row.first, 1, ""), second(2, row.second, 1, "");
        const LoggerTableEntry* const pf = &first;
        const LoggerTableEntry* const ps = &second;
        EXPECT_EQ(LoggerTableEntry::CompareByName(&pf, &ps), row.result) << row.first << " and " << row.second;
    }
}

TEST(LoggerTable, QsortOrdersPointersToRowsByEachComparison)
{
    const LoggerTableEntry rows[] = {
        LoggerTableEntry(9, "abc", 1, ""), LoggerTableEntry(2, "Abc", 7, ""), LoggerTableEntry(5, "abb", 4, "")};
    const auto sorted = [&rows](int (*compare)(const void*, const void*))
    {
        const LoggerTableEntry* pointers[] = {&rows[0], &rows[1], &rows[2]};
        std::qsort(pointers, 3, sizeof pointers[0], compare);
        return std::vector<int>{pointers[0]->Index(), pointers[1]->Index(), pointers[2]->Index()};
    };
    EXPECT_EQ(sorted(&LoggerTableEntry::CompareByIndex), (std::vector<int>{2, 5, 9}));
    EXPECT_EQ(sorted(&LoggerTableEntry::CompareByLevel), (std::vector<int>{9, 5, 2}));
    EXPECT_EQ(sorted(&LoggerTableEntry::CompareByName), (std::vector<int>{2, 5, 9}));
}

TEST(LoggerTable, AFreshTableIsEmpty)
{
    const auto table = std::make_unique<LoggerTable>();
    EXPECT_EQ(table->GetTableEntries(), 0);
    EXPECT_EQ(table->GetLastEntryIndex(), -1);
    for (const LoggerTableEntry& row : table->entries)
        ASSERT_FALSE(row.flag);
    for (const LoggerTableEntry& row : table->reserve)
        ASSERT_FALSE(row.flag);
}

TEST(LoggerTable, AnAddedRowHoldsAllFourValuesRuleIncluded)
{
    auto table = std::make_unique<LoggerTable>();
    char net[] = "Net", core[] = "Core", rule[] = "[(7;;;1)]", none[] = "";
    table->AddEntry(3, net, 6, rule);
    EXPECT_EQ(table->GetTableEntries(), 1);
    EXPECT_EQ(table->GetLastEntryIndex(), 0);
    table->AddEntry(0, core, 4, none);
    EXPECT_EQ(table->GetTableEntries(), 2);
    EXPECT_EQ(table->GetLastEntryIndex(), 1);
    EXPECT_EQ(table->entries[0].Index(), 3);
    EXPECT_STREQ(table->entries[0].Name(), "Net");
    EXPECT_EQ(table->entries[0].DefaultLogLevel(), 6);
    EXPECT_STREQ(table->entries[0].GetRule(), "[(7;;;1)]");
    EXPECT_EQ(table->entries[1].Index(), 0);
    EXPECT_STREQ(table->entries[1].Name(), "Core");
    EXPECT_STREQ(table->entries[1].GetRule(), "");
}

TEST(LoggerTable, TheOutputKindHas16Bits)
{
    auto table = std::make_unique<LoggerTable>();
    table->SetOutput(2);
    EXPECT_EQ(table->GetOutput(), 2);
    table->SetOutput(-1);
    EXPECT_EQ(table->GetOutput(), -1);
    EXPECT_EQ(sizeof table->output, 2u);
}

TEST(LoggerTable, AFullTableStaysAsItIs)
{
    auto table = std::make_unique<LoggerTable>();
    char name[] = "row", late[] = "late", rule[] = "";
    table->SetOutput(2);
    for (int i = 0; i < 750; ++i)
        table->AddEntry(i, name, 4, rule);
    ASSERT_EQ(table->GetTableEntries(), 750);
    ASSERT_EQ(table->GetLastEntryIndex(), 749);
    std::vector<unsigned char> before(sizeof *table);
    std::memcpy(before.data(), table.get(), before.size());

    table->AddEntry(750, late, 7, rule);

    EXPECT_EQ(std::memcmp(before.data(), table.get(), before.size()), 0);
}

TEST(LoggerTable, AnAddedRowCutsOverlongTexts)
{
    auto table = std::make_unique<LoggerTable>();
    std::string name(3000, 'n'), rule(3000, 'r');
    table->AddEntry(3, name.data(), 6, rule.data());
    EXPECT_EQ(table->entries[0].Name(), std::string(43, 'n'));
    EXPECT_EQ(table->entries[0].GetRule(), std::string(1003, 'r'));
    EXPECT_EQ(table->entries[0].DefaultLogLevel(), 6);
    EXPECT_FALSE(table->entries[1].flag);
}

TEST(LoggerTable, ACopyOfATableHoldsTheSameRows)
{
    auto source = std::make_unique<LoggerTable>();
    char net[] = "Net", rule[] = "(7;;;1)";
    source->AddEntry(3, net, 6, rule);
    source->SetOutput(1);
    const auto copy = std::make_unique<LoggerTable>(*source);
    EXPECT_EQ(copy->GetTableEntries(), 1);
    EXPECT_EQ(copy->GetLastEntryIndex(), 0);
    EXPECT_EQ(copy->GetOutput(), 1);
    EXPECT_EQ(copy->entries[0].Index(), 3);
    EXPECT_STREQ(copy->entries[0].Name(), "Net");
    EXPECT_STREQ(copy->entries[0].GetRule(), "(7;;;1)");
}

TEST(LoggerTable, AssigningATableCopiesBothBlocksTheCountsAndTheOutput)
{
    auto source = std::make_unique<LoggerTable>();
    char net[] = "Net", rule[] = "(7;;;1)";
    source->AddEntry(3, net, 6, rule);
    source->SetOutput(2);
    source->reserve[749].SetIndex(11);
    source->reserve[749].SetName("spare");
    source->entries[0].SetFlag();
    auto target = std::make_unique<LoggerTable>();
    EXPECT_EQ(&(*target = *source), target.get());
    EXPECT_EQ(target->GetTableEntries(), 1);
    EXPECT_EQ(target->GetLastEntryIndex(), 0);
    EXPECT_EQ(target->GetOutput(), 2);
    EXPECT_EQ(target->entries[0].Index(), 3);
    EXPECT_STREQ(target->entries[0].Name(), "Net");
    EXPECT_STREQ(target->entries[0].GetRule(), "(7;;;1)");
    EXPECT_FALSE(target->entries[0].flag); // row by row, and rows leave flags alone
    EXPECT_EQ(target->reserve[749].Index(), 11);
    EXPECT_STREQ(target->reserve[749].Name(), "spare");
}
