// log_commands_doctor_test.cpp - LevelSync doctor: each thing that keeps lines away, by its name and with its cure.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "level_sync.h"
#include "log_commands.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace
{
constexpr char FIRST_LINES[] = "2\nfile_size_limit_in_mb=0\n";

std::string name_of(const Host& host) { return "levelsync_tests (" + std::to_string(host.pid()) + ')'; }

struct Found
{
    std::string kind; ///< "wrong", "doubtful"; empty: it was not found
    std::string what;
    std::string next;
};

/// What the doctor found that has these words in it. Processes of other tests may give it more to say.
Found find(const nlohmann::json& report, const std::string& words)
{
    for (const auto& found : report["found"])
        if (found["what"].get<std::string>().find(words) != std::string::npos)
            return {found["kind"], found["what"], found["next"]};
    return {};
}

bool is_fine(const nlohmann::json& report, const std::string& words)
{
    for (const auto& fine : report["fine"])
        if (fine.get<std::string>().find(words) != std::string::npos)
            return true;
    return false;
}

/// An object of that name, as programs without administrators' rights make it.
class SessionBlock
{
public:
    SessionBlock()
        : m_mapping(::CreateFileMappingA(
              INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4'383'776, "Local\\SM_LOG_OBJ_NAME_12_0"))
    {
    }
    SessionBlock(const SessionBlock&) = delete;
    SessionBlock& operator=(const SessionBlock&) = delete;
    ~SessionBlock() { ::CloseHandle(m_mapping); }

    bool exists() const noexcept { return m_mapping != nullptr; }

private:
    HANDLE m_mapping;
};

TEST(LevelSyncDoctor, SaysWhatIsInOrder)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_TRUE(viewer->write(320, 6, "a line"));
    const nlohmann::json report = report_of(site, "doctor");
    EXPECT_TRUE(is_fine(report, "folder " + site.path())) << report.dump(2);
    EXPECT_TRUE(is_fine(report, "the level file"));
    EXPECT_TRUE(is_fine(report, "what runs is what the file says"));
    EXPECT_TRUE(is_fine(report, "output: the processes' own files"));
    EXPECT_TRUE(is_fine(report, name_of(*viewer) + " wrote to viewer.log at "));
    for (const auto& found : report["found"])
        EXPECT_THAT(found["what"].get<std::string>(), Not(HasSubstr(name_of(*viewer)))) << report.dump(2);
    EXPECT_THAT(site.run("doctor").out, HasSubstr("In order: folder " + site.path() + ", "));
}

TEST(LevelSyncDoctor, FindsThatNoFolderIsSet)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto call = site.start("doctor --json", {{"PRISMATE_LOG_DIR", ""}});
    const Found found = find(json_of(ran(*call, 60000)), "Neither --dir nor PRISMATE_LOG_DIR names a folder here");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.what, HasSubstr(" is looked at, where ")) << "that of a process that runs";
    EXPECT_THAT(found.next, HasSubstr("LevelSync lines --dir \""));
}

TEST(LevelSyncDoctor, FindsAFolderThatIsMissing)
{
    const Site site;
    const Ran ran = site.run({"doctor", "--json", "--dir", site.path("nowhere")});
    EXPECT_EQ(ran.exit_code, 1);
    const Found found = find(json_of(ran), "There is no folder " + site.path("nowhere"));
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.what, HasSubstr("write to the event log"));
    EXPECT_THAT(found.next, HasSubstr("Make the folder"));
}

TEST(LevelSyncDoctor, FindsAProcessWithAnotherFolder)
{
    const Site site;
    const Site other;
    const auto viewer = other.host("viewer");
    const Found found = find(report_of(site, "doctor"), name_of(*viewer) + " has another folder in force");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.what, HasSubstr(other.path() + ", as its PRISMATE_LOG_DIR says."));
    EXPECT_THAT(found.next, HasSubstr("LevelSync lines --dir \"" + other.path() + '"'));
    EXPECT_THAT(found.next, HasSubstr("set PRISMATE_LOG_DIR for it to " + site.path()));
}

