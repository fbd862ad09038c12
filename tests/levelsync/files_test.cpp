// files_test.cpp - level files as people leave them: a change touches the one line that it is about, and every other
// byte stays.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "level_sync.h"

namespace
{
/// The lines of a file, each with its own end.
std::vector<std::string> pieces_of(const std::string& bytes)
{
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < bytes.size();)
    {
        const std::size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
        pieces.push_back(bytes.substr(at, end - at));
        at = end;
    }
    return pieces;
}

/// 750 packages with ten rules each.
std::string large_logger(const std::string& line_end)
{
    std::string text = "2" + line_end + "file_size_limit_in_mb=0" + line_end;
    for (int package = 0; package < 750; ++package)
    {
        text += "P" + std::to_string(package) + ' ' + std::to_string(package) + " 5 [";
        for (int rule = 0; rule < 10; ++rule)
            text += "(6;10.1.1." + std::to_string(rule + 1) + ')';
        text += "] // " + std::to_string(package) + line_end;
    }
    return text;
}

struct NastyFile
{
    const char* what;
    std::string bytes;
    std::string line;    ///< of Replay, number 320, without its end
    std::string changed; ///< the same with a rule for the client 192.0.2.7
};

std::vector<NastyFile> nasty_files()
{
    const std::string head = "2\nfile_size_limit_in_mb=10\n";
    const std::string plain = "Replay 320 6";
    const std::string with_rule = "Replay 320 6  [(7;192.0.2.7)]";
    std::vector<NastyFile> files{
        {"CRLF", "# a\r\n2\r\nfile_size_limit_in_mb=10\r\n\r\nReplay 320 6 // b\r\nReader 310 5\r\n",
         "Replay 320 6 // b", "Replay 320 6  [(7;192.0.2.7)] // b"},
        {"LF and CRLF mixed", "2\r\nfile_size_limit_in_mb=10\nReader 310 5\r\nReplay 320 6\nClient 330 5\r\n", plain,
         with_rule},
        {"no newline at the end", head + "Reader 310 5\nReplay 320 6", plain, with_rule},
        {"CRLF and no newline at the end", "2\r\nfile_size_limit_in_mb=10\r\nReplay 320 6", plain, with_rule},
        {"tabs", head + "Reader\t310\t5\t// r\nReplay\t320\t6\t\t// with\ttabs\t\nClient\t330\t5\n",
         "Replay\t320\t6\t\t// with\ttabs\t", "Replay\t320\t6  [(7;192.0.2.7)]\t\t// with\ttabs\t"},
        {"blanks in front and behind", head + "   Replay   320   6   \n\n \n", "   Replay   320   6   ",
         "   Replay   320   6  [(7;192.0.2.7)]   "},
        {"8-bit comments", "# \xE4\xF6\xFC \xFF\xFE\n" + head + "Replay 320 6 // \xE4rger\nReader 310 5 // \xDF\x80\n",
         "Replay 320 6 // \xE4rger", "Replay 320 6  [(7;192.0.2.7)] // \xE4rger"},
        {"UTF-8 comments", "# \xC3\xA4\n" + head + "Replay 320 6 // \xE2\x82\xAC \xF0\x9F\x98\x80\n",
         "Replay 320 6 // \xE2\x82\xAC \xF0\x9F\x98\x80",
         "Replay 320 6  [(7;192.0.2.7)] // \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"comments of both kinds and lines that say nothing",
         "! one\n# two\n" + head + "# Replay 320 1\n! Replay 320 2\n\n   \nReplay 320 6\n#\n!\n", plain, with_rule},
        {"a package of twice", head + "Replay 320 2\nReader 310 5\nReplay 320 6\n", plain, with_rule},
        {"another number's level behind it", head + "Replay 320 6\nReader 310\nClient\n", plain, with_rule},
        {"rules there already", head + "Replay 320 6 [(7;192.0.2.7)(6;;viewer)]// x\n",
         "Replay 320 6 [(7;192.0.2.7)(6;;viewer)]// x", "Replay 320 6 [(7;192.0.2.7)(6;;viewer)]// x"},
        {"750 packages with ten rules", large_logger("\n"), "", ""},
        {"750 packages with ten rules and CRLF", large_logger("\r\n"), "", ""},
    };
    return files;
}

/// True when both are the same but for the one line.
void expect_one_line_changed(const NastyFile& file, const std::string& after, const std::string& changed)
{
    const auto before_lines = pieces_of(file.bytes);
    const auto after_lines = pieces_of(after);
    ASSERT_EQ(after_lines.size(), before_lines.size()) << after;
    int differing = 0;
    for (std::size_t i = 0; i < before_lines.size(); ++i)
    {
        if (after_lines[i] == before_lines[i])
            continue;
        ++differing;
        const std::string end = before_lines[i].substr(file.line.size());
        EXPECT_EQ(before_lines[i], file.line + end);
        EXPECT_EQ(after_lines[i], changed + end);
    }
    EXPECT_EQ(differing, file.line == changed ? 0 : 1);
}

