// conf_init_test.cpp - what the first configuration step asks of Windows: the debugger, the event source,
// the system time; and the clock and the console behind a new configuration.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "environment.h"
#include "import_hook.h"
#include "temp_directory.h"

KOR_IMPORT(IsDebuggerPresent);
KOR_IMPORT(GetSystemTimeAdjustment);
KOR_IMPORT(SetSystemTimeAdjustment);
KOR_IMPORT(OutputDebugStringA);
KOR_IMPORT(RegisterEventSourceA);
KOR_IMPORT(CloseEventLog);
KOR_IMPORT(ReportEventA);
KOR_IMPORT(GetSystemTimeAsFileTime);
KOR_IMPORT(GetConsoleDisplayMode);
KOR_IMPORT(AllocConsole);
KOR_IMPORT(freopen);

namespace
{
/// A directory with a `logger` file, and an environment that makes new logs read it by themselves.
struct Setting
{
    explicit Setting(const std::string& text) : variable("PRISMATE_LOG_DIR", directory.path())
    {
        EXPECT_TRUE(write_file(directory.file("logger"), text));
    }

    TempDirectory directory;
    EnvironmentVariable develop{"KORAL_LOG_DEVELOP", "1"};
    EnvironmentVariable variable;
};
} // namespace

// System time ---------------------------------------------------------------------------------------

TEST(ConfInit, TheSystemTimeAdjustmentIsSetOnlyWhenItIsInUseAndNobodyDebugs)
{
    struct Row
    {
        const char* name;
        bool debugged;
        bool disabled;
        int asked, set;
    };
    const Row rows[] = {
        {"debugged", true, false, 0, 0},
        {"debugged, disabled", true, true, 0, 0},
        {"disabled", false, true, 1, 0},
        {"in use", false, false, 1, 1},
    };
    for (const Row& row : rows)
    {
        const Setting setting("2\nl\nNet 3 7\n");
        DWORD adjustment = 0;
        BOOL off = TRUE;
        const Hook<IsDebuggerPresentImport> debugger([&]() -> BOOL { return row.debugged; });
        const Hook<GetSystemTimeAdjustmentImport> get(
            [&](PDWORD value, PDWORD increment, PBOOL disabled) -> BOOL
            {
                *value = *increment = 156250;
                *disabled = row.disabled;
                return TRUE;
            });
        const Hook<SetSystemTimeAdjustmentImport> set(
            [&](DWORD value, BOOL disable) -> BOOL
            {
                adjustment = value;
                off = disable;
                return TRUE;
            });
        ASSERT_TRUE(debugger.installed() && get.installed() && set.installed());
        Kor_LogFile log(777, false);
        EXPECT_EQ(get.calls(), row.asked) << row.name;
        EXPECT_EQ(set.calls(), row.set) << row.name;
        if (row.set == 1)
        {
            EXPECT_EQ(adjustment, 10000u);
            EXPECT_EQ(off, FALSE);
        }
        EXPECT_EQ(log.InitConf(), 0);
        EXPECT_EQ(get.calls(), row.asked) << row.name; // once
        EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7) << row.name;
    }
}

// Debugger output -----------------------------------------------------------------------------------

TEST(ConfInit, Output3SendsEveryMessageToTheDebuggerToo)
{
    struct Row
    {
        const char* output;
        const char* override;
        bool debugger;
    };
    const Row rows[] = {
        {"3", "", true}, {"2", "", false}, {"1", "", false}, {"0", "", false}, {"4", "", false}, {"3", "2", true},
    };
    for (const Row& row : rows)
    {
        const Setting setting(std::string(row.output) + "\nl\nNet 3 7\n");
        const EnvironmentVariable output("KORAL_LOG_OUTPUT", row.override);
        std::vector<std::string> texts;
        const Hook<OutputDebugStringAImport> debugger([&](LPCSTR text) { texts.emplace_back(text); });
        const Hook<ReportEventAImport> events(
            [](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR*, LPVOID) -> BOOL { return TRUE; });
        ASSERT_TRUE(debugger.installed());
        CapturedStream captured_err(stderr);
        {
            Kor_LogFile log(777, false);
            EXPECT_EQ(log.InitConf(), 0); // a second time registers nothing more
            log.LogNoHeadline("%s", "to all\n");
        }
        captured_err.stop();
        EXPECT_EQ(texts, row.debugger ? std::vector<std::string>{"to all\n"} : std::vector<std::string>{})
            << row.output;
    }
}

