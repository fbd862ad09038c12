// conf_file_test.cpp - reading the `logger` file: its grammar line by line, and what files may hold besides.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "child.h"
#include "environment.h"
#include "log_lines.h"
#include "temp_directory.h"

namespace
{
/// A configuration as it stood before reading: nothing in it has its default value.
std::unique_ptr<Kor_LogConf> used_conf()
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetOutput(Kor_LogConf::OUTPUT_PRIVATE_FILE);
    conf->SetSizeLimitInMb(77);
    conf->SetPackageName(3, "Before");
    conf->GetRuleTable(3).AddRule("6;;before");
    for (int package = 0; package < 750; ++package)
        conf->SetPackageDefaultLogLevel(package, 7);
    return conf;
}

struct Reading
{
    int result = 0;
    std::string out;
    std::unique_ptr<Kor_LogConf> conf;
};

/// What a file of these bytes makes of a configuration.
Reading read_into(std::unique_ptr<Kor_LogConf> conf, const std::string& bytes)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    EXPECT_TRUE(write_file(path, bytes));
    Reading reading;
    reading.conf = std::move(conf);
    CapturedStream captured_out(stdout);
    reading.result = Kor_LogFile::ReadFile(path.c_str(), *reading.conf);
    captured_out.stop();
    reading.out = captured_out.text();
    return reading;
}

Reading read_bytes(const std::string& bytes) { return read_into(std::make_unique<Kor_LogConf>(), bytes); }

/// Section 1 with nothing special in it, so that what follows are package lines.
const std::string HEAD = "2\nfile_size_limit_in_mb=15\n";

std::string rules_of(const Reading& reading, int package)
{
    return reading.conf->GetRuleTable(package).ToString().data();
}

int level_of(const Reading& reading, int package) { return reading.conf->GetPackageDefaultLogLevel(package); }

/// All levels but those of the given packages are 4.
void expect_level_4_elsewhere(const Reading& reading, const std::vector<int>& packages)
{
    for (int package = 0; package < 750; ++package)
    {
        const bool named = std::find(packages.begin(), packages.end(), package) != packages.end();
        ASSERT_TRUE(named || level_of(reading, package) == 4) << package;
    }
}
void expect_warnings_only_if(bool allowed, const std::string& out)
{
    EXPECT_TRUE(allowed || out.empty()) << out;
    for (const std::string& line : lines_of(out))
        EXPECT_EQ(line.rfind("Kor_LogFile - Warning - ", 0), 0u) << line;
}
} // namespace

// The sections --------------------------------------------------------------------------------------

TEST(ConfFile, OutputSizeLimitAndPackagesAreRead)
{
    const Reading reading = read_bytes("2\nfile_size_limit_in_mb=15\nNet 3 7\n");
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.out, "");
    EXPECT_EQ(reading.conf->GetOutput(), 2);
    EXPECT_FALSE(reading.conf->GetPrintToDebugger());
    EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 15);
    EXPECT_STREQ(reading.conf->GetPackageName(3), "Net");
    EXPECT_EQ(level_of(reading, 3), 7);
    EXPECT_FALSE(reading.conf->GetRuleTable(3).HasRules());
    expect_level_4_elsewhere(reading, {3});
}

TEST(ConfFile, CommentsAloneLeaveOutputAndSizeLimitAndSetEveryLevelTo4)
{
    for (const char* text : {"# a\n! b\n#\n!\n", "", "#", "!"})
    {
        auto conf = used_conf();
        conf->SetPrintToDebugger(true);
        const Reading reading = read_into(std::move(conf), text);
        EXPECT_EQ(reading.result, 0) << text;
        EXPECT_EQ(reading.conf->GetOutput(), 2) << text;
        EXPECT_TRUE(reading.conf->GetPrintToDebugger()) << text;
        EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 77) << text;
        expect_level_4_elsewhere(reading, {});
    }
}

TEST(ConfFile, PackagesThatNoLineNamesGetLevel4AndKeepTheirNamesAndRules)
{
    const Reading reading = read_into(used_conf(), HEAD + "Net 5 6\n");
    EXPECT_EQ(level_of(reading, 5), 6);
    expect_level_4_elsewhere(reading, {5});
    EXPECT_STREQ(reading.conf->GetPackageName(3), "Before");
    EXPECT_EQ(rules_of(reading, 3), "[(6;;before)]");
}

