// level_file_test.cpp - changes of a `logger` file that touch one line, and taking them back.

#include "core/level_file.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace kor::core;

namespace
{
const NewPackage MADE{"Made", 4};

RuleFilters clients(std::vector<std::string> addresses)
{
    RuleFilters filters;
    filters.lists[RULE_ADDRESSES] = std::move(addresses);
    return filters;
}

RuleFilters application(const std::string& name)
{
    RuleFilters filters;
    filters.lists[RULE_APPLICATIONS] = {name};
    return filters;
}

const std::string FIRST_LINES = "2\nfile_size_limit_in_mb=10\n";

/// The one line behind the first lines.
std::string package_line(const LevelEdit& edit)
{
    return edit && edit.bytes.compare(0, FIRST_LINES.size(), FIRST_LINES) == 0 ? edit.bytes.substr(FIRST_LINES.size())
                                                                               : "problem";
}

std::string with_rule(const std::string& line, int level, const RuleFilters& filters)
{
    return package_line(set_rule(LevelFile(FIRST_LINES + line), 320, level, filters, MADE));
}
} // namespace

// What is read --------------------------------------------------------------------------------------------

TEST(LevelFile, KnowsWhichLineSaysWhat)
{
    const LevelFile file(
        "# comment\r\n2\r\nfile_size_limit_in_mb=10\r\nReplay 320 6 [(7;192.0.2.7)(5;;viewer)] // text\r\n");
    EXPECT_EQ(file.output(), 2);
    EXPECT_EQ(file.output_line(), 1u);
    EXPECT_EQ(file.size_limit(), 10u);
    EXPECT_EQ(file.size_limit_line(), 2u);
    ASSERT_EQ(file.packages().count(320), 1u);
    const LevelPackage& package = file.packages().at(320);
    EXPECT_EQ(package.name, "Replay");
    EXPECT_EQ(package.level, 6);
    EXPECT_EQ(package.line, 3u);
    EXPECT_EQ(package.rules_line, 3u);
    EXPECT_EQ(package.rules, (std::vector<std::string_view>{"7;192.0.2.7", "5;;viewer"}));
}

TEST(LevelFile, TakesLevelAndRulesOfAPackageGivenTwiceFromTheLinesThatCount)
{
    const LevelFile file(FIRST_LINES + "Replay 320 6 [(7;192.0.2.7)]\nAgain 320 5\n");
    const LevelPackage& package = file.packages().at(320);
    EXPECT_EQ(package.name, "Again");
    EXPECT_EQ(package.level, 5);
    EXPECT_EQ(package.line, 3u);
    EXPECT_EQ(package.rules_line, 2u);
    EXPECT_EQ(package.rules, std::vector<std::string_view>{"7;192.0.2.7"});
}

TEST(LevelFile, EndsWhereTheReaderEnds)
{
    const LevelFile too_long(FIRST_LINES + "A 1 5\n#" + std::string(199, 'x') + "\nB 2 5\n");
    EXPECT_EQ(too_long.cut_line(), 3u);
    EXPECT_EQ(too_long.packages().count(1), 1u);
    EXPECT_EQ(too_long.packages().count(2), 0u);

    const LevelFile fits(FIRST_LINES + "#" + std::string(198, 'x') + "\r\nB 2 5\n");
    EXPECT_FALSE(fits.cut_line());
    EXPECT_EQ(fits.packages().count(2), 1u);

    const LevelFile ctrl_z(FIRST_LINES + "A 1 5\nB 2\x1A 7\nC 3 5\n");
    EXPECT_EQ(ctrl_z.cut_line(), 3u);
    EXPECT_EQ(ctrl_z.packages().at(2).level, 5) << "of the line before";
    EXPECT_EQ(ctrl_z.packages().count(3), 0u);
}

TEST(LevelFile, ReadsTheLineUpToANul)
{
    const LevelFile file(FIRST_LINES + std::string("A 1 5\0 [(7;192.0.2.7)]\n", 23));
    EXPECT_TRUE(file.packages().at(1).rules.empty());
}

// Levels --------------------------------------------------------------------------------------------------

