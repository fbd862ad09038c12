// shared_attach_test.cpp - joining the machine's block: who creates it, what those who come later find, and
// what becomes of it when processes end at the wrong moment.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "child.h"
#include "import_hook.h"
#include "log_lines.h"
#include "named_event.h"
#include "shared_actor.h"
#include "temp_directory.h"

KOR_IMPORT(MapViewOfFile);
KOR_IMPORT(UnmapViewOfFile);

namespace
{
/// A directory whose `logger` file sets package 3.
class LoggerDirectory
{
public:
    explicit LoggerDirectory(int level_of_package_3, int limit = 0, const std::string& more = {})
    {
        EXPECT_TRUE(write_file(file(), logger_text(level_of_package_3, limit, more)));
    }
    const std::string& path() const { return m_directory.path(); }
    std::string file() const { return m_directory.file("logger"); }

private:
    TempDirectory m_directory;
};
} // namespace

TEST(SharedBlockAttach, TheFirstProcessCreatesTheBlockAndTheSecondFindsIt)
{
    Actor first, second;
    EXPECT_EQ(first.attach_static(), 0);
    for (const int offset : {0, 4, 8, 4353008, 4353016, 4383016, 4383020, 4383775})
        EXPECT_EQ(first.view_byte(offset), 0) << offset;
    EXPECT_EQ(second.attach_static(), 17);
    EXPECT_EQ(first.attach_static(), 17);
    EXPECT_EQ(second.attach(), 17);
}

TEST(SharedBlockAttach, TheBlockHasExactlyTheSizeOfAConfiguration)
{
    Actor first;
    ASSERT_EQ(first.attach_static(), 0);
    const BlockView block;
    ASSERT_TRUE(block.valid());
    EXPECT_FALSE(block.created());
    MEMORY_BASIC_INFORMATION region{};
    ASSERT_NE(::VirtualQuery(block.bytes(), &region, sizeof region), 0u);
    EXPECT_EQ(region.RegionSize, 4386816u); // 4383776 in whole pages
}

TEST(SharedBlockAttach, TheFirstProcessPublishesItsFileAndTheSecondWorksInTheBlock)
{
    const LoggerDirectory one(7, 15), other(1, 99);
    Actor first(one.path());
    ASSERT_TRUE(first.ready());
    Actor second(other.path());
    EXPECT_EQ(first.level(3), 7);
    EXPECT_EQ(first.limit(), 15);
    EXPECT_EQ(first.output(), 2);
    EXPECT_EQ(second.level(3), 7);
    EXPECT_EQ(second.level(4), 4);
    EXPECT_EQ(second.limit(), 15);
    EXPECT_EQ(second.output(), 2);

    const BlockView block;
    ASSERT_TRUE(block.valid());
    EXPECT_FALSE(block.created());
    EXPECT_EQ(block.conf().packageLevels[3], 7);
    EXPECT_STREQ(block.conf().packageNames[3], "Net");
    block.conf().packageLevels[5] = 2; // in place: nobody has a copy
    EXPECT_EQ(first.default_level(5), 2);
    EXPECT_EQ(second.default_level(5), 2);
}

TEST(SharedBlockAttach, ReadingAndWritingTheBlockReturn0)
{
    const LoggerDirectory one(7);
    Actor first, second;
    EXPECT_EQ(first.attach(), 0);
    EXPECT_EQ(first.write_shared(), 0);
    EXPECT_EQ(first.write_shared(), 0);
    EXPECT_EQ(second.attach(), 17);
    EXPECT_EQ(second.read_shared(), 0);
    EXPECT_EQ(second.read_shared(), 0);
    EXPECT_EQ(second.level(3), 4);
}

TEST(SharedBlockAttach, ABlockOutlivesTheProcessThatCreatedIt)
{
    const LoggerDirectory one(7), other(1);
    Actor first(one.path());
    ASSERT_TRUE(first.ready());
    Actor second(other.path());
    ASSERT_EQ(second.level(3), 7);
    EXPECT_EQ(first.quit().exit_code, 0u);
    Actor third(other.path());
    EXPECT_EQ(third.level(3), 7);
    EXPECT_EQ(second.custom_level(3, 6, true), 0);
    EXPECT_EQ(third.level(3), 6);
}

