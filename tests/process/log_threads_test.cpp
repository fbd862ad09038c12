// Many threads that write while others change what every line depends on.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <memory>
#include <set>

#include "bounded.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

constexpr int WRITERS = 8;

// The lines ----------------------------------------------------------------------
/// The text of a writer's line. Lengths differ, and every tenth is longer than most buffers.
std::string text_of_line(int writer, int number)
{
    const std::size_t length = number % 10 == 0 ? 1500 : static_cast<std::size_t>(number % 97);
    return "line " + std::to_string(number) + " " + std::string(length, static_cast<char>('a' + writer)) + " end";
}

void write_lines(Kor_LogFile& log, int writer, int count)
{
    log.LogNoHeadline("writer %d begins", writer); // makes this thread's context, which forgets a name
    const std::string name = "Writer" + std::to_string(writer);
    log.SetThreadName(name.c_str());
    for (int number = 0; number < count; ++number)
    {
        log.StoreParams("Kor_Writer", "write", number + 1, 4, 17);
        log.Log("%s", text_of_line(writer, number).c_str());
    }
    log.SetThreadName(nullptr);
    log.LogNoHeadline("writer %d ends", writer);
}

/// The contexts that change_everything can give a line, some with the session of another moment.
bool is_possible_context(const std::string& context)
{
    static const std::set<std::string> known{
        "",
        "SessionId(3)",
        "SessionId(12345)",
        "ClientIP(10.0.0.7)",
        "ClientIP(10.0.0.7) SessionId(3)",
        "ClientIP(10.0.0.7) SessionId(12345)",
        "ClientIP(2001:db8::17:a:longer:address)",
        "ClientIP(2001:db8::17:a:longer:address) SessionId(3)",
        "ClientIP(2001:db8::17:a:longer:address) SessionId(12345)",
    };
    return known.count(context) != 0;
}

bool ends_with(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// All lines of every writer, each once, whole, and in the writer's order; and nothing else.
void expect_whole_and_in_order(const Lines& lines, int count)
{
    const std::string start = "<time> WARNING (017) viewer (<pid>,<tid>|Writer";
    std::array<int, WRITERS> next{};
    std::set<std::string> frames;
    int wrong = 0;
    for (const std::string& line : lines)
    {
        bool right = false;
        if (line.rfind(start, 0) == 0 && line.compare(start.size() + 1, 2, ") ") == 0)
        {
            const int writer = line[start.size()] - '0';
            if (writer >= 0 && writer < WRITERS)
            {
                const std::size_t index = static_cast<std::size_t>(writer);
                const int number = next[index]++;
                const std::string end =
                    " Kor_Writer(" + std::to_string(number + 1) + ") write -> " + text_of_line(writer, number);
                const std::size_t context = start.size() + 3;
                right = line.size() >= context + end.size() && ends_with(line, end) &&
                        is_possible_context(line.substr(context, line.size() - context - end.size()));
            }
        }
        else
        {
            right = line.rfind("writer ", 0) == 0 && frames.insert(line).second;
        }
        if (!right && ++wrong <= 3)
            ADD_FAILURE() << "not the line that was to come: " << line.substr(0, 250);
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(frames.size(), 2u * WRITERS);
    for (int writer = 0; writer < WRITERS; ++writer)
        EXPECT_EQ(next[static_cast<std::size_t>(writer)], count) << "writer " << writer;
}

// The others ---------------------------------------------------------------------
/// Client, session, thread name, levels and the configuration itself, over and over.
void change_everything(Kor_LogFile& log, const std::atomic<bool>& stop, const std::string& logger_path)
{
    const auto scratch = std::make_unique<Kor_LogConf>();
    for (int round = 0; !stop; ++round)
    {
        log.SetIP("10.0.0.7");
        log.SetThreadName("Changer");
        log.SetIPAndSID("2001:db8::17:a:longer:address", 12345);
        log.SetCustomLogLevel(5, 7, true);
        log.SetThreadName(nullptr);
        log.SetIPAndSID(nullptr, 3);
        log.SetCustomLogLevel(5, 2, false);
        log.SetIP(nullptr);
        if (round % 16 == 0)
        {
            Kor_LogFile::ReadFile(logger_path.c_str(), *scratch);
            log.ReadFile();
        }
    }
    log.SetIP(nullptr);
}

void look_at_levels(Kor_LogFile& log, const std::atomic<bool>& stop)
{
    while (!stop)
    {
        for (int package = 0; package < 750; package += 7)
            log.CheckMsgLevel(package * 10000, 5);
        log.GetLogLevel(170000);
        log.IsCacheTableUpToDate();
        log.ClearCacheTable();
    }
}

void write_from_all_sides(Kor_LogFile& log, const std::string& logger_path, int count)
{
    std::atomic<bool> stop{false};
    BoundedThread changer([&] { change_everything(log, stop, logger_path); });
    BoundedThread reader([&] { look_at_levels(log, stop); });
    run_on_threads(WRITERS, [&](int writer) { write_lines(log, writer, count); });
    stop = true;
}

// Tests --------------------------------------------------------------------------
TEST(LogThreads, EveryLineOfEveryThreadReachesThePrivateFileWholeAndInOrder)
{
    constexpr int COUNT = 2000;
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    write_from_all_sides(log, directory.file("logger"), COUNT);

    expect_whole_and_in_order(directory.lines(), COUNT);
}

TEST(LogThreads, EveryLineOfEveryThreadReachesAStreamOfTheCallersWholeAndInOrder)
{
    constexpr int COUNT = 1000;
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open(std::fopen(directory.file("test.log").c_str(), "a"), "viewer"), 0);
    write_from_all_sides(log, directory.file("logger"), COUNT);

    expect_whole_and_in_order(directory.lines(), COUNT);
}

constexpr int CONSOLE_COUNT = 300;

KOR_CHILD(writes_to_the_console_from_all_sides)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    write_from_all_sides(log, args[0], CONSOLE_COUNT);
    return 0;
}

