// The last error of a thread before the log is opened, while the process ends, and over unloading.

#include "Kor_Error.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <thread>

#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

/// Its end is that of a host's own static object.
struct LogsAtItsEnd
{
    ~LogsAtItsEnd()
    {
        if (!active)
            return;
        KorGLog.StoreParams("host", "~LogsAtItsEnd", 7, 3, 17);
        KorGError.Log("N", 0);
        KorGError.Set(5);
        KorGError.SetLogMsg("text %d", 5);
        KorGLog.StoreParams("host", "~LogsAtItsEnd", 9, 3, 17);
        KorGError.Log("N", 30013);
    }
    bool active = false;
} logs_at_its_end;

void log_at_exit()
{
    KorGLog.StoreParams("host", "log_at_exit", 8, 3, 17);
    KorGError.Log("N", 30012);
}

KOR_CHILD(has_errors_until_its_end)
{
    KorGError.Set(30011);
    KorGError.SetLogMsg("set before the log was opened");
    KorGLog.Open("test.log", "viewer");
    logs_at_its_end.active = true;
    std::atexit(&log_at_exit);
    // A thread that the end of the process catches with an error of its own.
    std::atomic<bool> set{false};
    std::thread(
        [&]
        {
            KorGError.SetLogMsg("of a thread");
            set = true;
            ::Sleep(INFINITE);
        })
        .detach();
    while (!set)
        ::Sleep(1);
    if (args[0] == "exit on a thread")
    {
        std::thread([] { std::exit(5); }).detach();
        ::Sleep(INFINITE);
    }
    return 5;
}

ChildResult leave_by(const LogDirectory& directory, const char* way)
{
    ChildOptions options = directory.for_child();
    options.arguments = {way};
    return run_child("has_errors_until_its_end", options);
}

const std::string HEADLINE = "<time> ERROR   (017) viewer (<pid>,<tid>)  host";

TEST(ErrorExit, ErrorsCanBeSetAndLoggedUntilTheProcessHasEnded)
{
    const LogDirectory directory;
    const ChildResult child = leave_by(directory, "return");
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_EQ(child.err, "");
    Lines lines = directory.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[1], HEADLINE + "(8) log_at_exit -> Error 30012 [N] occurred. set before the log was opened");
    EXPECT_EQ(lines[2], HEADLINE + "(7) ~LogsAtItsEnd -> Error 30012 detected. ");
    EXPECT_EQ(lines[3], HEADLINE + "(9) ~LogsAtItsEnd -> Error 30013 [N] occurred. text 5");
    EXPECT_EQ(lines[4].rfind("===== viewer (<pid>) End Session", 0), 0u);
}

TEST(ErrorExit, AnotherThreadThatEndsTheProcessHasErrorsOfItsOwn)
{
    const LogDirectory directory;
    const ChildResult child = leave_by(directory, "exit on a thread");
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 5u);
    Lines lines = directory.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[1], HEADLINE + "(8) log_at_exit -> Error 30012 [N] occurred. ");
    EXPECT_EQ(lines[3], HEADLINE + "(9) ~LogsAtItsEnd -> Error 30013 [N] occurred. text 5");
}

KOR_CHILD(logs_an_error_without_a_log)
{
    KorGError.Log("N", 30012); // no Open at all: standard error
    return KorGError.Get() == 30012 ? 5 : 6;
}

TEST(ErrorExit, AnErrorIsLoggedThoughTheLogWasNeverOpened)
{
    const LogDirectory directory(TO_STDERR);
    const ChildResult child = run_child("logs_an_error_without_a_log", directory.for_child());
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_NE(child.err.find("Error 30012 [N] occurred. "), std::string::npos);
}
} // namespace
