// The three headlines, the context they are built from, and the setters of client, session and thread.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>

#include <cstring>

#include "bounded.h"
#include "captured_stream.h"
#include "environment.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(GetTimeZoneInformation);

/// A log for its static setters, named "viewer"; forgets client, session and thread name in the end.
class LogHeadline : public ::testing::Test
{
protected:
    LogHeadline() : m_log(777, false) { m_log.Open("test.log", "viewer"); }
    ~LogHeadline() override
    {
        m_log.SetIP(nullptr);
        m_log.SetThreadName(nullptr);
    }

    /// Sets what a headline shows, for comparison with one that is written out.
    static void fill(Kor_LogMTVars& context)
    {
        context.m_time = {2024, 3, 2, 5, 14, 7, 9, 42};
        context.m_zone_sign = '+';
        context.m_zone_hours = 2;
        context.m_zone_minutes = 0;
        context.m_level = 4;
        context.m_package = 17;
        context.m_thread_id = 5120;
    }

    const LogDirectory m_directory;
    Kor_LogFile m_log;
};

std::string process() { return std::to_string(::GetCurrentProcessId()); }

// A new context ------------------------------------------------------------------
TEST_F(LogHeadline, ANewContextHasItsDefaults)
{
    const Kor_LogMTVars context;

    EXPECT_STREQ(context.m_file, "unknown file");
    EXPECT_STREQ(context.m_function, "unknown function");
    EXPECT_EQ(context.m_line, 0);
    EXPECT_EQ(context.m_accepted, 1);
    EXPECT_EQ(context.m_level, 1);
    EXPECT_EQ(context.m_package, 0);
    EXPECT_EQ(context.m_thread_id, ::GetCurrentThreadId());
    EXPECT_EQ(context.m_headline_kind, 0);
    EXPECT_STREQ(context.m_headline, "");
    EXPECT_STREQ(context.m_location, "");
    EXPECT_STREQ(context.m_context, "");
    EXPECT_FALSE(context.m_has_location);
    EXPECT_FALSE(context.m_has_context);
    EXPECT_FALSE(context.m_has_thread_name);
    EXPECT_EQ(context.m_headline_length, 0);
    EXPECT_EQ(context.m_references, 0);
    const char* const names[] = {"NONE", "SEVERE", "CRITICAL", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    for (int level = 0; level < 8; ++level)
        EXPECT_STREQ(context.m_level_names[level], names[level]);
}

TEST_F(LogHeadline, TheProcessIdIsThere)
{
    EXPECT_EQ(static_cast<unsigned long>(Kor_LogMTVars::m_proc_id), ::GetCurrentProcessId());
}

TEST_F(LogHeadline, ANewContextForgetsTheThreadsName)
{
    m_log.SetThreadName("Loader");
    Kor_LogMTVars context;
    fill(context);
    context.AsStringFull(false);

    EXPECT_FALSE(context.m_has_thread_name);
}

TEST_F(LogHeadline, ResetParamsForgetsTheMessageButNotItsLevelAndPackage)
{
    m_log.SetIPAndSID("10.0.0.7", 3);
    Kor_LogMTVars context;
    fill(context);
    context.m_file = "Kor_Image";
    context.m_function = "Load";
    context.m_line = 210;
    context.m_accepted = 0;
    m_log.SetThreadName("Loader");
    context.AsStringFull(false);
    context.m_headline_kind = 3;

    context.ResetParams();

    EXPECT_STREQ(context.m_file, "unknown file");
    EXPECT_STREQ(context.m_function, "unknown function");
    EXPECT_EQ(context.m_line, 0);
    EXPECT_STREQ(context.m_headline, "");
    EXPECT_STREQ(context.m_location, "");
    EXPECT_STREQ(context.m_context, "");
    EXPECT_EQ(context.m_headline_length, 0);
    EXPECT_FALSE(context.m_has_location);
    EXPECT_FALSE(context.m_has_context);
    EXPECT_FALSE(context.m_has_thread_name);
    EXPECT_EQ(context.m_headline_kind, 0);
    EXPECT_EQ(context.m_level, 4);
    EXPECT_EQ(context.m_package, 17);
    EXPECT_EQ(context.m_accepted, 0);
    EXPECT_EQ(context.m_time.year, 2024);
}

// Time and zone ------------------------------------------------------------------
TEST_F(LogHeadline, TheTimeTextHasFixedWidths)
{
    const struct
    {
        Kor_LocalTime time;
        char sign;
        int hours;
        int minutes;
        const char* text;
    } rows[] = {
        {{2024, 3, 2, 5, 14, 7, 9, 42}, '+', 2, 0, "2024-03-05 14:07:09.042+02:00"},
        {{2024, 12, 2, 31, 23, 59, 59, 999}, '-', 12, 45, "2024-12-31 23:59:59.999-12:45"},
        {{1999, 1, 2, 1, 0, 0, 0, 0}, '+', 0, 0, "1999-01-01 00:00:00.000+00:00"},
        {{33, 1, 2, 1, 0, 0, 0, 7}, '-', 3, 5, "0033-01-01 00:00:00.007-03:05"},
        {{2024, 3, 6, 5, 14, 7, 9, 42}, '+', 5, 30, "2024-03-05 14:07:09.042+05:30"}, // no day of the week
    };
    Kor_LogMTVars context;
    for (const auto& row : rows)
    {
        context.m_time = row.time;
        context.m_zone_sign = row.sign;
        context.m_zone_hours = row.hours;
        context.m_zone_minutes = row.minutes;
        EXPECT_STREQ(context.TimeText(), row.text);
    }
}

TEST_F(LogHeadline, TheTimeTextBearsFieldsThatNoClockGives)
{
    Kor_LogMTVars context;
    context.m_time = {65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535};
    context.m_zone_hours = 99;
    context.m_zone_minutes = 99;
    context.m_zone_sign = '+';

    EXPECT_STREQ(context.TimeText(), "65535-65535-65535 65535:65535:65535.65535+99:99");
    context.m_line = 1;
    EXPECT_NE(context.AsStringFull(true), nullptr);
}

TEST_F(LogHeadline, UpdateTimeTakesTheLocalTimeAndLeavesTheZone)
{
    Kor_LogMTVars context;
    context.m_zone_sign = '-';
    context.m_zone_hours = 7;
    context.m_zone_minutes = 15;
    SYSTEMTIME before{};
    SYSTEMTIME after{};
    ::GetLocalTime(&before);
    context.UpdateTime();
    ::GetLocalTime(&after);

    SYSTEMTIME taken{};
    static_assert(sizeof taken == sizeof context.m_time);
    std::memcpy(&taken, &context.m_time, sizeof taken);
    FILETIME times[3]{};
    ::SystemTimeToFileTime(&before, &times[0]);
    ::SystemTimeToFileTime(&taken, &times[1]);
    ::SystemTimeToFileTime(&after, &times[2]);
    EXPECT_LE(::CompareFileTime(&times[0], &times[1]), 0);
    EXPECT_LE(::CompareFileTime(&times[1], &times[2]), 0);
    EXPECT_EQ(taken.wDayOfWeek, before.wDayOfWeek);
    EXPECT_EQ(context.m_zone_sign, '-');
    EXPECT_EQ(context.m_zone_hours, 7);
    EXPECT_EQ(context.m_zone_minutes, 15);
}

TEST_F(LogHeadline, TheZoneComesFromBiasAndWhatIsAddedToItNow)
{
    const struct
    {
        DWORD answer;
        LONG bias, standard, daylight;
        const char* zone;
    } rows[] = {
        {TIME_ZONE_ID_UNKNOWN, 0, 0, 0, "+00:00"},       {TIME_ZONE_ID_UNKNOWN, -330, 0, 0, "+05:30"},
        {TIME_ZONE_ID_UNKNOWN, -330, 60, -60, "+05:30"}, // neither counts
        {TIME_ZONE_ID_UNKNOWN, 570, 0, 0, "-09:30"},     {TIME_ZONE_ID_STANDARD, 300, 0, -60, "-05:00"},
        {TIME_ZONE_ID_DAYLIGHT, 300, 0, -60, "-04:00"},  {TIME_ZONE_ID_STANDARD, 300, 15, -60, "-05:15"},
        {TIME_ZONE_ID_DAYLIGHT, 300, 15, -60, "-04:00"}, {TIME_ZONE_ID_STANDARD, -60, 0, -60, "+01:00"},
        {TIME_ZONE_ID_DAYLIGHT, -60, 0, -60, "+02:00"},  {TIME_ZONE_ID_STANDARD, 0, 0, -60, "+00:00"},
        {TIME_ZONE_ID_DAYLIGHT, 0, 0, -60, "+01:00"},    {TIME_ZONE_ID_DAYLIGHT, 60, 0, -60, "+00:00"},
        {TIME_ZONE_ID_UNKNOWN, 1, 0, 0, "-00:01"},       {TIME_ZONE_ID_UNKNOWN, -1, 0, 0, "+00:01"},
        {TIME_ZONE_ID_UNKNOWN, -840, 0, 0, "+14:00"},    {TIME_ZONE_ID_UNKNOWN, 720, 0, 0, "-12:00"},
    };
    for (const auto& row : rows)
    {
        Hook<GetTimeZoneInformationImport> hook(
            [&](TIME_ZONE_INFORMATION* information) -> DWORD
            {
                *information = {};
                information->Bias = row.bias;
                information->StandardBias = row.standard;
                information->DaylightBias = row.daylight;
                return row.answer;
            });
        ASSERT_TRUE(hook.installed());
        Kor_LogMTVars context;

        EXPECT_EQ(std::string(context.TimeText()).substr(23), row.zone);
        context.UpdateTime();
        EXPECT_EQ(std::string(context.TimeText()).substr(23), row.zone);
        EXPECT_EQ(hook.calls(), 1); // taken once
    }
}

KOR_CHILD(prints_its_zone)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    log.Open("test.log", "viewer");
    log.Log("x");
    const std::string line = directory.text();
    TIME_ZONE_INFORMATION zone{};
    const DWORD answer = ::GetTimeZoneInformation(&zone);
    const long bias = zone.Bias + (answer == TIME_ZONE_ID_STANDARD   ? zone.StandardBias
                                   : answer == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightBias
                                                                     : 0);
    std::printf("%s %ld", line.substr(23, 6).c_str(), bias);
    return 0;
}