TEST(LevelEdits, ChangeTheLevelAndNoOtherByte)
{
    const std::string before =
        "# a\r\n2\nfile_size_limit_in_mb=10\r\nReader\t310   5\t\xE4\xF6 // \xC3\xA4\r\nReplay 320 6 //x\n!";
    const LevelEdit edit = set_level(LevelFile(before), 310, 7, MADE);
    ASSERT_TRUE(edit);
    EXPECT_EQ(
        edit.bytes,
        "# a\r\n2\nfile_size_limit_in_mb=10\r\nReader\t310   7\t\xE4\xF6 // \xC3\xA4\r\nReplay 320 6 //x\n!");
    EXPECT_EQ(edit.change.what, 310);
    EXPECT_EQ(edit.change.line, 3u);
    EXPECT_EQ(edit.change.before, "Reader\t310   5\t\xE4\xF6 // \xC3\xA4");
    EXPECT_EQ(edit.change.after, "Reader\t310   7\t\xE4\xF6 // \xC3\xA4");
}

TEST(LevelEdits, SayThatALevelIsThereAlready)
{
    EXPECT_EQ(set_level(LevelFile(FIRST_LINES + "A 1 5\n"), 1, 5, MADE).problem, EditProblem::NO_CHANGE);
}

TEST(LevelEdits, ChangeTheLineThatCountsOfAPackageGivenTwice)
{
    const LevelEdit edit = set_level(LevelFile(FIRST_LINES + "A 1 5\nB 1 6\n"), 1, 7, MADE);
    EXPECT_EQ(package_line(edit), "A 1 5\nB 1 7\n");
}

TEST(LevelEdits, GiveALevelToALineWithoutOne)
{
    EXPECT_EQ(package_line(set_level(LevelFile(FIRST_LINES + "A 1 5\nB 2 // x\n"), 2, 7, MADE)), "A 1 5\nB 2 7 // x\n");
    EXPECT_EQ(package_line(set_level(LevelFile(FIRST_LINES + "A 1 5\nB\n"), 1, 7, MADE)), "A 1 5\nB 1 7\n");
}

TEST(LevelEdits, LeaveALineAloneOnWhichAnotherDepends)
{
    EXPECT_EQ(set_level(LevelFile(FIRST_LINES + "A 1 5\nB 2\n"), 1, 7, MADE).problem, EditProblem::NO_OTHER_WAY);
}

TEST(LevelEdits, AddALineBehindTheLastPackageInItsColumns)
{
    EXPECT_EQ(
        package_line(
            set_level(LevelFile(FIRST_LINES + "Reader       310       5   // reads\n# end\n!\n"), 320, 7, MADE)),
        "Reader       310       5   // reads\nMade         320       7\n# end\n!\n");
    EXPECT_EQ(package_line(set_level(LevelFile(FIRST_LINES), 320, 7, MADE)), "Made 320 7\n");
}

TEST(LevelEdits, AddALineToAFileWithoutALastLineEnd)
{
    EXPECT_EQ(package_line(set_level(LevelFile(FIRST_LINES + "A 1 5"), 320, 7, MADE)), "A 1 5\nMade 320 7");
    EXPECT_EQ(
        set_level(LevelFile("2\r\nfile_size_limit_in_mb=0"), 320, 7, MADE).bytes,
        "2\r\nfile_size_limit_in_mb=0\r\nMade 320 7");
    const LevelFile lone_return(FIRST_LINES + "A 1 5 x\r"); // which "\n" alone would make a line end of
    const LevelEdit edit = set_level(lone_return, 320, 7, MADE);
    EXPECT_EQ(package_line(edit), "A 1 5 x\r\r\nMade 320 7");
    EXPECT_EQ(take_back(LevelFile(edit.bytes), edit.change).bytes, lone_return.bytes());
}

TEST(LevelEdits, AddNoPackageWhereItWouldBeTakenForAFirstLine)
{
    EXPECT_EQ(set_level(LevelFile("# x\n"), 1, 7, MADE).problem, EditProblem::NO_FIRST_LINES);
    EXPECT_EQ(set_level(LevelFile("2\n"), 1, 7, MADE).problem, EditProblem::NO_FIRST_LINES);
}

TEST(LevelEdits, AddNoPackageBehindTheEndOfTheReading)
{
    EXPECT_EQ(set_level(LevelFile(FIRST_LINES + "A 1 5\x1A"), 2, 7, MADE).problem, EditProblem::NO_OTHER_WAY);
}

// Rules ---------------------------------------------------------------------------------------------------