TEST(LevelSyncDoctor, FindsThatWhatRunsIsFromAnotherFolder)
{
    const Site site;
    const Site other(std::string(FIRST_LINES) + "Replay 320 2\n");
    const auto first = other.host("first");
    const auto viewer = site.host("viewer");
    const Ran ran = site.run("doctor --json");
    EXPECT_EQ(ran.exit_code, 1);
    const Found found = find(json_of(ran), "What runs is not what the file says: ");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.what, HasSubstr("Replay 2 to 6 for everybody"));
    EXPECT_THAT(found.next, HasSubstr("LevelSync -u puts the file into force"));
    EXPECT_THAT(found.next, HasSubstr("the folder of the process that started first"));
}

TEST(LevelSyncDoctor, FindsALevelThatIsTooLow)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const nlohmann::json report = report_of(site, "doctor replay");
    const Found found = find(report, "Replay has level 6 info in " + name_of(*viewer));
    EXPECT_EQ(found.kind, "doubtful") << report.dump(2);
    EXPECT_THAT(found.next, HasSubstr("LevelSync tail Replay raises it for a while"));
    EXPECT_EQ(site.run("set replay 7").exit_code, 0);
    EXPECT_TRUE(is_fine(report_of(site, "doctor replay"), "Replay has level 7 debug in " + name_of(*viewer)));
}

TEST(LevelSyncDoctor, FindsARuleThatDoesNotFit)
{
    const Site site(std::string(FIRST_LINES) + "Replay 320 4 [(7;198.51.100.9)]\n");
    // Of a name that no process of another test has: those count, too, as all of a machine do.
    const auto reader = site.host("night-reader");
    reader->serve("192.0.2.7", 3);
    ASSERT_TRUE(reader->write(320, 4, "a line"));
    const Found found = find(report_of(site, "doctor replay"), "Replay has level 4 warning in " + name_of(*reader));
    EXPECT_THAT(found.what, HasSubstr(", for client 192.0.2.7 in session 3: "));
    EXPECT_THAT(found.what, HasSubstr("These do not fit: its rule for client 198.51.100.9."));
    EXPECT_THAT(found.next, HasSubstr("LevelSync tail Replay --client 192.0.2.7"));
    EXPECT_THAT(found.next, HasSubstr("LevelSync explain tells why"));
    // For the client that the rule is for all is well, once somebody works for it.
    const Found nobody =
        find(report_of(site, "doctor replay --client 198.51.100.9 --app night-reader"), "No running process");
    EXPECT_THAT(nobody.what, HasSubstr("is seen to work for client 198.51.100.9"));
    reader->serve("198.51.100.9", 3);
    ASSERT_TRUE(reader->write(320, 4, "a line"));
    EXPECT_TRUE(is_fine(
        report_of(site, "doctor replay --client 198.51.100.9"), "Replay has level 7 debug in " + name_of(*reader)));
}

TEST(LevelSyncDoctor, FindsAFileThatIsFull)
{
    const Site site("2\nfile_size_limit_in_mb=1\n");
    std::string many;
    while (many.size() < 3 * 1024 * 1024)
        many += line({ago(60), std::string(1000, 'x')});
    ASSERT_TRUE(write_file(site.path("viewer.log"), many));
    const auto viewer = site.host("viewer");
    for (int i = 0; i < 300; ++i) // it looks at the size now and then
        viewer->write(320, 4, "one more");
    const Ran ran = site.run("doctor --json");
    EXPECT_EQ(ran.exit_code, 1);
    const Found found = find(json_of(ran), "viewer.log is full: it has 3 MB, the limit is 1 MB.");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.next, HasSubstr("Save it and clear it, or allow more, as in LevelSync limit 2"));
    EXPECT_THAT(found.next, HasSubstr("LevelSync -u"));
    EXPECT_THAT(found.next, HasSubstr("PRISMATE_LOG_FILES=5"));
}

namespace
{
/// Writes more than a megabyte.
void fill_a_file(Host& host)
{
    for (int i = 0; i < 1200; ++i)
        host.write(320, 4, std::string(900, 'x'));
}
} // namespace

TEST(LevelSyncDoctor, TakesAFileThatItsProcessRenamesForNothingOdd)
{
    const Site site("2\nfile_size_limit_in_mb=1\n");
    const auto viewer = site.host("viewer", {{"PRISMATE_LOG_FILES", "3"}});
    fill_a_file(*viewer);
    ASSERT_NE(site.file("viewer.1.log"), "");
    const nlohmann::json report = report_of(site, "doctor");
    EXPECT_TRUE(is_fine(report, name_of(*viewer) + " wrote to viewer.log at ")) << report.dump(2);
    EXPECT_EQ(find(report, "viewer.log").what, "");
    std::filesystem::remove(site.path("viewer.log"));
    EXPECT_EQ(find(report_of(site, "doctor"), "was renamed while it ran").what, "");
}