TEST_F(LogHeadline, TheZoneInALineIsThatOfTheSystem)
{
    // Where the system's zone cannot be chosen through TZ, these are one and the same.
    for (const char* const zone : {"UTC0", "IST-5:30", "EST5EDT", ""})
    {
        ChildOptions options;
        options.environment = {{"TZ", zone}};
        const ChildResult child = run_child("prints_its_zone", options);
        ASSERT_GE(child.out.size(), 8u);
        const int bias = std::atoi(child.out.c_str() + 7);
        char expected[16];
        std::snprintf(
            expected, sizeof expected, "%c%02d:%02d", bias < 1 ? '+' : '-', std::abs(bias) / 60, std::abs(bias) % 60);
        EXPECT_EQ(child.out.substr(0, 6), expected) << zone;
    }
}

// The three headlines ------------------------------------------------------------
struct HeadlineRow
{
    const char* thread_name;
    const char* ip;
    long session;
    const char* function; ///< with file Kor_Image
    int line;
    const char* full; ///< behind the time, up to it the process id
    const char* event_log;
    const char* unix_log;
};

// The process id stands as P.
const HeadlineRow headline_rows[] = {
    {nullptr, nullptr, 0, "Load", 0, " WARNING (017) viewer (P,5120)   ->", " [P,5120]4:", "[042][5120] 4:"},
    {nullptr, nullptr, 0, "Load", 210, " WARNING (017) viewer (P,5120)  Kor_Image(210) Load ->",
     " [P,5120]4 Kor_Image(210) Load:", "[042][5120] 4 Kor_Image(210) Load:"},
    {nullptr, nullptr, 0, "", 210, " WARNING (017) viewer (P,5120)  Kor_Image(210) ->",
     " [P,5120]4 Kor_Image(210):", "[042][5120] 4 Kor_Image(210):"},
    {nullptr, nullptr, 0, nullptr, 210, " WARNING (017) viewer (P,5120)  Kor_Image(210) ->",
     " [P,5120]4 Kor_Image(210):", "[042][5120] 4 Kor_Image(210):"},
    {nullptr, nullptr, 5, "Load", 0, " WARNING (017) viewer (P,5120) SessionId(5)  ->",
     " [P,5120]4SessionId(5):", "SessionId(5) [042][5120] 4:"},
    {nullptr, nullptr, 5, "Load", 210, " WARNING (017) viewer (P,5120) SessionId(5) Kor_Image(210) Load ->",
     " [P,5120]4SessionId(5) Kor_Image(210) Load:", "SessionId(5) [042][5120] 4 Kor_Image(210) Load:"},
    {nullptr, "10.0.0.7", 0, "Load", 0, " WARNING (017) viewer (P,5120) ClientIP(10.0.0.7)  ->",
     " [P,5120]4ClientIP(10.0.0.7):", "ClientIP(10.0.0.7) [042][5120] 4:"},
    {nullptr, "10.0.0.7", 3, "Load", 210,
     " WARNING (017) viewer (P,5120) ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load ->",
     " [P,5120]4ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load:",
     "ClientIP(10.0.0.7) SessionId(3) [042][5120] 4 Kor_Image(210) Load:"},
    {nullptr, "10.0.0.7", -1, "Load", 210, " WARNING (017) viewer (P,5120) ClientIP(10.0.0.7) Kor_Image(210) Load ->",
     " [P,5120]4ClientIP(10.0.0.7) Kor_Image(210) Load:", "ClientIP(10.0.0.7) [042][5120] 4 Kor_Image(210) Load:"},
    {nullptr, nullptr, -1, "Load", 210, " WARNING (017) viewer (P,5120)  Kor_Image(210) Load ->",
     " [P,5120]4 Kor_Image(210) Load:", "[042][5120] 4 Kor_Image(210) Load:"},
    {nullptr, "", 0, "Load", 210, // an empty address is one
     " WARNING (017) viewer (P,5120) ClientIP() Kor_Image(210) Load ->",
     " [P,5120]4ClientIP() Kor_Image(210) Load:", "ClientIP() [042][5120] 4 Kor_Image(210) Load:"},
    {"Loader", nullptr, 0, "Load", 0, " WARNING (017) viewer (P,5120|Loader)   ->",
     " [P,5120 Loader]4:", "[042][5120 Loader] 4:"},
    {"Loader", nullptr, 0, "Load", 210, " WARNING (017) viewer (P,5120|Loader)  Kor_Image(210) Load ->",
     " [P,5120 Loader]4 Kor_Image(210) Load:", "[042][5120 Loader] 4 Kor_Image(210) Load:"},
    {"Loader", nullptr, 5, "Load", 0, " WARNING (017) viewer (P,5120|Loader) SessionId(5)  ->",
     " [P,5120 Loader]4SessionId(5):", "SessionId(5) [042][5120 Loader] 4:"},
    {"Loader", "10.0.0.7", 3, "Load", 210,
     " WARNING (017) viewer (P,5120|Loader) ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load ->",
     " [P,5120 Loader]4ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load:",
     "ClientIP(10.0.0.7) SessionId(3) [042][5120 Loader] 4 Kor_Image(210) Load:"},
    {"", nullptr, 0, "Load", -5, // an empty thread name is one; any line but 0 counts
     " WARNING (017) viewer (P,5120|)  Kor_Image(-5) Load ->",
     " [P,5120 ]4 Kor_Image(-5) Load:", "[042][5120 ] 4 Kor_Image(-5) Load:"},
};