TEST(LevelEdits, AddARuleAndKeepTheCommentInItsColumn)
{
    EXPECT_EQ(
        with_rule("Replay       320       6                    // replays its lines\n", 7, clients({"192.0.2.7"})),
        "Replay       320       6  [(7;192.0.2.7)]   // replays its lines\n");
    EXPECT_EQ(with_rule("Replay 320 6\r\n", 7, clients({"192.0.2.7"})), "Replay 320 6  [(7;192.0.2.7)]\r\n");
    EXPECT_EQ(with_rule("Replay 320 6//x\n", 7, clients({"192.0.2.7"})), "Replay 320 6  [(7;192.0.2.7)] //x\n");
    EXPECT_EQ(with_rule("Replay 320 6\t//x", 7, clients({"192.0.2.7"})), "Replay 320 6  [(7;192.0.2.7)]\t//x");
}

TEST(LevelEdits, AddARuleBehindTheOthers)
{
    EXPECT_EQ(
        with_rule("Replay 320 6 [(7;;viewer)x]     // y\n", 5, clients({"192.0.2.7", "192.0.2.8"})),
        "Replay 320 6 [(7;;viewer)(5;192.0.2.7,192.0.2.8)x] // y\n");
    EXPECT_EQ(with_rule("Replay 320 6 []\n", 7, application("viewer")), "Replay 320 6 [(7;;viewer)]\n");
    EXPECT_EQ(
        with_rule("Replay 320 6 [(7; 1.2.3.4)]\n", 7, application("viewer")),
        "Replay 320 6 [(7;;viewer)(7; 1.2.3.4)]\n");
}

TEST(LevelEdits, ChangeTheLevelOfTheRuleWithTheSameFilters)
{
    EXPECT_EQ(
        with_rule("Replay 320 6 [(7;192.0.2.8,192.0.2.7;a)(5;192.0.2.7)(6;;b)] // y\n", 7, clients({"192.0.2.7"})),
        "Replay 320 6 [(7;192.0.2.8,192.0.2.7;a)(7;192.0.2.7)(6;;b)] // y\n");
    EXPECT_EQ(
        with_rule("Replay 320 6 [(5;b,a)(7;a,b)] //\n", 6, clients({"a", "b"})), "Replay 320 6 [(6;a,b)]        //\n");
    EXPECT_EQ(
        set_rule(LevelFile(FIRST_LINES + "Replay 320 6 [(7;192.0.2.7)]\n"), 320, 7, clients({"192.0.2.7"}), MADE)
            .problem,
        EditProblem::NO_CHANGE);
}

TEST(LevelEdits, PutARuleWhereThePackagesRulesAre)
{
    EXPECT_EQ(
        with_rule("Replay 320 6 [(7;;a)]\nAgain 320 5\n", 7, application("b")),
        "Replay 320 6 [(7;;a)(7;;b)]\nAgain 320 5\n");
}

TEST(LevelEdits, GiveARuleToALineWithoutALevel)
{
    EXPECT_EQ(with_rule("A 1 5\nReplay 320\n", 7, application("b")), "A 1 5\nReplay 320 5  [(7;;b)]\n");
}

TEST(LevelEdits, AddAPackageWithARule)
{
    EXPECT_EQ(with_rule("A 1 5\n", 7, application("b")), "A 1 5\nMade 320 4  [(7;;b)]\n");
}

TEST(LevelEdits, RefuseAnEleventhRuleThatCounts)
{
    std::string rules;
    for (int i = 0; i < 9; ++i)
        rules += "(7;;;" + std::to_string(i) + ")";
    EXPECT_EQ(
        with_rule("R 320 6 [" + rules + "(9;;x)]\n", 7, application("b")), "R 320 6 [" + rules + "(9;;x)(7;;b)]\n");
    EXPECT_EQ(
        set_rule(LevelFile(FIRST_LINES + "R 320 6 [" + rules + "(7;;x)]\n"), 320, 7, application("b"), MADE).problem,
        EditProblem::TOO_MANY_RULES);
}

TEST(LevelEdits, RefuseALineThatTheReaderWouldNotTake)
{
    const std::string line = "Replay 320 6 // " + std::string(160, 'x') + "\n";
    EXPECT_EQ(
        set_rule(LevelFile(FIRST_LINES + line), 320, 7, clients({"192.0.2.111"}), MADE).problem, EditProblem::NONE);
    EXPECT_EQ(
        set_rule(LevelFile(FIRST_LINES + line), 320, 7, clients({"192.0.2.111", "192.0.2.112"}), MADE).problem,
        EditProblem::LINE_TOO_LONG);
}