TEST(ConfFile, TheOutputLineIsANumberAndEverythingBut0To3MeansTheEventLog)
{
    struct Row
    {
        const char* line;
        int output;
        bool debugger;
    };
    const Row rows[] = {
        {"0", 0, false},          {"1", 1, false},    {"2", 2, false},   {"3", 2, true},
        {"4", 1, false},          {"99", 1, false},   {"-1", 1, false},  {"-3", 1, false},
        {"text", 0, false},       {"", 0, false},     {" ", 0, false},   {"2 trailing", 2, false},
        {" 2", 2, false},         {"\t3", 2, true},   {"+2", 2, false},  {"02", 2, false},
        {"0x2", 0, false},        {"3x", 2, true},    {"2.9", 2, false}, {"99999999999", 1, false},
        {"4294967298", 1, false}, {" # 2", 0, false}, {"--2", 0, false},
    };
    for (const Row& row : rows)
    {
        auto conf = used_conf();
        conf->SetPrintToDebugger(!row.debugger);
        conf->SetOutput(row.output == 1 ? Kor_LogConf::OUTPUT_STDERR : Kor_LogConf::OUTPUT_SYSLOG_FILE);
        const Reading reading =
            read_into(std::move(conf), std::string(row.line) + "\nfile_size_limit_in_mb=15\nNet 3 7\n");
        EXPECT_EQ(reading.conf->GetOutput(), row.output) << '"' << row.line << '"';
        EXPECT_EQ(reading.conf->GetPrintToDebugger(), row.debugger) << '"' << row.line << '"';
        EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 15) << '"' << row.line << '"';
        EXPECT_EQ(level_of(reading, 3), 7) << '"' << row.line << '"';
        EXPECT_EQ(reading.out, "") << '"' << row.line << '"';
    }
}

TEST(ConfFile, CommentsInFrontOfTheOutputLineAreSkipped)
{
    const Reading reading = read_bytes("# 1\n!1\n#\n2\nfile_size_limit_in_mb=15\n");
    EXPECT_EQ(reading.conf->GetOutput(), 2);
    EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 15);
}

TEST(ConfFile, TheSizeLimitIsWhatStandsBehindItsExactPrefix)
{
    struct Row
    {
        const char* line;
        int limit;
        bool beyond = false; // more than the 32 unsigned bits it is kept in: may be warned about
    };
    const Row rows[] = {
        {"file_size_limit_in_mb=15", 15},
        {"file_size_limit_in_mb=0", 0},
        {"file_size_limit_in_mb=15 // comment", 15},
        {"file_size_limit_in_mb=15x", 15},
        {"file_size_limit_in_mb= 15", 15},
        {"file_size_limit_in_mb=+15", 15},
        {"file_size_limit_in_mb=015", 15},
        {"file_size_limit_in_mb=", 0},
        {"file_size_limit_in_mb=abc", 0},
        {"file_size_limit_in_mb==15", 0},
        {"file_size_limit_in_mb=0x10", 0},
        {"file_size_limit_in_mb=-1", -1},
        {"file_size_limit_in_mb=2147483647", INT_MAX},
        {"file_size_limit_in_mb=4294967295", -1},
        {"file_size_limit_in_mb=4294967297", 1, true},
        {"file_size_limit_in_mb=1152921504606846991", 15, true}, // 2^60 + 15, 19 characters
        {"file_size_limit_in_mb=0000000000000000015", 15},
        {"file_size_limit_in_mb=00000000000000000155", 15}, // the 20th character does not count
        {"file_size_limit_in_mb=000000000000000001559999", 15},
        {"file_size_limit_in_mb=00000000000000000009", 0},
        {"file_size_limit_in_mb=9223372036854775807", -1, true},
        {"file_size_limit_in_mb=9999999999999999999", -1, true}, // more than 64 bits hold: the largest number
        {"FILE_SIZE_LIMIT_IN_MB=15", 0},
        {"File_size_limit_in_mb=15", 0},
        {"file_size_limit_in_mb =15", 0},
        {" file_size_limit_in_mb=15", 0},
        {"file_size_limit_in_mb 15", 0},
        {"file_size_limit_in_m=15", 0},
        {"file_size_limit", 0},
        {"", 0},
        {"# comment", 0},
        {"#file_size_limit_in_mb=15", 0},
        {"! comment", 0},
        {"15", 0},
    };
    for (const Row& row : rows)
    {
        const Reading reading = read_into(used_conf(), std::string("2\n") + row.line + "\nNet 5 6\n");
        EXPECT_EQ(reading.conf->GetSizeLimitInMb(), row.limit) << row.line;
        EXPECT_EQ(level_of(reading, 5), 6) << row.line;
        expect_warnings_only_if(row.beyond, reading.out);
    }
}

TEST(ConfFile, APackageLineDirectlyBehindTheOutputIsDropped)
{
    const Reading reading = read_bytes("1\nNet 3 7\nCore 4 6\n");
    EXPECT_EQ(reading.conf->GetOutput(), 1);
    EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 0);
    EXPECT_STREQ(reading.conf->GetPackageName(3), "");
    EXPECT_EQ(level_of(reading, 3), 4);
    EXPECT_STREQ(reading.conf->GetPackageName(4), "Core");
    EXPECT_EQ(level_of(reading, 4), 6);
}

TEST(ConfFile, ASizeLimitBehindACommentComesTooLate)
{
    const Reading reading = read_into(used_conf(), "2\n# limit\nfile_size_limit_in_mb=15\nNet 5 6\n");
    EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 0);
    EXPECT_EQ(level_of(reading, 5), 6);
}

