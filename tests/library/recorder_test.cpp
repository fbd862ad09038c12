// The last lines of a process, kept in memory where somebody asks for it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h> // behind windows.h

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Kor_ClientScope.h"
#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "lumlog.h"
#include "recorded_section.h"
#include "recording_destination.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
using Texts = std::vector<std::string>;

constexpr std::size_t BYTES = 256 * 1024;
constexpr int READER = 310;
constexpr int LOADER = 311;
constexpr int NOTICE = 5;
constexpr int DEBUG = 7;

KOR_IMPORT(CreateFileMappingA);

class Recorder : public ::testing::Test
{
protected:
    explicit Recorder(const std::string& logger = TO_FILE) : m_develop("KORAL_LOG_DEVELOP", "1"), m_directory(logger)
    {
        m_log = std::make_unique<Kor_LogFile>(777, false);
        m_log->Open("test.log", "viewer");
    }
    ~Recorder() override { m_log->SetRecorder(0, 0); }

    void say(int level, int package, const char* text)
    {
        m_log->LogAt("C:\\src\\host.cpp", "main", 7, level, package, "%s", text);
    }
    bool takes(int level, int package) { return !m_log->IsRejected(level, package) && m_log->IsWanted(level, package); }

    static std::vector<recorded::Line> kept() { return RecordedSection().read().value().lines; }

    /// What is kept, masked as the lines of a file are.
    static Texts kept_lines()
    {
        Texts result;
        for (const recorded::Line& line : kept())
            for (const std::string& masked : masked_lines(line.text + "\r\n"))
                result.push_back(masked);
        return result;
    }

    Texts written() const { return m_directory.lines(); }

    const EnvironmentVariable m_develop;
    const LogDirectory m_directory;
    std::unique_ptr<Kor_LogFile> m_log;
};

std::string line(const char* level, const char* package, const std::string& text)
{
    return std::string("<time> ") + level + '(' + package + ") viewer (<pid>,<tid>)  host.cpp(7) main -> " + text;
}
} // namespace

TEST_F(Recorder, NothingIsKeptUnlessSomebodyAsksForIt)
{
    say(4, READER, "loaded front.png");
    EXPECT_FALSE(RecordedSection().is_there());
    EXPECT_FALSE(takes(DEBUG, READER));
}

TEST_F(Recorder, WhatIsWrittenIsKeptAsItIsWritten)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    say(4, READER, "loaded front.png");
    say(2, 17, "two\nlines\n");
    m_log->LogNoHeadline("%s", "bare");
    const Texts expected{line("WARNING ", "310", "loaded front.png"), line("CRITICAL", "017", "two"), "lines", "bare"};
    EXPECT_EQ(written(), expected);
    EXPECT_EQ(kept_lines(), expected);
}

TEST_F(Recorder, KeepsLevelPackageThreadAndTimeBesideTheText)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    FILETIME time{};
    ::GetSystemTimeAsFileTime(&time);
    const std::uint64_t now =
        (std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10'000 - 11'644'473'600'000;
    say(4, READER, "written");
    say(DEBUG, LOADER, "only kept");
    m_log->LogNoHeadline("%s", "bare");
    const std::vector<recorded::Line> lines = kept();
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].package, 310u);
    EXPECT_EQ(lines[0].thread, ::GetCurrentThreadId());
    EXPECT_GE(lines[0].time + 1000, now);
    EXPECT_LE(lines[0].time, now + 60'000);
    EXPECT_EQ(lines[0].flags, 1u);
    EXPECT_EQ(lines[1].level, 7u);
    EXPECT_EQ(lines[1].package, 311u);
    EXPECT_EQ(lines[1].flags, 0u);
    EXPECT_EQ(lines[2].flags, 3u);
}

TEST_F(Recorder, TheMemoryTellsWhoseItIs)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    const recorded::Lines lines = RecordedSection().read().value();
    EXPECT_EQ(lines.process, ::GetCurrentProcessId());
    EXPECT_EQ(lines.created, RecordedSection::created(::GetCurrentProcessId()));
    EXPECT_EQ(RecordedSection().size(), BYTES);
}

TEST_F(Recorder, MessagesUpToItsLevelAreKeptAndNotWritten)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    say(NOTICE, READER, "kept");
    say(6, READER, "neither");
    say(4, READER, "both");
    EXPECT_THAT(kept_lines(), ElementsAre(line("NOTICE  ", "310", "kept"), line("WARNING ", "310", "both")));
    EXPECT_THAT(written(), ElementsAre(line("WARNING ", "310", "both")));
}