TEST(LevelEdits, RefuseEntriesThatDoNotReadBack)
{
    const LevelFile file(FIRST_LINES + "Replay 320 6\n");
    for (const char* const name : {"a b", "a,b", "a;b", "a(b", "a)b", "", "a_name_of_20_letters"})
        EXPECT_EQ(set_rule(file, 320, 7, application(name), MADE).problem, EditProblem::NOT_WRITABLE) << name;
    EXPECT_TRUE(set_rule(file, 320, 7, application("a_name_of_19_letter"), MADE));
    RuleFilters process;
    process.lists[RULE_PROCESSES] = {"5000000000"};
    EXPECT_EQ(set_rule(file, 320, 7, process, MADE).problem, EditProblem::NOT_WRITABLE);
    EXPECT_EQ(
        set_rule(file, 320, 7, clients(std::vector<std::string>(11, "10.0.0.0")), MADE).problem,
        EditProblem::TOO_MANY_ENTRIES);
}

// Clearing ------------------------------------------------------------------------------------------------

TEST(LevelEdits, ClearOneRule)
{
    const auto cleared = [](const std::string& line, const RuleFilters& filters)
    { return package_line(clear_rule(LevelFile(FIRST_LINES + line), 320, filters)); };
    EXPECT_EQ(cleared("R 320 6 [(7;;a)(5;;b)(6;;c)] // x\n", application("b")), "R 320 6 [(7;;a)(6;;c)]       // x\n");
    EXPECT_EQ(cleared("R 320 6 [(7;;a)] // x\n", application("a")), "R 320 6          // x\n");
    EXPECT_EQ(cleared("R 320 6  [(7;;a)]\n", application("a")), "R 320 6\n");
    EXPECT_EQ(cleared("R 320 6 [(7;;a,b)]\n", application("a")), "R 320 6 [(7;;b)]\n") << "leaves the other entry";
    EXPECT_EQ(cleared("R 320 6 [(7;10.0.0.1;a,b)]\n", application("a")), "R 320 6 [(7;10.0.0.1;b)]\n");
}

TEST(LevelEdits, ClearNoRuleThatWouldThenBeForEverybody)
{
    EXPECT_EQ(
        clear_rule(LevelFile(FIRST_LINES + "R 320 6 [(7;10.0.0.1;a)]\n"), 320, application("a")).problem,
        EditProblem::NO_SUCH_RULE);
}

TEST(LevelEdits, ClearAllRules)
{
    EXPECT_EQ(
        package_line(clear_rules(LevelFile(FIRST_LINES + "R 320 6 [(7;;a)(9;;b)] // x\n"), 320)),
        "R 320 6                // x\n");
    EXPECT_EQ(
        package_line(clear_rules(LevelFile(FIRST_LINES + "R 320 6 [(7;;a)]\nR 320 6 [(7;;b)]\n"), 320)),
        "R 320 6 [(7;;a)]\nR 320 6 []\n")
        << "or the rules of the first line would count again";
    EXPECT_EQ(clear_rules(LevelFile(FIRST_LINES + "R 320 6\n"), 320).problem, EditProblem::NO_CHANGE);
    EXPECT_EQ(clear_rules(LevelFile(FIRST_LINES), 320).problem, EditProblem::NO_SUCH_PACKAGE);
}

// The first lines -----------------------------------------------------------------------------------------

TEST(LevelEdits, ChangeTheOutput)
{
    EXPECT_EQ(
        set_output(LevelFile("# x\n 2 files\nfile_size_limit_in_mb=0\n"), 1).bytes,
        "# x\n 1 files\nfile_size_limit_in_mb=0\n");
    EXPECT_EQ(set_output(LevelFile("files\nfile_size_limit_in_mb=0\n"), 3).bytes, "3 files\nfile_size_limit_in_mb=0\n");
    EXPECT_EQ(set_output(LevelFile("# x\n"), 2).bytes, "# x\n2\n");
    EXPECT_EQ(set_output(LevelFile("3\n"), 2).bytes, "2\n");
    EXPECT_EQ(set_output(LevelFile("3\n"), 3).problem, EditProblem::NO_CHANGE);
}