TEST(LogThreads, EveryLineOfEveryThreadReachesStandardErrorWholeAndInOrder)
{
    const LogDirectory directory(TO_STDERR);
    ChildOptions options = directory.for_child();
    options.arguments = {directory.file("logger")};
    const ChildResult child = run_child("writes_to_the_console_from_all_sides", options);
    ASSERT_TRUE(child.finished);
    ASSERT_EQ(child.exit_code, 0u);

    Lines lines = masked_lines(child.err);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(
        lines.back().substr(0, 24), "===== viewer (<pid>) End"); // of the log of the process, with the shared name
    lines.pop_back();
    expect_whole_and_in_order(lines, CONSOLE_COUNT);
}

TEST(LogThreads, TheClientInALineIsAlwaysOneThatWasSet)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    std::atomic<bool> stop{false};
    {
        const auto change = [&](char first)
        {
            const std::string one(70, first);
            const std::string other(33, static_cast<char>(first + 1));
            while (!stop)
            {
                log.SetIP(one.c_str());
                log.SetIP(other.c_str());
            }
        };
        BoundedThread first([&] { change('a'); });
        BoundedThread second([&] { change('m'); });
        run_on_threads(
            4,
            [&](int)
            {
                for (int i = 0; i < 3000; ++i)
                    log.Log("x");
            });
        stop = true;
    }
    log.SetIP(nullptr);

    const Lines lines = directory.lines();
    EXPECT_EQ(lines.size(), 12000u);
    const std::string start = "<time> SEVERE  (000) viewer (<pid>,<tid>) ";
    const std::set<std::string> possible{
        start + "  -> x",
        start + "ClientIP(" + std::string(70, 'a') + ")  -> x",
        start + "ClientIP(" + std::string(33, 'b') + ")  -> x",
        start + "ClientIP(" + std::string(70, 'm') + ")  -> x",
        start + "ClientIP(" + std::string(33, 'n') + ")  -> x",
    };
    int wrong = 0;
    for (const std::string& line : lines)
    {
        if (possible.count(line) == 0 && ++wrong <= 3)
            ADD_FAILURE() << line;
    }
    EXPECT_EQ(wrong, 0);
}

