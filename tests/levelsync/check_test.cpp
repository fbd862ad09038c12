// check_test.cpp - LevelSync check: one row for each thing in a file that is read differently than it looks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "level_sync.h"

using ::testing::HasSubstr;

namespace
{
struct Row
{
    std::string logger;
    std::string place;   ///< "line 3, column 14"
    std::string what;    ///< a part of what is said
    std::string instead; ///< a part of what to write instead
    int exit_code = 1;
};

const std::string HEAD = "2\nfile_size_limit_in_mb=0\n";
const std::string LEVELS = "The levels are 1 severe, 2 critical";

std::string rules(int count)
{
    std::string text;
    for (int i = 1; i <= count; ++i)
        text += "(6;;;" + std::to_string(i) + ')';
    return text;
}

const std::vector<Row>& rows()
{
    static const std::vector<Row> table{
        // The first lines.
        {"\xEF\xBB\xBF" + HEAD, "line 1, column 1", "byte-order mark", "Save it as UTF-8 without a byte-order mark."},
        {"", "line 1, column 1", "No line says where messages go: they go to standard error.",
         "Begin the file with the lines 2 and file_size_limit_in_mb=10."},
        {"two\nfile_size_limit_in_mb=0\n", "line 1, column 1", "begins with no number, for 0: standard error.",
         "Write 0 for standard error, 1 for the event log"},
        {"7\nfile_size_limit_in_mb=0\n", "line 1, column 1", "The output 7 is taken for 1, the event log.",
         "Write 0 for standard error"},
        {"2\n# size\nReplay 320 5\n", "line 2, column 1", "this comment says none, so there is no limit.",
         "Write file_size_limit_in_mb=10 (0: no limit) in front of the comment."},
        {"2\nReplay 320 5\n", "line 2, column 1", "this one does not count as what it says, and there is no limit.",
         "in front of it."},
        {"2\n File_Size_Limit_In_MB=5\n", "line 2, column 1", "this one is written differently, so there is no limit.",
         "Write exactly file_size_limit_in_mb="},
        {"2\n\n", "line 2, column 1", "this empty one says none, so there is no limit.", "in place of it."},
        {"2\n", "line 1, column 1", "Nothing stands behind the output", "Write file_size_limit_in_mb=0 behind it.", 0},
        {"2\nfile_size_limit_in_mb=ten\n", "line 2, column 23", "The size limit is no number",
         "Write a number of megabytes"},
        {"2\nfile_size_limit_in_mb=99999999999\n", "line 2, column 23", "1215752191 is taken.",
         "from 0 to 4294967295."},
        {HEAD + "file_size_limit_in_mb=5\n", "line 3, column 1", "The size limit counts right behind the output alone",
         "Move the line up"},
        // Packages.
        {HEAD + "Net 750 5\n", "line 3, column 5", "There is no package 750: the line is skipped.",
         "The numbers are 0 to 749."},
        {HEAD + "Net\n", "line 3, column 1", "The line has no package number and is skipped.",
         "NAME NUMBER LEVEL, as in \"Replay 320 5\"."},
        {HEAD + "Io 4 5\nNet\n", "line 4, column 1", "it takes number and level of the line before",
         "NAME NUMBER LEVEL"},
        {HEAD + "Io 4 5\nNet 5 [(7;;viewer)]\n", "line 4, column 7",
         "The line has no level: it takes that of the line before, 5, and rules on it do not count.",
         "NAME NUMBER LEVEL"},
        {HEAD + "Io 4 300\n", "line 3, column 6", "The level is beyond 255, of which 44 is left.", LEVELS},
        {HEAD + "Net 3 9\n", "line 3, column 7", "The level 9 is as good as 7.", LEVELS, 0},
        {HEAD + std::string(40, 'n') + " 3 5\n", "line 3, column 1",
         "has 40 characters, of which the first 39 are taken.", "Shorten it.", 0},
        {HEAD + "Net 3 5\nNet 3 6\n", "line 3, column 1", "Package 3 is given again in line 4: that level counts.",
         "Keep one line for the package.", 0},
        {HEAD + "Net 3 5 [(7;;viewer)]\nNet 3 6 [(7;;other)]\n", "line 3, column 10",
         "Package 3 is given again in line 4 with rules of its own", "Keep one line for the package."},
        {HEAD + "  # Net 3 5\n", "line 3, column 3", "This is no comment for the reader", "in its first column."},
        {HEAD + "// Net 3 5\n", "line 3, column 1", "This is no comment for the reader", "Begin comments with # or !"},
        // Rules.
        {HEAD + "Net 3 5 [" + rules(11) + "]\n", "line 3, column 82", "A package holds 10 rules: this one is left out.",
         "Put what it is for into another rule's lists"},
        {HEAD + "Net 3 5 [(7)]\n", "line 3, column 11", "A rule without an entry in any of its lists is left out.",
         "Say whom it is for"},
        {HEAD + "Net 3 5 [(9;192.0.2.7)]\n", "line 3, column 11", "A rule needs a level from 1 to 7, not \"9\"",
         "Write the level first"},
        {HEAD + "Net 3 5 [(7; 192.0.2.7)]\n", "line 3, column 13", "Rules end at the first blank",
         "Write the rules without blanks."},
        {HEAD + "Net 3 5 (7;192.0.2.7)\n", "line 3, column 9", "These rules are not read.", "Write rules in brackets"},
        {HEAD + "Net 3 5 [(7;192.0.2.7]\n", "line 3, column 10", "A parenthesis is not closed", "[(7;192.0.2.7)]"},
        {HEAD + "Net 3 5 [(6;;,viewer)(6;;;1)]\n", "line 3, column 15",
         "A list ends at its first empty entry: \"viewer\" does not count.", "Take the comma out"},
        {HEAD + "Net 3 5 [(6;;;1,2,3,4,5,6,7,8,9,10,11)]\n", "line 3, column 36",
         "A list holds 10 entries: from the 11th on they are left out.", "Put the others into a second rule."},
        {HEAD + "Net 3 5 [(7;192.0.2.16/28)]\n", "line 3, column 23",
         "\"/28\" behind an IPv4 address is not looked at: the entry stands for 192.0.2.16.", "List the addresses"},
        {HEAD + "Net 3 5 [(7;10.0.0.0/8)]\n", "line 3, column 21", "the zeros at its end say the same",
         "Write 10.0.0.0.", 0},
        {HEAD + "Net 3 5 [(7;192.0.2)]\n", "line 3, column 13",
         "\"192.0.2\" looks like an IPv4 address and is read as another one", "as in 192.0.2.7"},
        {HEAD + "Net 3 5 [(7;192.0.2.010)]\n", "line 3, column 13",
         "\"192.0.2.010\" looks like an IPv4 address and is read as another one", "as in 192.0.2.7"},
        {HEAD + "Net 3 5 [(7;2001:db8::/129)]\n", "line 3, column 24", "The length of an IPv6 network is 0 to 128",
         "2001:db8::/32"},
        {HEAD + "Net 3 5 [(7;no.such.host.invalid)]\n", "line 3, column 13",
         "does not resolve, and the rule has no other entry: it is left out.",
         "Write the address in place of the name."},
        {HEAD + "Net 3 5 [(7;no.such.host.invalid;viewer)]\n", "line 3, column 13",
         "a list that has no other entry then holds for every client", "Write the address in place of the name."},
        {HEAD + "Net 3 5 [(6;;a_name_longer_than_19_chars)]\n", "line 3, column 14",
         "of which the first 19 are taken: the rule is for \"a_name_longer_than_\"", "use the process id."},
        {HEAD + "Net 3 5 [(6;;;5000000000)]\n", "line 3, column 15", "The id is beyond 32 bits",
         "Write the process's id."},
        {HEAD + "Net 3 5 [(6;;;viewer)]\n", "line 3, column 15", "\"viewer\" is no number and is read as process 0.",
         "Write the process's id."},
        {HEAD + "Net 3 5 [(7;;;4312:3)]\n", "line 3, column 19", "Sessions stand behind a semicolon", "Write 4312;3."},
        {HEAD + "Net 3 5 [(7;;;;3;4)]\n", "line 3, column 18", "this fifth one does not count", "in this order."},
        {HEAD + "Net 3 7 [(6;;viewer)]\n", "line 3, column 11", "a rule never lowers it: this one changes nothing.",
         "Lower the package's own level", 0},
        // Whole lines.
        {HEAD + "Net 3 5 //" + std::string(190, 'x') + "\nIo 4 5\n", "line 3, column 200",
         "The line has 200 characters, and reading ends at one of more than 199: it is not read, nor is what follows "
         "it.",
         "Shorten it to 199 characters"},
        {HEAD + "Net 3 5\n\x1A\nIo 4 5\n", "line 4, column 1", "A Ctrl-Z ends the file for the reader",
         "Take the character out."},
        {HEAD + std::string("Net 3 5\0 x\n", 11), "line 3, column 8", "at a character of the value 0.",
         "Take the character out."},
        {HEAD + "Net 3 5\rIo 4 5\r", "line 3, column 8", "A carriage return alone is no line end here",
         "Save the file with Windows line ends."},
    };
    return table;
}

TEST(LevelSyncCheck, NamesLineColumnAndWhatToWriteInsteadForEachOddity)
{
    const Site site;
    for (const Row& row : rows())
    {
        SCOPED_TRACE(row.logger);
        site.configure(row.logger);
        const Ran ran = site.run("check");
        EXPECT_EQ(ran.exit_code, row.exit_code) << ran;
        // Under the place, on lines of their own, stand the line as it is and what to write instead.
        const std::size_t place = ran.out.find(row.place + ": ");
        ASSERT_NE(place, std::string::npos) << ran;
        const std::size_t what = ran.out.find(row.what, place);
        ASSERT_NE(what, std::string::npos) << ran;
        EXPECT_EQ(ran.out.find('\n', place), ran.out.find('\n', what)) << ran;
        EXPECT_NE(ran.out.find(row.instead, what), std::string::npos) << ran;
    }
}

TEST(LevelSyncCheck, FindsNothingInAFileThatIsReadAsItLooks)
{
    const Site site;
    const Ran ran = site.run("check");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(ran.out, site.path("logger") + " is read as it looks.\n");
    EXPECT_EQ(site.run("check --json").at("/findings"), "[]");
}

TEST(LevelSyncCheck, TakesAnotherFileAndTellsPrograms)
{
    const Site site;
    write_file(site.path("other"), HEAD + "Net 3 5 [(7)]\n");
    const Ran ran = site.run({"check", site.path("other"), "--json"});
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_EQ(ran.size("/findings"), 1);
    EXPECT_EQ(ran.at("/findings/0/line"), "3");
    EXPECT_EQ(ran.at("/findings/0/column"), "11");
    EXPECT_EQ(ran.at("/findings/0/severity"), "\"wrong\"");
    EXPECT_EQ(ran.at("/findings/0/text"), "\"Net 3 5 [(7)]\"");
    EXPECT_EQ(ran.at("/findings/0/what"), "\"A rule without an entry in any of its lists is left out.\"");
}

TEST(LevelSyncCheck, CountsColumnsAsEditorsDo)
{
    const Site site(HEAD + "N\xC3\xA4t 3 5 [(7)]\n");
    EXPECT_TRUE(site.run("check").says("line 3, column 11: ")) << "characters, not bytes";
}
} // namespace