TEST_F(Recorder, EachWayIntoTheLogKeepsWhatIsNotWritten)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    KOR_LOG(*m_log, DEBUG, READER, "macro %d", 1);
    ASSERT_EQ(m_log->StoreParams("host.cpp", "main", 7, DEBUG, READER), 1);
    m_log->Log("store %d", 2);
    EXPECT_EQ(m_log->LogAt("host.cpp", "main", 7, DEBUG, READER, "at %d", 3), 1);
    EXPECT_EQ(m_log->LogTextAt("host.cpp", "main", 7, DEBUG, READER, "text", 4), 1);
    ASSERT_EQ(m_log->StoreParams("host.cpp", "main", 7, DEBUG, READER), 1);
    m_log->LogNoHeadline("%s", "no headline");
    Texts texts;
    for (const recorded::Line& one : kept())
        texts.push_back(one.text.substr(one.text.rfind("> ") == std::string::npos ? 0 : one.text.rfind("> ") + 2));
    EXPECT_THAT(texts, ElementsAre("macro 1", "store 2", "at 3", "text", "no headline"));
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(Recorder, WhatIsOnlyKeptDoesNotReachTheDestinations)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    RecordingDestination destination;
    m_log->RegisterLogDestination(&destination);
    say(DEBUG, READER, "only kept");
    say(4, READER, "written");
    m_log->UnregisterLogDestination(&destination);
    ASSERT_THAT(destination.messages, SizeIs(1));
    EXPECT_EQ(destination.messages[0].text, "written\n");
}

TEST_F(Recorder, WhatNobodyWantsIsRejectedByTheQuickCheckAsBefore)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    EXPECT_TRUE(takes(NOTICE, READER));
    EXPECT_FALSE(m_log->IsRejected(NOTICE, READER));
    EXPECT_TRUE(m_log->IsRejected(6, READER));
    ASSERT_EQ(m_log->SetRecorder(0, 0), 0);
    EXPECT_FALSE(takes(NOTICE, READER));
    EXPECT_TRUE(m_log->IsRejected(NOTICE, READER));
    EXPECT_TRUE(takes(4, READER));
}

TEST_F(Recorder, ACheckOfALevelLetsPassWhatIsKept)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    EXPECT_EQ(m_log->CheckMsgLevel(READER * PACKAGE_RANGE, NOTICE), 1);
    EXPECT_EQ(m_log->CheckMsgLevel(READER * PACKAGE_RANGE, 6), 0);
    EXPECT_EQ(m_log->StoreParams("host.cpp", "main", 7, 6, READER), 0);
}

TEST_F(Recorder, TheLevelInForceIsStillTheOneThatIsWritten)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    EXPECT_EQ(m_log->GetLogLevel(READER * PACKAGE_RANGE), 4);
    EXPECT_EQ(m_log->GetLogLevel(READER * PACKAGE_RANGE), 4);
}

TEST_F(Recorder, APackageCanHaveALevelOfItsOwn)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    ASSERT_EQ(m_log->SetRecorderLevel(READER, DEBUG), 0);
    EXPECT_TRUE(takes(DEBUG, READER));
    EXPECT_FALSE(takes(NOTICE, LOADER));
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    EXPECT_TRUE(takes(DEBUG, READER));
    EXPECT_TRUE(takes(NOTICE, LOADER));
    ASSERT_EQ(m_log->SetRecorderLevel(READER, 0), 0);
    EXPECT_FALSE(takes(NOTICE, READER));
    ASSERT_EQ(m_log->SetRecorderLevel(READER, -1), 0);
    EXPECT_TRUE(takes(NOTICE, READER));
    EXPECT_FALSE(takes(6, READER));
}

TEST_F(Recorder, PackagesThatNoConfigurationHasGoByTheLevelOfAll)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    EXPECT_TRUE(takes(NOTICE, 750));
    EXPECT_TRUE(takes(NOTICE, -1));
    EXPECT_FALSE(takes(6, 750));
}

TEST_F(Recorder, ALevelThatIsRaisedHasTheMessagesWritten)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    say(6, READER, "only kept");
    ASSERT_EQ(m_log->SetCustomLogLevel(READER, 6, false), 0);
    m_log->ClearCacheTable();
    say(6, READER, "written");
    ASSERT_EQ(m_log->SetCustomLogLevel(READER, 4, false), 0);
    m_log->ClearCacheTable();
    say(6, READER, "only kept again");
    EXPECT_THAT(written(), ElementsAre(line("INFO    ", "310", "written")));
    EXPECT_THAT(kept(), SizeIs(3));
}