TEST(LevelEdits, ChangeTheSizeLimit)
{
    EXPECT_EQ(
        set_size_limit(LevelFile("2\nfile_size_limit_in_mb=10 MB\nA 1 5\n"), 50).bytes,
        "2\nfile_size_limit_in_mb=50 MB\nA 1 5\n");
    EXPECT_EQ(set_size_limit(LevelFile("2\r\n"), 50).bytes, "2\r\nfile_size_limit_in_mb=50\r\n");
    EXPECT_EQ(set_size_limit(LevelFile("2\n# x\nA 1 5\n"), 50).bytes, "2\nfile_size_limit_in_mb=50\n# x\nA 1 5\n");
    EXPECT_EQ(set_size_limit(LevelFile("2\n\nA 1 5\n"), 50).bytes, "2\nfile_size_limit_in_mb=50\nA 1 5\n");
    EXPECT_EQ(set_size_limit(LevelFile("2\nA 1 5\n"), 50).problem, EditProblem::LINE_IS_LOST);
    EXPECT_EQ(set_size_limit(LevelFile("# x\n"), 50).problem, EditProblem::NO_FIRST_LINES);
    EXPECT_EQ(set_size_limit(LevelFile("2\nfile_size_limit_in_mb=50\n"), 50).problem, EditProblem::NO_CHANGE);
    // A line that nobody reads, also where what it says is so already.
    EXPECT_EQ(set_size_limit(LevelFile("2\x1A\nA 1 5\n"), 0).problem, EditProblem::NO_OTHER_WAY);
}

// Taking back ---------------------------------------------------------------------------------------------

TEST(TakingBack, RestoresTheFileByteForByte)
{
    const std::string before = FIRST_LINES + "Reader\t310   5\t\xE4 // x\r\nReplay 320 6 [(5;;a)]    // y";
    for (const LevelEdit& edit :
         {set_level(LevelFile(before), 310, 7, MADE), set_rule(LevelFile(before), 320, 7, clients({"192.0.2.7"}), MADE),
          set_level(LevelFile(before), 330, 7, MADE), clear_rules(LevelFile(before), 320),
          set_output(LevelFile(before), 1), set_size_limit(LevelFile(before), 3)})
    {
        ASSERT_TRUE(edit);
        const LevelEdit back = take_back(LevelFile(edit.bytes), edit.change);
        ASSERT_TRUE(back);
        EXPECT_EQ(back.bytes, before);
        EXPECT_EQ(take_back(LevelFile(back.bytes), back.change).bytes, edit.bytes) << "and forth again";
    }
}

TEST(TakingBack, LeavesWhatCameToTheLineSince)
{
    const LevelFile before(FIRST_LINES + "Replay 320 6 // x\n");
    const LevelEdit first = set_rule(before, 320, 7, clients({"192.0.2.7"}), MADE);
    const LevelEdit second = set_rule(LevelFile(first.bytes), 320, 7, clients({"192.0.2.8"}), MADE);
    const LevelEdit third = set_level(LevelFile(second.bytes), 320, 5, MADE);
    EXPECT_EQ(
        package_line(take_back(LevelFile(third.bytes), first.change)),
        "Replay 320 5  [(7;192.0.2.8)]              // x\n");
    EXPECT_EQ(
        package_line(take_back(LevelFile(third.bytes), second.change)),
        "Replay 320 5  [(7;192.0.2.7)]              // x\n");
}

TEST(TakingBack, RestoresTheLevelThatARuleHad)
{
    const LevelEdit first = set_rule(LevelFile(FIRST_LINES + "R 320 4 [(5;;a)]\n"), 320, 7, application("a"), MADE);
    const LevelEdit second = set_rule(LevelFile(first.bytes), 320, 6, application("b"), MADE);
    EXPECT_EQ(package_line(take_back(LevelFile(second.bytes), first.change)), "R 320 4 [(5;;a)(6;;b)]\n");
}