TEST(ConfFile, ASecondNumberLineIsNotAnOutputLine)
{
    const Reading reading = read_bytes(HEAD + "Net 3 7\n1\nfile_size_limit_in_mb=99\n");
    EXPECT_EQ(reading.conf->GetOutput(), 2);
    EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 15);
}

// Package lines -------------------------------------------------------------------------------------

TEST(ConfFile, APackageLineIsANameANumberALevelAndRules)
{
    struct Row
    {
        const char* line;
        const char* name;
        int level;
        const char* rules;
        bool beyond = false; // more than a byte holds: may be warned about
    };
    const Row rows[] = {
        {"Net 3 7", "Net", 7, ""},
        {"Net\t3\t7", "Net", 7, ""},
        {"   Net   3   7   ", "Net", 7, ""},
        {"Net 03 07", "Net", 7, ""},
        {"Net +3 +7", "Net", 7, ""},
        {"3 3 7", "3", 7, ""},
        {"N#t 3 7", "N#t", 7, ""},
        {"Net 3 0", "Net", 0, ""},
        {"Net 3 8", "Net", 8, ""},
        {"Net 3 255", "Net", 255, ""},
        {"Net 3 256", "Net", 0, "", true},
        {"Net 3 263", "Net", 7, "", true},
        {"Net 3 -1", "Net", 255, "", true},
        {"Net 3 7x", "Net", 7, ""},
        {"Net 3 7 //x", "Net", 7, ""},
        {"Net 3 7 // net [(6;;a)]", "Net", 7, ""},
        {"Net 3 7 x [(6;;a)]", "Net", 7, ""},
        {"Net 3 7 [(6;;a)]", "Net", 7, "[(6;;a)]"},
        {"Net 3 7[(6;;a)]", "Net", 7, "[(6;;a)]"},
        {"Net 3 7   [(6;;a)]", "Net", 7, "[(6;;a)]"},
        {"Net 3 7\t[(6;;a)]", "Net", 7, "[(6;;a)]"},
        {"Net 3 7 [ (6;;a)]", "Net", 7, "[(6;;a)]"},
        {"Net 3 7 [(6;;a)(5;;;1)] // comment", "Net", 7, "[(6;;a)(5;;;1)]"},
        {"Net 3 7 [(6;;a)", "Net", 7, "[(6;;a)]"},
        {"Net 3 7 [(6;;a) (5;;b)]", "Net", 7, "[(6;;a)]"}, // one word only
        {"Net 3 7 [(6;;a b)]", "Net", 7, ""},
        {"Net 3 7 [(9;;a)]", "Net", 7, ""},
        {"Net 3 7 (6;;a)", "Net", 7, ""},
        {"Net 3 7 [", "Net", 7, ""},
        {"Net 3 7 []", "Net", 7, ""},
        {"Net 3 7 [(rule)]", "Net", 7, ""}, // in parentheses, but not a rule
    };
    for (const Row& row : rows)
    {
        const Reading reading = read_bytes(HEAD + row.line + "\n");
        EXPECT_STREQ(reading.conf->GetPackageName(3), row.name) << row.line;
        EXPECT_EQ(level_of(reading, 3), row.level) << row.line;
        EXPECT_EQ(rules_of(reading, 3), row.rules) << row.line;
        expect_level_4_elsewhere(reading, {3});
        expect_warnings_only_if(row.beyond, reading.out);
    }
}

TEST(ConfFile, ALineWithoutNumberOrLevelReusesThoseOfTheLineBefore)
{
    const Reading reading = read_bytes(HEAD + "A 1 5\nB 2\nC\nD 3 x\nE x\n");
    EXPECT_STREQ(reading.conf->GetPackageName(1), "A");
    EXPECT_EQ(level_of(reading, 1), 5);
    EXPECT_STREQ(reading.conf->GetPackageName(2), "C"); // named by B, then by C
    EXPECT_EQ(level_of(reading, 2), 5);
    EXPECT_STREQ(reading.conf->GetPackageName(3), "E"); // named by D, then by E
    EXPECT_EQ(level_of(reading, 3), 5);
    expect_level_4_elsewhere(reading, {1, 2, 3});
}

TEST(ConfFile, ALineWithoutNumberReusesOneThatWasOutOfRangeToo)
{
    const Reading reading = read_bytes(HEAD + "A 1 5\nB 800 6\nC\nD 2\n");
    EXPECT_EQ(
        reading.out, "Kor_LogFile - warning: package 800 index out of range 0-750\n"
                     "Kor_LogFile - warning: package 800 index out of range 0-750\n");
    EXPECT_STREQ(reading.conf->GetPackageName(1), "A");
    EXPECT_EQ(level_of(reading, 1), 5);
    EXPECT_EQ(level_of(reading, 2), 6);
}

TEST(ConfFile, RulesAreNotReusedByLaterLines)
{
    const Reading reading = read_bytes(HEAD + "A 1 5 [(6;;a)]\nB 2 5\nC 4\n");
    EXPECT_EQ(rules_of(reading, 1), "[(6;;a)]");
    EXPECT_EQ(rules_of(reading, 2), "");
    EXPECT_EQ(rules_of(reading, 4), "");
}