TEST_F(Recorder, ManyPackagesEachKeepTheirLevels)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    for (int package = 0; package < PACKAGE_COUNT; package += 2)
        ASSERT_EQ(m_log->SetRecorderLevel(package, 4 + package % 4), 0);
    for (int round = 0; round < 2; ++round)
        for (int package = 0; package < PACKAGE_COUNT; ++package)
            for (int level = 1; level <= DEBUG; ++level)
                EXPECT_EQ(takes(level, package), level <= (package % 2 == 0 ? 4 + package % 4 : 4)) << package;
}

TEST_F(Recorder, ClientsOfThreadsAreWrittenAndTheOthersKept)
{
    m_directory.configure(TO_FILE + "Reader 310 4 [(7;192.0.2.7)]\n");
    m_log = std::make_unique<Kor_LogFile>(777, false);
    m_log->Open("test.log", "viewer");
    ASSERT_EQ(m_log->SetRecorder(BYTES, NOTICE), 0);
    {
        const Kor_ClientScope scope("192.0.2.7", 0);
        say(DEBUG, READER, "raised");
    }
    {
        const Kor_ClientScope scope("192.0.2.8", 0);
        say(DEBUG, READER, "neither");
        say(NOTICE, READER, "kept");
    }
    const Texts lines = written();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], testing::HasSubstr("raised"));
    EXPECT_THAT(kept(), SizeIs(2));
}

TEST_F(Recorder, WhoSendsWithoutAskingIsWrittenAfterAMessageThatWasOnlyKept)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    say(DEBUG, READER, "only kept");
    char text[] = "sent\n";
    m_log->SendLogNoLimit(KOR_MSG_NO_HEADLINE, text, 5);
    m_log->LogNoHeadline("%s", "bare");
    EXPECT_THAT(written(), ElementsAre("sent", "bare"));
}

TEST_F(Recorder, ABannerIsWrittenThoughTheMessageBeforeItWasToBeKeptOnly)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.StoreParams("host.cpp", "main", 7, DEBUG, READER), 1);
        log.Open("banners.log", "viewer");
        ASSERT_EQ(log.StoreParams("host.cpp", "main", 7, DEBUG, READER), 1);
    }
    EXPECT_THAT(m_directory.lines("banners.log"), SizeIs(2));
}

TEST_F(Recorder, ALineThatTheFullFileDoesNotGetIsKept)
{
    m_directory.configure("2\nfile_size_limit_in_mb=1\n");
    write_file(m_directory.file("test.log"), std::string(3 * 1024 * 1024, '.') + "\r\n");
    m_log = std::make_unique<Kor_LogFile>(777, false);
    m_log->Open("test.log", "viewer");
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    for (int i = 0; i < 40; ++i)
        say(4, READER, "loaded front.png");
    EXPECT_LT(m_directory.lines().size(), 40u);
    EXPECT_THAT(kept(), SizeIs(40));
}

TEST_F(Recorder, LinesForOtherOutputsAreKeptWithTheSameHeadline)
{
    m_directory.configure(TO_STDERR);
    m_log = std::make_unique<Kor_LogFile>(777, false);
    m_log->Open("test.log", "viewer");
    ASSERT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    {
        const CapturedStream err(stderr);
        say(4, READER, "loaded front.png");
    }
    EXPECT_THAT(kept_lines(), ElementsAre(line("WARNING ", "310", "loaded front.png")));
}

TEST_F(Recorder, SafeLinesAreKeptSafe)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    m_log->SetSafeLines(true);
    say(DEBUG, READER, "red \x1b[31m");
    m_log->SetSafeLines(false);
    EXPECT_THAT(kept_lines(), ElementsAre(line("DEBUG   ", "310", "red \\x1b[31m")));
}

TEST_F(Recorder, AllLogsOfTheProcessAreKept)
{
    ASSERT_EQ(KorGLog.SetRecorder(BYTES, DEBUG), 0);
    say(DEBUG, READER, "of another log");
    EXPECT_THAT(kept(), SizeIs(1));
}

