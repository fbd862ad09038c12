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
          {"--status", "--dump", "12"},
          {"--status", "--out", "x.dmp"}})
    {
        const ChildResult result = call(wrong);
        EXPECT_EQ(result.exit_code, 2u) << (wrong.empty() ? "" : wrong.front());
        EXPECT_THAT(result.err, HasSubstr("LUMlogWatch --help"));
    }
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

    end.give();
    EXPECT_EQ(process.wait(PATIENCE_MS).exit_code, 0u);
    const ChildResult gone = call({"--dump", "4294967292", "--out", file + "2"});
    EXPECT_EQ(gone.exit_code, 1u);
    EXPECT_THAT(gone.err, HasSubstr("No minidump of process 4294967292 could be written: "));
    EXPECT_FALSE(file_exists(file + "2"));
}

TEST(WatchCommandLine, RegistersAProgramAndTakesThatBack)
{
    EXPECT_EQ(call({"--register", "C:\\app\\watch_viewer.exe", "--folder", "%TEMP%\\dumps"}).exit_code, 0u);
    EXPECT_EQ(registered("watch_viewer.exe", "DumpFolder"), "%TEMP%\\dumps");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpCount"), "10");
    EXPECT_EQ(registered("watch_viewer.exe", "DumpType"), "1");
    EXPECT_EQ(call({"--unregister", "watch_viewer.exe"}).exit_code, 0u);
    EXPECT_EQ(registered("watch_viewer.exe", "DumpFolder"), "");
    EXPECT_EQ(call({"--unregister", "watch_viewer.exe"}).exit_code, 0u); // there is nothing left to be done
}

TEST(WatchCommandLine, TellsWhoIsWatched)
{
    EXPECT_EQ(text_of(call({"--status"}).out), "Nobody watches.\n");
    const LogDirectory directory;
    const WaitingHost host(directory);
    ASSERT_TRUE(host.is_watched());
    ASSERT_TRUE(comes_true([] { return Kor_SessionLogWatcher::FindWatcher() != 0; }));
    const std::string said = text_of(call({"--status"}).out);
    EXPECT_THAT(said, HasSubstr("Process " + std::to_string(Kor_SessionLogWatcher::FindWatcher()) + " watches.\n"));
    EXPECT_THAT(said, HasSubstr(std::to_string(host.pid()) + "  "));
    EXPECT_THAT(said, HasSubstr("watch_tests.exe\n"));
    EXPECT_EQ(host.end_orderly(), 0u);
    EXPECT_TRUE(nobody_is_watched());
}
} // namespace
