// shared_publish_test.cpp - several processes that publish at the same moment: what is published last holds, and all
// processes agree on it. Publishers are stopped in the middle of their copy, so that it is always the same moment.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "child.h"
#include "import_hook.h"
#include "log_lines.h"
#include "named_event.h"
#include "rounds.h"
#include "shared_actor.h"
#include "temp_directory.h"

KOR_IMPORT(memcpy);
KOR_IMPORT(CreateMutexExA);
KOR_IMPORT(WaitForSingleObject);
KOR_IMPORT(MapViewOfFile);
KOR_IMPORT(GetSystemTimeAsFileTime);

namespace
{
constexpr std::size_t MOST_OF_A_CONFIGURATION = 4'000'000;

/// 2024-03-05 14:07:09.042 UTC: the millisecond in which all of this happens.
constexpr std::uint64_t THE_MILLISECOND = 1'709'647'629'042;

/// What a publisher does apart from publishing.
struct Publisher
{
    explicit Publisher(const std::vector<std::string>& args)
        : name(args.at(0)), copying(name + "-copying"), go_on(name + "-go-on"), waiting(name + "-waiting")
    {
        for (std::size_t i = 3; i < args.size(); ++i)
        {
            stops = stops || args[i] == "stops";
            has_no_turns = has_no_turns || args[i] == "has no turns";
            is_impatient = is_impatient || args[i] == "is impatient";
        }
    }

    void* copy(void* to, const void* from, std::size_t size)
    {
        if (stops && size > MOST_OF_A_CONFIGURATION)
        {
            copying.set();
            go_on.wait();
        }
        return std::memcpy(to, from, size);
    }

    DWORD wait(HANDLE object, DWORD milliseconds)
    {
        longest = milliseconds > longest ? milliseconds : longest;
        waiting.set();
        result = ::WaitForSingleObject(object, is_impatient ? 1 : milliseconds);
        return result;
    }

    std::string name;
    NamedEvent copying, go_on, waiting;
    bool stops = false, has_no_turns = false, is_impatient = false;
    DWORD longest = 0; // of the waits asked for
    DWORD result = 0;

    Hook<memcpyImport> copies{
        [this](void* to, const void* from, std::size_t size) -> void* { return copy(to, from, size); }};
    Hook<WaitForSingleObjectImport> waits{
        [this](HANDLE object, DWORD milliseconds) -> DWORD { return wait(object, milliseconds); }};
    Hook<GetSystemTimeAsFileTimeImport> clock{[](LPFILETIME time)
                                              {
                                                  const std::uint64_t ticks =
                                                      116444736000000000ULL + THE_MILLISECOND * 10000;
                                                  time->dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
                                                  time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
                                              }};
};

// args: name of its events, what it publishes ("file" or "level"), the file or the level, what it does apart from that.
KOR_CHILD(publisher)
{
    const auto publisher = std::make_unique<Publisher>(args);
    std::unique_ptr<Hook<CreateMutexExAImport>> mutexes;
    if (publisher->has_no_turns)
        mutexes = std::make_unique<Hook<CreateMutexExAImport>>(
            [](LPSECURITY_ATTRIBUTES, LPCSTR, DWORD, DWORD) -> HANDLE
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return nullptr;
            });
    if (!publisher->copies.installed() || !publisher->waits.installed() || !publisher->clock.installed())
        return 90;
    if (args.at(1) == "level")
    {
        KorGLog.AttachSharedMemory();
        KorGLog.ReadSharedMemory();
    }
    const int result = args.at(1) == "file" ? Kor_LogFile::UpdateSMFromFile(args.at(2).c_str())
                                            : KorGLog.SetCustomLogLevel(3, std::atoi(args.at(2).c_str()), true);
    std::printf(
        "turns=%d longest=%lu wait=%lu\n", mutexes && mutexes->calls() > 0 ? 0 : 1, publisher->longest,
        publisher->result);
    return result;
}

/// Processes that look at package 3 of the block, and files to publish.
class Machine
{
public:
    Machine()
    {
        for (int level = 1; level <= 7; ++level)
            EXPECT_TRUE(write_file(file(level), logger_text(level)));
        EXPECT_TRUE(write_file(m_directory.file("logger"), logger_text(4)));
        m_first = std::make_unique<Actor>(m_directory.path());
        EXPECT_EQ(m_first->level(3), 4);
        m_second = std::make_unique<Actor>(m_directory.path());
        EXPECT_EQ(m_second->level(3), 4);
    }

    std::string file(int level) const { return m_directory.file("logger" + std::to_string(level)); }
    const std::string& path() const { return m_directory.path(); }
    int level() { return m_first->level(3); }