std::string with_process(const char* form)
{
    std::string text(form);
    const std::size_t at = text.find("P,");
    return at == std::string::npos ? text : text.replace(at, 1, process());
}

TEST_F(LogHeadline, TheHeadlinesShowWhatIsKnown)
{
    const std::string time = "2024-03-05 14:07:09.042+02:00";
    for (const HeadlineRow& row : headline_rows)
    {
        SCOPED_TRACE(row.full);
        Kor_LogMTVars context;
        fill(context);
        context.m_file = "Kor_Image";
        context.m_function = row.function;
        context.m_line = row.line;
        m_log.SetIPAndSID(row.ip, row.session);
        m_log.SetThreadName(row.thread_name);

        const std::string full = time + with_process(row.full);
        EXPECT_EQ(context.AsStringFull(false), full);
        EXPECT_EQ(context.m_headline_length, static_cast<int>(full.size()));
        EXPECT_EQ(context.m_has_location, row.line != 0);
        EXPECT_EQ(context.m_has_context, row.ip != nullptr || row.session > 0);
        EXPECT_EQ(context.m_has_thread_name, row.thread_name != nullptr);

        const std::string event_log = time + with_process(row.event_log);
        EXPECT_EQ(context.AsStringPartialWS(false), event_log);
        EXPECT_EQ(context.m_headline_length, static_cast<int>(event_log.size()));

        EXPECT_STREQ(context.AsStringPartialUnix(false), row.unix_log);
        EXPECT_EQ(context.m_headline_length, static_cast<int>(std::strlen(row.unix_log)));
    }
}