TEST_F(Recorder, TheMeasurementsDoNotTurnThemselvesOn)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    EXPECT_EQ(KorPLog.IsPerfmonEnabled(), 0);
    EXPECT_EQ(KorPLog.StoreParams("host.cpp", 7, DEBUG, KOR_PACKAGE_PERFMON), 0);
}

TEST_F(Recorder, NumbersOutOfRangeChangeNothing)
{
    EXPECT_EQ(m_log->SetRecorder(65'535, DEBUG), -1);
    EXPECT_EQ(m_log->SetRecorder(64 * 1024 * 1024 + 1, DEBUG), -1);
    EXPECT_EQ(m_log->SetRecorder(BYTES, 8), -1);
    EXPECT_EQ(m_log->SetRecorder(BYTES, -1), -1);
    EXPECT_EQ(m_log->SetRecorderLevel(READER, DEBUG), -1); // there is nothing to keep lines in
    EXPECT_FALSE(RecordedSection().is_there());
    ASSERT_EQ(m_log->SetRecorder(65'536, NOTICE), 0);
    EXPECT_EQ(m_log->SetRecorderLevel(-1, DEBUG), -1);
    EXPECT_EQ(m_log->SetRecorderLevel(750, DEBUG), -1);
    EXPECT_EQ(m_log->SetRecorderLevel(READER, -2), -1);
    EXPECT_EQ(m_log->SetRecorderLevel(READER, 8), -1);
    EXPECT_EQ(m_log->SetRecorder(1, DEBUG), -1);
    EXPECT_TRUE(takes(NOTICE, READER));
    EXPECT_FALSE(takes(6, READER));
}

TEST_F(Recorder, StoppedItKeepsWhatItHasAndGoesOnLater)
{
    ASSERT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    say(DEBUG, READER, "one");
    ASSERT_EQ(m_log->SetRecorder(0, 0), 0);
    say(DEBUG, READER, "two");
    say(4, READER, "three");
    ASSERT_EQ(m_log->SetRecorder(1024 * 1024, DEBUG), 0);
    say(DEBUG, READER, "four");
    EXPECT_THAT(kept_lines(), ElementsAre(line("DEBUG   ", "310", "one"), line("DEBUG   ", "310", "four")));
    EXPECT_EQ(RecordedSection().size(), BYTES);
}

TEST_F(Recorder, WithoutMemoryAllStaysAsItWas)
{
    {
        const Hook<CreateFileMappingAImport> no_memory(
            [](auto&&...) -> HANDLE
            {
                ::SetLastError(ERROR_COMMITMENT_LIMIT);
                return nullptr;
            });
        ASSERT_TRUE(no_memory.installed());
        EXPECT_EQ(m_log->SetRecorder(BYTES, DEBUG), -1);
        EXPECT_GT(no_memory.calls(), 0);
    }
    EXPECT_FALSE(takes(DEBUG, READER));
    EXPECT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    EXPECT_TRUE(takes(DEBUG, READER));
}

TEST_F(Recorder, WhatSomebodyElseHasMadeUnderItsNameIsNotTouched)
{
    const std::string name = "LUMLOG_LINES_1_" + std::to_string(::GetCurrentProcessId()) + '_' +
                             std::to_string(RecordedSection::created(::GetCurrentProcessId()));
    std::vector<HANDLE> mappings;
    for (const char* const where : {"Global\\", "Local\\"})
        mappings.push_back(
            ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, BYTES, (where + name).c_str()));
    EXPECT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    say(DEBUG, READER, "kept for the process itself");
    const RecordedSection other;
    EXPECT_TRUE(other.is_there());
    EXPECT_FALSE(other.read().has_value());
    for (const HANDLE mapping : mappings)
        ::CloseHandle(mapping);
}

TEST_F(Recorder, ItsMemoryIsForItsAccountTheSystemAndForAdministratorsToRead)
{
    const Hook<CreateFileMappingAImport> look(
        [](HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD high, DWORD low, const char* name)
        {
            EXPECT_NE(security, nullptr);
            char* rights = nullptr;
            EXPECT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorA(
                security->lpSecurityDescriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &rights, nullptr));
            EXPECT_STREQ(rights, "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GR;;;BA)");
            ::LocalFree(rights);
            EXPECT_FALSE(security->bInheritHandle); // a child does not keep it alive
            return ::CreateFileMappingA(file, security, protection, high, low, name);
        });
    ASSERT_TRUE(look.installed());
    EXPECT_EQ(m_log->SetRecorder(BYTES, 0), 0);
    EXPECT_GT(look.calls(), 0);
}

TEST_F(Recorder, TheLastErrorStaysAsItWas)
{
    ::SetLastError(4711);
    EXPECT_EQ(m_log->SetRecorder(BYTES, DEBUG), 0);
    EXPECT_EQ(m_log->SetRecorderLevel(READER, DEBUG), 0);
    say(DEBUG, READER, "kept");
    EXPECT_EQ(::GetLastError(), 4711u);
}

TEST_F(Recorder, PlainFunctionsDoTheSame)
{
    KorGLog.Open("c.log", "viewer");
    EXPECT_EQ(lum_set_recorder(1, 7), LUM_FAILED);
    EXPECT_EQ(lum_set_recorder_level(READER, 7), LUM_FAILED);
    ASSERT_EQ(lum_set_recorder(BYTES, 0), LUM_OK);
    ASSERT_EQ(lum_set_recorder_level(READER, 7), LUM_OK);
    lum_site site{};
    site.size = sizeof site;
    site.file = "host.c";
    site.function = "main";
    site.line = 3;
    lum_writef(&site, DEBUG, READER, "kept %d", 1);
    lum_write(&site, DEBUG, LOADER, "rejected", 8);
    const std::vector<recorded::Line> lines = kept();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0].text, testing::EndsWith(" host.c(3) main -> kept 1"));
    EXPECT_EQ(KorGLog.SetRecorder(0, 0), 0);
}