TEST(TakingBack, RefusesWhatSomebodyHasChangedSince)
{
    const LevelEdit level = set_level(LevelFile(FIRST_LINES + "R 320 4\n"), 320, 7, MADE);
    EXPECT_EQ(take_back(LevelFile(FIRST_LINES + "R 320 5\n"), level.change).problem, EditProblem::CHANGED_SINCE);
    EXPECT_EQ(take_back(LevelFile(FIRST_LINES + "R  320 4\n"), level.change).problem, EditProblem::NO_CHANGE);
    EXPECT_EQ(take_back(LevelFile(FIRST_LINES), level.change).problem, EditProblem::CHANGED_SINCE);

    const LevelEdit rule = set_rule(LevelFile(FIRST_LINES + "R 320 4\n"), 320, 7, application("a"), MADE);
    EXPECT_EQ(
        take_back(LevelFile(FIRST_LINES + "R 320 4 [(6;;a)]\n"), rule.change).problem, EditProblem::CHANGED_SINCE);

    const LevelEdit output = set_output(LevelFile(FIRST_LINES), 1);
    EXPECT_EQ(take_back(LevelFile("0\nfile_size_limit_in_mb=10\n"), output.change).problem, EditProblem::CHANGED_SINCE);
}

TEST(TakingBack, TakesAnAddedPackageAwayWhenNothingElseCameToIt)
{
    const LevelEdit added = set_rule(LevelFile(FIRST_LINES + "A 1 5\n"), 320, 7, application("a"), MADE);
    EXPECT_EQ(
        package_line(take_back(LevelFile(FIRST_LINES + "Made  320 4 [(7;;a)]\nA 1 5\n"), added.change)), "A 1 5\n");
    EXPECT_EQ(
        package_line(take_back(LevelFile(FIRST_LINES + "Made 320 4 [(7;;a)(6;;b)]\n"), added.change)),
        "Made 320 4 [(6;;b)]\n");
}

// Whatever the file ---------------------------------------------------------------------------------------

namespace
{
class Random
{
public:
    explicit Random(unsigned seed) : m_engine(seed) {}
    int below(int end) { return static_cast<int>(m_engine() % static_cast<unsigned>(end)); }
    template <class Item>
    const Item& of(const std::vector<Item>& items)
    {
        return items[static_cast<std::size_t>(below(static_cast<int>(items.size())))];
    }

private:
    std::mt19937 m_engine;
};

std::string random_line(Random& random)
{
    static const std::vector<std::string> names{"Net",   "Io",       "\xC3\xA4", "\xE4", "x",
                                                "#late", "  # late", "# note",   "!",    ""};
    static const std::vector<std::string> numbers{"", " 1", " 2", "\t3", " 4", " 5", " 750", " -1", " 2x"};
    static const std::vector<std::string> levels{"", " 4", " 5", "  7", "\t6", " 300", " 9", " 5//"};
    static const std::vector<std::string> rules{
        "", "", " [(7;10.0.0.1)]", " [(6;;a)(7;;;12)]", " [(9;;a)]", " []", " [(7; 1.1.1.1)]", " [(5;;b)", " (6;;a)"};
    static const std::vector<std::string> ends{"", "", " // text", "   // \xC3\xB6", "\t\xFC", std::string("\0x", 2)};
    return random.of(names) + random.of(numbers) + random.of(levels) + random.of(rules) + random.of(ends);
}

std::string random_file(Random& random)
{
    static const std::vector<std::string> outputs{"2", "1", "3", "# c\n2", "x", " 0 // y"};
    static const std::vector<std::string> limits{
        "file_size_limit_in_mb=10", "file_size_limit_in_mb=0 x", "# lost", "", "Net 3 7"};
    const std::string end = random.below(2) == 0 ? "\n" : "\r\n";
    std::string bytes = random.of(outputs) + end + random.of(limits) + end;
    const int lines = random.below(9);
    for (int i = 0; i < lines; ++i)
        bytes += random_line(random) + (random.below(8) == 0 ? "\n" : end);
    if (random.below(3) == 0)
        bytes += random_line(random); // without a line end
    return bytes;
}

RuleFilters random_filters(Random& random)
{
    RuleFilters filters;
    if (random.below(2) == 0)
        filters.lists[RULE_ADDRESSES] = {random.below(2) == 0 ? "10.0.0.1" : "2001:db8::/32"};
    if (random.below(2) == 0)
        filters.lists[RULE_APPLICATIONS] = {random.below(2) == 0 ? "a" : "b"};
    if (random.below(4) == 0)
        filters.lists[RULE_PROCESSES] = {"12"};
    if (filters.empty() || random.below(4) == 0)
        filters.lists[RULE_SESSIONS] = {"3", "4"};
    return filters;
}

/// All lines but the ones of these indices, with their ends.
std::vector<std::string> lines_without(const LevelFile& file, std::size_t index)
{
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < file.lines().size(); ++i)
        if (i != index)
            lines.emplace_back(std::string(file.lines()[i].text) + '|' + std::string(file.lines()[i].end));
    return lines;
}