TEST_F(LogHeadline, TheExampleOfTheFullHeadline)
{
    Kor_LogMTVars context;
    fill(context);
    context.m_file = "Kor_Image";
    context.m_function = "Load";
    context.m_line = 210;
    m_log.SetIPAndSID("10.0.0.7", 3);
    m_log.SetThreadName("Loader");

    EXPECT_EQ(
        masked_line(context.AsStringFull(false)),
        "<time> WARNING (017) viewer (<pid>,<tid>|Loader) ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load ->");
}

TEST_F(LogHeadline, TheMillisecondsOfTheUnixHeadlineHaveThreeDigits)
{
    Kor_LogMTVars context;
    fill(context);
    context.m_time.milliseconds = 7;
    EXPECT_STREQ(context.AsStringPartialUnix(false), "[007][5120] 4:");
    context.m_time.milliseconds = 999;
    EXPECT_STREQ(context.AsStringPartialUnix(false), "[999][5120] 4:");
}

TEST_F(LogHeadline, PackageAndLevelHaveFixedWidths)
{
    const struct
    {
        int level;
        int package;
        const char* text;
    } rows[] = {
        {0, 0, " NONE    (000) viewer "},   {1, 7, " SEVERE  (007) viewer "},       {2, 106, " CRITICAL(106) viewer "},
        {7, 749, " DEBUG   (749) viewer "}, {6, 12345, " INFO    (12345) viewer "}, {5, -1, " NOTICE  (-01) viewer "},
    };
    for (const auto& row : rows)
    {
        Kor_LogMTVars context;
        fill(context);
        context.m_level = row.level;
        context.m_package = row.package;
        EXPECT_EQ(std::string(context.AsStringFull(false)).substr(29, std::strlen(row.text)), row.text);
    }
}