TEST(SharedBlockAttach, AProcessKilledInTheMiddleLeavesTheBlockToTheOthers)
{
    const LoggerDirectory one(7), other(1);
    Actor first(one.path());
    ASSERT_TRUE(first.ready());
    Actor second(other.path());
    ASSERT_EQ(second.level(3), 7);
    first.kill();
    EXPECT_EQ(second.level(3), 7);
    EXPECT_EQ(second.custom_level(3, 5, true), 0);
    Actor third(other.path());
    EXPECT_EQ(third.level(3), 5);
}

TEST(SharedBlockAttach, WhenTheLastProcessIsGoneTheNextOneStartsFromItsFile)
{
    const LoggerDirectory one(7), other(1);
    {
        Actor first(one.path());
        ASSERT_EQ(first.level(3), 7);
        first.quit();
    }
    Actor second(other.path());
    EXPECT_EQ(second.level(3), 1);
}

TEST(SharedBlockAttach, AnOverrideOfTheOutputAppliesToTheWholeMachine)
{
    const LoggerDirectory one(7);
    Actor first(one.path());
    ASSERT_EQ(first.output(), 2);
    Actor second(one.path(), {{"KORAL_LOG_OUTPUT", "0"}});
    EXPECT_EQ(second.output(), 0);
    EXPECT_EQ(first.output(), 0);
    Actor third(one.path());
    EXPECT_EQ(third.output(), 0);
}

TEST(SharedBlockAttach, AProcessInDevelopmentKeepsToItsOwnFile)
{
    const LoggerDirectory one(7, 15), other(1, 99);
    Actor first(one.path());
    ASSERT_EQ(first.level(3), 7);
    Actor second(other.path(), {{"KORAL_LOG_DEVELOP", "1"}, {"KORAL_LOG_OUTPUT", "0"}});
    EXPECT_EQ(second.level(3), 1);
    EXPECT_EQ(second.limit(), 99);
    EXPECT_EQ(second.output(), 0);
    EXPECT_EQ(first.output(), 2);
    EXPECT_EQ(second.custom_level(3, 2, true), 0);
    EXPECT_EQ(first.level(3), 7);
    EXPECT_EQ(first.custom_level(3, 6, true), 0);
    EXPECT_EQ(second.level(3), 2);
}

TEST(SharedBlockAttach, AProcessWithoutAFileJoinsTheBlockAllTheSame)
{
    const LoggerDirectory one(7, 15);
    const TempDirectory empty;
    Actor first(one.path());
    ASSERT_TRUE(first.ready());
    Actor second(empty.path());
    EXPECT_EQ(second.level(3), 7);
    EXPECT_EQ(second.limit(), 15);
    EXPECT_EQ(
        text_of(second.quit().out), "Kor_LogFile - Warning - No configuration file: " + empty.file("logger") + "\n");
}

TEST(SharedBlockAttach, AFirstProcessWithoutAFilePublishesTheDefaults)
{
    const LoggerDirectory other(7, 15);
    const TempDirectory empty;
    Actor first(empty.path());
    ASSERT_TRUE(first.ready());
    Actor second(other.path());
    EXPECT_EQ(second.level(3), 4);
    EXPECT_EQ(second.limit(), 0);
    EXPECT_EQ(second.output(), 0);
}

TEST(SharedBlockAttach, LaterProcessesDoNotReadTheirRulesFromTheFile)
{
    const LoggerDirectory one(4, 0, "Core 4 3 [(6;10.0.0.0)]\n"), other(4, 0, "Core 4 3 [(7;11.0.0.0)]\n");
    Actor first(one.path());
    ASSERT_EQ(first.level(4), 3);
    Actor second(other.path());
    EXPECT_EQ(second.level(4), 3);
    EXPECT_EQ(second.set_ip("10.1.2.3"), 0);
    EXPECT_EQ(second.level(4), 6);
    EXPECT_EQ(second.set_ip("11.1.2.3"), 0);
    EXPECT_EQ(second.level(4), 3);
    EXPECT_EQ(first.level(4), 3); // the client is the process's own
}