// The event source ----------------------------------------------------------------------------------

namespace
{
/// Where a log keeps its event source: it is private, so found by registering one that is like no other.
std::size_t event_source_offset()
{
    const auto mark = reinterpret_cast<HANDLE>(0x5EED0FA7E57E57ULL);
    const Hook<RegisterEventSourceAImport> registers([mark](LPCSTR, LPCSTR) -> HANDLE { return mark; });
    const Hook<CloseEventLogImport> closes([](HANDLE) -> BOOL { return TRUE; });
    EXPECT_TRUE(registers.installed() && closes.installed());
    Kor_LogFile log(777, false);
    log.Open("app");
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&log);
    for (std::size_t offset = 0; offset + sizeof mark <= sizeof log; offset += sizeof mark)
    {
        if (std::memcmp(bytes + offset, &mark, sizeof mark) == 0)
            return offset;
    }
    return 0;
}
} // namespace

TEST(ConfInit, WithARegisteredEventSourceOtherOutputValuesMeanTheEventLog)
{
    struct Row
    {
        const char* value;
        int output;
    };
    for (const Row& row : {Row{"0", 0}, {"2", 2}, {"1", 1}, {"3", 1}, {"x", 1}})
    {
        std::size_t offset = 0;
        {
            const Setting setting("2\nl\n");
            offset = event_source_offset();
            ASSERT_NE(offset, 0u);
        }
        const Hook<CloseEventLogImport> closes([](HANDLE) -> BOOL { return TRUE; });
        Kor_LogFile log(777, false); // without the directory, so its first step is still to come
        const auto source = reinterpret_cast<HANDLE>(0x1234ULL);
        std::memcpy(reinterpret_cast<unsigned char*>(&log) + offset, &source, sizeof source);
        const Setting setting("2\nl\nNet 3 7\n");
        const EnvironmentVariable output("KORAL_LOG_OUTPUT", row.value);
        EXPECT_EQ(log.InitConf(), 0);
        EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7);
        EXPECT_EQ(log.GetConf()->GetOutput(), row.output) << row.value;
    }
}

// The clock -----------------------------------------------------------------------------------------

namespace
{
/// A clock that stands at a millisecond of the test's choice.
struct Clock
{
    explicit Clock(std::uint64_t milliseconds_since_1970) : milliseconds(milliseconds_since_1970) {}

    std::uint64_t milliseconds;
    Hook<GetSystemTimeAsFileTimeImport> hook{
        [this](LPFILETIME time)
        {
            const std::uint64_t ticks = 116444736000000000ULL + milliseconds * 10000 + 9999; // cut, not rounded
            time->dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
            time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
        }};
};
} // namespace

TEST(ConfStamp, ItIsTheSystemTimeInWholeMillisecondsSince1970)
{
    constexpr std::uint64_t DAY = 86400000;
    // In 2024, on either side of 2^31 seconds, and in 2099.
    for (const std::uint64_t now : {1709640429042u, 2147483647999u, 2147483648000u, 4102444799999u})
    {
        const Clock clock(now);
        ASSERT_TRUE(clock.hook.installed());
        auto conf = std::make_unique<Kor_LogConf>();
        EXPECT_EQ(conf->GetChangeCount(), now);
        EXPECT_GT(clock.hook.calls(), 0);
        for (const std::uint64_t before : {std::uint64_t{0}, now - 1, now - DAY, now + DAY, ~std::uint64_t{0}})
        {
            conf->SetChangeCount(before);
            conf->GenerateChangeCount();
            EXPECT_EQ(conf->GetChangeCount(), now) << before;
        }
    }
}