TEST_F(LogHeadline, TheKindIsNeverSetSoEachCallFormatsAgain)
{
    Kor_LogMTVars context;
    fill(context);
    context.m_line = 1;
    context.AsStringFull(false);
    EXPECT_EQ(context.m_headline_kind, 0);
    context.m_line = 2;
    EXPECT_NE(std::string(context.AsStringFull(false)).find("unknown file(2)"), std::string::npos);
    context.AsStringPartialWS(false);
    EXPECT_EQ(context.m_headline_kind, 0);
    context.AsStringPartialUnix(true);
    EXPECT_EQ(context.m_headline_kind, 0);
}

TEST_F(LogHeadline, AHeadlineOfTheKindThatIsMarkedIsReturnedAsItStandsUnlessForced)
{
    using Form = char* (Kor_LogMTVars::*)(bool);
    const Form forms[] = {
        nullptr, &Kor_LogMTVars::AsStringFull, &Kor_LogMTVars::AsStringPartialWS, &Kor_LogMTVars::AsStringPartialUnix};
    for (int kind = 1; kind <= 3; ++kind)
    {
        for (int form = 1; form <= 3; ++form)
        {
            Kor_LogMTVars context;
            fill(context);
            context.m_headline_kind = kind;
            std::strcpy(context.m_headline, "as it stands");
            const std::string kept = (context.*forms[form])(false);
            EXPECT_EQ(kept == "as it stands", form == kind) << kind << ' ' << form;
            EXPECT_EQ((context.*forms[form])(true), context.m_headline);
            EXPECT_STRNE(context.m_headline, "as it stands") << kind << ' ' << form;
        }
    }
}

