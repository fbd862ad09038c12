// file_rotation_test.cpp - the names of older files, how they move up, and what a log says of it.

#include "core/file_rotation.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "core/log_line.h"

using kor::core::Buffer;
using kor::core::free_a_number;
using kor::core::LogLine;
using kor::core::numbered_path;
using kor::core::SPARE_OLDER_FILES;

namespace
{
/// Stops whoever moves files about, as the end of its process would.
struct Killed
{
};

/// Files by number, with their ages as content: 1 is the youngest.
class Files final : public kor::core::OlderFiles
{
public:
    explicit Files(std::map<int, int> files) : there(std::move(files)) {}

    bool is_free(int number) override { return there.count(number) == 0; }

    bool move(int from, int to) override
    {
        step();
        EXPECT_EQ(there.count(from), 1u) << from;
        EXPECT_EQ(there.count(to), 0u) << "onto " << to;
        if (fixed.count(from) != 0)
            return false;
        there[to] = there[from];
        there.erase(from);
        return true;
    }

    void remove(int number) override
    {
        step();
        if (fixed.count(number) == 0)
            there.erase(number);
    }

    std::map<int, int> there;
    std::set<int> fixed; ///< cannot be moved or removed
    int steps_left = 1'000'000;

private:
    void step()
    {
        if (steps_left-- == 0)
            throw Killed();
    }
};

std::map<int, int> in_order(int count)
{
    std::map<int, int> files;
    for (int number = 1; number <= count; ++number)
        files[number] = number;
    return files;
}

/// What a file does at its limit; age: of the next content. True when it got a number.
bool rotate(Files& files, int kept, int age)
{
    const int number = free_a_number(files, kept);
    if (number == 0)
        return false;
    EXPECT_EQ(files.there.count(number), 0u);
    files.there[number] = age;
    kor::core::remove_oldest(files, kept);
    return true;
}

LogLine::Kind kind_of(std::string_view marker)
{
    char text[512];
    const int length = kor::core::write_seam_banner(
        {text, sizeof text}, marker, {"viewer", 4711, "2026-11-22 08:00:00.123+01:00", "root", "VM"});
    const LogLine line = kor::core::read_log_line(std::string_view(text, static_cast<std::size_t>(length) - 1));
    EXPECT_EQ(line.application, "viewer");
    EXPECT_EQ(line.process, 4711);
    EXPECT_EQ(line.computer, "VM");
    EXPECT_EQ(line.time.milliseconds, 123);
    return line.kind;
}
} // namespace

TEST(FileRotation, TheNumberStandsInFrontOfTheLastEnding)
{
    EXPECT_EQ(numbered_path(L"viewer.log", 1), L"viewer.1.log");
    EXPECT_EQ(numbered_path(L"C:\\logs\\viewer.log", 12), L"C:\\logs\\viewer.12.log");
    EXPECT_EQ(numbered_path(L"viewer.4711.log", 3), L"viewer.4711.3.log");
    EXPECT_EQ(numbered_path(L"viewer", 1), L"viewer.1");
    EXPECT_EQ(numbered_path(L"C:\\logs.d\\viewer", 1), L"C:\\logs.d\\viewer.1");
    EXPECT_EQ(numbered_path(L"logs.d/viewer", 1), L"logs.d/viewer.1");
    EXPECT_EQ(numbered_path(L"logs/.log", 1), L"logs/.log.1");
    EXPECT_EQ(numbered_path(L"viewer.", 1), L"viewer.1.");
}

TEST(FileRotation, ALockHasOneNameForAPathInEveryProcess)
{
    const std::string name = kor::core::rotation_lock_name(L"C:\\logs\\viewer.log");
    EXPECT_EQ(name, kor::core::rotation_lock_name(L"c:\\LOGS\\Viewer.log"));
    EXPECT_NE(name, kor::core::rotation_lock_name(L"C:\\logs\\viewer2.log"));
    EXPECT_EQ(name.find('\\'), 6u) << name; // a second one would be part of no name
    EXPECT_EQ(name.rfind('\\'), 6u) << name;
}

TEST(FileRotation, CountsAreNumbersFrom0To999)
{
    int count = -1;
    for (const char* const text : {"0", "5", "999"})
    {
        EXPECT_TRUE(kor::core::read_file_count(text, count)) << text;
        EXPECT_EQ(count, std::stoi(text));
    }
    count = 7;
    for (const char* const text : {"", "-1", "1000", "99999999999", "5 ", " 5", "5x", "five"})
        EXPECT_FALSE(kor::core::read_file_count(text, count)) << text;
    EXPECT_EQ(count, 7);
}

TEST(FileRotation, OlderFilesMoveUpAndTheOldestGoes)
{
    Files files({});
    for (int age = 100; age > 90; --age)
        ASSERT_TRUE(rotate(files, 3, age));
    EXPECT_EQ(files.there, (std::map<int, int>{{1, 91}, {2, 92}, {3, 93}}));
}

TEST(FileRotation, FilesAboveAGapStay)
{
    Files files({{1, 1}, {3, 3}});
    EXPECT_EQ(free_a_number(files, 5), 1);
    EXPECT_EQ(files.there, (std::map<int, int>{{2, 1}, {3, 3}}));
}

TEST(FileRotation, AFileThatCannotBeMovedIsPassed)
{
    Files files(in_order(3));
    files.fixed = {1};
    EXPECT_EQ(free_a_number(files, 5), 2);
    EXPECT_EQ(files.there, (std::map<int, int>{{1, 1}, {3, 2}, {4, 3}}));
}

