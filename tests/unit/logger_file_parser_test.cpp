// logger_file_parser_test.cpp - what the lines of a `logger` file say, and the comments in them.

#include "core/logger_file.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using kor::core::LoggerFileParser;
using kor::core::LoggerLine;

namespace
{
using Lines = std::vector<std::string>;

constexpr int PACKAGES = 750;

/// A line in words, with everything that its kind has.
std::string in_words(const LoggerLine& line)
{
    const std::string cut = line.cut ? ", cut" : "";
    switch (line.kind)
    {
    case LoggerLine::NOTHING:
        return "nothing";
    case LoggerLine::OUTPUT:
        return "output " + std::to_string(line.output) + (line.to_debugger ? " and debugger" : "");
    case LoggerLine::SIZE_LIMIT:
        return "limit " + std::to_string(line.size_limit) + cut;
    case LoggerLine::PACKAGE:
        return "package " + std::to_string(line.number) + " " + std::string(line.name) + " at " +
               std::to_string(line.level) + (line.rules.empty() ? "" : ", rules " + std::string(line.rules)) + cut;
    case LoggerLine::PACKAGE_OUT_OF_RANGE:
        return "out of range " + std::to_string(line.number);
    case LoggerLine::UNREADABLE:
        return "unreadable";
    }
    return "no kind";
}

Lines parsed_by(LoggerFileParser& parser, const Lines& lines)
{
    Lines result;
    for (const std::string& line : lines)
        result.push_back(in_words(parser.parse(line)));
    return result;
}

Lines parsed(const Lines& lines)
{
    LoggerFileParser parser(PACKAGES);
    return parsed_by(parser, lines);
}

/// As parsed, of lines that follow an output and a size limit.
Lines parsed_packages(const Lines& lines)
{
    LoggerFileParser parser(PACKAGES);
    parser.parse("2");
    parser.parse("file_size_limit_in_mb=15");
    return parsed_by(parser, lines);
}
} // namespace