// Several at once -----------------------------------------------------------------------------------

namespace
{
using Actors = std::vector<std::unique_ptr<Actor>>;

Actors waiting_actors(int count)
{
    Actors actors;
    for (int i = 0; i < count; ++i)
        actors.push_back(std::make_unique<Actor>());
    for (const auto& actor : actors)
        EXPECT_TRUE(actor->ready());
    return actors;
}

void expect_one_creator(int count)
{
    const Actors actors = waiting_actors(count);
    const std::string name = unique_name("go");
    const NamedEvent go(name);
    for (const auto& actor : actors)
        actor->begin_attach(name);
    go.set();
    int creators = 0, joiners = 0;
    for (const auto& actor : actors)
    {
        const int result = actor->finish();
        creators += result == 0 ? 1 : 0;
        joiners += result == 17 ? 1 : 0;
    }
    EXPECT_EQ(creators, 1);
    EXPECT_EQ(joiners, count - 1);
}

void expect_all_to_end_with_the_file(int count)
{
    const LoggerDirectory directory(7, 15);
    const Actors actors = waiting_actors(count);
    const std::string name = unique_name("go");
    const NamedEvent go(name);
    for (const auto& actor : actors)
        actor->begin_init(directory.path(), name);
    go.set();
    for (const auto& actor : actors)
        EXPECT_EQ(actor->finish(), 0);
    int creators = 0;
    for (const auto& actor : actors)
    {
        EXPECT_EQ(actor->level(3), 7);
        EXPECT_EQ(actor->level(4), 4);
        EXPECT_EQ(actor->limit(), 15);
        creators += actor->created();
    }
    EXPECT_EQ(creators, 1);
}
} // namespace

TEST(SharedBlockRace, OfTwoProcessesAtTheSameMomentExactlyOneCreatesTheBlock)
{
    for (int round = 0; round < 4; ++round)
        expect_one_creator(2);
}

TEST(SharedBlockRace, OfEightProcessesAtTheSameMomentExactlyOneCreatesTheBlock)
{
    for (int round = 0; round < 2; ++round)
        expect_one_creator(8);
}

TEST(SharedBlockRace, TwoProcessesThatStartAtTheSameMomentEndWithTheLevelsOfTheFile)
{
    for (int round = 0; round < 8; ++round)
        expect_all_to_end_with_the_file(2);
}

TEST(SharedBlockRace, EightProcessesThatStartAtTheSameMomentEndWithTheLevelsOfTheFile)
{
    for (int round = 0; round < 3; ++round)
        expect_all_to_end_with_the_file(8);
}

// Created and not filled ----------------------------------------------------------------------------

TEST(SharedBlockUnfilled, ABlockOfZeroBytesThatNobodyFillsIsFilledByWhoeverJoins)
{
    const LoggerDirectory one(7, 15), other(1, 99);
    const BlockView zeros;
    ASSERT_TRUE(zeros.valid());
    ASSERT_TRUE(zeros.created());
    Actor first(one.path());
    ASSERT_TRUE(first.ready());
    EXPECT_EQ(first.level(3), 7);
    EXPECT_EQ(first.level(4), 4);
    EXPECT_EQ(first.limit(), 15);
    Actor second(other.path());
    EXPECT_EQ(second.level(3), 7);
    EXPECT_EQ(second.limit(), 15);
    EXPECT_EQ(first.custom_level(3, 5, true), 0);
    EXPECT_EQ(second.level(3), 5);
}

TEST(SharedBlockUnfilled, ABlockOfZeroBytesIsFilledByAnUpdate)
{
    const LoggerDirectory one(7, 15);
    const BlockView zeros;
    ASSERT_TRUE(zeros.created());
    Actor tool;
    EXPECT_EQ(tool.update(one.file()), 0);
    EXPECT_EQ(zeros.conf().packageLevels[3], 7);
    Actor reader(LoggerDirectory(1).path());
    EXPECT_EQ(reader.level(3), 7);
}