TEST(FileRotation, AFileThatCannotGoYetIsPassedAndGoesLater)
{
    Files files(in_order(3));
    files.fixed = {4};
    ASSERT_TRUE(rotate(files, 3, 0)); // the oldest moves to 4 and stays there
    EXPECT_EQ(files.there, (std::map<int, int>{{1, 0}, {2, 1}, {3, 2}, {4, 3}}));
    for (int age = -1; age > -10; --age)
        ASSERT_TRUE(rotate(files, 3, age));
    EXPECT_EQ(files.there.size(), 4u);
    files.fixed.clear();
    ASSERT_TRUE(rotate(files, 3, -10));
    EXPECT_EQ(files.there, (std::map<int, int>{{1, -10}, {2, -9}, {3, -8}}));
}

TEST(FileRotation, WhereNoNumberIsFreeNothingIsTouched)
{
    Files files(in_order(2 + SPARE_OLDER_FILES));
    const std::map<int, int> before = files.there;
    EXPECT_EQ(free_a_number(files, 2), 0);
    EXPECT_EQ(files.there, before);
}

TEST(FileRotation, OfFewerFilesThanBeforeTheOldestGo)
{
    Files files(in_order(10));
    ASSERT_TRUE(rotate(files, 3, 0));
    EXPECT_EQ(files.there, (std::map<int, int>{{1, 0}, {2, 1}, {3, 2}}));
}

TEST(FileRotation, FilesOfLargerNumbersAreNobodysOlderFiles)
{
    Files files({{1, 1}, {3 + SPARE_OLDER_FILES + 1, 99}});
    ASSERT_TRUE(rotate(files, 3, 0));
    EXPECT_EQ(files.there, (std::map<int, int>{{1, 0}, {2, 1}, {3 + SPARE_OLDER_FILES + 1, 99}}));
}

// Wherever it is stopped: what should be kept is there, in its order, and the next call puts all right.
TEST(FileRotation, AKillAtAnyStepLosesNoFileThatIsKept)
{
    constexpr int KEPT = 4;
    for (int there = 0; there <= KEPT; ++there)
        for (int steps = 0;; ++steps)
        {
            Files files(in_order(there));
            files.steps_left = steps;
            bool killed = false;
            try
            {
                rotate(files, KEPT, 0);
            }
            catch (const Killed&)
            {
                killed = true;
            }
            std::set<int> ages;
            int last = -1;
            for (const auto& [number, age] : files.there)
            {
                EXPECT_LT(last, age) << "out of order, " << there << " files, step " << steps;
                last = age;
                ages.insert(age);
            }
            for (int age = 1; age <= std::min(there, KEPT - 1); ++age)
                EXPECT_EQ(ages.count(age), 1u) << there << " files, step " << steps;

            files.steps_left = 1'000'000;
            for (int age = -1; age >= -KEPT; --age)
                ASSERT_TRUE(rotate(files, KEPT, age));
            EXPECT_EQ(files.there, (std::map<int, int>{{1, -4}, {2, -3}, {3, -2}, {4, -1}}));
            if (!killed)
                break;
        }
}

TEST(FileRotation, WhatStandsAtASeamIsReadAgain)
{
    EXPECT_EQ(kind_of(kor::core::SEAM_AT_END), LogLine::GOES_ON_ELSEWHERE);
    EXPECT_EQ(kind_of(kor::core::SEAM_AT_BEGIN), LogLine::GOES_ON_HERE);
}

TEST(FileRotation, BannersAtASeamHaveTheFormOfOthers)
{
    char text[512];
    const int length = kor::core::write_seam_banner(
        {text, sizeof text}, kor::core::SEAM_AT_BEGIN, {"viewer", 32, "2026-11-22 08:00:00.123+01:00", "root", "VM"});
    EXPECT_EQ(
        std::string_view(text, static_cast<std::size_t>(length)),
        "===== viewer (32) Log goes on here at 2026-11-22 08:00:00.123+01:00, User root on VM =====\n");
    EXPECT_EQ(kor::core::write_seam_banner({text, 40}, kor::core::SEAM_AT_BEGIN, {"viewer", 32, "", "", ""}), -1);
}

TEST(FileRotation, NoticesNameFileAndErrorAndAreReadAgain)
{
    char text[512];
    kor::core::BoundedText rename(text, sizeof text);
    kor::core::write_rename_notice(rename, "viewer.log", 32);
    int length = rename.finish();
    std::string_view notice(text, static_cast<std::size_t>(length));
    EXPECT_EQ(
        notice,
        "*** Log file viewer.log has reached its size limit and cannot be renamed: error 32, another program has "
        "it open and does not allow that. Writing goes on in it, and renaming is tried again every second. ***\n");
    EXPECT_EQ(kor::core::read_log_line(notice.substr(0, notice.size() - 1)).kind, LogLine::ROTATION_NOTICE);

    kor::core::BoundedText taken(text, sizeof text);
    kor::core::write_rename_notice(taken, "viewer.log", 183);
    length = taken.finish();
    EXPECT_NE(
        std::string_view(text, static_cast<std::size_t>(length))
            .find("error 183, the names for older files are all taken."),
        std::string_view::npos);

    kor::core::BoundedText reopen(text, sizeof text);
    kor::core::write_reopen_notice(reopen, "viewer.log", 5);
    length = reopen.finish();
    notice = std::string_view(text, static_cast<std::size_t>(length));
    EXPECT_EQ(
        notice, "*** Log file viewer.log was renamed, and no new one can be opened: error 5. Writing goes on in the "
                "renamed one, and opening is tried again every second. ***\n");
    EXPECT_EQ(kor::core::read_log_line(notice.substr(0, notice.size() - 1)).kind, LogLine::ROTATION_NOTICE);
}

TEST(FileRotation, OtherTextsOfThatBeginningAreNoNotices)
{
    EXPECT_EQ(kor::core::read_log_line("*** Log file viewer.log is fine ***").kind, LogLine::BARE);
}
