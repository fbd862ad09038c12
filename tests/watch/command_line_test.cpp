// LUMlogWatch.exe as people call it.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using ::testing::HasSubstr;

ChildResult call(std::vector<std::string> arguments, ChildOptions options = {})
{
    options.program = folder_of_programs() + "LUMlogWatch.exe";
    options.arguments = std::move(arguments);
    options.timeout_ms = PATIENCE_MS;
    return run_child("", options);
}

/// What the registry has for a program, empty when it has nothing.
std::string registered(const char* program, const char* value)
{
    char text[512] = {};
    DWORD size = sizeof text;
    const std::string key =
        std::string("SOFTWARE\\Microsoft\\Windows\\Windows Error Reporting\\LocalDumps\\") + program;
    const auto result = ::RegGetValueA(
        HKEY_LOCAL_MACHINE, key.c_str(), value, RRF_RT_REG_EXPAND_SZ | RRF_RT_REG_DWORD | RRF_NOEXPAND, nullptr, text,
        &size);
    if (result != ERROR_SUCCESS)
        return {};
    return size == sizeof(DWORD) ? std::to_string(*reinterpret_cast<const DWORD*>(text)) : text;
}
} // namespace

KOR_CHILD(waits_for_its_minidump)
{
    const Signal ready(args[0]);
    const Signal end(args[1]);
    ready.give();
    return end.wait() ? 0 : 1;
}

namespace
{
TEST(WatchCommandLine, TellsWhatItCanDo)
{
    const ChildResult help = call({"--help"});
    EXPECT_EQ(help.exit_code, 0u);
    for (const char* const option : {"--dump", "--register", "--unregister", "--status", "--out", "--folder"})
        EXPECT_THAT(help.out, HasSubstr(option));
    EXPECT_EQ(help.out.find("--stand-by"), std::string::npos);
    EXPECT_THAT(call({"--version"}).out, HasSubstr("LUMlogWatch 0."));
}

TEST(WatchCommandLine, RefusesWhatItDoesNotKnow)
{
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{},
          {"--what"},
          {"--dump"},
          {"--dump", "no"},
          {"--dump", "0"},
          {"--dump", "-4"},
          {"--dump", "4294967296"},
          {"--register", ""},
          {"--register", "watch_viewer"},
          {"--register", "C:\\app\\"}, // whose settings would be those of all programs
          {"--register", ".exe"},
          {"--unregister", "C:\\app\\"},
          {"--status", "--dump", "12"},
          {"--status", "--out", "x.dmp"}})
    {
        const ChildResult result = call(wrong);
        EXPECT_EQ(result.exit_code, 2u) << (wrong.empty() ? "" : wrong.front());
        EXPECT_THAT(result.err, HasSubstr("LUMlogWatch --help"));
    }
}

TEST(WatchCommandLine, SaysWhatIsWrong)
{
    EXPECT_THAT(text_of(call({"--dump", "no"}).err), HasSubstr("--dump: 'no' is no number of a process\n"));
    EXPECT_THAT(
        text_of(call({"--register", "watch_viewer"}).err),
        HasSubstr("--register: 'watch_viewer' is no file of a program, such as viewer.exe\n"));
}

TEST(WatchCommandLine, SaysNothingOfALogThatItDoesNotHave)
{
    EXPECT_EQ(call({"--version"}).err, "");
    EXPECT_EQ(call({"--status"}, LogDirectory().for_child()).err, "");
}

