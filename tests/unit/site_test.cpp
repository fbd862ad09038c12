// site_test.cpp - what a site wants, and the level file that it comes to on one machine.

#include "core/site.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace kor::core;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace
{
constexpr std::int64_t NOW = 1'700'000'000'000;
constexpr std::int64_t MINUTE = 60'000;

const std::string BASE = "# The servers of the archive.\n"
                         "2\n"
                         "file_size_limit_in_mb=10\n"
                         "Reader       310       5                    // reads the text\n"
                         "Replay       320       6                    // replays its lines\n"
                         "Client       330       5  [(6;;archive)]    // serves the client\n"
                         "# The end.\n";

SiteOverride override_of(const std::string& id, int package, int level, std::int64_t made = NOW - MINUTE)
{
    SiteOverride over;
    over.id = id;
    over.package = package;
    over.level = level;
    over.author = "anna";
    over.machine = "DESK";
    over.made = made;
    over.until = made + 15 * MINUTE;
    return over;
}

SiteOverride for_client(SiteOverride over, const std::string& client)
{
    over.filters.lists[RULE_ADDRESSES] = {client};
    return over;
}

SiteWish wish_of(std::vector<SiteOverride> overrides = {}, std::vector<SiteSection> groups = {})
{
    return {BASE, std::move(groups), std::move(overrides)};
}

/// Why a site is refused, nothing where it is not. Of one that is refused nothing is put together.
std::string problem(const SiteWish& wish)
{
    const MergedSite merged = merge_site(wish, NOW);
    EXPECT_EQ(merged.bytes.empty(), !merged.problem.empty());
    return merged.problem;
}

std::string replaced(std::string text, const std::string& before, const std::string& after)
{
    const std::size_t at = text.find(before);
    EXPECT_NE(at, std::string::npos) << before;
    return at == std::string::npos ? text : text.replace(at, before.size(), after);
}

TEST(Site, WithoutGroupsAndOverridesIsItsBaseFileByteForByte)
{
    const MergedSite merged = merge_site(wish_of(), NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_EQ(merged.bytes, BASE);
    EXPECT_THAT(merged.live, IsEmpty());
    EXPECT_FALSE(merged.next_end);
}

TEST(Site, AnOverrideForEverybodyChangesTheLevelOfItsLineAlone)
{
    const MergedSite merged = merge_site(wish_of({override_of("7", 320, 7)}), NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_EQ(merged.bytes, replaced(BASE, "320       6", "320       7"));
    EXPECT_THAT(merged.live, ElementsAre("7"));
    EXPECT_EQ(merged.next_end, NOW + 14 * MINUTE);
}

TEST(Site, AnOverrideWithFiltersIsARule)
{
    const MergedSite merged = merge_site(wish_of({for_client(override_of("7", 320, 7), "192.0.2.7")}), NOW);
    EXPECT_EQ(
        merged.bytes,
        replaced(
            BASE, "Replay       320       6                    //", "Replay       320       6  [(7;192.0.2.7)]   //"));
}

TEST(Site, AnOverrideThatIsOverLeavesNothing)
{
    SiteOverride over = override_of("7", 320, 7);
    over.until = NOW;
    const MergedSite merged = merge_site(wish_of({over}), NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_EQ(merged.bytes, BASE);
    EXPECT_THAT(merged.live, IsEmpty());
}

TEST(Site, TheFirstEndIsWhenItIsToBeLookedAtAgain)
{
    SiteOverride first = override_of("1", 310, 7);
    first.until = NOW + 2 * MINUTE;
    EXPECT_EQ(merge_site(wish_of({override_of("2", 320, 7), first}), NOW).next_end, NOW + 2 * MINUTE);
}

TEST(Site, OfTwoOverridesTheOneThatWasMadeLaterCounts)
{
    const SiteOverride early = override_of("9", 320, 3, NOW - 2 * MINUTE);
    const SiteOverride late = override_of("1", 320, 7, NOW - MINUTE);
    for (const auto& order : {std::vector<SiteOverride>{early, late}, {late, early}})
        EXPECT_EQ(merge_site(wish_of(order), NOW).bytes, replaced(BASE, "320       6", "320       7"));
}

TEST(Site, AGroupGivesLevelsAndRulesInPlaceOfThoseOfTheBaseFile)
{
    const SiteSection servers{
        "servers", "# for the servers\nReplay 320 3 [(7;192.0.2.9)]\nClient 330 5 [(7;;archive)]\n"};
    const MergedSite merged = merge_site(wish_of({}, {servers}), NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_THAT(merged.bytes, HasSubstr("Replay       320       3  [(7;192.0.2.9)]   // replays its lines\n"));
    EXPECT_THAT(merged.bytes, HasSubstr("Client       330       5  [(7;;archive)]    // serves the client\n"));
    EXPECT_THAT(merged.bytes, HasSubstr("Reader       310       5                    // reads the text\n"));
}

TEST(Site, OfTwoGroupsTheLaterCounts)
{
    const SiteSection one{"one", "Replay 320 3\n"};
    const SiteSection two{"two", "Replay 320 4\n"};
    EXPECT_THAT(merge_site(wish_of({}, {one, two}), NOW).bytes, HasSubstr("320       4"));
    EXPECT_THAT(merge_site(wish_of({}, {two, one}), NOW).bytes, HasSubstr("320       3"));
}

TEST(Site, APackageThatTheBaseFileDoesNotNameGetsALineBehindTheOthers)
{
    SiteOverride over = override_of("7", 340, 7);
    over.name = "Control";
    const MergedSite merged = merge_site(wish_of({over, override_of("8", 17, 6)}), NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_EQ(
        merged.bytes,
        replaced(BASE, "# The end.\n", "Package17    17        6\nControl      340       7\n# The end.\n"));
}

TEST(Site, ABaseFileWithoutPackagesAndWithoutALastLineEndGetsLinesToo)
{
    SiteWish wish = wish_of({override_of("7", 340, 7)});
    wish.base = "2\r\nfile_size_limit_in_mb=10";
    const MergedSite merged = merge_site(wish, NOW);
    EXPECT_EQ(merged.problem, "");
    EXPECT_EQ(merged.bytes, "2\r\nfile_size_limit_in_mb=10\r\nPackage340 340 7\r\n");
}

TEST(Site, IsRefusedAsAWholeWithASentenceThatSaysWhatIsWrong)
{
    SiteWish none = wish_of();
    none.base.reset();
    EXPECT_EQ(problem(none), "The site has no base file.");
    const auto with_base = [](const std::string& base)
    {
        SiteWish wish = wish_of();
        wish.base = base;
        return problem(wish);
    };
    EXPECT_THAT(with_base(""), HasSubstr("No line says where messages go"));
    EXPECT_EQ(with_base("2\n"), "The base file lacks its first lines, output and size limit.");
    EXPECT_EQ(with_base(BASE + "\xFF"), "The base file is no UTF-8.");
    EXPECT_EQ(
        with_base(std::string(MOST_SITE_BASE_BYTES + 1, '#')),
        "The base file has 1048577 bytes; 1048576 are the most.");
    EXPECT_THAT(with_base("\xEF\xBB\xBF" + BASE), HasSubstr("line 1: The file begins with a byte-order mark"));
    EXPECT_THAT(with_base(BASE + "Net 750 5\n"), HasSubstr("line 8: There is no package 750"));
    EXPECT_THAT(with_base(BASE + "Net 1 5 [(7;999.1.1.1)]\n"), HasSubstr("line 8: "));
    EXPECT_THAT(
        problem(wish_of({}, {{"servers", "Replay 320 7\nNet 750 5\n"}})),
        HasSubstr(
            "The section of group servers has a line that is read differently than it looks, line 2: There is no "));
    EXPECT_EQ(problem(wish_of({}, {{"servers", "# \xC3\x28"}})), "The section of group servers is no UTF-8.");
    EXPECT_EQ(problem(wish_of({}, {{"../x", ""}})), "A group has a name that can be none.");
    EXPECT_EQ(problem(wish_of({override_of("7", 320, 8)})), "Override 7 has the level 8; levels are 0 to 7.");
    EXPECT_THAT(
        problem(wish_of({for_client(override_of("7", 320, 7), "a b")})), HasSubstr("Override 7 cannot be a rule"));
    EXPECT_THAT(
        problem(wish_of({for_client(override_of("7", 320, 7), "999.1.1.1")})),
        HasSubstr("Override 7 is read differently than it looks, "));
    SiteOverride wrong = override_of("7", 320, 7);
    wrong.until = wrong.made + LONGEST_SITE_OVERRIDE_MS + 1;
    EXPECT_THAT(problem(wish_of({wrong})), HasSubstr("lasts for more than 30 days"));
    wrong = override_of("7", 320, 7);
    wrong.reason = "two\nlines";
    EXPECT_THAT(problem(wish_of({wrong})), HasSubstr("has a reason that is too long, or cannot be shown"));
    wrong = override_of("7", 320, 7);
    wrong.name = "two words";
    EXPECT_THAT(problem(wish_of({wrong})), HasSubstr("has a name of a package that can be none"));
    wrong = for_client(override_of("7", 320, 7), "\xF9");
    EXPECT_EQ(problem(wish_of({wrong})), "Override 7 is for somebody whose name cannot be shown.");
    wrong = override_of("..", 320, 7);
    EXPECT_EQ(problem(wish_of({wrong})), "Override has no id that can be one.");
}

TEST(Site, RefusesWhatIsJustBeyondItsLimits)
{
    const auto groups = [](std::size_t count)
    {
        SiteWish wish = wish_of({});
        for (std::size_t i = 0; i < count; ++i)
            wish.groups.push_back({"group" + std::to_string(i), ""});
        return wish;
    };
    EXPECT_EQ(problem(groups(MOST_SITE_GROUPS)), "");
    EXPECT_EQ(problem(groups(MOST_SITE_GROUPS + 1)), "There are 65 groups; a machine belongs to 64 at most.");

    SiteOverride over = override_of("7", 320, 7);
    over.author.assign(MOST_SITE_AUTHOR_BYTES, 'x');
    over.reason.assign(MOST_SITE_REASON_BYTES, 'x');
    EXPECT_EQ(problem(wish_of({over})), "");
    over.author += 'x';
    EXPECT_EQ(problem(wish_of({over})), "Override 7 has an author that can be none.");
    over.author = "\x1B[2J";
    EXPECT_EQ(problem(wish_of({over})), "Override 7 has an author that can be none.");
    over.author.clear();
    over.reason += 'x';
    EXPECT_EQ(problem(wish_of({over})), "Override 7 has a reason that is too long, or cannot be shown.");

    for (const int package : {-1, -2'147'483'647, 750, 2'147'483'647})
        EXPECT_NE(problem(wish_of({override_of("7", package, 7)})), "") << package;
    EXPECT_EQ(problem(wish_of({override_of("7", -1, 7)})), "Override 7 names no package.");
    over = override_of("7", 320, 7);
    over.until = over.made;
    EXPECT_EQ(problem(wish_of({over})), "Override 7 ends before it begins, or lasts for more than 30 days.");
}

TEST(Site, RefusesWhatTheReaderWouldLeaveOut)
{
    std::vector<SiteOverride> eleven;
    for (int i = 1; i <= 11; ++i)
        eleven.push_back(for_client(override_of(std::to_string(i), 320, 7), "10.1.1." + std::to_string(i)));
    EXPECT_EQ(
        merge_site(wish_of(eleven), NOW).problem,
        "Override 9 cannot be put into the base file: Package320, that would be an 11th rule.");
    std::vector<SiteOverride> long_ones;
    for (int i = 1; i <= 6; ++i)
        long_ones.push_back(for_client(
            override_of(std::to_string(i), 320, 7), "2001:db8:1111:2222:3333:4444:5555:66" + std::to_string(i)));
    EXPECT_THAT(merge_site(wish_of(long_ones), NOW).problem, HasSubstr("the line would have more than 199 characters"));
}

TEST(Site, TakesAsManyOverridesAsItMayAndNoMore)
{
    std::vector<SiteOverride> many;
    for (std::size_t i = 0; i < MOST_SITE_OVERRIDES; ++i)
        many.push_back(override_of(std::to_string(i), static_cast<int>(i % 750), 7));
    EXPECT_EQ(merge_site(wish_of(many), NOW).problem, "");
    many.push_back(override_of("more", 1, 7));
    EXPECT_EQ(merge_site(wish_of(many), NOW).problem, "There are 1001 overrides; 1000 are the most.");
}

TEST(Site, NamesAreOfLettersDigitsAndAFewSigns)
{
    EXPECT_TRUE(is_site_name("SERVER-01.example_x"));
    for (const char* const name : {"", ".x", "-x", "a/b", "a\\b", "a b", "\xC3\xA4"})
        EXPECT_FALSE(is_site_name(name)) << name;
    EXPECT_FALSE(is_site_name(std::string(65, 'a')));
    EXPECT_TRUE(is_site_name(std::string(64, 'a')));
    EXPECT_EQ(site_name_of("Größe 1"), "Gr----e-1");
    EXPECT_EQ(site_name_of(""), "m");
    EXPECT_EQ(site_name_of("-x"), "m-x");
    EXPECT_TRUE(is_site_name(site_name_of(std::string(80, '-'))));
}

TEST(Site, TellsUtf8)
{
    for (const char* const text : {"", "a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xEF\xBF\xBF"})
        EXPECT_TRUE(is_valid_utf8(text)) << text;
    for (const char* const text :
         {"\x80", "\xC0\x80", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80",
          "\xE2\x82"})
        EXPECT_FALSE(is_valid_utf8(text)) << text;
}

/// Random wishes: what comes of them says of each package what the last one said that spoke of it, and of all others
/// what the base file says.
TEST(Site, OfRandomWishesEachPackageHasWhatWasSaidLast)
{
    std::mt19937 random(20261122);
    const auto below = [&random](int end) { return std::uniform_int_distribution<int>(0, end - 1)(random); };
    for (int round = 0; round < 300; ++round)
    {
        SiteWish wish = wish_of();
        std::vector<int> levels(750, 4);
        const LevelFile base(BASE);
        for (const auto& [number, package] : base.packages())
            levels[static_cast<std::size_t>(number)] = package.level;
        const auto number = [&below] { return below(2) == 0 ? 310 + 10 * below(3) : below(750); };
        for (int group = below(3); group > 0; --group)
        {
            const int package = number();
            const int level = below(8);
            wish.groups.push_back(
                {"g" + std::to_string(group), "Some " + std::to_string(package) + ' ' + std::to_string(level) + "\n"});
            levels[static_cast<std::size_t>(package)] = level;
        }
        for (int i = below(6); i > 0; --i)
        {
            SiteOverride over = override_of(std::to_string(i), number(), below(8), NOW - i * MINUTE);
            const bool is_over = below(4) == 0;
            over.until = is_over ? NOW - 1 : NOW + MINUTE;
            if (is_over)
                over.made = over.until - MINUTE;
            else
                levels[static_cast<std::size_t>(over.package)] = over.level;
            wish.overrides.push_back(over);
        }
        const MergedSite merged = merge_site(wish, NOW);
        ASSERT_EQ(merged.problem, "");
        const LevelFile file(merged.bytes);
        EXPECT_EQ(file.output(), 2);
        EXPECT_EQ(file.size_limit(), 10u);
        for (int package = 0; package < 750; ++package)
        {
            const auto found = file.packages().find(package);
            EXPECT_EQ(
                found == file.packages().end() ? 4 : found->second.level, levels[static_cast<std::size_t>(package)])
                << package << " in\n"
                << merged.bytes;
        }
    }
}
} // namespace
