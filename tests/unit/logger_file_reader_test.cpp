// logger_file_reader_test.cpp - the lines of a `logger` file, however long and whatever is in them.

#include "core/logger_file.h"
#include "core/stream_source.h"

#include <gtest/gtest.h>

#include <ios>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using kor::core::LoggerFileReader;
using namespace std::string_literals;

namespace
{
using Lines = std::vector<std::string>;

struct Reading
{
    Lines lines;
    bool ended_early;
};

Reading read(const std::string& file)
{
    std::istringstream stream(file);
    kor::core::StreamSource source(stream);
    LoggerFileReader reader(source);
    Reading result;
    std::string_view line;
    while (reader.next(line))
    {
        EXPECT_FALSE(reader.ended_early());
        result.lines.emplace_back(line);
    }
    result.ended_early = reader.ended_early();
    return result;
}

const std::string longest(199, 'x');
const std::string too_long(200, 'x');
} // namespace

TEST(LoggerFileReader, ReadsLineByLine)
{
    struct Row
    {
        const char* name;
        std::string file;
        Lines lines;
    };
    const Row rows[] = {
        {"an empty file has no lines", "", {}},
        {"one line", "a\n", {"a"}},
        {"several lines", "a\nb b\n\tc\n", {"a", "b b", "\tc"}},
        {"the last line needs no newline", "a\nb", {"a", "b"}},
        {"empty lines are lines", "\n\na\n\n", {"", "", "a", ""}},
        {"a file of one newline", "\n", {""}},
        {"a carriage return is part of its line", "a\r\nb\r\n", {"a\r", "b\r"}},
        {"a carriage return alone ends no line", "a\rb\n", {"a\rb"}},
        {"a line ends for its readers at a nul", "ab\0cd\nef\n"s, {"ab", "ef"}},
        {"a line may begin with a nul", "\0cd\nef"s, {"", "ef"}},
        {"a nul at the end", "ab\0"s, {"ab"}},
        {"characters beyond ASCII", "\xC3\xA4\xFF\x1A\n", {"\xC3\xA4\xFF\x1A"}},
        {"199 characters", longest + "\nafter\n", {longest, "after"}},
        {"199 characters at the end of the file", "a\n" + longest, {"a", longest}},
        {"199 characters and a newline at the end", "a\n" + longest + "\n", {"a", longest}},
        {"199 characters after 199 characters", longest + "\n" + longest + "\n", {longest, longest}},
        {"a short line after a long one", longest + "\na", {longest, "a"}},
    };
    for (const Row& row : rows)
    {
        const Reading reading = read(row.file);
        EXPECT_EQ(reading.lines, row.lines) << row.name;
        EXPECT_FALSE(reading.ended_early) << row.name;
    }
}

TEST(LoggerFileReader, EndsAtALineOfMoreThan199Characters)
{
    struct Row
    {
        const char* name;
        std::string file;
        Lines lines;
    };
    const Row rows[] = {
        {"200 characters", too_long + "\nafter\n", {}},
        {"200 characters without newline", too_long, {}},
        {"lines before it are read", "a\nb\n" + too_long + "\nafter\n", {"a", "b"}},
        {"the longest line before it is read", longest + "\n" + too_long + "\n", {longest}},
        {"100,000 characters", "a\n" + std::string(100'000, 'x') + "\nafter\n", {"a"}},
        {"100,000 characters without newline", "a\n" + std::string(100'000, 'x'), {"a"}},
        {"a comment may not be longer", "#" + longest + "\n1\n", {}},
        {"a nul does not shorten a line", "ab\0"s + std::string(197, 'x') + "\nafter\n", {}},
        {"a carriage return counts", longest + "\r\nafter\r\n", {}},
    };
    for (const Row& row : rows)
    {
        const Reading reading = read(row.file);
        EXPECT_EQ(reading.lines, row.lines) << row.name;
        EXPECT_TRUE(reading.ended_early) << row.name;
    }
}

TEST(LoggerFileReader, ReadsNothingMoreOnceItHasEnded)
{
    struct Row
    {
        std::string file;
        bool ended_early;
    };
    const Row rows[] = {{"a\n" + too_long + "\nafter\n", true}, {"a\n", false}, {"a\n" + longest, false}};
    for (const Row& row : rows)
    {
        std::istringstream stream(row.file);
        kor::core::StreamSource source(stream);
        LoggerFileReader reader(source);
        std::string_view line;
        while (reader.next(line))
            EXPECT_FALSE(reader.ended_early());
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(reader.ended_early(), row.ended_early);
            EXPECT_FALSE(reader.next(line));
        }
    }
}

TEST(LoggerFileReader, ReadsNothingFromAStreamThatFailed)
{
    std::istringstream stream("a\nb\n");
    stream.setstate(std::ios::failbit);
    kor::core::StreamSource source(stream);
    LoggerFileReader reader(source);
    std::string_view line;
    EXPECT_FALSE(reader.next(line));
    EXPECT_FALSE(reader.ended_early());
}
