// What is left of the last lines when a process ends in any way, at any moment.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "child.h"
#include "core/bounded_text.h"
#include "core/line_ring.h"
#include "log_directory.h"
#include "recorded_section.h"
#include "rounds.h"
#include "shared_said.h"

namespace
{
constexpr int THREADS = SharedSaid::THREADS;
constexpr int READER = 310;
constexpr int DEBUG = 7;
constexpr std::size_t BYTES = 64 * 1024; // small, so that it goes round often

std::string tail_of(int thread, long long number)
{
    return std::string(static_cast<std::size_t>(number * 31 % 500), static_cast<char>('a' + thread)) + '!';
}

void say_forever(Said& said, int thread)
{
    for (long long number = 1;; ++number)
    {
        KorGLog.LogAt(
            "host.cpp", "main", 7, DEBUG, READER, "%d %d %s", thread, static_cast<int>(number),
            tail_of(thread, number).c_str());
        said.lines[thread] = number;
    }
}

/// What a kill has left, and what is wrong with it.
class Left
{
public:
    Left(const recorded::Lines& lines, const Said& said)
    {
        for (const recorded::Line& line : lines.lines)
            take(line, lines.dropped);
        for (const auto& [thread, numbers] : m_numbers)
            look_at_thread(thread, numbers, said);
        // Of those that give no line way to any newer one, only the lines in the making are missing: one of each thread.
        const std::uint64_t last = lines.lines.empty() ? 0 : lines.lines.back().sequence;
        missing = last - lines.dropped - m_complete;
        count = lines.lines.size();
        lost = lines.lost;
    }

    std::size_t count = 0;
    std::uint64_t missing = 0;
    std::uint64_t lost = 0;
    int torn = 0;
    int disordered = 0;
    int gaps = 0;
    int unsaid = 0;
    int forgotten = 0;

private:
    void take(const recorded::Line& line, std::uint64_t dropped)
    {
        const std::size_t arrow = line.text.find("-> ");
        int thread = 0;
        long long number = 0;
        if (arrow == std::string::npos ||
            std::sscanf(line.text.c_str() + arrow, "-> %d %lld ", &thread, &number) != 2 || thread < 0 ||
            thread >= THREADS ||
            line.text.substr(arrow) !=
                "-> " + std::to_string(thread) + ' ' + std::to_string(number) + ' ' + tail_of(thread, number))
        {
            ++torn;
            return;
        }
        std::vector<std::pair<long long, bool>>& numbers = m_numbers[thread];
        disordered += !numbers.empty() && numbers.back().first >= number ? 1 : 0;
        numbers.emplace_back(number, line.sequence > dropped);
        m_complete += line.sequence > dropped ? 1 : 0;
    }

    void look_at_thread(int thread, const std::vector<std::pair<long long, bool>>& numbers, const Said& said)
    {
        const long long last = said.lines[thread];
        for (std::size_t i = 1; i < numbers.size(); ++i)
            gaps += numbers[i - 1].second && numbers[i].first != numbers[i - 1].first + 1 ? 1 : 0;
        unsaid += numbers.back().first > last + 1 ? 1 : 0;
        forgotten += numbers.back().second && numbers.back().first < last ? 1 : 0;
    }

    std::map<int, std::vector<std::pair<long long, bool>>> m_numbers; // with whether no line after it was dropped
    std::uint64_t m_complete = 0;
};

std::string unique_name() { return "recorder_test_" + std::to_string(::GetCurrentProcessId()); }
} // namespace

KOR_CHILD(records_until_it_is_killed)
{
    const SharedSaid said(args[0]);
    KorGLog.Open("test.log", "viewer");
    if (KorGLog.SetRecorder(BYTES, DEBUG) != 0)
        return 2;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread)
        threads.emplace_back([&said, thread] { say_forever(said.said(), thread); });
    ::Sleep(600'000); // a bound: it is killed long before
    ::TerminateProcess(::GetCurrentProcess(), 3);
    return 3;
}