// What is too long ---------------------------------------------------------------
TEST_F(LogHeadline, ALocationIsCutAt99Characters)
{
    Kor_LogMTVars context;
    fill(context);
    const std::string file(120, 'f');
    context.m_file = file.c_str();
    context.m_function = "Load";
    context.m_line = 210;
    context.format_context();
    EXPECT_EQ(context.m_location, std::string(99, 'f'));

    context.m_function = "";
    context.format_context();
    EXPECT_EQ(context.m_location, std::string(99, 'f'));

    const std::string function(200, 'g');
    context.m_file = "file";
    context.m_function = function.c_str();
    context.format_context();
    EXPECT_EQ(context.m_location, "file(210) " + std::string(89, 'g'));
}

TEST_F(LogHeadline, ALocationThatJustFitsIsWhole)
{
    Kor_LogMTVars context;
    fill(context);
    const std::string file(94, 'f'); // and "(210)"
    context.m_file = file.c_str();
    context.m_function = nullptr;
    context.m_line = 210;
    context.format_context();

    EXPECT_EQ(context.m_location, file + "(210)");
}

TEST_F(LogHeadline, AClientAddressIsCutAt99CharactersOfContext)
{
    Kor_LogMTVars context;
    fill(context);
    const std::string address(150, 'a');
    m_log.SetIPAndSID(address.c_str(), 3);
    context.format_context();

    EXPECT_EQ(context.m_context, "ClientIP(" + std::string(90, 'a'));
    EXPECT_TRUE(context.m_has_context);
}

TEST_F(LogHeadline, AHeadlineOf199CharactersFitsAndALongerOneIsCut)
{
    Kor_LogMTVars context;
    fill(context);
    const std::string start =
        "2024-03-05 14:07:09.042+02:00 WARNING (017) viewer (" + process() + ",5120|"; // then the name
    const std::string end = ")   ->";
    const std::string fits(199 - start.size() - end.size(), 'n');

    m_log.SetThreadName(fits.c_str());
    EXPECT_EQ(context.AsStringFull(false), start + fits + end);
    EXPECT_EQ(context.m_headline_length, 199);

    m_log.SetThreadName((fits + "n").c_str());
    EXPECT_EQ(context.AsStringFull(false), start + fits + "n)   -");
    EXPECT_EQ(context.m_headline_length, -1);

    const std::string much(5000, 'n');
    m_log.SetThreadName(much.c_str());
    EXPECT_EQ(context.AsStringFull(false), (start + much).substr(0, 199));
    EXPECT_EQ(context.m_headline_length, -1);
    EXPECT_EQ(std::strlen(context.AsStringPartialWS(false)), 199u);
    EXPECT_EQ(context.m_headline_length, -1);
    EXPECT_EQ(std::strlen(context.AsStringPartialUnix(false)), 199u);
    EXPECT_EQ(context.m_headline_length, -1);
}

TEST_F(LogHeadline, ALineWithACutHeadlineHasItsTextBehindIt)
{
    const std::string name(300, 'n');
    m_log.Log("one"); // makes this thread's context, which would forget the name
    m_log.SetThreadName(name.c_str());
    m_log.Log("two");
    m_log.SetThreadName(nullptr);
    m_log.Log("three");

    const Lines lines = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].size(), 203u);
    EXPECT_EQ(lines[1].substr(150), std::string(49, 'n') + " two");
    EXPECT_EQ(masked_line(lines[2]), "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> three");
}

TEST_F(LogHeadline, AnApplicationNameOfAnyLengthIsBorne)
{
    const std::string name(400, 'a');
    Kor_LogFile other(777, false);
    ASSERT_EQ(other.Open("other.log", name.c_str()), 0);
    other.Log("x");

    EXPECT_EQ(other.GetApplicationName(), name);
    const std::string line = m_directory.text("other.log");
    EXPECT_EQ(line.size(), 199u + 3u);
    EXPECT_EQ(line.substr(43), " " + std::string(155, 'a') + " x\n");
}

