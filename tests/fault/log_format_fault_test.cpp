// Faults and exceptions while a message is formatted: one fixed line, and the process lives.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(_vsnprintf);

const std::string FIXED = "!!! ERROR !!! Caught exception while formatting log message - Check log line for format "
                          "discrepancy and null values. !!! ERROR !!!";

/// A pointer that the compiler knows nothing about.
template <class T>
const T* wild(std::uintptr_t address)
{
    const volatile std::uintptr_t hidden = address;
    return reinterpret_cast<const T*>(hidden);
}

/// Two pages, the second of which cannot be read.
class HalfReadable
{
public:
    explicit HalfReadable(DWORD protection)
        : m_memory(static_cast<char*>(::VirtualAlloc(nullptr, 2 * PAGE, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)))
    {
        std::memset(m_memory, 'x', 2 * PAGE);
        DWORD before = 0;
        ::VirtualProtect(m_memory + PAGE, PAGE, protection, &before);
    }
    HalfReadable(const HalfReadable&) = delete;
    HalfReadable& operator=(const HalfReadable&) = delete;
    ~HalfReadable() { ::VirtualFree(m_memory, 0, MEM_RELEASE); }

    /// A text of so many readable characters and no end.
    const char* text(std::size_t readable) const { return m_memory + PAGE - readable; }

private:
    static constexpr std::size_t PAGE = 4096;
    char* m_memory;
};

class LogFormatFault : public ::testing::Test
{
protected:
    LogFormatFault() : m_log(777, false) { m_log.Open("test.log", "viewer"); }

    /// The lines so far, and none of them any more.
    Lines take_lines() const
    {
        const Lines lines = m_directory.lines();
        write_file(m_directory.file("test.log"), "");
        return lines;
    }

    const LogDirectory m_directory;
    Kor_LogFile m_log;
};

TEST_F(LogFormatFault, AWildPointerGivesTheFixedLine)
{
    for (const std::uintptr_t address :
         {std::uintptr_t{1}, std::uintptr_t{16}, std::uintptr_t{0xFFF}, std::uintptr_t{0xDEADBEEF}, UINTPTR_MAX,
          UINTPTR_MAX / 2, UINTPTR_MAX / 2 + 1, std::uintptr_t{0x7FFFFFFF0000}})
    {
        m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
        m_log.Log("before %s after", wild<char>(address));
        m_log.LogNoHeadline("%s", wild<char>(address));
        m_log.LogNoHeadline("fine");

        EXPECT_EQ(
            take_lines(),
            (Lines{"<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> " + FIXED, FIXED, "fine"}))
            << std::hex << address;
    }
}

TEST_F(LogFormatFault, AWildWidePointerGivesTheFixedLine)
{
    for (const std::uintptr_t address : {std::uintptr_t{16}, std::uintptr_t{17}, UINTPTR_MAX - 1})
    {
        m_log.LogNoHeadline("before %ls after", wild<wchar_t>(address));
        m_log.LogNoHeadline("fine");

        EXPECT_EQ(take_lines(), (Lines{FIXED, "fine"})) << std::hex << address;
    }
}

TEST_F(LogFormatFault, ATextThatRunsIntoUnreadableMemoryGivesTheFixedLine)
{
    const HalfReadable unreadable(PAGE_NOACCESS);
    for (const std::size_t readable : {std::size_t{0}, std::size_t{1}, std::size_t{100}, std::size_t{1500}})
    {
        m_log.LogNoHeadline("%s", unreadable.text(readable));
        m_log.LogNoHeadline("fine");
        EXPECT_EQ(take_lines(), (Lines{FIXED, "fine"})) << readable;
    }
}

TEST_F(LogFormatFault, AGuardPageGivesTheFixedLineAndGoesOff)
{
    const HalfReadable guarded(PAGE_READWRITE | PAGE_GUARD);
    m_log.LogNoHeadline("%s", guarded.text(10));
    m_log.LogNoHeadline("fine");

    EXPECT_EQ(take_lines(), (Lines{FIXED, "fine"}));
}

TEST_F(LogFormatFault, AWideTextThatNoCodePageHasIsOneLine)
{
    const wchar_t broken[] = {L'a', wchar_t(0xD800), L'b', wchar_t(0xFFFF), L'c', 0};
    m_log.LogNoHeadline("before %ls after", broken);
    m_log.LogNoHeadline("fine");

    const Lines lines = take_lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "fine");
    EXPECT_TRUE(lines[0] == FIXED || lines[0].substr(0, 7) == "before ") << lines[0];
    EXPECT_LE(lines[0].size(), FIXED.size()); // and nothing that was in the buffer before
}

TEST_F(LogFormatFault, AWildWidePointerBesideAWideTextThatTheRunTimeCannotConvertGivesTheFixedLine)
{
    for (const std::uintptr_t address : {std::uintptr_t{16}, std::uintptr_t{17}, UINTPTR_MAX - 1})
    {
        m_log.LogNoHeadline("%ls and %ls", L"\u65e5\u672c", wild<wchar_t>(address));
        m_log.LogNoHeadline("fine");

        EXPECT_EQ(take_lines(), (Lines{FIXED, "fine"})) << std::hex << address;
    }
}