TEST(RecorderKills, AllLinesButThoseInTheMakingAreWholeAndInOrder)
{
    const int kills = rounds_wanted("LUMLOG_TEST_RECORDER_KILLS", 4);
    std::mt19937 random(4711);
    std::uint64_t lines = 0;
    std::uint64_t in_the_making = 0;
    for (int kill = 1; kill <= kills; ++kill)
    {
        const LogDirectory directory;
        const std::string name = unique_name() + '_' + std::to_string(kill);
        const SharedSaid said(name);
        ChildOptions options = directory.for_child();
        options.arguments = {name};
        Child host("records_until_it_is_killed", options);
        host.ensure_begun();
        const long long until = 1 + static_cast<long long>(random() % 20'000);
        for (int i = 0; i < 60'000 && said.total() < until; ++i)
            ::Sleep(1);
        const RecordedSection section(host.pid());
        ASSERT_TRUE(section.is_there());
        for (unsigned i = random() % 100'000; i > 0; --i) // and a moment that no clock gives
            YieldProcessor();
        host.kill();
        ASSERT_TRUE(host.wait(60'000).finished);
        const std::optional<recorded::Lines> found = section.read();
        ASSERT_TRUE(found.has_value());
        const Left left(*found, said.said());
        EXPECT_GT(left.count, 0u);
        EXPECT_EQ(left.torn, 0);
        EXPECT_EQ(left.disordered, 0);
        EXPECT_EQ(left.gaps, 0);
        EXPECT_EQ(left.unsaid, 0);
        EXPECT_EQ(left.forgotten, 0);
        EXPECT_LE(left.missing, std::uint64_t{THREADS});
        EXPECT_EQ(left.lost, 0u);
        lines += left.count;
        in_the_making += left.missing;
        if (kill % 50 == 0 || kill == kills)
        {
            std::printf(
                "%d kills: %llu lines found whole and in order, %llu in the making were not there\n", kill,
                static_cast<unsigned long long>(lines), static_cast<unsigned long long>(in_the_making));
            std::fflush(stdout);
        }
    }
}

namespace
{
/// Records without the heap or any other lock that a thread could be stopped with.
void say_once(kor::core::LineRing& ring, Said& said, int thread, long long number)
{
    char text[600];
    const int length = kor::core::BoundedText(text, sizeof text)
                           .add("-> ")
                           .add_number(thread)
                           .add(' ')
                           .add_number(number)
                           .add(' ')
                           .add_repeated(static_cast<char>('a' + thread), static_cast<std::size_t>(number * 31 % 500))
                           .add('!')
                           .finish();
    const std::string_view line(text, static_cast<std::size_t>(length));
    ring.record({1, static_cast<std::uint32_t>(4 * thread), DEBUG, READER, false, true}, {{}, line, {}});
    said.lines[thread] = number;
}

/// Threads that are stopped, wherever they are, as long as this exists.
class Stopped
{
public:
    explicit Stopped(const std::vector<HANDLE>& threads) noexcept : m_threads(threads)
    {
        for (const HANDLE thread : m_threads)
        {
            ::SuspendThread(thread);
            CONTEXT context{};
            context.ContextFlags = CONTEXT_CONTROL;
            ::GetThreadContext(thread, &context); // does not return before the thread has stopped
        }
    }
    Stopped(const Stopped&) = delete;
    Stopped& operator=(const Stopped&) = delete;
    ~Stopped()
    {
        for (const HANDLE thread : m_threads)
            ::ResumeThread(thread);
    }

private:
    const std::vector<HANDLE>& m_threads;
};
} // namespace

KOR_CHILD(goes_on_while_others_are_stopped)
{
    constexpr int ROUNDS = 200;
    constexpr int LINES = 500; // more than there is room for
    const auto memory = std::make_unique<std::uint64_t[]>(BYTES / 8);
    const auto copy = std::make_unique<std::uint64_t[]>(BYTES / 8);
    kor::core::LineRing ring(memory.get(), BYTES, {1, 2});
    Said said{};
    std::atomic<DWORD> ids[THREADS]{};
    std::vector<std::thread> threads;
    std::vector<HANDLE> handles;
    for (int thread = 1; thread < THREADS; ++thread)
    {
        threads.emplace_back(
            [&ring, &said, &ids, thread]
            {
                ids[thread] = ::GetCurrentThreadId();
                for (long long number = 1;; ++number)
                    say_once(ring, said, thread, number);
            });
        while (ids[thread] == 0 || said.lines[thread] == 0)
            ::SwitchToThread();
        handles.push_back(::OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, ids[thread]));
    }
    long long number = 0;
    for (int round = 0; round < ROUNDS; ++round)
    {
        const long long before = said.lines[1 + round % (THREADS - 1)];
        while (said.lines[1 + round % (THREADS - 1)] == before)
            ::SwitchToThread();
        {
            const Stopped stopped(handles);
            for (int i = 0; i < LINES; ++i)
                say_once(ring, said, 0, ++number);
            std::copy_n(memory.get(), BYTES / 8, copy.get());
        }
        const Left left(recorded::read(copy.get(), BYTES).value(), said);
        if (left.torn + left.disordered + left.gaps != 0 || left.lost != 0 || left.missing > THREADS)
        {
            std::printf("round %d: %d torn, %d disordered, %d gaps\n", round, left.torn, left.disordered, left.gaps);
            std::fflush(stdout);
            ::TerminateProcess(::GetCurrentProcess(), 4);
        }
    }
    ::TerminateProcess(::GetCurrentProcess(), 0);
    return 0;
}

TEST(RecorderStops, AThreadRecordsWhileAllOthersAreStoppedWhereverTheyAre)
{
    ChildOptions options;
    options.timeout_ms = 100'000;
    const ChildResult result = run_child("goes_on_while_others_are_stopped", options);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u) << result.out;
}

KOR_CHILD(ends_in_many_ways)
{
    KorGLog.Open("test.log", "viewer");
    if (KorGLog.SetRecorder(BYTES, DEBUG) != 0)
        return 2;
    KorGLog.LogAt("host.cpp", "main", 7, DEBUG, READER, "the last words");
    std::printf("ready\n");
    std::fflush(stdout);
    const HANDLE go = ::OpenEventA(SYNCHRONIZE, FALSE, args[1].c_str());
    ::WaitForSingleObject(go, 60'000);
    if (args[0] == "terminate")
        ::TerminateProcess(::GetCurrentProcess(), 5);
    if (args[0] == "exit")
        ::ExitProcess(6);
    if (args[0] == "crash")
        *static_cast<volatile int*>(nullptr) = 1;
    if (args[0] == "fast-fail")
        ::RaiseFailFastException(nullptr, nullptr, 0);
    return 0;
}

TEST(RecorderEnds, TheLinesOutliveEachEndForWhoHasThemOpen)
{
    for (const char* const way : {"terminate", "exit", "crash", "fast-fail", "return"})
    {
        const LogDirectory directory;
        const std::string name = unique_name() + way;
        const HANDLE go = ::CreateEventA(nullptr, TRUE, FALSE, name.c_str());
        ChildOptions options = directory.for_child();
        options.arguments = {way, name};
        Child host("ends_in_many_ways", options);
        host.ensure_begun();
        std::unique_ptr<RecordedSection> section;
        for (int i = 0; i < 30'000; ++i)
        {
            section = std::make_unique<RecordedSection>(host.pid());
            if (section->is_there() && section->read().has_value() && !section->read()->lines.empty() &&
                section->read()->lines.back().text.find("the last words") != std::string::npos)
                break;
            ::Sleep(1);
        }
        ::SetEvent(go);
        EXPECT_TRUE(host.wait(60'000).finished) << way;
        ::CloseHandle(go);
        const std::optional<recorded::Lines> found = section->read();
        ASSERT_TRUE(found.has_value()) << way;
        bool is_there = false;
        for (const recorded::Line& line : found->lines)
            is_there = is_there || line.text.find("-> the last words") != std::string::npos;
        EXPECT_TRUE(is_there) << way;
        const bool is_orderly = std::string(way) == "exit" || std::string(way) == "return";
        EXPECT_EQ(found->lines.back().text.find("End Session") != std::string::npos, is_orderly) << way;
    }
}