TEST(ConfFile, AnEmptyLineAmongThePackagesChangesNothing)
{
    const Reading reading = read_bytes(HEAD + "A 1 5 [(6;;a)]\n\n   \nB 2 6\n\n");
    EXPECT_STREQ(reading.conf->GetPackageName(1), "A");
    EXPECT_EQ(level_of(reading, 1), 5);
    EXPECT_EQ(rules_of(reading, 1), "[(6;;a)]");
    EXPECT_STREQ(reading.conf->GetPackageName(2), "B");
    EXPECT_EQ(level_of(reading, 2), 6);
    expect_level_4_elsewhere(reading, {1, 2});
}

TEST(ConfFile, ALaterLineForAPackageReplacesTheEarlierOne)
{
    const Reading reading = read_bytes(HEAD + "A 1 5 [(6;;a)]\nB 1 3\nC 1 2 [(7;;c)]\n");
    EXPECT_STREQ(reading.conf->GetPackageName(1), "C");
    EXPECT_EQ(level_of(reading, 1), 2);
    EXPECT_EQ(rules_of(reading, 1), "[(7;;c)]");
}

TEST(ConfFile, ALineWithoutRulesLeavesTheRulesOfItsPackage)
{
    EXPECT_EQ(rules_of(read_into(used_conf(), HEAD + "Net 3 7\n"), 3), "[(6;;before)]");
    EXPECT_EQ(rules_of(read_into(used_conf(), HEAD + "Net 3 7 [\n"), 3), "[(6;;before)]");
    EXPECT_EQ(rules_of(read_into(used_conf(), HEAD + "Net 3 7 []\n"), 3), ""); // the word is "]": no rules
    EXPECT_EQ(rules_of(read_into(used_conf(), HEAD + "Net 3 7 [(9;;x)]\n"), 3), "");
}

TEST(ConfFile, CommentLinesAmongThePackagesAreSkipped)
{
    const Reading reading = read_bytes(HEAD + "#A 1 5\n!B 2 5\nC 3 5\n!\n");
    EXPECT_STREQ(reading.conf->GetPackageName(1), "");
    EXPECT_STREQ(reading.conf->GetPackageName(2), "");
    EXPECT_STREQ(reading.conf->GetPackageName(3), "C");
    expect_level_4_elsewhere(reading, {3});
}

TEST(ConfFile, AnExclamationMarkDoesNotEndTheFile) { EXPECT_EQ(level_of(read_bytes(HEAD + "!\nC 3 5\n"), 3), 5); }

TEST(ConfFile, ANumberOutOfRangeIsReportedWith750AsTheBoundAndSkipped)
{
    struct Row
    {
        const char* line;
        const char* out;
    };
    const Row rows[] = {
        {"Net 750 5", "Kor_LogFile - warning: package 750 index out of range 0-750\n"},
        {"Net -1 5", "Kor_LogFile - warning: package -1 index out of range 0-750\n"},
        {"Net 751 5", "Kor_LogFile - warning: package 751 index out of range 0-750\n"},
        {"Net 2147483647 5 [(7;;a)]", "Kor_LogFile - warning: package 2147483647 index out of range 0-750\n"},
        {"Net -2147483648 5", "Kor_LogFile - warning: package -2147483648 index out of range 0-750\n"},
    };
    for (const Row& row : rows)
    {
        const Reading reading = read_bytes(HEAD + "A 0 1\n" + row.line + "\nZ 749 6\n");
        EXPECT_EQ(reading.out, row.out) << row.line;
        EXPECT_EQ(reading.result, 0) << row.line;
        EXPECT_EQ(level_of(reading, 0), 1) << row.line;
        EXPECT_EQ(level_of(reading, 749), 6) << row.line;
        EXPECT_STREQ(reading.conf->GetPackageName(749), "Z") << row.line;
        expect_level_4_elsewhere(reading, {0, 749});
    }
}

TEST(ConfFile, AnOverlongNameIsCutWithAWarningAndTheRestCounts)
{
    for (const std::size_t length : {40u, 41u, 60u, 150u})
    {
        const Reading reading = read_bytes(HEAD + std::string(length, 'n') + " 3 7 [(6;;a)]\nAfter 4 6\n");
        EXPECT_EQ(reading.out.rfind("Kor_LogFile - Warning - ", 0), 0u) << reading.out;
        EXPECT_EQ(std::count(reading.out.begin(), reading.out.end(), '\n'), 1) << reading.out;
        EXPECT_STREQ(reading.conf->GetPackageName(3), std::string(39, 'n').c_str());
        EXPECT_EQ(level_of(reading, 3), 7);
        EXPECT_EQ(rules_of(reading, 3), "[(6;;a)]");
        EXPECT_STREQ(reading.conf->GetPackageName(4), "After");
        EXPECT_EQ(level_of(reading, 4), 6);
    }
}