TEST_F(LogFormatFault, AWideTextThatRunsIntoUnreadableMemoryGivesTheFixedLine)
{
    const HalfReadable unreadable(PAGE_NOACCESS);
    auto* const text = const_cast<char*>(unreadable.text(2 * sizeof(wchar_t)));
    const wchar_t characters[] = {0x65e5, 0x672c};
    std::memcpy(text, characters, sizeof characters);
    const auto* const wide = reinterpret_cast<const wchar_t*>(text);
    m_log.LogNoHeadline("%ls", wide);
    EXPECT_EQ(take_lines(), Lines{FIXED});
}

TEST_F(LogFormatFault, TheFixedTextReachesDestinationsWithItsLength)
{
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    m_log.LogNoHeadline("%s", wild<char>(16));
    m_log.PrintOrLog(nullptr, "%s", wild<char>(16)); // adds no newline, but the text has one
    m_log.UnregisterLogDestination(&seen);

    ASSERT_EQ(seen.messages.size(), 2u);
    for (const RecordedMessage& message : seen.messages)
    {
        EXPECT_EQ(message.text, FIXED + "\n");
        EXPECT_EQ(message.length, FIXED.size() + 1);
    }
}

TEST_F(LogFormatFault, EveryEntryPointBearsAWildPointer)
{
    const std::string head = "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> ";
    m_log.Log("%s", wild<char>(16));
    EXPECT_EQ(take_lines(), Lines{head + FIXED});
    EXPECT_EQ(m_log.LogNoHeadline("%s", wild<char>(16)), 0);
    EXPECT_EQ(take_lines(), Lines{FIXED});
    EXPECT_EQ(m_log.LogNoHeadline(4711ul, "%s", wild<char>(16)), 0);
    EXPECT_EQ(take_lines(), Lines{FIXED});
    EXPECT_EQ(m_log.PrintOrLog(nullptr, "%s", wild<char>(16)), 0);
    EXPECT_EQ(take_lines(), Lines{FIXED});
    m_log.OSErrLog(2, "%s", wild<char>(16));
    EXPECT_EQ(take_lines(), Lines{head + FIXED});
    m_log.OSLog(wild<char>(16), 2);
    EXPECT_EQ(take_lines(), Lines{head + FIXED});
}

TEST_F(LogFormatFault, PrintAndLogBearsAWildPointerAndStandardOutputStaysUsable)
{
    CapturedStream out(stdout);
    m_log.PrintAndLog("before %s", wild<char>(16));
    EXPECT_EQ(take_lines(), Lines{"<time> SEVERE  (000) viewer (<pid>,<tid>)   -> " + FIXED});
    m_log.PrintAndLog("%s", "fine");
    on_another_thread([] { std::printf(", also from another thread"); });

    const std::string text = out.text();
    const std::string end = "fine, also from another thread";
    ASSERT_GE(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

TEST_F(LogFormatFault, PrintOrLogBearsAWildPointerAndTheStreamStaysUsable)
{
    const std::string path = m_directory.file("print.txt");
    std::FILE* const stream = std::fopen(path.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(m_log.PrintOrLog(stream, "before %s", wild<char>(16)), 0);
    on_another_thread([&] { EXPECT_EQ(m_log.PrintOrLog(stream, "%s", "fine"), 0); });
    std::fclose(stream);

    const std::string text = read_file(path);
    ASSERT_GE(text.size(), 4u);
    EXPECT_EQ(text.substr(text.size() - 4), "fine");
}

TEST_F(LogFormatFault, ThousandsOfFaultsOnEightThreadsAreALineEach)
{
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 250;
    run_on_threads(
        THREADS,
        [&](int thread)
        {
            for (int i = 0; i < ROUNDS; ++i)
            {
                m_log.LogNoHeadline("%s", wild<char>(16 + static_cast<unsigned>(thread)));
                m_log.LogNoHeadline("thread %d line %d", thread, i);
            }
        });
    const Lines lines = take_lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), FIXED), THREADS * ROUNDS);
    EXPECT_EQ(lines.size(), 2u * THREADS * ROUNDS);
    for (int thread = 0; thread < THREADS; ++thread)
    {
        const std::string start = "thread " + std::to_string(thread) + " ";
        EXPECT_EQ(
            std::count_if(
                lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(start, 0) == 0; }),
            ROUNDS);
    }
}

TEST_F(LogFormatFault, ThousandsOfFaultsOnOneThreadLeakNoStack)
{
    for (int i = 0; i < 5000; ++i)
        m_log.LogNoHeadline("%s", wild<char>(16));
    const Lines lines = take_lines();
    EXPECT_EQ(lines.size(), 5000u);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), FIXED), 5000);
}