    /// Everyone goes by this level, now and when nothing is in their caches any more.
    void expect_all_at(int level)
    {
        for (Actor* const actor : {m_first.get(), m_second.get()})
        {
            EXPECT_EQ(actor->level(3), level);
            EXPECT_EQ(actor->up_to_date(), 1);
            EXPECT_EQ(actor->default_level(3), level);
        }
        Actor later(m_directory.path());
        EXPECT_EQ(later.level(3), level);
    }

private:
    TempDirectory m_directory;
    std::unique_ptr<Actor> m_first, m_second;
};

std::unique_ptr<Child>
start_publisher(const std::string& name, const char* what, const std::string& value, std::vector<std::string> more = {})
{
    ChildOptions options;
    options.arguments = {name, what, value};
    options.arguments.insert(options.arguments.end(), more.begin(), more.end());
    options.environment = {{"KORAL_LOG_DEVELOP", ""}};
    auto child = std::make_unique<Child>("publisher", options);
    child->ensure_begun();
    return child;
}

/// A publisher that stands in the middle of its copy until it is told to go on.
struct StoppedPublisher
{
    explicit StoppedPublisher(const std::string& file, std::vector<std::string> more = {})
    {
        more.emplace_back("stops");
        child = start_publisher(name, "file", file, std::move(more));
        EXPECT_TRUE(copying.wait());
    }

    void finish()
    {
        go_on.set();
        const ChildResult result = child->wait(20000);
        EXPECT_TRUE(result.finished);
        EXPECT_EQ(result.exit_code, 0u) << result.out << result.err;
    }

    std::string name = unique_name("stopped");
    NamedEvent copying{name + "-copying"};
    NamedEvent go_on{name + "-go-on"};
    std::unique_ptr<Child> child;
};

std::string output_of(const Child& child)
{
    const ChildResult result = child.wait(20000);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u) << result.err;
    return text_of(result.out);
}
} // namespace

TEST(SharedBlockPublish, OfTwoPublishersInOneMillisecondTheLastOneHoldsAlsoWithoutTurns)
{
    Machine machine;
    StoppedPublisher slow(machine.file(1), {"has no turns"});
    const std::string name = unique_name("quick");
    const auto quick = start_publisher(name, "file", machine.file(7), {"has no turns"});
    EXPECT_EQ(output_of(*quick), "turns=0 longest=0 wait=0\n");
    machine.expect_all_at(7); // and have noted the stamp
    slow.finish();
    machine.expect_all_at(1);
}

TEST(SharedBlockPublish, APublisherWaitsForTheOneWhoseTurnItIs)
{
    struct Row
    {
        const char* what;
        int level;
    };
    for (const Row& row : {Row{"file", 7}, {"level", 6}})
    {
        Machine machine;
        StoppedPublisher slow(machine.file(1));
        const std::string name = unique_name("second");
        const NamedEvent waiting(name + "-waiting");
        const auto second = start_publisher(
            name, row.what, row.what == std::string("file") ? machine.file(row.level) : std::to_string(row.level));
        ASSERT_TRUE(waiting.wait()) << row.what;
        EXPECT_EQ(machine.level(), 4) << row.what;
        slow.finish();
        EXPECT_EQ(output_of(*second), "turns=1 longest=2000 wait=0\n") << row.what;
        machine.expect_all_at(row.level);
    }
}

namespace
{
// args: name of its events. Copies what is shared, and tells the level of package 3 and of the last package.
KOR_CHILD(reader_of_the_block)
{
    const NamedEvent waiting(args.at(0) + "-waiting");
    const Hook<WaitForSingleObjectImport> waits(
        [&waiting](HANDLE object, DWORD milliseconds) -> DWORD
        {
            waiting.set();
            return ::WaitForSingleObject(object, milliseconds);
        });
    if (!waits.installed())
        return 90;
    const auto copy = std::make_unique<Kor_LogConf>();
    const int result = Kor_LogFile::CopySharedMemory(*copy);
    std::printf("result=%d level=%d\n", result, static_cast<int>(copy->packageLevels[3]));
    return 0;
}
} // namespace

TEST(SharedBlockPublish, WhoCopiesTheBlockWaitsForTheOneWhoPublishes)
{
    Machine machine;
    StoppedPublisher slow(machine.file(1));
    const std::string name = unique_name("reader");
    const NamedEvent waiting(name + "-waiting");
    ChildOptions options;
    options.arguments = {name};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}};
    Child reader("reader_of_the_block", options);
    reader.ensure_begun();
    ASSERT_TRUE(waiting.wait());
    EXPECT_FALSE(reader.wait(0).finished);
    slow.finish();
    EXPECT_EQ(output_of(reader), "result=17 level=1\n");
}

TEST(SharedBlockPublish, TheTurnOfAPublisherThatDiesGoesOnToTheNext)
{
    Machine machine;
    const StoppedPublisher dying(machine.file(1));
    const std::string name = unique_name("heir");
    const NamedEvent waiting(name + "-waiting");
    const auto heir = start_publisher(name, "file", machine.file(7));
    ASSERT_TRUE(waiting.wait());
    dying.child->kill();
    EXPECT_EQ(output_of(*heir), "turns=1 longest=2000 wait=128\n"); // WAIT_ABANDONED
    machine.expect_all_at(7);
}

