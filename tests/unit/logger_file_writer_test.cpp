// logger_file_writer_test.cpp - the `logger` file as it is written, byte for byte, and read back.

#include "core/logger_file.h"
#include "core/stream_source.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

using kor::core::logger_file_header;
using kor::core::logger_package_line;
using kor::core::LoggerLine;

TEST(LoggerFileHeader, ReadsAsLaidDown)
{
    EXPECT_EQ(
        logger_file_header(2, 15), "#\n"
                                   "# logger configuration file\n"
                                   "#\n"
                                   "# Lines started with # or ! are comment lines\n"
                                   "#\n"
                                   "#------------------------------------------------------------------------\n"
                                   "# part 1: set the output of the messages\n"
                                   "# 0=stderr    1=syslog-file   2=private-file \n"
                                   "#------------------------------------------------------------------------\n"
                                   "2\n"
                                   "file_size_limit_in_mb=15\n"
                                   "#------------------------------------------------------------------------\n"
                                   "# part 2: set the error level of each package. Each line consist of 3 fields\n"
                                   "# first field is package name (and it is ignored)\n"
                                   "# second field is package key. It must not be changed. This value is \n"
                                   "# the the Kor_Package constans in Kor_Package file devided by PACKAGE_RANGE\n"
                                   "# constans\n"
                                   "# third field is the error level witch is a digit between 1 to 7:\n"
                                   "# 0=unspecified  1=severe  2=critical  3=error  4=warning\n"
                                   "# 5=notice  6=information  7=debug\n"
                                   "#------------------------------------------------------------------------\n");
}

TEST(LoggerFileHeader, HasDashLinesOf72Dashes)
{
    const std::string header = logger_file_header(0, 0);
    const std::string dash_line = "\n#" + std::string(72, '-') + "\n";
    std::size_t count = 0;
    for (std::size_t at = header.find(dash_line); at != std::string::npos; at = header.find(dash_line, at + 1))
        ++count;
    EXPECT_EQ(count, 4u);
}

TEST(LoggerFileHeader, HasOutputAndLimitAsSignedNumbers)
{
    struct Row
    {
        int output;
        std::uint32_t limit;
        const char* expected;
    };
    const Row rows[] = {
        {0, 0, "-\n0\nfile_size_limit_in_mb=0\n#-"},
        {1, 1, "-\n1\nfile_size_limit_in_mb=1\n#-"},
        {2, 2147483647u, "-\n2\nfile_size_limit_in_mb=2147483647\n#-"},
        {2, 2147483648u, "-\n2\nfile_size_limit_in_mb=-2147483648\n#-"},
        {-7, 4294967295u, "-\n-7\nfile_size_limit_in_mb=-1\n#-"},
    };
    for (const Row& row : rows)
        EXPECT_NE(logger_file_header(row.output, row.limit).find(row.expected), std::string::npos) << row.expected;
}

TEST(LoggerPackageLine, HasItsNumberInAColumnOfItsOwn)
{
    struct Row
    {
        const char* name;
        int number;
        int level;
        const char* rules;
        const char* comment;
        const char* expected;
    };
    const Row rows[] = {
        {"Net", 3, 7, "", "//", "Net                                       3          7  //\n"},
        {"Net", 3, 7, "", "// net stack", "Net                                       3          7  // net stack\n"},
        {"Net", 3, 7, "", "", "Net                                       3          7  \n"},
        {"Net", 3, 7, "[(7;10.0.0.0)]", "//x",
         "Net                                       3          7 [(7;10.0.0.0)] //x\n"},
        {"Net", 749, 255, "[(5;;a)(6;;b)]", "",
         "Net                                       749          255 [(5;;a)(6;;b)] \n"},
        {"N", 0, 0, "", "//", "N                                         0          0  //\n"},
        {"A_name_of_thirty_nine_characters_in_all", 12, 4, "", "//",
         "A_name_of_thirty_nine_characters_in_all   12          4  //\n"},
        {"A_name_of_forty_one_characters_in_it_all!", 12, 4, "", "//",
         "A_name_of_forty_one_characters_in_it_all! 12          4  //\n"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(logger_package_line(row.name, row.number, row.level, row.rules, row.comment), row.expected);
}

TEST(LoggerPackageLine, OfALongerNameStaysReadable)
{
    const std::string name(60, 'n');
    const std::string line = logger_package_line(name, 12, 4, "", "//");
    EXPECT_EQ(line.substr(0, 63), name + " 12");
}

TEST(LoggerFileEnd, IsAnEmptyComment) { EXPECT_EQ(kor::core::LOGGER_FILE_END, "!\n"); }

TEST(LoggerFile, ReadsBackAsItWasWritten)
{
    const std::string file = logger_file_header(2, 4000000000u) + logger_package_line("Core", 0, 4, "", "//") +
                             logger_package_line("Net", 3, 7, "[(7;10.0.0.1,fe80::/10;a.exe;12:3)(5;;b)]", "// net") +
                             logger_package_line("Last", 749, 255, "", "") + std::string(kor::core::LOGGER_FILE_END);

    std::istringstream stream(file);
    kor::core::StreamSource source(stream);
    kor::core::LoggerFileReader reader(source);
    kor::core::LoggerFileParser parser(750);
    struct Package
    {
        int number;
        std::string_view name;
        int level;
        std::string_view rules;
    };
    const Package packages[] = {
        {0, "Core", 4, ""},
        {3, "Net", 7, "(7;10.0.0.1,fe80::/10;a.exe;12:3)(5;;b)]"},
        {749, "Last", 255, ""},
    };
    std::size_t package_count = 0;
    std::string_view line;
    while (reader.next(line))
    {
        const LoggerLine result = parser.parse(line);
        switch (result.kind)
        {
        case LoggerLine::NOTHING:
            break;
        case LoggerLine::OUTPUT:
            EXPECT_EQ(result.output, 2);
            EXPECT_FALSE(result.to_debugger);
            break;
        case LoggerLine::SIZE_LIMIT:
            EXPECT_EQ(result.size_limit, 4000000000u);
            EXPECT_FALSE(result.cut);
            break;
        case LoggerLine::PACKAGE:
            ASSERT_LT(package_count, 3u);
            EXPECT_EQ(result.number, packages[package_count].number);
            EXPECT_EQ(result.name, packages[package_count].name);
            EXPECT_EQ(result.level, packages[package_count].level);
            EXPECT_EQ(result.rules, packages[package_count].rules);
            ++package_count;
            break;
        case LoggerLine::PACKAGE_OUT_OF_RANGE:
        case LoggerLine::UNREADABLE:
            ADD_FAILURE() << line;
            break;
        }
    }
    EXPECT_FALSE(reader.ended_early());
    EXPECT_EQ(package_count, 3u);
}