TEST(ConfFile, ANameOf39CharactersIsKeptWhole)
{
    const Reading reading = read_bytes(HEAD + std::string(39, 'n') + " 3 7\n");
    EXPECT_EQ(reading.out, "");
    EXPECT_STREQ(reading.conf->GetPackageName(3), std::string(39, 'n').c_str());
}

TEST(ConfFile, OverlongListsInRulesAreCutWithAWarningAndTheRestCounts)
{
    const Reading reading =
        read_bytes(HEAD + "Net 3 7 [(6;;;1,2,3,4,5,6,7,8,9,10,11)(5;;a-name-of-more-than-20-bytes)]\nAfter 4 6\n");
    EXPECT_EQ(std::count(reading.out.begin(), reading.out.end(), '\n'), 2) << reading.out;
    for (const std::string& line : lines_of(reading.out))
        EXPECT_EQ(line.rfind("Kor_LogFile - Warning - ", 0), 0u) << line;
    EXPECT_EQ(rules_of(reading, 3), "[(6;;;1,2,3,4,5,6,7,8,9,10)(5;;a-name-of-more-than)]");
    EXPECT_EQ(level_of(reading, 4), 6);
}

TEST(ConfFile, AnEleventhRuleOfALineIsLeftOutWithAWarning)
{
    std::string rules;
    for (int i = 0; i < 11; ++i)
        rules += "(7;;" + std::string(1, static_cast<char>('a' + i)) + ')';
    const Reading reading = read_bytes(HEAD + "Net 3 7 [" + rules + "]\nAfter 4 6\n");
    EXPECT_EQ(reading.out.rfind("Kor_LogFile - Warning - ", 0), 0u) << reading.out;
    EXPECT_EQ(reading.conf->GetRuleTable(3).ruleCount, 10);
    EXPECT_FALSE(reading.conf->GetRuleTable(4).HasRules());
    EXPECT_EQ(level_of(reading, 4), 6);
}

// Lines and bytes -----------------------------------------------------------------------------------

TEST(ConfFile, ALineOf199CharactersIsReadAndALongerOneEndsTheReading)
{
    for (const std::size_t length : {198u, 199u, 200u, 201u, 400u, 100000u})
    {
        const bool fits = length < 200;
        const Reading reading = read_bytes(HEAD + "A 1 5\n#" + std::string(length - 1, 'x') + "\nB 2 6\n");
        EXPECT_EQ(reading.result, 0) << length;
        expect_warnings_only_if(!fits, reading.out);
        EXPECT_EQ(level_of(reading, 1), 5) << length; // the levels read so far are stored
        EXPECT_EQ(level_of(reading, 2), fits ? 6 : 4) << length;
        EXPECT_STREQ(reading.conf->GetPackageName(2), fits ? "B" : "") << length;
        expect_level_4_elsewhere(reading, {1, 2});
    }
}

TEST(ConfFile, APackageLineThatIsTooLongDoesNotCountItself)
{
    const Reading reading = read_bytes(HEAD + "A 1 5\nB 2 6 //" + std::string(200, 'x') + "\nC 3 6\n");
    EXPECT_EQ(level_of(reading, 1), 5);
    EXPECT_STREQ(reading.conf->GetPackageName(2), "");
    expect_level_4_elsewhere(reading, {1});
}

TEST(ConfFile, APackageLineOf199CharactersIsReadWithAllItsRules)
{
    std::string line = "Net 3 7 [(6;;a)(5;;b)]";
    line += std::string(199 - line.size() - 8, ' ') + "//remark";
    ASSERT_EQ(line.size(), 199u);
    for (const char* end : {"\n", "\r\n", ""})
    {
        const Reading reading = read_bytes(HEAD + line + end);
        EXPECT_EQ(level_of(reading, 3), 7);
        EXPECT_EQ(rules_of(reading, 3), "[(6;;a)(5;;b)]");
    }
    std::string rules = "[";
    for (int i = 0; i < 7; ++i)
        rules += "(7;;name-of-19-bytes-" + std::to_string(i) + ')';
    std::string full = "Net 3 7 " + rules + "(6;;n";
    full += std::string(199 - full.size() - 2, 'n') + ")]";
    ASSERT_EQ(full.size(), 199u);
    const Reading reading = read_bytes(HEAD + full + "\nAfter 4 6\n");
    EXPECT_EQ(reading.conf->GetRuleTable(3).ruleCount, 8);
    EXPECT_EQ(level_of(reading, 4), 6);
}

TEST(ConfFile, AnOverlongLineInTheFirstSectionEndsTheReadingToo)
{
    const std::string overlong = "#" + std::string(200, 'x');
    const Reading before_output = read_into(used_conf(), overlong + "\n1\nfile_size_limit_in_mb=15\nNet 5 6\n");
    EXPECT_EQ(before_output.result, 0);
    EXPECT_EQ(before_output.conf->GetOutput(), 2);
    EXPECT_EQ(before_output.conf->GetSizeLimitInMb(), 77);
    expect_level_4_elsewhere(before_output, {});

    const Reading limit_line = read_into(used_conf(), "1\n" + overlong + "\nNet 5 6\n");
    EXPECT_EQ(limit_line.result, 0);
    EXPECT_EQ(limit_line.conf->GetOutput(), 1);
    expect_level_4_elsewhere(limit_line, {});
}