TEST(ConfStamp, ASecondStampOfTheSameMillisecondIsAnotherNumber)
{
    const Clock clock(1709640429042);
    auto conf = std::make_unique<Kor_LogConf>();
    for (int i = 0; i < 100; ++i)
    {
        const unsigned long long before = conf->GetChangeCount();
        conf->GenerateChangeCount();
        ASSERT_NE(conf->GetChangeCount(), before);
    }
}

TEST(ConfStamp, AClockThatWentBackGivesAnotherNumberToo)
{
    Clock clock(1709640429042);
    auto conf = std::make_unique<Kor_LogConf>();
    const unsigned long long before = conf->GetChangeCount();
    clock.milliseconds -= 3600000;
    conf->GenerateChangeCount();
    EXPECT_NE(conf->GetChangeCount(), before);
}

// The console ---------------------------------------------------------------------------------------

namespace
{
struct Console
{
    bool exists = false;
    std::vector<std::string> steps;

    Hook<GetConsoleDisplayModeImport> mode{[this](LPDWORD) -> BOOL { return exists; }};
    Hook<AllocConsoleImport> alloc{
        [this]() -> BOOL
        {
            steps.emplace_back("alloc");
            return TRUE;
        }};
    Hook<freopenImport> reopen{
        [this](const char* path, const char* open_mode, FILE* stream) -> FILE*
        {
            steps.emplace_back(
                std::string(path) + ' ' + open_mode +
                (stream == stdout   ? " stdout"
                 : stream == stderr ? " stderr"
                                    : " other"));
            return stream;
        }};

    bool installed() const { return mode.installed() && alloc.installed() && reopen.installed(); }
};
} // namespace

TEST(ConfConsole, AProcessWithoutOneGetsOneWhenTheVariableIsExactly1)
{
    Console console;
    ASSERT_TRUE(console.installed());
    const EnvironmentVariable variable("PRISMATE_LOG_CONSOLE", "1");
    CapturedStream captured_out(stdout);
    const auto conf = std::make_unique<Kor_LogConf>();
    captured_out.stop();
    EXPECT_EQ(
        captured_out.text(), "PRISMATE_LOG_CONSOLE = 1\n"
                             "========================\n"
                             "\n");
    EXPECT_EQ(console.steps, (std::vector<std::string>{"alloc", "CONOUT$ r+ stdout", "CONOUT$ r+ stderr"}));
}

TEST(ConfConsole, AProcessWithOneKeepsIt)
{
    Console console;
    console.exists = true;
    const EnvironmentVariable variable("PRISMATE_LOG_CONSOLE", "1");
    CapturedStream captured_out(stdout);
    const auto conf = std::make_unique<Kor_LogConf>();
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_TRUE(console.steps.empty());
    EXPECT_EQ(console.mode.calls(), 1);
}

TEST(ConfConsole, AnyOtherValueOfTheVariableOpensNone)
{
    for (const char* value : {"", "0", "11", "1 ", " 1", "01", "true"})
    {
        Console console;
        const EnvironmentVariable variable("PRISMATE_LOG_CONSOLE", value);
        CapturedStream captured_out(stdout);
        const auto conf = std::make_unique<Kor_LogConf>();
        captured_out.stop();
        EXPECT_EQ(captured_out.text(), "") << value;
        EXPECT_TRUE(console.steps.empty()) << value;
    }
}

TEST(ConfConsole, ACopyOpensNone)
{
    const auto conf = std::make_unique<Kor_LogConf>();
    Console console;
    const EnvironmentVariable variable("PRISMATE_LOG_CONSOLE", "1");
    CapturedStream captured_out(stdout);
    const auto copy = std::make_unique<Kor_LogConf>(*conf);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_TRUE(console.steps.empty());
}
