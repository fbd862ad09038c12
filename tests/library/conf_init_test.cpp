// conf_init_test.cpp - the first configuration step of a log: what it reads, what the environment overrides,
// and that it runs once. Without the shared block; with it in the process tests.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Kor_LogFile.h"
#include "child.h"
#include "environment.h"
#include "log_lines.h"
#include "temp_directory.h"

namespace
{
std::string state_of(const Kor_LogConf& conf)
{
    char text[100];
    std::snprintf(
        text, sizeof text, "output=%d limit=%d level=%d", conf.GetOutput(), conf.GetSizeLimitInMb(),
        conf.GetPackageDefaultLogLevel(3));
    return text;
}

const char FILE_TEXT[] = "1\nfile_size_limit_in_mb=15\nNet 3 7\n";

/// The process's own log, as the library's loading left it and after each step that args name.
KOR_CHILD(conf_init_steps)
{
    std::printf("loaded: %s\n", state_of(*KorGLog.GetConf()).c_str());
    for (const std::string& step : args)
    {
        if (step != "InitConf" && step != "Open") // a new text for the file
        {
            if (!write_file(std::string(std::getenv("PRISMATE_LOG_DIR")) + "\\logger", step))
                return 1;
            continue;
        }
        const int result = step == "Open" ? KorGLog.Open("app") : KorGLog.InitConf();
        std::printf("%s: %d %s\n", step.c_str(), result, state_of(*KorGLog.GetConf()).c_str());
    }
    return 0;
}

std::string run_steps(const ChildOptions& options)
{
    const ChildResult result = run_child("conf_init_steps", options);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u);
    EXPECT_EQ(result.err.find("Failed"), std::string::npos) << result.err;
    return text_of(result.out);
}
} // namespace

TEST(ConfInit, WithTheLogDirectorySetTheFileIsReadWhenTheLibraryLoads)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), FILE_TEXT));
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DIR", directory.path()}};
    EXPECT_EQ(run_steps(options), "loaded: output=1 limit=15 level=7\n");
}

TEST(ConfInit, WithoutTheLogDirectoryTheFileIsReadByTheFirstStep)
{
    const TempDirectory directory;
    ASSERT_TRUE(::CreateDirectoryA(directory.file("log").c_str(), nullptr));
    ASSERT_TRUE(write_file(directory.file("log\\logger"), FILE_TEXT));
    ChildOptions options;
    options.directory = directory.path();
    options.arguments = {"InitConf"};
    EXPECT_EQ(
        run_steps(options), "loaded: output=0 limit=0 level=4\n"
                            "Kor_LogFile - Warning - No configuration file\n"
                            "InitConf: 0 output=1 limit=15 level=7\n");
    options.arguments = {"Open"};
    EXPECT_EQ(
        run_steps(options), "loaded: output=0 limit=0 level=4\n"
                            "Kor_LogFile - Warning - No configuration file\n"
                            "Open: 0 output=1 limit=15 level=7\n");
}

TEST(ConfInit, AMissingFileIsReportedAndTheDefaultsStay)
{
    const TempDirectory directory;
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DIR", directory.path()}};
    options.arguments = {"InitConf"};
    EXPECT_EQ(
        run_steps(options), "Kor_LogFile - Warning - No configuration file: " + directory.file("logger") +
                                "\n"
                                "loaded: output=0 limit=0 level=4\n"
                                "InitConf: 0 output=0 limit=0 level=4\n");
}

TEST(ConfInit, ItRunsOnceAndLaterChangesOfTheFileAreNotSeen)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), FILE_TEXT));
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DIR", directory.path()}};
    options.arguments = {"2\nfile_size_limit_in_mb=99\nNet 3 1\n", "InitConf", "Open", "InitConf"};
    EXPECT_EQ(
        run_steps(options), "loaded: output=1 limit=15 level=7\n"
                            "InitConf: 0 output=1 limit=15 level=7\n"
                            "Open: 0 output=1 limit=15 level=7\n"
                            "InitConf: 0 output=1 limit=15 level=7\n");
}

TEST(ConfInit, EveryLogObjectHasAFirstStepOfItsOwn)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), FILE_TEXT));
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    const Kor_LogConf* const of_the_process = KorGLog.GetConf();
    Kor_LogFile first(777, false), second(777, false);
    EXPECT_EQ(state_of(*first.GetConf()), "output=1 limit=15 level=7");
    EXPECT_EQ(state_of(*second.GetConf()), "output=1 limit=15 level=7");
    EXPECT_NE(first.GetConf(), second.GetConf());
    EXPECT_EQ(KorGLog.GetConf(), of_the_process);
    EXPECT_EQ(first.SetCustomLogLevel(3, 2, true), 0);
    EXPECT_EQ(second.GetConf()->GetPackageDefaultLogLevel(3), 7);
}

TEST(ConfInit, TheFirstCharacterOfTheOutputVariableOverridesTheFile)
{
    struct Row
    {
        const char* value;
        int output; // without a registered event source
    };
    const Row rows[] = {
        {"0", 0}, {"0x", 0}, {"01", 0}, {"2", 2},  {"20", 2}, {"1", 2},
        {"3", 2}, {"x", 2},  {" 0", 2}, {"-1", 2}, {"9", 2},  {"\xE9", 2},
    };
    for (const Row& row : rows)
    {
        for (const char* in_file : {"0", "1", "2"})
        {
            const TempDirectory directory;
            ASSERT_TRUE(write_file(directory.file("logger"), std::string(in_file) + "\nl\nNet 3 7\n"));
            const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
            const EnvironmentVariable output("KORAL_LOG_OUTPUT", row.value);
            const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
            Kor_LogFile log(777, false);
            EXPECT_EQ(log.GetConf()->GetOutput(), row.output) << row.value << " over " << in_file;
            EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7);
        }
    }
}

TEST(ConfInit, AnEmptyOutputVariableIsSetAllTheSame)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "1\nl\nNet 3 7\n"));
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    {
        Kor_LogFile log(777, false);
        EXPECT_EQ(log.GetConf()->GetOutput(), 1); // not set: the file decides
    }
    const EnvironmentVariable restored("KORAL_LOG_OUTPUT", "");
    ASSERT_TRUE(::SetEnvironmentVariableA("KORAL_LOG_OUTPUT", ""));
    Kor_LogFile log(777, false);
    // The C runtime has no empty variables, Windows has: either "not set" or "any other character".
    EXPECT_TRUE(log.GetConf()->GetOutput() == 1 || log.GetConf()->GetOutput() == 2);
}

TEST(ConfInit, TheOverrideLeavesDebuggerOutputAndSizeLimitToTheFile)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "3\nfile_size_limit_in_mb=15\n"));
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    const EnvironmentVariable output("KORAL_LOG_OUTPUT", "0");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.GetConf()->GetOutput(), 0);
    EXPECT_EQ(log.GetConf()->GetSizeLimitInMb(), 15);
    EXPECT_TRUE(log.GetConf()->printToDebugger);
}