// SetIP, SetIPAndSID, SetThreadName ----------------------------------------------
TEST_F(LogHeadline, ClientAndSessionStandInTheLinesUntilTheyAreTakenBack)
{
    m_log.Log("none");
    m_log.SetIP("10.0.0.7");
    m_log.Log("client");
    m_log.SetIPAndSID("10.0.0.8", 3);
    m_log.Log("client and session");
    m_log.SetIP("10.0.0.9"); // forgets the session
    m_log.Log("client again");
    m_log.SetIPAndSID(nullptr, 5);
    m_log.Log("session");
    m_log.SetIP(nullptr);
    m_log.Log("none again");

    const std::string start = "<time> SEVERE  (000) viewer (<pid>,<tid>) ";
    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 start + "  -> none",
                                 start + "ClientIP(10.0.0.7)  -> client",
                                 start + "ClientIP(10.0.0.8) SessionId(3)  -> client and session",
                                 start + "ClientIP(10.0.0.9)  -> client again",
                                 start + "SessionId(5)  -> session",
                                 start + "  -> none again",
                             }));
    EXPECT_EQ(Kor_LogMTVars::m_str_ip_address, nullptr);
    EXPECT_EQ(Kor_LogMTVars::m_session_id, 0);
}

TEST_F(LogHeadline, TheClientIsOneOfTheWholeProcess)
{
    m_log.SetIPAndSID("10.0.0.7", 3);
    on_another_thread([&] { m_log.Log("from another thread"); });

    EXPECT_EQ(
        m_directory.lines(),
        Lines{"<time> SEVERE  (000) viewer (<pid>,<tid>) ClientIP(10.0.0.7) SessionId(3)  -> from another thread"});
}

TEST_F(LogHeadline, TheThreadsNameIsThatThreadsAlone)
{
    m_log.Log("mine, before");
    m_log.SetThreadName("Main");
    on_another_thread(
        [&]
        {
            m_log.Log("other, before");
            m_log.SetThreadName("Loader");
            m_log.Log("other");
            m_log.SetThreadName(nullptr);
            m_log.Log("other, after");
        });
    m_log.Log("mine");

    const std::string start = "<time> SEVERE  (000) viewer (<pid>,<tid>";
    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 start + ")   -> mine, before",
                                 start + ")   -> other, before",
                                 start + "|Loader)   -> other",
                                 start + ")   -> other, after",
                                 start + "|Main)   -> mine",
                             }));
}

TEST_F(LogHeadline, TheSettersKeepCopies)
{
    char ip[] = "10.0.0.7";
    char name[] = "Loader";
    m_log.Log("first");
    m_log.SetIP(ip);
    m_log.SetThreadName(name);
    std::strcpy(ip, "xxxxxxxx");
    std::strcpy(name, "xxxxxx");
    m_log.Log("x");

    EXPECT_EQ(m_directory.lines().back(), "<time> SEVERE  (000) viewer (<pid>,<tid>|Loader) ClientIP(10.0.0.7)  -> x");
}

TEST_F(LogHeadline, TheSettersBearTheirOwnTexts)
{
    m_log.Log("first");
    m_log.SetIP("10.0.0.7");
    m_log.SetIP(Kor_LogMTVars::m_str_ip_address);
    m_log.Log("x");

    EXPECT_EQ(m_directory.lines().back(), "<time> SEVERE  (000) viewer (<pid>,<tid>) ClientIP(10.0.0.7)  -> x");
}

TEST_F(LogHeadline, AChangeOfClientMakesTheLevelCacheStale)
{
    ASSERT_EQ(m_log.GetLogLevel(30000), 4);
    ASSERT_TRUE(m_log.IsCacheTableUpToDate());
    m_log.SetIP("10.0.0.7");
    EXPECT_FALSE(m_log.IsCacheTableUpToDate());

    m_log.GetLogLevel(30000);
    ASSERT_TRUE(m_log.IsCacheTableUpToDate());
    m_log.SetIPAndSID("10.0.0.7", 3);
    EXPECT_FALSE(m_log.IsCacheTableUpToDate());

    m_log.GetLogLevel(30000);
    ASSERT_TRUE(m_log.IsCacheTableUpToDate());
    m_log.SetThreadName("Loader");
    EXPECT_FALSE(m_log.IsCacheTableUpToDate());
}

TEST_F(LogHeadline, TheSessionIsKnownToTheRulesAtTheNextCheck)
{
    m_directory.configure(TO_FILE + "Net 3 4 [(7;10.0.0.7;;;)]\n");
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.GetLogLevel(30000), 4);
    log.SetIP("10.0.0.7");
    EXPECT_EQ(log.GetLogLevel(30000), 7);
    log.SetIP(nullptr);
    EXPECT_EQ(log.GetLogLevel(30000), 4);
}