TEST(LevelSyncDoctor, FindsAFileThatItsProcessCannotRename)
{
    const Site site("2\nfile_size_limit_in_mb=1\n");
    const auto viewer = site.host("viewer", {{"PRISMATE_LOG_FILES", "3"}});
    const HANDLE editor = ::CreateFileA(
        site.path("viewer.log").c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
        nullptr);
    ASSERT_NE(editor, INVALID_HANDLE_VALUE);
    fill_a_file(*viewer);
    ::Sleep(1100); // until it is tried again
    fill_a_file(*viewer);
    viewer->write(320, 4, "last");
    ASSERT_TRUE(write_file(site.path("viewer.1.log"), "older\r\n"));
    const Found found = find(report_of(site, "doctor"), "viewer.log has 2 MB, the limit is 1 MB: ");
    ::CloseHandle(editor);
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.what, HasSubstr("somebody has it open who does not allow that"));
    EXPECT_THAT(found.next, HasSubstr("Close what has it open"));
}

TEST(LevelSyncDoctor, FindsThatFilesAreToBeRenamedAtNoSize)
{
    const Site site(FIRST_LINES);
    const auto viewer = site.host("viewer", {{"PRISMATE_LOG_FILES", "3"}});
    const auto archive = site.host("archive", {{"PRISMATE_LOG_FILES", "many"}});
    const nlohmann::json report = report_of(site, "doctor");
    const Found found = find(report, "PRISMATE_LOG_FILES=3, and there is no size limit");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.next, HasSubstr("LevelSync limit 10"));
    EXPECT_EQ(find(report, "PRISMATE_LOG_FILES=many, which is no number from 0 to 999").kind, "doubtful");
}

TEST(LevelSyncRotation, FilesThatWereRenamedAreReadInOrder)
{
    const Site site("2\nfile_size_limit_in_mb=1\n");
    const auto viewer = site.host("viewer", {{"PRISMATE_LOG_FILES", "3"}});
    viewer->write(320, 4, "the first of all");
    fill_a_file(*viewer);
    viewer->write(320, 4, "the last of all");
    const Ran ran = site.run("lines all");
    EXPECT_LT(ran.out.find("the first of all"), ran.out.find("the last of all")) << ran;
    EXPECT_NE(ran.out.find("the last of all"), std::string::npos) << ran;
    const Ran banners = site.run("lines goes");
    EXPECT_TRUE(banners.says("Log goes on in the next file at ") && banners.says("Log goes on here at ")) << banners;
}

TEST(LevelSyncDoctor, FindsAFileThatWasRenamed)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_TRUE(viewer->write(320, 6, "a line"));
    EXPECT_EQ(find(report_of(site, "doctor"), name_of(*viewer) + " writes to").what, "");
    std::filesystem::rename(site.path("viewer.log"), site.path("viewer.log.1"));
    const Found found = find(report_of(site, "doctor"), name_of(*viewer) + " writes to viewer.log.1: ");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.what, HasSubstr("its file was renamed while it ran"));
    EXPECT_THAT(found.next, HasSubstr("it begins a new file when it starts again"));
    // A name of a log may be the program's own choice, unless the usual one is there too.
    std::filesystem::rename(site.path("viewer.log.1"), site.path("viewer-old.log"));
    EXPECT_EQ(find(report_of(site, "doctor"), name_of(*viewer) + " writes to").what, "");
    ASSERT_TRUE(write_file(site.path("viewer.log"), ""));
    EXPECT_EQ(find(report_of(site, "doctor"), name_of(*viewer) + " writes to viewer-old.log: ").kind, "doubtful");
}

TEST(LevelSyncDoctor, FindsABlockOfTheSessionBesideThatOfTheMachine)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const SessionBlock block;
    ASSERT_TRUE(block.exists());
    const Found found = find(
        report_of(site, "doctor"), "This Windows session has a configuration of its own beside that of the machine");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.next, HasSubstr("End the programs of this session"));
}

TEST(LevelSyncDoctor, FindsABlockOfTheSessionInsteadOfThatOfTheMachine)
{
    const Site site;
    const SessionBlock block;
    ASSERT_TRUE(block.exists());
    const Ran ran = site.run("doctor --json");
    EXPECT_EQ(ran.exit_code, 1);
    const Found found = find(json_of(ran), "No process shares the configuration of the machine");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.next, HasSubstr("without administrators' rights"));
}