TEST(LogThreads, TwoLogsOnTwoFilesDoNotMixTheirLines)
{
    const LogDirectory directory;
    Kor_LogFile first(777, false);
    Kor_LogFile second(777, false);
    ASSERT_EQ(first.Open("first.log", "viewer"), 0);
    ASSERT_EQ(second.Open("second.log", "viewer"), 0);
    run_on_threads(
        4,
        [&](int thread)
        {
            for (int i = 0; i < 200; ++i)
            {
                first.LogNoHeadline("first %d", thread);
                second.LogNoHeadline("second %d", thread);
            }
        });
    for (const auto& [name, word] : {std::pair{"first.log", "first "}, std::pair{"second.log", "second "}})
    {
        const Lines lines = directory.lines(name);
        EXPECT_EQ(lines.size(), 800u);
        for (const std::string& line : lines)
            EXPECT_EQ(line.rfind(word, 0), 0u) << line;
    }
}

TEST(LogThreads, OfManyThreadsThatOpenTheLogOneSucceedsAndWritesOneBanner)
{
    for (int round = 0; round < 10; ++round)
    {
        const LogDirectory directory;
        Kor_LogFile log(777, true);
        const NamedEvent go(unique_name("go"));
        std::array<int, WRITERS> results{};
        {
            std::vector<std::unique_ptr<BoundedThread>> threads;
            for (int i = 0; i < WRITERS; ++i)
            {
                threads.push_back(std::make_unique<BoundedThread>(
                    [&, i]
                    {
                        go.wait();
                        const std::string name = "file" + std::to_string(i) + ".log";
                        results[static_cast<std::size_t>(i)] = log.Open(name.c_str(), "viewer");
                    }));
            }
            go.set();
        }
        int files = 0;
        std::size_t lines = 0;
        for (int i = 0; i < WRITERS; ++i)
        {
            EXPECT_EQ(results[static_cast<std::size_t>(i)], 0);
            const std::string name = "file" + std::to_string(i) + ".log";
            files += file_exists(directory.file(name));
            lines += directory.lines(name).size();
        }
        EXPECT_EQ(files, 1);
        EXPECT_EQ(lines, 1u);
    }
}

TEST(LogThreads, ALevelThatIsRaisedAndLoweredIsFollowedByAllThreads)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    for (int round = 0; round < 20; ++round)
    {
        const int level = round % 2 == 0 ? 7 : 4;
        ASSERT_EQ(log.SetCustomLogLevel(3, level, true), 0);
        std::atomic<int> wrong{0};
        run_on_threads(
            4,
            [&](int)
            {
                wrong += log.IsRejected(7, 3) && level == 7;
                wrong += log.StoreParams("f", "g", 1, 7, 3) != (level == 7);
                wrong += log.GetLogLevel(30000) != level;
            });
        EXPECT_EQ(wrong, 0) << round;
    }
}

TEST(LogThreads, ThreadsThatComeAndGoLeaveTheirLines)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    for (int round = 0; round < 50; ++round)
    {
        run_on_threads(
            4,
            [&](int)
            {
                log.SetThreadName("a thread that goes");
                log.LogNoHeadline("x");
                log.SetThreadName("and takes its name with it");
            });
    }
    EXPECT_EQ(directory.lines().size(), 200u);
}

TEST(LogThreads, ALogMayGoBeforeTheThreadsThatUsedIt)
{
    const LogDirectory directory;
    const NamedEvent written(unique_name("written"));
    const NamedEvent gone(unique_name("gone"));
    auto log = std::make_unique<Kor_LogFile>(777, false);
    ASSERT_EQ(log->Open("test.log", "viewer"), 0);
    {
        BoundedThread user(
            [&]
            {
                log->LogNoHeadline("x");
                written.set();
                gone.wait();
            });
        ASSERT_TRUE(written.wait());
        log.reset();
        gone.set();
    }
    EXPECT_EQ(directory.text(), "x\n");
}
} // namespace