// Traces -------------------------------------------------------------------------
KOR_CHILD(changes_its_context)
{
    Kor_LogFile log(777, false);
    log.SetIP("10.0.0.7");
    log.SetIPAndSID("10.0.0.8", 3);
    log.SetThreadName("Loader");
    log.SetIPAndSID(nullptr, 5);
    log.SetThreadName(nullptr);
    return 0;
}

Lines lines_with(const Lines& lines, const char* what)
{
    Lines result;
    for (const std::string& line : lines)
    {
        if (line.find(what) != std::string::npos)
            result.push_back(line);
    }
    return result;
}

TEST_F(LogHeadline, WithDebuggingOnEachChangeIsTracedToStandardOutput)
{
    const ChildResult child = run_child("changes_its_context", m_directory.for_child({{"PRISMATE_LOG_DEBUG", "0"}}));

    EXPECT_EQ(
        lines_with(lines_of(child.out), "changed to"), (Lines{
                                                           "SetIP: Log Context changed to [10.0.0.7 [0]]",
                                                           "SetIP: Log Context changed to [10.0.0.8 [0]]",
                                                           "SetIPAndSID: Log Context changed to [10.0.0.8 [3]]",
                                                           "SetThreadName: Log head changed to include thread name "
                                                           "[Loader]",
                                                           "SetIP: Log Context changed to [(null) [0]]",
                                                           "SetIPAndSID: Log Context changed to [(null) [5]]",
                                                           "SetThreadName: Log head changed to include thread name "
                                                           "[(null)]",
                                                       }));
}

TEST_F(LogHeadline, WithoutDebuggingNothingIsTraced)
{
    const ChildResult child = run_child("changes_its_context", m_directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.out, "");
}

// The counted pointer ------------------------------------------------------------
TEST_F(LogHeadline, TheCountedPointerCountsItsCopies)
{
    Kor_LogMTVarsPtr first;
    EXPECT_EQ(first->m_references, 1);
    {
        const Kor_LogMTVarsPtr copy(first);
        EXPECT_EQ(first->m_references, 2);
        EXPECT_EQ(copy.operator->(), first.operator->());
    }
    EXPECT_EQ(first->m_references, 1);
    const Kor_LogMTVarsPtr& same = first;
    first = same;
    EXPECT_EQ(first->m_references, 1);
}

TEST_F(LogHeadline, AssignmentGivesUpTheOldObjectAndSharesTheNew)
{
    Kor_LogMTVarsPtr first;
    Kor_LogMTVarsPtr second;
    const Kor_LogMTVarsPtr keeps_second(second);
    ASSERT_EQ(keeps_second->m_references, 2);

    second = first;

    EXPECT_EQ(keeps_second->m_references, 1);
    EXPECT_EQ(first->m_references, 2);
    EXPECT_EQ(second.operator->(), first.operator->());
}

TEST_F(LogHeadline, ARawPointerIsSharedAndCounted)
{
    auto* const raw = new Kor_LogMTVars;
    ASSERT_EQ(raw->m_references, 0);
    const Kor_LogMTVarsPtr first(raw);
    EXPECT_EQ(raw->m_references, 1);
    const Kor_LogMTVarsPtr second(raw);
    EXPECT_EQ(raw->m_references, 2);
    EXPECT_EQ(first.operator->(), raw);
}

TEST_F(LogHeadline, ADestinationMayKeepItsReference)
{
    struct Keeper : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr context, bool, const char*, unsigned int) override
        {
            inside = context->m_references;
            kept.push_back(context);
            return 0;
        }
        int inside = 0;
        std::vector<Kor_LogMTVarsPtr> kept;
    } keeper;
    m_log.RegisterLogDestination(&keeper);
    m_log.LogNoHeadline("one");
    ASSERT_EQ(keeper.kept.size(), 1u);
    const int after = keeper.kept[0]->m_references;
    EXPECT_GT(keeper.inside, 1);
    EXPECT_GE(after, 2); // the thread's own and the one that was kept

    m_log.LogNoHeadline("two");
    ASSERT_EQ(keeper.kept.size(), 2u);
    EXPECT_EQ(keeper.kept[1]->m_references, after + 1);
    EXPECT_EQ(keeper.kept[0].operator->(), keeper.kept[1].operator->());
    m_log.UnregisterLogDestination(&keeper);
}
} // namespace