namespace
{
/// Creates the block, says so, and then dies or goes on as its second argument says.
KOR_CHILD(shared_stops_before_filling)
{
    const NamedEvent created(args.at(0) + "-created");
    const NamedEvent go_on(args.at(0) + "-go-on");
    const bool dies = args.at(1) == "dies";
    const Hook<MapViewOfFileImport> stops(
        [&](HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) -> LPVOID
        {
            created.set();
            if (!go_on.wait())
                return nullptr;
            if (dies)
                ::TerminateProcess(::GetCurrentProcess(), 77);
            return ::MapViewOfFile(mapping, access, high, low, size);
        });
    ::_putenv(("PRISMATE_LOG_DIR=" + args.at(2)).c_str());
    KorGLog.InitConf();
    std::printf("level=%d\n", KorGLog.GetLogLevel(30000));
    return 0;
}

ChildOptions stopping_options(const std::string& name, const char* what, const std::string& directory)
{
    ChildOptions options;
    options.arguments = {name, what, directory};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}};
    return options;
}
} // namespace

TEST(SharedBlockUnfilled, AProcessKilledBetweenCreatingAndFillingDoesNotStopTheOthers)
{
    const LoggerDirectory one(7, 15), other(1, 99);
    const std::string name = unique_name("stops");
    const NamedEvent created(name + "-created"), go_on(name + "-go-on");
    Child creator("shared_stops_before_filling", stopping_options(name, "dies", one.path()));
    creator.ensure_begun();
    ASSERT_TRUE(created.wait());
    Actor waiting;
    ASSERT_TRUE(waiting.ready());
    const BlockView held; // the creator's, as it stands
    ASSERT_FALSE(held.created());
    const std::string now = unique_name("now");
    const NamedEvent go(now);
    go.set();
    waiting.begin_init(other.path(), now);
    go_on.set();
    EXPECT_EQ(creator.wait(20000).exit_code, 77u);
    EXPECT_EQ(waiting.finish(), 0);
    EXPECT_EQ(waiting.level(3), 1);
    EXPECT_EQ(waiting.level(4), 4);
    EXPECT_EQ(waiting.limit(), 99);
    Actor later(one.path());
    EXPECT_EQ(later.level(3), 1);
}

TEST(SharedBlockUnfilled, ASlowCreatorAndThoseWhoWaitedForItEndWithTheSameLevels)
{
    const LoggerDirectory one(7, 15), other(1, 99);
    const std::string name = unique_name("stops");
    const NamedEvent created(name + "-created"), go_on(name + "-go-on");
    Child creator("shared_stops_before_filling", stopping_options(name, "goes on", one.path()));
    creator.ensure_begun();
    ASSERT_TRUE(created.wait());
    Actor waiting(other.path()); // joins while it loads
    go_on.set();
    const ChildResult result = creator.wait(20000);
    ASSERT_TRUE(result.finished);
    ASSERT_TRUE(waiting.ready());
    // Whoever came to fill it: what stands in the block is what holds.
    const int level = waiting.level(3);
    EXPECT_TRUE(level == 7 || level == 1) << level;
    Actor later(other.path());
    EXPECT_EQ(later.level(3), level);
    EXPECT_EQ(later.limit(), level == 7 ? 15 : 99);
    EXPECT_EQ(waiting.limit(), level == 7 ? 15 : 99);
}

// What is no block ----------------------------------------------------------------------------------

TEST(SharedBlockForeign, AMappingThatIsTooSmallIsNotUsed)
{
    for (const DWORD size : {1u, 4096u, 4383775u - 4096u})
    {
        const LoggerDirectory one(7, 15);
        const BlockView small(size);
        ASSERT_TRUE(small.created());
        Actor actor(one.path());
        ASSERT_TRUE(actor.ready()) << size;
        EXPECT_EQ(actor.level(3), 7) << size;
        EXPECT_EQ(actor.level(4), 4) << size;
        EXPECT_EQ(actor.limit(), 15) << size;
        EXPECT_EQ(actor.attach_static(), -1) << size;
        EXPECT_EQ(actor.update(one.file()), -1) << size;
        EXPECT_EQ(small.bytes()[0], 0) << size; // not written to either
    }
}