TEST(ConfFile, LineEndsOfWindowsAndUnixReadAlike)
{
    const std::string text = "# head\n3\nfile_size_limit_in_mb=15\nNet 3 7 [(6;;a)]\nCore 4 6\n!\n";
    std::string windows;
    for (const char c : text)
        windows += c == '\n' ? "\r\n" : std::string(1, c);
    for (const std::string& bytes : {text, windows, text.substr(0, text.size() - 1)})
    {
        const Reading reading = read_bytes(bytes);
        EXPECT_EQ(reading.conf->GetOutput(), 2);
        EXPECT_TRUE(reading.conf->GetPrintToDebugger());
        EXPECT_EQ(reading.conf->GetSizeLimitInMb(), 15);
        EXPECT_STREQ(reading.conf->GetPackageName(3), "Net");
        EXPECT_EQ(rules_of(reading, 3), "[(6;;a)]");
        EXPECT_EQ(level_of(reading, 4), 6);
        EXPECT_EQ(reading.out, "");
    }
}

TEST(ConfFile, AFileMayEndAnywhere)
{
    const std::string text = "# head\n2\nfile_size_limit_in_mb=15\nNet 3 7 [(6;;a)]\nCore 4 6";
    for (std::size_t size = 0; size <= text.size(); ++size)
    {
        const Reading reading = read_bytes(text.substr(0, size));
        ASSERT_EQ(reading.result, 0) << size;
        ASSERT_EQ(reading.conf->GetOutput(), size >= 8 ? 2 : 0) << size;
        ASSERT_EQ(reading.conf->GetSizeLimitInMb(), size >= 33 ? 15 : size == 32 ? 1 : 0) << size;
    }
    EXPECT_EQ(level_of(read_bytes(text), 4), 6);
    EXPECT_EQ(rules_of(read_bytes(text), 3), "[(6;;a)]");
}

TEST(ConfFile, ZeroBytesInALineDoNotStopTheLinesAfterIt)
{
    const std::string zero(1, '\0');
    const Reading reading =
        read_bytes(HEAD + "A 1 5" + zero + "junk 9 9\n" + zero + "\n" + zero + zero + zero + "\nB 2 6\n");
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(level_of(reading, 1), 5);
    EXPECT_STREQ(reading.conf->GetPackageName(2), "B");
    EXPECT_EQ(level_of(reading, 2), 6);
}

TEST(ConfFile, WhatStandsInFrontOfACtrlZCounts)
{
    const Reading reading = read_bytes(HEAD + "A 1 5\n\x1A\nB 2 6\n");
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.conf->GetOutput(), 2);
    EXPECT_EQ(level_of(reading, 1), 5);
}

TEST(ConfFile, BytesAbove127ArePartOfAName)
{
    const Reading reading = read_bytes(HEAD + "N\xC3\xA4tz\xFF 3 7\n");
    EXPECT_STREQ(reading.conf->GetPackageName(3), "N\xC3\xA4tz\xFF");
    EXPECT_EQ(level_of(reading, 3), 7);
}

TEST(ConfFile, AnyBytesAtAllCanBeRead)
{
    std::uint32_t state = 4711;
    const auto random = [&state]
    {
        state = state * 1664525u + 1013904223u;
        return state >> 8;
    };
    const char alphabet[] = "0123456789 \t#![]();,/:.-+%abcfile_size_limit_in_mb=\r\n\n\n";
    for (int round = 0; round < 40; ++round)
    {
        std::string bytes = round % 4 == 0 ? "" : HEAD;
        for (unsigned i = random() % 3000; i > 0; --i)
        {
            bytes += round % 2 == 0 ? static_cast<char>(random() & 0xFF) : alphabet[random() % (sizeof alphabet - 1)];
        }
        const Reading reading = read_bytes(bytes);
        ASSERT_EQ(reading.result, 0);
        ASSERT_GE(reading.conf->GetOutput(), 0);
        ASSERT_LE(reading.conf->GetOutput(), 2);
        for (int package = 0; package < 750; ++package)
        {
            ASSERT_LT(std::strlen(reading.conf->GetPackageName(package)), 40u);
            const Kor_LogLevelRuleTable& table = reading.conf->GetRuleTable(package);
            ASSERT_GE(table.ruleCount, 0);
            ASSERT_LE(table.ruleCount, 10);
        }
    }
}