TEST(WatchCommandLine, WritesAMinidumpOfAProcessThatGoesOn)
{
    const LogDirectory directory;
    const Signal ready("watch_dump_ready");
    const Signal end("watch_dump_end");
    ChildOptions options;
    options.arguments = {"watch_dump_ready", "watch_dump_end"};
    Child process("waits_for_its_minidump", options);
    process.ensure_begun();
    ASSERT_TRUE(ready.wait());

    const std::string file = directory.file("viewer.dmp");
    const ChildResult named = call({"--dump", std::to_string(process.pid()), "--out", file});
    EXPECT_EQ(named.exit_code, 0u) << named.err;
    EXPECT_THAT(text_of(named.out), HasSubstr("viewer.dmp\n"));
    EXPECT_EQ(read_file(file).substr(0, 4), "MDMP");

    const ChildResult unnamed = call({"--dump", std::to_string(process.pid())}, directory.for_child());
    EXPECT_EQ(unnamed.exit_code, 0u) << unnamed.err;
    EXPECT_THAT(unnamed.out, HasSubstr("minidump-watch_tests-"));

    const ChildResult nowhere =
        call({"--dump", std::to_string(process.pid()), "--out", directory.file("nowhere\\viewer.dmp")});
    EXPECT_EQ(nowhere.exit_code, 1u);
    EXPECT_THAT(nowhere.err, HasSubstr("(3): ")); // ERROR_PATH_NOT_FOUND
    EXPECT_THAT(nowhere.err, HasSubstr("nowhere\\viewer.dmp"));

    // A file that somebody else has open is neither written over nor taken away.
    {
        const HANDLE open = ::CreateFileA(
            file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
        const ChildResult refused = call({"--dump", std::to_string(process.pid()), "--out", file});
        ::CloseHandle(open);
        EXPECT_EQ(refused.exit_code, 1u);
        EXPECT_THAT(refused.err, HasSubstr("(32): ")); // ERROR_SHARING_VIOLATION
        EXPECT_EQ(read_file(file).substr(0, 4), "MDMP");
    }

    end.give();
    EXPECT_EQ(process.wait(PATIENCE_MS).exit_code, 0u);
    const ChildResult gone = call({"--dump", "4294967292", "--out", file + "2"});
    EXPECT_EQ(gone.exit_code, 1u);
    EXPECT_THAT(gone.err, HasSubstr("No minidump of process 4294967292 could be written: there is no such process."));
    EXPECT_FALSE(file_exists(file + "2"));
}

TEST(WatchCommandLine, RegistersAProgramAndTakesThatBack)
{
    const ChildResult done = call({"--register", "C:\\app\\watch_viewer.exe", "--folder", "%TEMP%\\dumps"});
    EXPECT_EQ(done.exit_code, 0u);
    EXPECT_EQ(
        text_of(done.out),
        "When watch_viewer.exe ends unseen, Windows writes a minidump into %TEMP%\\dumps and keeps the newest 10.\n");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpFolder"), "%TEMP%\\dumps");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpCount"), "10");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpType"), "1");
    EXPECT_EQ(
        text_of(call({"--unregister", "watch_viewer.exe"}).out), "watch_viewer.exe is not registered any more.\n");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpFolder"), "");
    const ChildResult again = call({"--unregister", "watch_viewer.exe"});
    EXPECT_EQ(again.exit_code, 0u); // there is nothing left to be done
    EXPECT_EQ(text_of(again.out), "watch_viewer.exe was not registered.\n");
}

TEST(WatchCommandLine, RegistersAFolderByItsWholePath)
{
    EXPECT_EQ(call({"--register", "watch_viewer.EXE", "--folder", "dumps"}).exit_code, 0u);
    const std::string folder = registered("watch_viewer.EXE", "DumpFolder");
    EXPECT_EQ(folder.substr(1, 2), ":\\");
    EXPECT_EQ(folder.substr(folder.size() - 6), "\\dumps");
    EXPECT_EQ(call({"--unregister", "watch_viewer.EXE"}).exit_code, 0u);
}

TEST(WatchCommandLine, TellsWhoIsWatched)
{
    EXPECT_EQ(text_of(call({"--status"}).out), "Nobody watches.\n");
    const LogDirectory directory;
    const WaitingHost host(directory);
    ASSERT_TRUE(host.is_watched());
    ASSERT_TRUE(comes_true([] { return Kor_SessionLogWatcher::FindWatcher() != 0; }));
    const std::string said = text_of(call({"--status"}).out);
    EXPECT_THAT(said, HasSubstr("Process " + std::to_string(Kor_SessionLogWatcher::FindWatcher()) + " watches: "));
    EXPECT_THAT(said, HasSubstr("LUMlogWatch.exe\n"));
    EXPECT_THAT(said, HasSubstr(std::to_string(host.pid()) + "  "));
    EXPECT_THAT(said, HasSubstr("watch_tests.exe\n"));
    EXPECT_EQ(host.end_orderly(), 0u);
    EXPECT_TRUE(nobody_is_watched());
}
} // namespace