TEST(LevelSyncDoctor, FindsAnOutputThatIsNoFile)
{
    const Site site("1\nfile_size_limit_in_mb=0\nReplay 320 6\n");
    const auto viewer = site.host("viewer");
    const Ran ran = site.run("doctor --json");
    EXPECT_EQ(ran.exit_code, 1);
    const Found found = find(json_of(ran), "Lines go to the event log, not to the files.");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.next, HasSubstr("LevelSync output files"));
}

TEST(LevelSyncDoctor, FindsPackagesThatWriteNothingAtAll)
{
    const Site site(std::string(FIRST_LINES) + "Replay 320 0\n");
    const auto viewer = site.host("viewer");
    const Found found = find(report_of(site, "doctor"), "Level 0 writes nothing at all: Replay.");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.next, HasSubstr("LevelSync set PACKAGE 4"));
}

TEST(LevelSyncDoctor, FindsAMissingLevelFileAndOneThatReadsDifferently)
{
    const Site site;
    std::filesystem::remove(site.path("logger"));
    Found found = find(report_of(site, "doctor"), "There is no file " + site.path("logger"));
    EXPECT_EQ(found.kind, "wrong");
    EXPECT_THAT(found.next, HasSubstr("LevelSync -u"));
    site.configure(std::string(FIRST_LINES) + "Replay 320 6 [(7)]\n");
    const Ran ran = site.run("doctor --json");
    EXPECT_EQ(ran.exit_code, 1);
    found = find(json_of(ran), "in the level file count");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.next, HasSubstr("LevelSync check shows"));
}

TEST(LevelSyncDoctor, FindsProcessesThatGoTheirOwnWay)
{
    const Site site;
    ChildOptions options;
    options.environment = {{"KORAL_LOG_DEVELOP", "1"}, {"PRISMATE_LOG_DIR", site.path()}};
    const std::string ready = unique_name("doctor-ready");
    const std::string over = unique_name("doctor-over");
    const NamedEvent ready_event(ready);
    const NamedEvent over_event(over);
    options.arguments = {ready, over};
    Child child("level_sync_waits", options);
    child.ensure_begun();
    ASSERT_TRUE(ready_event.wait());
    const Ran ran = site.run("doctor --json");
    over_event.set();
    EXPECT_EQ(ran.exit_code, 1);
    const std::string who = "levelsync_tests (" + std::to_string(child.pid()) + ')';
    const Found found = find(json_of(ran), who + " was started with KORAL_LOG_DEVELOP=1");
    EXPECT_EQ(found.kind, "wrong") << ran;
    EXPECT_THAT(found.next, HasSubstr("Take the variable away and start it again."));
    EXPECT_TRUE(child.wait(20000).finished);
}

TEST(LevelSyncDoctor, FindsThatNothingRuns)
{
    const Site site;
    const Found found = find(report_of(site, "doctor"), "No process shares a configuration.");
    EXPECT_EQ(found.kind, "doubtful");
    EXPECT_THAT(found.next, HasSubstr("reads the level file and shares it"));
}

TEST(LevelSyncDoctor, ChangesNothing)
{
    const Site site;
    const auto files = site.files();
    const std::string before = site.logger();
    site.run("doctor");
    site.run("doctor replay");
    EXPECT_EQ(site.files(), files);
    EXPECT_EQ(site.logger(), before);
}

TEST(LevelSyncDoctor, HasHelpWithAnExampleAndKnowsAWrongCall)
{
    const Site site;
    EXPECT_THAT(site.run("doctor --help").out, HasSubstr("Example:\n  LevelSync doctor"));
    EXPECT_EQ(site.run("doctor --nothing").exit_code, 2);
    const auto viewer = site.host("viewer");
    const Ran unknown = site.run("doctor nothing");
    EXPECT_EQ(unknown.exit_code, 1);
    EXPECT_THAT(unknown.err, HasSubstr("LevelSync list"));
}

/// Has the library loaded and waits.
KOR_CHILD(level_sync_waits)
{
    const NamedEvent ready(args.at(0));
    const NamedEvent over(args.at(1));
    ready.set();
    return over.wait(120000) ? 0 : 1;
}
} // namespace