// The environment -------------------------------------------------------------------------------------
namespace
{
/// Opens the log, sets what the program wants, and tells what is kept.
int tell_what_is_kept(bool asks)
{
    KorGLog.Open("test.log", "viewer", false);
    if (asks)
    {
        const int result = KorGLog.SetRecorder(65'536, 6);
        std::printf("%d %d\n", result, KorGLog.SetRecorderLevel(LOADER, 6));
    }
    for (const int package : {READER, LOADER})
        for (int level = 5; level <= DEBUG; ++level)
            KorGLog.LogAt("host.cpp", "main", 7, level, package, "%d of %d", level, package);
    const RecordedSection section;
    std::printf("%d\n", section.is_there() ? static_cast<int>(section.size()) : 0);
    if (!section.is_there())
        return 0;
    const auto ring = section.read();
    if (ring)
        for (const recorded::Line& line : ring->lines)
            std::printf("%s\n", line.text.substr(line.text.find("> ") + 2).c_str());
    return 0;
}

KOR_CHILD(keeps_what_the_environment_says) { return tell_what_is_kept(!args.empty()); }

std::string kept_in_child(const std::string& variable, bool asks)
{
    const LogDirectory directory;
    ChildOptions options = directory.for_child({{"PRISMATE_LOG_RECORDER", variable}});
    if (asks)
        options.arguments = {"asks"};
    const ChildResult result = run_child("keeps_what_the_environment_says", options);
    EXPECT_EQ(result.exit_code, 0u);
    return text_of(result.out);
}
} // namespace

TEST(RecorderEnvironment, AHostThatWasNotChangedKeepsWhatTheVariableSays)
{
    EXPECT_EQ(kept_in_child("128K,5,311=6", false), "131072\n5 of 310\n5 of 311\n6 of 311\n");
}

TEST(RecorderEnvironment, TheVariableCountsInsteadOfWhatTheProgramSays)
{
    EXPECT_EQ(kept_in_child("128K,5", true), "0 0\n131072\n5 of 310\n5 of 311\n");
    EXPECT_EQ(kept_in_child("0", true), "0 0\n0\n");
}

TEST(RecorderEnvironment, WithoutItTheProgramCounts)
{
    EXPECT_EQ(kept_in_child("", true), "0 0\n65536\n5 of 310\n6 of 310\n5 of 311\n6 of 311\n");
    EXPECT_EQ(kept_in_child("", false), "0\n");
}

TEST(RecorderEnvironment, WhatIsNotUnderstoodGetsAWarningAndDoesNotCount)
{
    const std::string out = kept_in_child("256KB,9", false);
    EXPECT_EQ(
        out, "Kor_LogFile - Warning - PRISMATE_LOG_RECORDER=256KB,9 is not understood, so it does not count. It is to "
             "be like "
             "256K,7 or 256K,0,17=7: bytes from 64K to 64M, the level of all packages from 0 to 7, and those of single "
             "ones.\n0\n");
}