TEST(SharedBlockPublish, APublisherThatHangsIsNotWaitedForForEver)
{
    Machine machine;
    StoppedPublisher hanging(machine.file(1));
    const auto impatient = start_publisher(unique_name("impatient"), "file", machine.file(7), {"is impatient"});
    EXPECT_EQ(output_of(*impatient), "turns=1 longest=2000 wait=258\n"); // WAIT_TIMEOUT
    machine.expect_all_at(7);
    hanging.finish(); // if it comes to itself after all
    machine.expect_all_at(1);
}

TEST(SharedBlockPublish, AnObjectOfAnotherKindWithTheNameOfTheTurnsStopsNobody)
{
    Machine machine;
    const std::string turns = shared_block_name() + "_PUBLISHER";
    const HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, turns.c_str());
    ASSERT_NE(event, nullptr);
    Actor tool;
    for (const int level : {7, 2})
    {
        EXPECT_EQ(tool.update(machine.file(level)), 0);
        machine.expect_all_at(level);
    }
    EXPECT_EQ(tool.attach(), 17);
    EXPECT_EQ(tool.read_shared(), 0);
    EXPECT_EQ(tool.custom_level(3, 5, true), 0);
    machine.expect_all_at(5);
    ::CloseHandle(event);
}

TEST(SharedBlockPublish, FourPublishersInOneMillisecondLeaveAllProcessesWithTheSameLevels)
{
    Machine machine;
    std::vector<std::unique_ptr<Actor>> tools;
    for (int i = 0; i < 4; ++i)
    {
        tools.push_back(std::make_unique<Actor>());
        ASSERT_EQ(tools.back()->stop_clock_at(THE_MILLISECOND), 0);
    }
    const int wanted = rounds_wanted("LUMLOG_TEST_PUBLISHES", 3);
    for (int round = 1; round <= wanted; ++round)
    {
        for (int i = 0; i < 4; ++i)
            tools[static_cast<std::size_t>(i)]->begin_update(machine.file(1 + i), 10);
        for (int check = 0; check < 5; ++check)
            machine.level();
        for (const auto& tool : tools)
            EXPECT_EQ(tool->finish(), 0);
        machine.expect_all_at(BlockView().conf().packageLevels[3]);
        if (round % 100 == 0)
        {
            std::printf("%d rounds, 10 times four publishers each\n", round);
            std::fflush(stdout);
        }
    }
}

TEST(SharedBlockPublish, EachStampIsAboveTheOneBefore)
{
    Machine machine;
    const BlockView block;
    Actor tool;
    ASSERT_EQ(tool.stop_clock_at(THE_MILLISECOND), 0);
    for (const std::uint64_t stamp : {THE_MILLISECOND - 1, THE_MILLISECOND, THE_MILLISECOND + 86'400'000})
    {
        block.conf().changeCount = stamp;
        std::uint64_t before = stamp;
        for (int i = 0; i < 3; ++i)
        {
            ASSERT_EQ(tool.update(machine.file(1 + i)), 0);
            EXPECT_GT(block.conf().changeCount, before);
            before = block.conf().changeCount;
            EXPECT_EQ(machine.level(), 1 + i);
        }
    }
}

namespace
{
/// The first process of the machine, which stops when it has made the block and not yet looked at it.
KOR_CHILD(creator_that_stops)
{
    const NamedEvent created(args.at(0) + "-created");
    const NamedEvent go_on(args.at(0) + "-go-on");
    const Hook<MapViewOfFileImport> stops(
        [&](HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) -> LPVOID
        {
            created.set();
            go_on.wait();
            return ::MapViewOfFile(mapping, access, high, low, size);
        });
    ::_putenv(("PRISMATE_LOG_DIR=" + args.at(1)).c_str());
    KorGLog.InitConf();
    std::printf("level=%d\n", KorGLog.GetLogLevel(30000));
    return stops.calls() > 0 ? 0 : 1;
}
} // namespace

TEST(SharedBlockPublish, WhatIsPublishedBeforeTheCreatorFillsItsBlockStays)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), logger_text(7)));
    ASSERT_TRUE(write_file(directory.file("changed"), logger_text(5)));
    const std::string name = unique_name("creator");
    const NamedEvent created(name + "-created"), go_on(name + "-go-on");
    ChildOptions options;
    options.arguments = {name, directory.path()};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}};
    Child creator("creator_that_stops", options);
    creator.ensure_begun();
    ASSERT_TRUE(created.wait());
    Actor tool;
    EXPECT_EQ(tool.update(directory.file("changed")), 0);
    go_on.set();
    EXPECT_EQ(output_of(creator), "level=5\n");
    Actor later(directory.path());
    EXPECT_EQ(later.level(3), 5);
}