TEST(LevelSyncFiles, KeepEveryByteButTheLineThatIsChangedAndAllOnceItIsTakenBack)
{
    for (const NastyFile& file : nasty_files())
    {
        if (file.line.empty())
            continue;
        SCOPED_TRACE(file.what);
        const Site site(file.bytes);
        const Ran set = site.run("set 320 7 --client 192.0.2.7");
        ASSERT_EQ(set.exit_code, 0) << set;
        expect_one_line_changed(file, site.logger(), file.changed);
        if (file.line == file.changed)
            continue;
        ASSERT_EQ(site.run("undo").exit_code, 0);
        EXPECT_EQ(site.logger(), file.bytes);
    }
}

TEST(LevelSyncFiles, KeepEveryByteOfAFileOf750PackagesWithTenRules)
{
    for (const std::string line_end : {"\n", "\r\n"})
    {
        const std::string bytes = large_logger(line_end);
        const Site site(bytes);
        const auto viewer = site.host("viewer");
        viewer->serve("10.1.1.7");
        EXPECT_EQ(viewer->level(749), 6);
        ASSERT_EQ(site.run("set P320 7").exit_code, 0);
        std::string expected = bytes;
        const std::size_t at = expected.find("P320 320 5");
        expected.replace(at, 10, "P320 320 7");
        EXPECT_TRUE(site.logger() == expected);
        EXPECT_EQ(viewer->level(320), 7);
        EXPECT_EQ(viewer->level(321), 6);
        EXPECT_EQ(site.run("set P320 7 --client 192.0.2.7").exit_code, 1) << "an 11th rule";
        ASSERT_EQ(site.run("clear P749").exit_code, 0);
        EXPECT_EQ(viewer->level(749), 5);
        EXPECT_EQ(viewer->level(748), 6);
        ASSERT_EQ(site.run("undo").exit_code, 0);
        ASSERT_EQ(site.run("undo").exit_code, 0);
        EXPECT_TRUE(site.logger() == bytes);
        EXPECT_EQ(viewer->level(749), 6);
    }
}

TEST(LevelSyncFiles, KeepTheBytesOfOutputAndLimitLinesToo)
{
    const Site site("# \xE4\r\n2 // files\r\nfile_size_limit_in_mb=10 \t// MB\r\nReplay 320 6");
    ASSERT_EQ(site.run("limit 11").exit_code, 0);
    EXPECT_EQ(site.logger(), "# \xE4\r\n2 // files\r\nfile_size_limit_in_mb=11 \t// MB\r\nReplay 320 6");
    ASSERT_EQ(site.run("output eventlog").exit_code, 0);
    EXPECT_EQ(site.logger(), "# \xE4\r\n1 // files\r\nfile_size_limit_in_mb=11 \t// MB\r\nReplay 320 6");
}

TEST(LevelSyncFiles, AreNotTouchedWhereTheyAreReadDifferentlyThanTheyLook)
{
    struct Row
    {
        std::string bytes;
        const char* says;
    };
    for (const Row& row :
         {Row{"\xEF\xBB\xBF"
              "2\nfile_size_limit_in_mb=10\nReplay 320 6\n",
              "The file begins with a byte-order mark"},
          Row{"2\nfile_size_limit_in_mb=10\nReplay 320 6\nX 1 5 //" + std::string(200, 'x') + "\nReader 310 5\n",
              "The reading of the file ends in line 4, before the file does."},
          Row{"2\nfile_size_limit_in_mb=10\nReplay 320 6\n\x1AReader 310 5\n",
              "The reading of the file ends in line 4"},
          Row{"", "The file lacks its first lines"}, Row{"# nothing\n", "The file lacks its first lines"},
          Row{"2\n", "The file lacks its first lines"}})
    {
        const Site site(row.bytes);
        const Ran ran = site.run("set 320 7");
        EXPECT_EQ(ran.exit_code, 1) << ran;
        EXPECT_TRUE(ran.warns(row.says)) << ran;
        EXPECT_TRUE(ran.warns("Nothing was changed.")) << ran;
        EXPECT_EQ(site.logger(), row.bytes);
    }
}

TEST(LevelSyncFiles, TakeTheirFirstLinesFromOutputAndLimit)
{
    const Site site("");
    EXPECT_EQ(site.run("output files").exit_code, 0);
    EXPECT_EQ(site.run("limit 10").exit_code, 0);
    EXPECT_EQ(site.run("set 320 6").exit_code, 0);
    EXPECT_EQ(site.host("viewer")->level(320), 6);
    EXPECT_EQ(site.run("check").exit_code, 0) << site.logger();
}
} // namespace