TEST(SharedBlockForeign, ASectionThatIsReservedOnlyIsNotUsed)
{
    const HANDLE section = ::CreateFileMappingA(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, BlockView::SIZE, shared_block_name().c_str());
    ASSERT_NE(section, nullptr);
    const LoggerDirectory one(7, 15);
    Actor actor(one.path());
    ASSERT_TRUE(actor.ready());
    EXPECT_EQ(actor.level(3), 7);
    EXPECT_EQ(actor.level(4), 4);
    EXPECT_EQ(actor.limit(), 15);
    EXPECT_EQ(actor.attach_static(), -1);
    EXPECT_EQ(actor.update(one.file()), -1);
    const std::string line = "****ERROR - Failed in MapViewOfFile.Error num is <998>****\n";
    EXPECT_EQ(text_of(actor.quit().err).rfind(line + line + line, 0), 0u);
    ::CloseHandle(section);
}

namespace
{
/// What a tool does that looks at the block and takes no part in it.
void look_at_the_block()
{
    const auto copy = std::make_unique<Kor_LogConf>();
    const int result = Kor_LogFile::CopySharedMemory(*copy);
    std::printf("result=%d stamp=%d\n", result, static_cast<int>(Kor_LogFile::GetSharedChangeCount()));
}

KOR_CHILD(look_at_what_has_the_blocks_name)
{
    look_at_the_block();
    return 0;
}

/// The same where the view has addresses and no memory. Under Wine, who may read only finds zeros there.
KOR_CHILD(look_at_what_is_reserved)
{
    void* const view = ::VirtualAlloc(nullptr, BlockView::SIZE, MEM_RESERVE, PAGE_NOACCESS);
    const Hook<MapViewOfFileImport> maps([=](HANDLE, DWORD, DWORD, DWORD, SIZE_T) -> LPVOID { return view; });
    const Hook<UnmapViewOfFileImport> unmaps([](LPCVOID) -> BOOL { return TRUE; });
    if (view == nullptr || !maps.installed() || !unmaps.installed())
        return 90;
    look_at_the_block();
    return maps.calls() == 2 && unmaps.calls() == 2 ? 0 : 91;
}
} // namespace

TEST(SharedBlockForeign, WhoOnlyLooksReadsNoSectionThatCannotBeTheBlock)
{
    struct Row
    {
        const char* child;
        DWORD protection;
        DWORD size;
    };
    for (const Row& row :
         {Row{"look_at_what_is_reserved", PAGE_READWRITE | SEC_RESERVE, BlockView::SIZE},
          {"look_at_what_has_the_blocks_name", PAGE_READWRITE, 4096}})
    {
        const HANDLE section = ::CreateFileMappingA(
            INVALID_HANDLE_VALUE, nullptr, row.protection, 0, row.size, shared_block_name().c_str());
        ASSERT_NE(section, nullptr) << row.child;
        const ChildResult child = run_child(row.child);
        EXPECT_EQ(child.exit_code, 0u) << row.child << ' ' << std::hex << child.exit_code;
        EXPECT_EQ(text_of(child.out), "result=-1 stamp=0\n") << row.child;
        ::CloseHandle(section);
    }
}

TEST(SharedBlockForeign, AnObjectOfAnotherKindWithItsNameIsReportedAndTheFileCounts)
{
    const LoggerDirectory one(7, 15);
    const std::string name = shared_block_name();
    const HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, name.c_str());
    ASSERT_NE(event, nullptr);
    Actor actor(one.path());
    ASSERT_TRUE(actor.ready());
    EXPECT_EQ(actor.level(3), 7);
    EXPECT_EQ(actor.limit(), 15);
    const std::string err = text_of(actor.quit().err);
    EXPECT_EQ(err.rfind("Failed in OpenFileMapping.error <6>\nFailed in CreateFileMapping.error 6\n", 0), 0u) << err;
    ::CloseHandle(event);
}