TEST(ConfFile, ReadingTwiceReplacesWhatTheSecondFileNames)
{
    auto first = read_bytes("3\nfile_size_limit_in_mb=15\nA 1 5\nB 2 6 [(7;;b)]\n");
    const Reading second = read_into(std::move(first.conf), "1\nfile_size_limit_in_mb=20\nB 2 3\n");
    EXPECT_EQ(second.conf->GetOutput(), 1);
    EXPECT_FALSE(second.conf->GetPrintToDebugger());
    EXPECT_EQ(second.conf->GetSizeLimitInMb(), 20);
    EXPECT_EQ(level_of(second, 1), 4);
    EXPECT_STREQ(second.conf->GetPackageName(1), "A");
    EXPECT_EQ(level_of(second, 2), 3);
    EXPECT_EQ(rules_of(second, 2), "[(7;;b)]");
}

TEST(ConfFile, ReadingLeavesTheChangeCountAlone)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetChangeCount(17);
    EXPECT_EQ(read_into(std::move(conf), HEAD + "A 1 5\n").conf->GetChangeCount(), 17u);
}

// Files that cannot be read -------------------------------------------------------------------------

TEST(ConfFileMissing, ANarrowPathIsReportedAndTheConfigurationStaysAsItIs)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    CapturedStream captured_err(stderr);
    const int result = Kor_LogFile::ReadFile(path.c_str(), *conf);
    captured_out.stop();
    captured_err.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
    EXPECT_EQ(captured_err.text(), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(conf->GetOutput(), 2);
    EXPECT_EQ(conf->GetSizeLimitInMb(), 77);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(0), 7);
}

TEST(ConfFileMissing, AWidePathIsReportedAndTheConfigurationStaysAsItIs)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    const std::wstring wide(path.begin(), path.end());
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    const int result = Kor_LogFile::ReadFile(wide.c_str(), *conf);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(0), 7);
}

TEST(ConfFileMissing, ADirectoryInItsPlaceIsNoFile)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(::CreateDirectoryA(path.c_str(), nullptr));
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), -1);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
}

TEST(ConfFileMissing, AFileThatAnotherHasOpenedExclusivelyIsNoFile)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(write_file(path, HEAD + "Net 3 7\n"));
    const HANDLE exclusive =
        ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(exclusive, INVALID_HANDLE_VALUE);
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), -1);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
    ::CloseHandle(exclusive);
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), 0);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 7);
}

TEST(ConfFileMissing, AFileBeingWrittenByAnotherCanBeRead)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(write_file(path, HEAD + "Net 3 7\n"));
    const HANDLE writer = ::CreateFileA(
        path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    const auto conf = used_conf();
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), 0);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 7);
    ::CloseHandle(writer);
}

TEST(ConfFileMissing, ANameLikeAPrintFormatIsPrintedAsItIs)
{
    const TempDirectory directory;
    const std::string path = directory.file("100%s%n");
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), -1);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
}

TEST(ConfFileMissing, APathOutsideTheAnsiCodePageIsStillReported)
{
    const TempDirectory directory;
    const std::wstring path =
        std::wstring(directory.path().begin(), directory.path().end()) + L"\\\u0436\u65e5\u672c\\logger";
    const auto conf = used_conf();
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), -1);
    captured_out.stop();
    const std::string out = captured_out.text();
    EXPECT_EQ(out.rfind("Kor_LogFile - Warning - No configuration file: ", 0), 0u) << out;
}

TEST(ConfFileMissing, AStreamAlwaysGives0)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(write_file(path, HEAD + "Net 3 7\n"));
    auto conf = used_conf();
    std::ifstream opened(path);
    EXPECT_EQ(Kor_LogFile::ReadFile(opened, *conf), 0);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 7);
    EXPECT_EQ(conf->GetSizeLimitInMb(), 15);

    conf = used_conf();
    std::ifstream closed;
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::ReadFile(closed, *conf), 0);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_EQ(conf->GetOutput(), 2);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 4); // nothing was named
}

TEST(ConfFile, AWidePathReadsAFileOutsideTheAnsiCodePage)
{
    const TempDirectory directory;
    const std::wstring below =
        std::wstring(directory.path().begin(), directory.path().end()) + L"\\\u0436\u0443\u0440\u043d\u0430\u043b";
    ASSERT_TRUE(::CreateDirectoryW(below.c_str(), nullptr));
    ASSERT_TRUE(write_file(directory.file("plain"), HEAD + "Net 3 7\n"));
    const std::wstring plain(directory.path().begin(), directory.path().end());
    ASSERT_TRUE(::MoveFileW((plain + L"\\plain").c_str(), (below + L"\\logger").c_str()));
    const auto conf = used_conf();
    EXPECT_EQ(Kor_LogFile::ReadFile((below + L"\\logger").c_str(), *conf), 0);
    EXPECT_EQ(conf->GetPackageDefaultLogLevel(3), 7);
}

// The directory -------------------------------------------------------------------------------------

TEST(ConfDirectory, TheVariableNamesIt)
{
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", "C:\\some dir\\x");
    CapturedStream captured_out(stdout);
    EXPECT_STREQ(Kor_LogFile::GetLogConfigDir(), "C:\\some dir\\x");
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
}