TEST(LoggerFileParser, ReadsAFileFromTopToBottom)
{
    struct Row
    {
        const char* name;
        Lines lines;
        Lines expected;
    };
    const Row rows[] = {
        {"output, limit and a package",
         {"2", "file_size_limit_in_mb=15", "Net 3 7"},
         {"output 2", "limit 15", "package 3 Net at 7"}},
        {"comments before the output are none of its business",
         {"#", "# 3", "! 3", "!", "1", "file_size_limit_in_mb=15"},
         {"nothing", "nothing", "nothing", "nothing", "output 1", "limit 15"}},
        {"a file of comments says nothing", {"# a", "! b", "#", "!"}, {"nothing", "nothing", "nothing", "nothing"}},
        {"a package right after the output is dropped, and there is no limit",
         {"1", "Net 3 7", "Img 4 6"},
         {"output 1", "limit 0", "package 4 Img at 6"}},
        {"a comment right after the output is the line of the limit",
         {"1", "# comment", "file_size_limit_in_mb=15", "Img 4 6"},
         {"output 1", "limit 0", "unreadable", "package 4 Img at 6"}},
        {"an empty line right after the output is the line of the limit",
         {"1", "", "file_size_limit_in_mb=15"},
         {"output 1", "limit 0", "unreadable"}},
        {"an empty first line is the output", {"", "file_size_limit_in_mb=15"}, {"output 0", "limit 15"}},
        {"a limit comes once",
         {"2", "file_size_limit_in_mb=15", "Net 3 7", "file_size_limit_in_mb=20"},
         {"output 2", "limit 15", "package 3 Net at 7", "package 3 file_size_limit_in_mb=20 at 7"}},
        {"an output comes once",
         {"2", "file_size_limit_in_mb=15", "3", "Net 3 7"},
         {"output 2", "limit 15", "unreadable", "package 3 Net at 7"}},
        {"comments and empty lines may stand between packages",
         {"2", "file_size_limit_in_mb=15", "#", "Net 3 7", "", "!", "  ", "Img 4 6", "!"},
         {"output 2", "limit 15", "nothing", "package 3 Net at 7", "nothing", "nothing", "nothing",
          "package 4 Img at 6", "nothing"}},
        {"lines that end in a carriage return",
         {"2\r", "file_size_limit_in_mb=15\r", "#\r", "Net 3 7\r", "\r", "Img 4 6 [(7;;a)]\r", "Doc 5\r"},
         {"output 2", "limit 15", "nothing", "package 3 Net at 7", "nothing", "package 4 Img at 6, rules (7;;a)]",
          "package 5 Doc at 6"}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed(row.lines), row.expected) << row.name;
}

TEST(LoggerFileParser, ReadsTheOutputAsANumber)
{
    struct Row
    {
        const char* line;
        const char* expected;
    };
    const Row rows[] = {
        {"0", "output 0"},
        {"1", "output 1"},
        {"2", "output 2"},
        {"3", "output 2 and debugger"},
        {"4", "output 1"},
        {"7", "output 1"},
        {"-1", "output 1"},
        {"-3", "output 1"},
        {"30", "output 1"},
        {"2147483648", "output 1"},
        {"4294967296", "output 1"},           // not 0
        {"4294967298", "output 1"},           // not 2
        {"18446744073709551619", "output 1"}, // not 3
        {"99999999999999999999", "output 1"},
        {"-99999999999999999999", "output 1"},
        {"00", "output 0"},
        {"03", "output 2 and debugger"},
        {"+2", "output 2"},
        {" \t2", "output 2"},
        {"2 private-file", "output 2"},
        {"2abc", "output 2"},
        {"3.9", "output 2 and debugger"},
        {"abc", "output 0"},
        {"x3", "output 0"},
        {"- 3", "output 0"},
        {" # 2", "output 0"},
        {" ", "output 0"},
        {"file_size_limit_in_mb=15", "output 0"},
        {"Net 3 7", "output 0"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed({row.line}), Lines{row.expected}) << row.line;
}

TEST(LoggerFileParser, ReadsTheSizeLimitRightAfterTheOutput)
{
    struct Row
    {
        const char* line;
        const char* expected;
    };
    const Row rows[] = {
        {"file_size_limit_in_mb=15", "limit 15"},
        {"file_size_limit_in_mb=0", "limit 0"},
        {"file_size_limit_in_mb=1", "limit 1"},
        {"file_size_limit_in_mb= 15", "limit 15"},
        {"file_size_limit_in_mb=+15", "limit 15"},
        {"file_size_limit_in_mb=15 MB", "limit 15"},
        {"file_size_limit_in_mb=15x", "limit 15"},
        {"file_size_limit_in_mb=1.5", "limit 1"},
        {"file_size_limit_in_mb=", "limit 0"},
        {"file_size_limit_in_mb=x15", "limit 0"},
        {"file_size_limit_in_mb==15", "limit 0"},
        {"file_size_limit_in_mb", "limit 0"},
        {"file_size_limit_in_mb 15", "limit 0"},
        {"file_size_limit_in_mb =15", "limit 0"},
        {" file_size_limit_in_mb=15", "limit 0"},
        {"#file_size_limit_in_mb=15", "limit 0"},
        {"File_size_limit_in_mb=15", "limit 0"},
        {"FILE_SIZE_LIMIT_IN_MB=15", "limit 0"},
        {"file_size_limit_in_gb=15", "limit 0"},
        {"15", "limit 0"},
        {"", "limit 0"},
        // It has 32 bits.
        {"file_size_limit_in_mb=2147483648", "limit 2147483648"},
        {"file_size_limit_in_mb=4294967295", "limit 4294967295"},
        {"file_size_limit_in_mb=4294967296", "limit 0, cut"},
        {"file_size_limit_in_mb=4294967311", "limit 15, cut"},
        {"file_size_limit_in_mb=-4294967281", "limit 15, cut"},
        {"file_size_limit_in_mb=-2147483649", "limit 2147483647, cut"},
        // A written limit of 2147483648 and more is negative.
        {"file_size_limit_in_mb=-1", "limit 4294967295"},
        {"file_size_limit_in_mb=-2147483648", "limit 2147483648"},
        {"file_size_limit_in_mb=9223372036854775807", "limit 4294967295, cut"},
        {"file_size_limit_in_mb=9999999999999999999", "limit 4294967295, cut"}, // the largest number there is
        // Of 19 characters: 1234567890123456789 is 0x112210F47DE98115.
        {"file_size_limit_in_mb=1234567890123456789", "limit 2112454933, cut"},
        {"file_size_limit_in_mb=12345678901234567890", "limit 2112454933, cut"},
        {"file_size_limit_in_mb=0000000000000000015", "limit 15"},
        {"file_size_limit_in_mb=00000000000000000015", "limit 1"},
        {"file_size_limit_in_mb=                   15", "limit 0"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed({"2", row.line}), (Lines{"output 2", row.expected})) << row.line;
}

TEST(LoggerFileParser, ReadsNameNumberLevelAndRules)
{
    struct Row
    {
        const char* line;
        const char* expected;
    };
    const Row rows[] = {
        {"Net 3 7", "package 3 Net at 7"},
        {"Net 0 7", "package 0 Net at 7"},
        {"Net 749 7", "package 749 Net at 7"},
        {"  Net\t3 \t 7  ", "package 3 Net at 7"},
        {"Net +3 +7", "package 3 Net at 7"},
        {"Net 003 007", "package 3 Net at 7"},
        {"Net-Core/2.0 3 7", "package 3 Net-Core/2.0 at 7"},
        {"Net# 3 7", "package 3 Net# at 7"},
        {" #Net 3 7", "package 3 #Net at 7"}, // a comment begins with its line
        {"3 3 7", "package 3 3 at 7"},
        {"Net 3 7 8 9", "package 3 Net at 7"},
        {"Net 3 7x", "package 3 Net at 7"},
        {"Net 3 7.5", "package 3 Net at 7"},
        {"A_name_of_more_than_thirty_nine_characters_in_all 3 7",
         "package 3 A_name_of_more_than_thirty_nine_characters_in_all at 7"},
        // Numbers outside the packages.
        {"Net 750 5", "out of range 750"},
        {"Net -1 5", "out of range -1"},
        {"Net 10000 5", "out of range 10000"},
        {"Net 2147483647 5", "out of range 2147483647"},
        {"Net 2147483648 5", "out of range 2147483647"},
        {"Net 4294967299 5", "out of range 2147483647"}, // not 3
        {"Net 99999999999999999999 5", "out of range 2147483647"},
        {"Net -99999999999999999999 5", "out of range -2147483648"},
        // Levels of one byte.
        {"Net 3 0", "package 3 Net at 0"},
        {"Net 3 8", "package 3 Net at 8"},
        {"Net 3 255", "package 3 Net at 255"},
        {"Net 3 256", "package 3 Net at 0, cut"},
        {"Net 3 263", "package 3 Net at 7, cut"},
        {"Net 3 -1", "package 3 Net at 255, cut"},
        {"Net 3-7", "package 3 Net at 249, cut"},
        {"Net 3 4294967303", "package 3 Net at 7, cut"},
        // Rules.
        {"Net 3 7 [(rule)]", "package 3 Net at 7, rules (rule)]"},
        {"Net 3 7 [(rule1)(rule2)]", "package 3 Net at 7, rules (rule1)(rule2)]"},
        {"Net 3 7 [(rule)", "package 3 Net at 7, rules (rule)"},
        {"Net 3 7[(rule)]", "package 3 Net at 7, rules (rule)]"},
        {"Net 3 7\t \t[(rule)]\t//x", "package 3 Net at 7, rules (rule)]"},
        {"Net 3 7 [  (rule)]", "package 3 Net at 7, rules (rule)]"},
        {"Net 3 7 [(ru le)]", "package 3 Net at 7, rules (ru"},
        {"Net 3 7 [(rule)]//x", "package 3 Net at 7, rules (rule)]//x"},
        {"Net 3 7 [(7;10.0.0.0/8,fe80::/10;a.exe;1:2)] // x",
         "package 3 Net at 7, rules (7;10.0.0.0/8,fe80::/10;a.exe;1:2)]"},
        {"Net 3 7 []", "package 3 Net at 7, rules ]"},
        {"Net 3 7 [", "package 3 Net at 7"},
        {"Net 3 7 [ ", "package 3 Net at 7"},
        {"Net 3 7 //x", "package 3 Net at 7"},
        {"Net 3 7 // [(rule)]", "package 3 Net at 7"},
        {"Net 3 7 x [(rule)]", "package 3 Net at 7"},
        {"Net 3 7 (rule)", "package 3 Net at 7"},
        {"Net 3 7 ][(rule)]", "package 3 Net at 7"},
        {"Net 3 263 [(rule)] //x", "package 3 Net at 7, rules (rule)], cut"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed_packages({row.line}), Lines{row.expected}) << row.line;
}

TEST(LoggerFileParser, TakesWhatALineLacksFromThePackageBeforeIt)
{
    struct Row
    {
        const char* name;
        Lines lines;
        Lines expected;
    };
    const Row rows[] = {
        {"the level", {"Net 3 7", "Img 4"}, {"package 3 Net at 7", "package 4 Img at 7"}},
        {"number and level", {"Net 3 7", "Img"}, {"package 3 Net at 7", "package 3 Img at 7"}},
        {"a number that is none", {"Net 3 7", "Img x 6"}, {"package 3 Net at 7", "package 3 Img at 7"}},
        {"a number of a sign only", {"Net 3 7", "Img - 6"}, {"package 3 Net at 7", "package 3 Img at 7"}},
        {"a level that is none", {"Net 3 7", "Img 4 x"}, {"package 3 Net at 7", "package 4 Img at 7"}},
        {"a level behind a letter", {"Net 3 7", "Img 4x 6"}, {"package 3 Net at 7", "package 4 Img at 7"}},
        {"a comment for a level", {"Net 3 7", "Img 4 //6"}, {"package 3 Net at 7", "package 4 Img at 7"}},
        {"but not the rules",
         {"Net 3 7 [(rule)]", "Img 4 6"},
         {"package 3 Net at 7, rules (rule)]", "package 4 Img at 6"}},
        {"nor the rules with the number",
         {"Net 3 7 [(rule)]", "Img"},
         {"package 3 Net at 7, rules (rule)]", "package 3 Img at 7"}},
        {"and it has no rules itself then",
         {"Net 3 7", "Img 4 [(rule)]", "Doc [(rule)]"},
         {"package 3 Net at 7", "package 4 Img at 7", "package 4 Doc at 7"}},
        {"through comments and empty lines",
         {"Net 3 7", "# Doc 5 6", "", "Img"},
         {"package 3 Net at 7", "nothing", "nothing", "package 3 Img at 7"}},
        {"more than once",
         {"Net 3 7", "Img", "Doc 5", "Sys"},
         {"package 3 Net at 7", "package 3 Img at 7", "package 5 Doc at 7", "package 5 Sys at 7"}},
        {"from a package out of range too",
         {"Net 750 5", "Img", "Doc 4"},
         {"out of range 750", "out of range 750", "package 4 Doc at 5"}},
        {"a number out of range keeps the level",
         {"Net 3 7", "Img 750", "Doc 4"},
         {"package 3 Net at 7", "out of range 750", "package 4 Doc at 7"}},
        {"a level that was cut",
         {"Net 3 263", "Img 4", "Doc 5 6"},
         {"package 3 Net at 7, cut", "package 4 Img at 7, cut", "package 5 Doc at 6"}},
        {"none is before the first: a level is 4", {"Net 3", "Img 5"}, {"package 3 Net at 4", "package 5 Img at 4"}},
        {"none is before the first: a number is not known",
         {"Net", "Img x 7", "- 3 7", "Doc", "Sys 5"},
         {"unreadable", "unreadable", "package 3 - at 7", "package 3 Doc at 7", "package 5 Sys at 7"}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed_packages(row.lines), row.expected) << row.name;
}

TEST(LoggerFileParser, OfAnotherFileStartsAnew)
{
    EXPECT_EQ(parsed({"2", "file_size_limit_in_mb=15", "Net 3 7"}).back(), "package 3 Net at 7");
    EXPECT_EQ(parsed({"2", "file_size_limit_in_mb=15", "Net"}).back(), "unreadable");
}

TEST(LoggerFileParser, KnowsAsManyPackagesAsItIsTold)
{
    LoggerFileParser parser(2);
    EXPECT_EQ(
        parsed_by(parser, {"2", "-", "A 0 5", "B 1 5", "C 2 5", "D -1 5"}),
        (Lines{"output 2", "limit 0", "package 0 A at 5", "package 1 B at 5", "out of range 2", "out of range -1"}));
}

TEST(LoggerFileParser, PointsIntoTheLineItWasGiven)
{
    LoggerFileParser parser(PACKAGES);
    parser.parse("2");
    parser.parse("file_size_limit_in_mb=15");
    const std::string_view line = "Net 3 7 [(rule)] //x";
    const LoggerLine result = parser.parse(line);
    EXPECT_EQ(result.name.data(), line.data());
    EXPECT_EQ(result.rules.data(), line.data() + 9);
}

TEST(LoggerComment, LineBeginsWithAMark)
{
    EXPECT_TRUE(kor::core::is_logger_comment("#"));
    EXPECT_TRUE(kor::core::is_logger_comment("# Net 3 7"));
    EXPECT_TRUE(kor::core::is_logger_comment("!"));
    EXPECT_TRUE(kor::core::is_logger_comment("!Net 3 7"));
    EXPECT_FALSE(kor::core::is_logger_comment(""));
    EXPECT_FALSE(kor::core::is_logger_comment(" #"));
    EXPECT_FALSE(kor::core::is_logger_comment("Net # !"));
    EXPECT_FALSE(kor::core::is_logger_comment("// Net"));
    EXPECT_FALSE(kor::core::is_logger_comment("; Net"));
}

TEST(LoggerComment, OfAPackageBeginsAtTheFirstSlash)
{
    struct Row
    {
        const char* line;
        int number;
        const char* text;
    };
    const Row rows[] = {
        {"Net 5 7 // net stack", 5, "// net stack"},
        {"Net 0 7 //", 0, "//"},
        {"Net 749 7 //x", 749, "//x"},
        {"  Net\t5\t7\t// a\tb ", 5, "// a\tb "},
        {"Net 5 7 /", 5, "/"},
        {"Net 5 //x", 5, "//x"},
        {"Net 5//x", 5, "//x"},
        {"Net +5 x /y", 5, "/y"},
        {"Net 5 7 # /y", 5, "/y"},
        {"Net 5 7 // a // b", 5, "// a // b"},
        {"Net 5 7 [(7;10.0.0.1)] // x", 5, "// x"},
        // Any slash is taken for the beginning.
        {"Net 5 7 [(7;fe80::/10)] // x", 5, "/10)] // x"},
        {"Net/Core 5 7 // x", 5, "/Core 5 7 // x"},
        {"// 5 7", 5, "// 5 7"},
    };
    for (const Row& row : rows)
    {
        kor::core::LoggerComment comment;
        EXPECT_TRUE(kor::core::find_logger_comment(row.line, PACKAGES, comment)) << row.line;
        EXPECT_EQ(comment.number, row.number) << row.line;
        EXPECT_EQ(comment.text, row.text) << row.line;
    }
}

TEST(LoggerComment, IsNoneWithoutASlashOrAPackage)
{
    for (const char* const line : {
             "",
             "   ",
             "2",
             "Net",
             "Net 5 7",
             "Net 5 7 \\x",
             "Net // x",
             "Net x 5 // x",
             "Net - 5 // x",
             "5 // x",
             "2 // private file",
             "// x",
             "# Net 5 7 // x",
             "! Net 5 7 // x",
             "file_size_limit_in_mb=15 // x",
             "Net 750 7 // x",
             "Net -1 7 // x",
             "Net 4294967301 7 // x", // not 5
             "Net 99999999999999999999 7 // x",
             "Net -99999999999999999999 7 // x",
         })
    {
        kor::core::LoggerComment comment;
        EXPECT_FALSE(kor::core::find_logger_comment(line, PACKAGES, comment)) << line;
    }
}

TEST(LoggerComment, KnowsAsManyPackagesAsItIsTold)
{
    kor::core::LoggerComment comment;
    EXPECT_TRUE(kor::core::find_logger_comment("Net 1 7 //x", 2, comment));
    EXPECT_FALSE(kor::core::find_logger_comment("Net 2 7 //x", 2, comment));
    EXPECT_FALSE(kor::core::find_logger_comment("Net 0 7 //x", 0, comment));
}