TEST_F(LogFormatFault, AFaultLeavesTheLastErrorAndErrnoAsTheyWere)
{
    ::SetLastError(1234);
    errno = 77;
    m_log.LogNoHeadline("%s", wild<char>(16));
    const DWORD error = ::GetLastError();
    const int number = errno;

    EXPECT_EQ(error, 1234u);
    EXPECT_EQ(number, 77);
}

/// A handler of the host's that counts faults and passes them on.
std::atomic<int> g_faults_seen;

long WINAPI count_fault(EXCEPTION_POINTERS*)
{
    ++g_faults_seen;
    return EXCEPTION_EXECUTE_HANDLER;
}

TEST_F(LogFormatFault, TheHostsUnhandledFilterNeverHearsOfIt)
{
    g_faults_seen = 0;
    const LPTOP_LEVEL_EXCEPTION_FILTER before = ::SetUnhandledExceptionFilter(&count_fault);
    m_log.LogNoHeadline("%s", wild<char>(16));
    ::SetUnhandledExceptionFilter(before);

    EXPECT_EQ(g_faults_seen, 0);
    EXPECT_EQ(take_lines(), Lines{FIXED});
}

TEST_F(LogFormatFault, AFaultInAConversionOfTheCRuntimeGivesTheFixedLineToo)
{
    // The alternate form is not one of the plain ones.
    Hook<_vsnprintfImport> formatter;
    ASSERT_TRUE(formatter.installed());
    EXPECT_EQ(m_log.LogNoHeadline("%#x %s %d", 1u, wild<char>(16), 2), 0);
    EXPECT_EQ(take_lines(), Lines{FIXED});
    EXPECT_EQ(formatter.calls(), 1);
}

TEST_F(LogFormatFault, PlainConversionsDoNotNeedTheCRuntime)
{
    Hook<_vsnprintfImport> formatter;
    ASSERT_TRUE(formatter.installed());
    m_log.LogNoHeadline("%d of %s, %lu%%", 1, "two", 3ul);
    EXPECT_EQ(take_lines(), Lines{"1 of two, 3%"});
    m_log.LogNoHeadline("%08x %-6s| %.3f %5lld", 0xBEEFu, "two", 1.5, 4ll);
    EXPECT_EQ(take_lines(), Lines{"0000beef two   | 1.500     4"});
    EXPECT_EQ(formatter.calls(), 0);
    m_log.LogNoHeadline("%d of %s, %.3lu%%", 1, "two", 3ul); // from the beginning, with all arguments
    EXPECT_EQ(take_lines(), Lines{"1 of two, 003%"});
    EXPECT_EQ(formatter.calls(), 1);
}

// C++ exceptions -----------------------------------------------------------------
TEST_F(LogFormatFault, AnExceptionOutOfTheFormatterGivesTheFixedLine)
{
    int kind = 0;
    Hook<_vsnprintfImport> formatter(
        [&](char* buffer, std::size_t size, const char*, va_list) -> int
        {
            std::memset(buffer, 'g', std::min<std::size_t>(size, 100)); // what it had written so far
            switch (kind)
            {
            case 0:
                throw std::runtime_error("from the formatter");
            case 1:
                throw 5;
            case 2:
                throw std::string("from the formatter");
            default:
                throw std::bad_alloc();
            }
        });
    ASSERT_TRUE(formatter.installed());
    for (kind = 0; kind < 4; ++kind)
    {
        m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
        m_log.Log("%.1d", 1);
        EXPECT_EQ(m_log.LogNoHeadline("%.1d", 2), 0);
        EXPECT_EQ(
            take_lines(), (Lines{"<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> " + FIXED, FIXED}))
            << kind;
    }
    EXPECT_EQ(formatter.calls(), 8);
}

TEST_F(LogFormatFault, AnExceptionOutOfTheFormatterOnManyThreadsGivesTheFixedLines)
{
    {
        Hook<_vsnprintfImport> formatter(
            [](char*, std::size_t, const char*, va_list) -> int { throw std::runtime_error("from the formatter"); });
        ASSERT_TRUE(formatter.installed());
        run_on_threads(
            4,
            [&](int)
            {
                for (int i = 0; i < 100; ++i)
                    m_log.LogNoHeadline("%.1d", i);
            });
    }
    const Lines lines = take_lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), FIXED), 400);
    EXPECT_EQ(lines.size(), 400u);

    m_log.LogNoHeadline("%d", 3);
    EXPECT_EQ(take_lines(), Lines{"3"});
}

TEST_F(LogFormatFault, TheMessageIsFormattedOnceWithACountOf2047)
{
    std::vector<std::size_t> counts;
    Hook<_vsnprintfImport> formatter(
        [&](char* buffer, std::size_t size, const char* format, va_list args) -> int
        {
            counts.push_back(size);
            return ::_vsnprintf(buffer, size, format, args);
        });
    ASSERT_TRUE(formatter.installed());
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.Log("%#x, %s", 1u, "short");
    m_log.Log("%#x, %s", 1u, std::string(3000, 'x').c_str());

    EXPECT_EQ(counts, (std::vector<std::size_t>{2047, 2047}));
}
} // namespace