TEST(ConfDirectory, WithoutTheVariableItIsLogWithAWarning)
{
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", "");
    CapturedStream captured_out(stdout);
    EXPECT_STREQ(Kor_LogFile::GetLogConfigDir(), "log");
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file\n");
}

TEST(ConfDirectory, TheDefaultFileIsNamedLoggerInIt)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), HEAD + "Net 3 7\n"));
    Kor_LogFile log(777, false);
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    CapturedStream captured_out(stdout);
    EXPECT_EQ(log.ReadFile(), 0);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_EQ(log.GetConf()->GetOutput(), 2);
    EXPECT_EQ(log.GetConf()->GetSizeLimitInMb(), 15);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7);
}

TEST(ConfDirectory, ADirectoryWithoutTheFileIsReportedAndTheDefaultsStay)
{
    const TempDirectory directory;
    Kor_LogFile log(777, false);
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    CapturedStream captured_out(stdout);
    EXPECT_EQ(log.ReadFile(), -1);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + directory.file("logger") + "\n");
    EXPECT_EQ(log.GetConf()->GetOutput(), 0);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 4);
}

namespace
{
KOR_CHILD(conf_file_reads_the_default_file)
{
    Kor_LogFile log(777, false);
    const int result = log.ReadFile();
    std::printf("result=%d level=%d\n", result, log.GetConf()->GetPackageDefaultLogLevel(3));
    return 0;
}
} // namespace

TEST(ConfDirectory, WithoutTheVariableTheFileIsLookedForInLogBelowTheCurrentDirectory)
{
    const TempDirectory directory;
    ChildOptions options;
    options.directory = directory.path();
    EXPECT_EQ(
        text_of(run_child("conf_file_reads_the_default_file", options).out),
        "Kor_LogFile - Warning - No configuration file\n"
        "Kor_LogFile - Warning - No configuration file: log\\logger\n"
        "result=-1 level=4\n");

    ASSERT_TRUE(::CreateDirectoryA(directory.file("log").c_str(), nullptr));
    ASSERT_TRUE(write_file(directory.file("log\\logger"), HEAD + "Net 3 7\n"));
    EXPECT_EQ(
        text_of(run_child("conf_file_reads_the_default_file", options).out),
        "Kor_LogFile - Warning - No configuration file\n"
        "result=0 level=7\n");
}

namespace
{
KOR_CHILD(conf_file_prints_package_3)
{
    std::printf("level=%d\n", KorGLog.GetConf()->GetPackageDefaultLogLevel(3));
    return 0;
}
} // namespace

TEST(ConfDirectory, ItsNameMayLieOutsideTheAnsiCodePage)
{
    const TempDirectory directory;
    const std::wstring below =
        std::wstring(directory.path().begin(), directory.path().end()) + L"\\\u0436\u0443\u0440\u043d\u65e5\u672c";
    ASSERT_TRUE(::CreateDirectoryW(below.c_str(), nullptr));
    ASSERT_TRUE(write_file(directory.file("plain"), HEAD + "Net 3 7\n"));
    const std::wstring plain(directory.path().begin(), directory.path().end());
    ASSERT_TRUE(::MoveFileW((plain + L"\\plain").c_str(), (below + L"\\logger").c_str()));
    ChildOptions options;
    options.environment = {
        {"PRISMATE_LOG_DIR", directory.path() + "\\\xD0\xB6\xD1\x83\xD1\x80\xD0\xBD\xE6\x97\xA5\xE6\x9C\xAC"}};
    EXPECT_EQ(text_of(run_child("conf_file_prints_package_3", options).out), "level=7\n");
}

namespace
{
KOR_CHILD(conf_file_traces_a_reading)
{
    auto conf = std::make_unique<Kor_LogConf>();
    return Kor_LogFile::ReadFile(args.at(0).c_str(), *conf);
}
} // namespace

TEST(ConfFileTrace, EveryPackageWithARuleTextIsAnnounced)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), HEAD + "A 1 5\nB 2 6 [(7;;b)(9)]\nC 900 5 [(7;;c)]\nD 4 6 []\n"));
    ChildOptions options;
    options.arguments = {directory.file("logger")};
    options.environment = {{"PRISMATE_LOG_DEBUG", "1"}};
    EXPECT_EQ(
        text_of(run_child("conf_file_traces_a_reading", options).out),
        "\nParsing rules for package 2\n"
        "Parsing Rule #1:\n"
        "Rule log level: 7\n"
        "IP List: \n"
        "Applications: b \n"
        "\n"
        "Parsing Rule #2:\n"
        "Rule log level: 9\n"
        "Parse error with rule\n"
        "\n"
        "Kor_LogFile - warning: package 900 index out of range 0-750\n"
        "\nParsing rules for package 4\n");
    options.environment.clear();
    EXPECT_EQ(
        text_of(run_child("conf_file_traces_a_reading", options).out),
        "Kor_LogFile - warning: package 900 index out of range 0-750\n");
}