/// Every line that the edit is not about is as it was; the one in front of a new line may have got an end.
void expect_other_lines_untouched(const std::string& before, const LevelEdit& edit)
{
    const LevelFile old_file(before);
    const LevelFile new_file(edit.bytes);
    constexpr std::size_t NONE = static_cast<std::size_t>(-1);
    auto old_lines = lines_without(old_file, edit.change.before ? edit.change.line : NONE);
    auto new_lines = lines_without(new_file, edit.change.after ? edit.change.line : NONE);
    ASSERT_EQ(old_lines.size(), new_lines.size());
    const auto without_end = [](const std::string& line) { return line.substr(0, line.find('|')); };
    for (std::size_t i = 0; i < old_lines.size(); ++i)
    {
        const bool is_neighbour = i + 1 == edit.change.line && !(edit.change.before && edit.change.after);
        EXPECT_EQ(
            is_neighbour ? without_end(old_lines[i]) : old_lines[i],
            is_neighbour ? without_end(new_lines[i]) : new_lines[i]);
    }
}

struct Asked
{
    int package;
    int level;
    RuleFilters filters;
};

/// One edit of a random kind. Sets what the package has to have afterwards.
LevelEdit random_edit(Random& random, const LevelFile& file, Asked& asked, int& kind)
{
    asked = {random.below(6), 1 + random.below(7), random_filters(random)};
    kind = random.below(4);
    switch (kind)
    {
    case 0:
        return set_level(file, asked.package, asked.level, MADE);
    case 1:
        return set_rule(file, asked.package, asked.level, asked.filters, MADE);
    case 2:
        return clear_rule(file, asked.package, asked.filters);
    default:
        return clear_rules(file, asked.package);
    }
}

bool has_rule(const LevelPackage& package, int level, const RuleFilters& filters)
{
    for (const std::string_view rule : package.rules)
        if (filters_of(rule) == filters)
            return split_rule(rule).level == level;
    return false;
}
} // namespace

TEST(LevelEdits, GiveWhatWasAskedForAndTouchNothingElseWhateverTheFile)
{
    int made = 0;
    for (unsigned seed = 0; seed < 3000; ++seed)
    {
        Random random(seed);
        std::string bytes = random_file(random);
        std::vector<std::pair<std::string, LevelEdit>> chain;
        for (int step = 0; step < 6; ++step)
        {
            Asked asked{};
            int kind = 0;
            const LevelFile file(bytes);
            LevelEdit edit = random_edit(random, file, asked, kind);
            if (!edit)
                continue;
            ++made;
            SCOPED_TRACE(
                "seed " + std::to_string(seed) + ", step " + std::to_string(step) + ", kind " + std::to_string(kind));
            expect_other_lines_untouched(bytes, edit);
            const LevelFile result(edit.bytes);
            ASSERT_EQ(result.packages().count(asked.package), 1u);
            const LevelPackage& package = result.packages().at(asked.package);
            if (kind == 0)
            {
                EXPECT_EQ(package.level, asked.level);
            }
            if (kind == 1)
            {
                EXPECT_TRUE(has_rule(package, asked.level, asked.filters));
            }
            if (kind == 3)
            {
                EXPECT_TRUE(package.rules.empty());
            }
            if (kind != 0 && file.packages().count(asked.package) == 1)
            {
                EXPECT_EQ(package.level, file.packages().at(asked.package).level);
            }
            chain.emplace_back(bytes, edit);
            bytes = edit.bytes;
        }
        // Backwards through the chain, every state comes back byte for byte.
        for (auto step = chain.rbegin(); step != chain.rend(); ++step)
        {
            const LevelEdit back = take_back(LevelFile(bytes), step->second.change);
            ASSERT_TRUE(back) << "seed " << seed;
            ASSERT_EQ(back.bytes, step->first) << "seed " << seed;
            bytes = back.bytes;
        }
    }
    EXPECT_GT(made, 5000) << "the files are such that most edits can be made";
}
