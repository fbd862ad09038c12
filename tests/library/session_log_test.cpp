// The crash reporter: its life, its paths, what it keeps for a crash, and what it writes in one.

#include "Kor_SessionLog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <dbghelp.h>
#include <process.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLogGatherer.h"
#include "bounded.h"
#include "session_report.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Host = Kor_SessionLogHost;
using Lines = std::vector<std::string>;

KOR_IMPORT(GetLocalTime);
KOR_IMPORT(GetSystemTimePreciseAsFileTime);
KOR_IMPORT(GetModuleFileNameA);
KOR_IMPORT(GetModuleFileNameW);
KOR_IMPORT(GetCurrentThreadId);
KOR_IMPORT(GetProcAddress);
KOR_IMPORT(VirtualAlloc);
KOR_IMPORT(VirtualFree);
KOR_IMPORT(LoadLibraryExA);
KOR_IMPORT(FreeLibrary);
KOR_IMPORT(CreateFileW);
KOR_IMPORT(CloseHandle);
KOR_IMPORT(_getpid);

const std::string ENABLE = "(106) viewer (<pid>,<tid>)  Kor_SessionLog(n) Kor_SessionLog::enable -> ";
const std::string CANNOT_RELEASE = "Failed to release memory reserved for crashlog processing";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// Gives the library's calls of a system function that fills a buffer with the program's path this answer.
template <class Character>
DWORD answer_with(const std::basic_string<Character>& path, Character* buffer, DWORD size)
{
    const std::size_t length = std::min<std::size_t>(path.size() + 1, size); // cut without an end, as Windows does
    std::memcpy(buffer, path.c_str(), length * sizeof(Character));
    return static_cast<DWORD>(path.size() < size ? path.size() : size);
}

/// The program that the library believes to be in.
class FixedProgram
{
public:
    explicit FixedProgram(const std::string& program)
        : path(program),
          m_narrow([this](HMODULE, char* buffer, DWORD size) { return answer_with(path, buffer, size); }),
          m_wide([this](HMODULE, wchar_t* buffer, DWORD size) { return answer_with(wide(path), buffer, size); })
    {
        EXPECT_TRUE(m_narrow.installed() && m_wide.installed());
    }

    std::string path;

private:
    Hook<GetModuleFileNameAImport> m_narrow;
    Hook<GetModuleFileNameWImport> m_wide;
};

/// The library's clock, and what it shows on the wall, which is the same unless `ahead` is set.
class FixedLocalTime
{
public:
    explicit FixedLocalTime(const SYSTEMTIME& time)
        : now(time), m_clock([this](FILETIME* result) { *result = file_time(); }),
          m_wall([this](SYSTEMTIME* result) { *result = on_the_wall(); })
    {
        EXPECT_TRUE(m_clock.installed() && m_wall.installed());
    }

    /// How often the zone was asked for.
    int questions() const { return m_wall.calls(); }

    SYSTEMTIME now; ///< UTC; the day of the week stands after the month
    int hours_ahead = 0;

private:
    FILETIME file_time() const
    {
        FILETIME time{};
        ::SystemTimeToFileTime(&now, &time);
        return time;
    }

    SYSTEMTIME on_the_wall() const
    {
        FILETIME time = file_time();
        const std::uint64_t units = ((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) +
                                    static_cast<std::uint64_t>(hours_ahead) * 36'000'000'000;
        time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
        SYSTEMTIME result{};
        ::FileTimeToSystemTime(&time, &result);
        return result;
    }

    Hook<GetSystemTimePreciseAsFileTimeImport> m_clock;
    Hook<GetLocalTimeImport> m_wall;
};

/// The reservation for the crash, at an address of the test's own.
class Reservation
{
public:
    Reservation()
        : m_alloc(
              [this](void* place, SIZE_T size, DWORD type, DWORD protection) -> void*
              {
                  if (size != 0x10000 || type != MEM_RESERVE)
                      return m_alloc_self->original(place, size, type, protection);
                  EXPECT_EQ(place, nullptr);
                  EXPECT_EQ(protection, static_cast<DWORD>(PAGE_NOACCESS));
                  ++reserved;
                  return can_reserve ? address() : nullptr;
              }),
          m_free(
              [this](void* place, SIZE_T size, DWORD type) -> BOOL
              {
                  if (place != address())
                      return m_free_self->original(place, size, type);
                  EXPECT_EQ(size, 0u);
                  EXPECT_EQ(type, static_cast<DWORD>(MEM_RELEASE));
                  ++released;
                  return can_release ? TRUE : FALSE;
              })
    {
        m_alloc_self = &m_alloc;
        m_free_self = &m_free;
        EXPECT_TRUE(m_alloc.installed() && m_free.installed());
    }

    static void* address() { return reinterpret_cast<void*>(0x1234ABCD0000); }

    bool can_reserve = true;
    bool can_release = true;
    int reserved = 0;
    int released = 0;

private:
    Hook<VirtualAllocImport>* m_alloc_self = nullptr;
    Hook<VirtualFreeImport>* m_free_self = nullptr;
    Hook<VirtualAllocImport> m_alloc;
    Hook<VirtualFreeImport> m_free;
};

/// The exception of a crash.
struct Crash
{
    explicit Crash(DWORD code)
    {
        record.ExceptionCode = code;
        pointers.ExceptionRecord = &record;
        pointers.ContextRecord = &context;
        ::RtlCaptureContext(&context);
    }

    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{};
};

/// A process whose log tells all, with reporter and gatherer still to be switched on.
class SessionLogOff : public ::testing::Test
{
protected:
    SessionLogOff()
    {
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
    }

    Lines lines() const { return library_lines(m_directory); }
    /// Those of the reporter alone, without what stands in front of the function.
    Lines own_lines() const
    {
        static const std::string source = "  Kor_SessionLog(n) Kor_SessionLog::";
        Lines own;
        for (const std::string& line : lines())
            if (const std::size_t at = line.find(source); at != std::string::npos)
                own.push_back(line.substr(7, 8) + line.substr(at + source.size()));
        return own;
    }

    std::wstring path(const std::string& name) const { return wide(m_directory.file(name)); }

    const LogDirectory m_directory{LIBRARY_TO_FILE};
    FixedProgram m_program{"C:\\app\\viewer.exe"};
    FixedLocalTime m_time{{2024, 1, 3, 31, 23, 59, 59, 7}};
    FixedSessionClock m_clock;
};

/// The same, switched on.
class SessionLog : public SessionLogOff
{
protected:
    SessionLog()
    {
        Gatherer::Activate(true);
        Kor_SessionLog::Activate(true);
    }

    static Kor_SessionLog& reporter() { return *Kor_SessionLog::GetInstance(); }
};

// Life ---------------------------------------------------------------------------------
TEST_F(SessionLogOff, IsThereAndDoesNothing)
{
    Gatherer::Activate(true);
    ASSERT_TRUE(write_file(m_directory.file("CLGState.mp"), "<lumariscontext/>"));
    const Reservation reservation;
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    EXPECT_TRUE(Kor_SessionLog::bBypass);
    EXPECT_EQ(Kor_SessionLog::myInstance, nullptr);
    EXPECT_FALSE(Kor_SessionLog::IsActive());
    Kor_SessionLog* const log = Kor_SessionLog::GetInstance();
    ASSERT_NE(log, nullptr);
    EXPECT_TRUE(Kor_SessionLog::IsActive());
    EXPECT_EQ(log, Kor_SessionLog::myInstance);
    EXPECT_EQ(log->getLogFullPath(L"crash"), nullptr);
    EXPECT_EQ(log->getStateFullPath(), nullptr);
    EXPECT_EQ(log->getMinidumpFullPath(), nullptr);
    EXPECT_EQ(log->generateMinidumpFullPath(), nullptr);
    log->enable();
    log->addDllToLoad("version.dll");
    log->enable();
    log->createReport(&crash.pointers);
    log->createReport(&crash.pointers, path("report.xml").c_str(), L"1");
    log->createSessionReport();
    log->produceMinidump(&crash.pointers);
    Host::reportToCrashLogFile(&crash.pointers);
    Host::saveState();
    log->disable();
    EXPECT_TRUE(log->getModulesList().empty());
    Kor_SessionLog::Activate(true); // too late
    EXPECT_TRUE(Kor_SessionLog::bBypass);
    Host::destroy();
    EXPECT_EQ(Kor_SessionLog::myInstance, nullptr);
    EXPECT_EQ(reservation.reserved, 0);
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    EXPECT_EQ(read_file(m_directory.file("CLGState.mp")), "<lumariscontext/>");
    EXPECT_EQ(lines(), Lines());
}

TEST_F(SessionLogOff, IsWhatTheLastActivateBeforeTheInstanceSaid)
{
    Kor_SessionLog::Activate(true);
    EXPECT_FALSE(Kor_SessionLog::bBypass);
    Kor_SessionLog::Activate(false);
    EXPECT_TRUE(Kor_SessionLog::bBypass);
    EXPECT_EQ(Kor_SessionLog::GetInstance()->getStateFullPath(), nullptr);
}

TEST_F(SessionLog, StaysOnOnceThereIsAnInstance)
{
    EXPECT_FALSE(Kor_SessionLog::IsActive());
    Kor_SessionLog* const log = Kor_SessionLog::GetInstance();
    EXPECT_TRUE(Kor_SessionLog::IsActive());
    Kor_SessionLog::Activate(false);
    EXPECT_FALSE(Kor_SessionLog::bBypass);
    EXPECT_NE(log->getStateFullPath(), nullptr);
    EXPECT_EQ(Kor_SessionLog::GetInstance(), log);
}

TEST_F(SessionLog, BeginsWithTheStateThatTheLastProcessHasLeft)
{
    ASSERT_TRUE(write_file(
        m_directory.file("CLGState.mp"),
        "<lumariscontext><stats start='2023-05-06 07:08:09.010'><statentry type='A' count='7'/></stats>"
        "</lumariscontext>"));
    const Reservation reservation;
    reporter();
    const std::wstring begin = L"<stats start='2023-05-06 07:08:09.010'><statentry type='A' count='7'>";
    EXPECT_EQ(stats_text(*Gatherer::GetInstance()).substr(0, begin.size()), begin);
    EXPECT_EQ(
        lines(),
        Lines{"<time> DEBUG   " + ENABLE + "Successfully reserved memory for crashlog processing at 00001234ABCD0000"});
}

TEST_F(SessionLog, OfAFirstRunSaysThatThereIsNoState)
{
    const Reservation reservation;
    reporter();
    EXPECT_EQ(
        lines(),
        (Lines{
            "<time> DEBUG   (106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) "
            "Kor_SessionLogGatherer::loadFromFile -> File " +
                m_directory.file("CLGState.mp") + " does't exist or cannot be accessed.",
            "<time> DEBUG   " + ENABLE + "Successfully reserved memory for crashlog processing at 00001234ABCD0000"}));
}

TEST_F(SessionLog, SavesTheStateWhenItIsDestroyedAndNeverComesBack)
{
    const Reservation reservation;
    reporter();
    Gatherer::GetInstance()->reportEvent(L"A", nullptr, Gatherer::COUNTED | Gatherer::STATE, 1, nullptr);
    Host::destroy();
    EXPECT_EQ(
        without_machine(wide_text(read_file(m_directory.file("CLGState.mp")))),
        without_machine(report_text(*Gatherer::GetInstance(), false)));
    EXPECT_EQ(reservation.released, 1);
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    EXPECT_EQ(Kor_SessionLog::myInstance, nullptr);
    EXPECT_EQ(Kor_SessionLog::GetInstance(), nullptr);
    EXPECT_TRUE(Kor_SessionLog::IsActive());
    Kor_SessionLog::Activate(false);
    EXPECT_FALSE(Kor_SessionLog::bBypass);
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    Host::reportToCrashLogFile(&crash.pointers);
    Host::saveState();
    Host::destroy();
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
}

TEST_F(SessionLog, SavesTheStateWheneverTheHostWants)
{
    reporter();
    Host::saveState();
    const std::string first = read_file(m_directory.file("CLGState.mp"));
    EXPECT_NE(wide_text(first).find(L"<stats start='2024-01-31 08:00:00.000'></stats>"), std::wstring::npos);
    Gatherer::GetInstance()->reportEvent(L"A", nullptr, Gatherer::COUNTED, 1, nullptr);
    Host::saveState();
    EXPECT_NE(wide_text(read_file(m_directory.file("CLGState.mp"))).find(L"type='A'"), std::wstring::npos);
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
}

TEST_F(SessionLog, KeepsWhatTheHostSetsAndHasNoFilter)
{
    EXPECT_FALSE(reporter().getSuppressExceptions());
    reporter().setSuppressExceptions(true);
    EXPECT_TRUE(reporter().getSuppressExceptions());
    EXPECT_TRUE(Kor_SessionLog::bSuppressExceptions);
    EXPECT_FALSE(reporter().DEBUG_checkFilter());
    EXPECT_FALSE(Kor_SessionLog::bOnlyReportToCrashLogFile);
    Kor_SessionLog::setReportToCrashLogFileOnly(true);
    EXPECT_TRUE(Kor_SessionLog::bOnlyReportToCrashLogFile);
    Kor_SessionLog::setReportToCrashLogFileOnly(false);
    EXPECT_FALSE(Kor_SessionLog::bOnlyReportToCrashLogFile);
}

// Paths --------------------------------------------------------------------------------
TEST_F(SessionLog, NamesFilesAfterTypeProgramAndTime)
{
    EXPECT_EQ(reporter().getLogFullPath(L"crash"), path("crash-viewer-2024-01-31-235959.xml"));
    EXPECT_EQ(reporter().generateMinidumpFullPath(), path("minidump-viewer-2024-01-31-235959.dmp"));
    EXPECT_EQ(reporter().getStateFullPath(), path("CLGState.mp"));
}

TEST_F(SessionLog, NamesAReportOnceWhateverTypeAndTimeComeLater)
{
    const wchar_t* const first = reporter().getLogFullPath(L"session");
    m_time.now = {2025, 12, 3, 31, 1, 2, 3, 4};
    m_program.path = "C:\\other.exe";
    EXPECT_EQ(reporter().getLogFullPath(L"crash"), first);
    EXPECT_EQ(first, path("session-viewer-2024-01-31-235959.xml"));
}

TEST_F(SessionLog, NamesAMinidumpAnewEachTimeAndRemembersTheLast)
{
    EXPECT_EQ(reporter().getMinidumpFullPath(), path("minidump-viewer-2024-01-31-235959.dmp"));
    m_time.now = {2025, 12, 3, 1, 1, 2, 3, 4};
    EXPECT_EQ(reporter().getMinidumpFullPath(), path("minidump-viewer-2024-01-31-235959.dmp"));
    EXPECT_EQ(reporter().generateMinidumpFullPath(), path("minidump-viewer-2025-12-01-010203.dmp"));
    EXPECT_EQ(reporter().getMinidumpFullPath(), path("minidump-viewer-2025-12-01-010203.dmp"));
}

TEST_F(SessionLog, CutsTheProgramsNameAtItsFirstDot)
{
    struct Row
    {
        std::string program;
        std::string name;
    };
    const Row rows[] = {
        {"C:\\app\\my.tool.exe", "my"},
        {"C:\\app.d\\viewer", "viewer"},
        {"viewer.exe", "viewer"},
        {"C:\\app\\.exe", ""},
        {"C:\\" + std::string(300, 'a') + ".exe", std::string(252, 'a')}, // as much as fits
        {"", ""},
    };
    for (const Row& row : rows)
    {
        m_program.path = row.program;
        reporter().enable();
        EXPECT_EQ(reporter().generateMinidumpFullPath(), path("minidump-" + row.name + "-2024-01-31-235959.dmp"))
            << row.program;
    }
}

TEST_F(SessionLog, ReadsTheDirectoryInTheCodePageOfTheThread)
{
    reporter();
    const EnvironmentVariable elsewhere("PRISMATE_LOG_DIR", "C:\\\xC6\xE4");
    const LCID before = ::GetThreadLocale();
    ASSERT_TRUE(::SetThreadLocale(0x0419)); // Russian: code page 1251
    reporter().enable();
    const std::wstring report = reporter().getLogFullPath(L"crash");
    const std::wstring dump = reporter().generateMinidumpFullPath();
    ::SetThreadLocale(before);
    EXPECT_EQ(report, L"C:\\\x0416\x0434\\crash-viewer-2024-01-31-235959.xml");
    EXPECT_EQ(dump, L"C:\\\x0416\x0434\\minidump-viewer-2024-01-31-235959.dmp");
    EXPECT_EQ(reporter().getStateFullPath(), path("CLGState.mp")); // as it was at first
}

TEST_F(SessionLog, AsksForTheDirectoryAndTheProgramWhenItIsEnabledAndNotInACrash)
{
    reporter();
    m_program.path = "C:\\other.exe";
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    {
        const EnvironmentVariable elsewhere("PRISMATE_LOG_DIR", m_directory.file("elsewhere"));
        Host::reportToCrashLogFile(&crash.pointers);
        reporter().produceMinidump(&crash.pointers);
        reporter().createReport(&crash.pointers);
        Host::saveState();
    }
    EXPECT_EQ(
        files_of(m_directory), (Lines{
                                   "CLGState.mp", "crash-viewer-2024-01-31-235959.xml", "crashes.log",
                                   "minidump-viewer-2024-01-31-235959.dmp"}));
    reporter().enable();
    EXPECT_EQ(reporter().generateMinidumpFullPath(), path("minidump-other-2024-01-31-235959.dmp"));
}

// The reservation ----------------------------------------------------------------------
TEST_F(SessionLog, ReservesOnceHoweverOftenItIsEnabled)
{
    const Reservation reservation;
    reporter().enable();
    reporter().enable();
    EXPECT_EQ(reservation.reserved, 1);
    EXPECT_EQ(reservation.released, 0);
    reporter().disable();
    EXPECT_EQ(reservation.released, 1);
    reporter().disable();
    EXPECT_EQ(reservation.released, 1);
    reporter().enable();
    EXPECT_EQ(reservation.reserved, 2);
    const std::string line =
        "DEBUG   enable -> Successfully reserved memory for crashlog processing at 00001234ABCD0000";
    EXPECT_EQ(own_lines(), (Lines{line, line}));
}

TEST_F(SessionLog, TellsThatNothingCouldBeReserved)
{
    Reservation reservation;
    reservation.can_reserve = false;
    reporter();
    EXPECT_EQ(reservation.reserved, 1);
    EXPECT_EQ(lines().back(), "<time> ERROR   " + ENABLE + "Failed to reserve memory for crashlog processing");
    reporter().createSessionReport();
    reporter().disable();
    EXPECT_EQ(reservation.released, 0);
    EXPECT_EQ(own_lines().size(), 1u);
}

TEST_F(SessionLog, TheFirstReportConsumesTheReservation)
{
    const Reservation reservation;
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    reporter().createSessionReport();
    EXPECT_EQ(reservation.released, 1);
    reporter().createReport(&crash.pointers);
    reporter().createSessionReport();
    reporter().enable();
    reporter().disable();
    EXPECT_EQ(reservation.released, 1);
    EXPECT_EQ(reservation.reserved, 1);
    reporter().enable();
    reporter().createReport(&crash.pointers);
    EXPECT_EQ(reservation.reserved, 2);
    EXPECT_EQ(reservation.released, 2);
}

TEST_F(SessionLog, TheReservationIsReleasedBeforeTheReportIsWritten)
{
    const Reservation reservation;
    reporter();
    int released_before = 0;
    Hook<CreateFileWImport>* own = nullptr;
    Hook<CreateFileWImport> opens(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
            HANDLE like)
        {
            if (std::wstring_view(name).find(L".xml") != std::wstring_view::npos)
                released_before = reservation.released;
            return own->original(name, access, share, security, how, flags, like);
        });
    own = &opens;
    ASSERT_TRUE(opens.installed());
    reporter().createSessionReport();
    EXPECT_EQ(released_before, 1);
}

TEST_F(SessionLog, EachWriterTellsThatItCouldNotRelease)
{
    Reservation reservation;
    reservation.can_release = false;
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    reporter().createReport(&crash.pointers);
    reporter().createReport(&crash.pointers); // there is nothing any more
    reporter().disable();
    reporter().enable();
    reporter().createSessionReport();
    reporter().disable();
    reporter().enable();
    reporter().disable();
    EXPECT_EQ(reservation.released, 3);
    const std::string reserved =
        "DEBUG   enable -> Successfully reserved memory for crashlog processing at 00001234ABCD0000";
    EXPECT_EQ(
        own_lines(),
        (Lines{
            reserved, "ERROR   createReport -> " + CANNOT_RELEASE, reserved,
            "ERROR   createSessionReport -> " + CANNOT_RELEASE, reserved, "ERROR   disable -> " + CANNOT_RELEASE}));
}

// DLLs ---------------------------------------------------------------------------------
TEST_F(SessionLog, LoadsTheDllsThatWereAddedAtTheNextEnable)
{
    reporter();
    Lines loaded;
    std::vector<HMODULE> freed;
    std::uintptr_t next = 0x1000;
    Hook<LoadLibraryExAImport> loads(
        [&](const char* name, HANDLE file, DWORD flags)
        {
            loaded.emplace_back(name);
            EXPECT_EQ(file, nullptr);
            EXPECT_EQ(flags, 0u);
            return std::string(name) == "missing.dll" ? nullptr : reinterpret_cast<HMODULE>(next += 0x1000);
        });
    Hook<FreeLibraryImport> frees(
        [&](HMODULE module) -> BOOL
        {
            freed.push_back(module);
            return TRUE;
        });
    ASSERT_TRUE(loads.installed() && frees.installed());
    reporter().addDllToLoad("first.dll");
    reporter().addDllToLoad("missing.dll");
    EXPECT_EQ(loaded, Lines());
    reporter().enable();
    EXPECT_EQ(loaded, (Lines{"first.dll", "missing.dll"}));
    loaded.clear();
    reporter().addDllToLoad("C:\\later.dll");
    reporter().enable();
    EXPECT_EQ(loaded, (Lines{"missing.dll", "C:\\later.dll"}));
    EXPECT_TRUE(freed.empty());
    reporter().disable();
    EXPECT_EQ(freed, (std::vector<HMODULE>{reinterpret_cast<HMODULE>(0x2000), reinterpret_cast<HMODULE>(0x3000)}));
    loaded.clear();
    reporter().enable(); // the list stays
    EXPECT_EQ(loaded, (Lines{"first.dll", "missing.dll", "C:\\later.dll"}));
    EXPECT_EQ(own_lines().size(), 2u); // the two reservations
}

TEST_F(SessionLog, TakesPathsOf259BytesAndRefusesLongerOnes)
{
    reporter();
    Lines loaded;
    const Hook<LoadLibraryExAImport> loads(
        [&](const char* name, HANDLE, DWORD) -> HMODULE
        {
            loaded.emplace_back(name);
            return nullptr;
        });
    ASSERT_TRUE(loads.installed());
    reporter().addDllToLoad(std::string(259, 'a').c_str());
    reporter().addDllToLoad(std::string(260, 'b').c_str());
    reporter().addDllToLoad(nullptr);
    reporter().addDllToLoad("");
    reporter().enable();
    EXPECT_EQ(loaded, (Lines{std::string(259, 'a'), ""}));
    ASSERT_EQ(own_lines().size(), 2u);
    EXPECT_EQ(own_lines()[1], "WARNING addDllToLoad -> The path of a DLL is too long: " + std::string(260, 'b'));
}

TEST_F(SessionLog, ADllIsThereFromEnableToDisable)
{
    ASSERT_EQ(::GetModuleHandleA("mscms.dll"), nullptr); // or another that nobody loads
    reporter().addDllToLoad("mscms.dll");
    reporter().enable();
    EXPECT_NE(::GetModuleHandleA("mscms.dll"), nullptr);
    reporter().disable();
    EXPECT_EQ(::GetModuleHandleA("mscms.dll"), nullptr);
}

// Reports ------------------------------------------------------------------------------
TEST_F(SessionLog, ACrashReportHasTheExceptionAndTheNameOfACrash)
{
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    reporter().createReport(&crash.pointers);
    EXPECT_EQ(files_of(m_directory), Lines{"crash-viewer-2024-01-31-235959.xml"});
    const std::wstring text = wide_text(read_file(m_directory.file("crash-viewer-2024-01-31-235959.xml")));
    EXPECT_NE(text.find(L"<Exception "), std::wstring::npos);
    EXPECT_NE(text.find(L" Code=\"0xc0000005\""), std::wstring::npos);
    EXPECT_EQ(text.find(L"EventID"), std::wstring::npos);
    EXPECT_NE(text.find(L"<history>"), std::wstring::npos);
}

TEST_F(SessionLog, ACrashReportMayHaveANameAndAnEventOfTheHosts)
{
    Crash crash(EXCEPTION_INT_DIVIDE_BY_ZERO);
    reporter().createReport(&crash.pointers, path("mine.xml").c_str(), L"event 7");
    EXPECT_EQ(files_of(m_directory), Lines{"mine.xml"});
    EXPECT_NE(wide_text(read_file(m_directory.file("mine.xml"))).find(L" EventID=\"event 7\""), std::wstring::npos);
}

TEST_F(SessionLog, ASessionReportHasNoExceptionAndNamesTheCrashReportThatFollows)
{
    reporter().createSessionReport();
    EXPECT_EQ(files_of(m_directory), Lines{"session-viewer-2024-01-31-235959.xml"});
    const std::wstring text = wide_text(read_file(m_directory.file("session-viewer-2024-01-31-235959.xml")));
    EXPECT_NE(text.find(L"<SessionLogData/>"), std::wstring::npos);
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    reporter().createReport(&crash.pointers);
    EXPECT_EQ(files_of(m_directory), Lines{"session-viewer-2024-01-31-235959.xml"});
    EXPECT_NE(
        wide_text(read_file(m_directory.file("session-viewer-2024-01-31-235959.xml"))).find(L"<Exception "),
        std::wstring::npos);
}

TEST_F(SessionLog, WithTheCrashLineAloneThereIsNoCrashReportAndTheReservationStays)
{
    const Reservation reservation;
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    Kor_SessionLog::setReportToCrashLogFileOnly(true);
    reporter().createReport(&crash.pointers);
    reporter().createReport(&crash.pointers, path("mine.xml").c_str(), nullptr);
    EXPECT_EQ(files_of(m_directory), Lines());
    EXPECT_EQ(reservation.released, 0);
    reporter().createSessionReport();
    EXPECT_EQ(reservation.released, 1);
    // The name is the one that the crash report asked for.
    EXPECT_EQ(files_of(m_directory), Lines{"crash-viewer-2024-01-31-235959.xml"});
}

// Minidumps ----------------------------------------------------------------------------
/// The place of the function that writes dumps, which the library finds by its name.
class DumpFunction
{
public:
    DumpFunction()
        : m_finds(
              [this](HMODULE module, const char* name) -> FARPROC
              {
                  if (HIWORD(reinterpret_cast<ULONG_PTR>(name)) == 0 || std::string(name) != "MiniDumpWriteDump")
                      return m_self->original(module, name);
                  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&write));
              })
    {
        m_self = &m_finds;
        s_current = this;
        EXPECT_TRUE(m_finds.installed());
    }
    DumpFunction(const DumpFunction&) = delete;
    DumpFunction& operator=(const DumpFunction&) = delete;
    ~DumpFunction() { s_current = nullptr; }

    int calls = 0;
    std::function<void(HANDLE, const MINIDUMP_EXCEPTION_INFORMATION*, const MINIDUMP_CALLBACK_INFORMATION*)> then;

private:
    static BOOL WINAPI write(
        HANDLE process, DWORD pid, HANDLE file, MINIDUMP_TYPE type, const MINIDUMP_EXCEPTION_INFORMATION* exception,
        const MINIDUMP_USER_STREAM_INFORMATION* streams, const MINIDUMP_CALLBACK_INFORMATION* callback)
    {
        EXPECT_EQ(process, ::GetCurrentProcess());
        EXPECT_EQ(pid, ::GetCurrentProcessId());
        EXPECT_EQ(type, MiniDumpNormal);
        EXPECT_EQ(streams, nullptr);
        ++s_current->calls;
        if (s_current->then)
            s_current->then(file, exception, callback);
        return FALSE;
    }

    static inline DumpFunction* s_current = nullptr;
    Hook<GetProcAddressImport>* m_self = nullptr;
    Hook<GetProcAddressImport> m_finds;
};

/// The library's opens of dump files and closes of their handles.
class DumpFiles
{
public:
    explicit DumpFiles(HANDLE answer)
        : m_opens(
              [this, answer](
                  const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
                  HANDLE like)
              {
                  if (std::wstring_view(name).find(L".dmp") == std::wstring_view::npos)
                      return m_opens_self->original(name, access, share, security, how, flags, like);
                  EXPECT_EQ(access, static_cast<DWORD>(GENERIC_WRITE));
                  EXPECT_EQ(share, 0u);
                  EXPECT_EQ(security, nullptr);
                  EXPECT_EQ(how, static_cast<DWORD>(CREATE_ALWAYS));
                  EXPECT_EQ(flags, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
                  ++opened;
                  return answer;
              }),
          m_closes(
              [this, answer](HANDLE handle) -> BOOL
              {
                  if (handle != answer)
                      return m_closes_self->original(handle);
                  ++closed;
                  return TRUE;
              })
    {
        m_opens_self = &m_opens;
        m_closes_self = &m_closes;
        EXPECT_TRUE(m_opens.installed() && m_closes.installed());
    }

    int opened = 0;
    int closed = 0;

private:
    Hook<CreateFileWImport>* m_opens_self = nullptr;
    Hook<CloseHandleImport>* m_closes_self = nullptr;
    Hook<CreateFileWImport> m_opens;
    Hook<CloseHandleImport> m_closes;
};

TEST_F(SessionLog, AMinidumpHasTheExceptionOfItsThread)
{
    DumpFunction function;
    reporter();
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    const HANDLE handle = reinterpret_cast<HANDLE>(std::uintptr_t{0x7FF0});
    const DumpFiles files(handle);
    function.then =
        [&](HANDLE file, const MINIDUMP_EXCEPTION_INFORMATION* exception, const MINIDUMP_CALLBACK_INFORMATION* callback)
    {
        EXPECT_EQ(file, handle);
        EXPECT_EQ(files.closed, 0);
        ASSERT_NE(exception, nullptr);
        EXPECT_EQ(exception->ThreadId, ::GetCurrentThreadId());
        EXPECT_EQ(exception->ExceptionPointers, &crash.pointers);
        EXPECT_EQ(exception->ClientPointers, FALSE);
        EXPECT_NE(callback, nullptr);
    };
    reporter().produceMinidump(&crash.pointers);
    EXPECT_EQ(function.calls, 1);
    EXPECT_EQ(files.opened, 1);
    EXPECT_EQ(files.closed, 1);
    function.then = [&](HANDLE, const MINIDUMP_EXCEPTION_INFORMATION* exception, const MINIDUMP_CALLBACK_INFORMATION*)
    { EXPECT_EQ(exception, nullptr); };
    reporter().produceMinidump(nullptr);
    EXPECT_EQ(function.calls, 2);
    EXPECT_EQ(files.closed, 2);
}

TEST_F(SessionLog, AMinidumpWhoseFileCannotBeCreatedIsTriedAndClosedAllTheSame)
{
    DumpFunction function;
    reporter();
    const DumpFiles files(INVALID_HANDLE_VALUE);
    function.then = [&](HANDLE file, const MINIDUMP_EXCEPTION_INFORMATION*, const MINIDUMP_CALLBACK_INFORMATION*)
    { EXPECT_EQ(file, INVALID_HANDLE_VALUE); };
    const std::size_t told = lines().size();
    reporter().produceMinidump(nullptr);
    EXPECT_EQ(files.opened, 1);
    EXPECT_EQ(function.calls, 1);
    EXPECT_EQ(files.closed, 1);
    EXPECT_EQ(lines().size(), told);
}

TEST_F(SessionLog, AMinidumpWithoutAnyHandleIsNotTriedButClosed)
{
    const DumpFunction function;
    reporter();
    const DumpFiles files(nullptr);
    reporter().produceMinidump(nullptr);
    EXPECT_EQ(function.calls, 0);
    EXPECT_EQ(files.closed, 1);
}

TEST_F(SessionLog, TheModulesOfEachMinidumpAreAddedToTheList)
{
    DumpFunction function;
    reporter();
    const HANDLE handle = reinterpret_cast<HANDLE>(std::uintptr_t{0x7FF0});
    const DumpFiles files(handle);
    int dump = 0;
    function.then = [&](HANDLE, const MINIDUMP_EXCEPTION_INFORMATION*, const MINIDUMP_CALLBACK_INFORMATION* callback)
    {
        ++dump;
        for (const ULONG type : {ModuleCallback, ThreadCallback, ModuleCallback, IncludeModuleCallback})
        {
            wchar_t name[] = L"C:\\a.dll";
            name[3] = static_cast<wchar_t>(L'a' + dump);
            MINIDUMP_CALLBACK_INPUT input{};
            MINIDUMP_CALLBACK_OUTPUT output{};
            input.CallbackType = type;
            input.Module.FullPath = name;
            input.Module.BaseOfImage = 0x10000;
            input.Module.SizeOfImage = 77;
            input.Module.TimeDateStamp = 5;
            EXPECT_EQ(callback->CallbackRoutine(callback->CallbackParam, &input, &output), TRUE);
            std::memset(name, 0, sizeof name); // the list has a copy
        }
    };
    EXPECT_TRUE(reporter().getModulesList().empty());
    reporter().produceMinidump(nullptr);
    EXPECT_EQ(reporter().getModulesList().size(), 2u);
    reporter().produceMinidump(nullptr);
    std::vector<std::wstring> paths;
    for (const MINIDUMP_MODULE_CALLBACK& module : reporter().getModulesList())
    {
        paths.emplace_back(module.FullPath);
        EXPECT_EQ(module.BaseOfImage, 0x10000u);
        EXPECT_EQ(module.SizeOfImage, 77u);
        EXPECT_EQ(module.TimeDateStamp, 5u);
    }
    EXPECT_EQ(paths, (std::vector<std::wstring>{L"C:\\b.dll", L"C:\\b.dll", L"C:\\c.dll", L"C:\\c.dll"}));
}

/// All heaps of the process, as one thread holds them that was suspended in each.
class HeldHeaps
{
public:
    HeldHeaps() : m_held(unique_name("heaps-held")), m_leave(unique_name("heaps-leave")), m_thread([this] { hold(); })
    {
        m_held.wait();
    }
    ~HeldHeaps() { m_leave.set(); }

    /// The wait for what was to happen meanwhile ended by itself: somebody else waits for the heap.
    bool is_waited_for() const noexcept { return m_waited_for; }

private:
    void hold()
    {
        HANDLE heaps[100];
        const DWORD count = ::GetProcessHeaps(static_cast<DWORD>(std::size(heaps)), heaps);
        for (DWORD i = 0; i < count; ++i)
            ::HeapLock(heaps[i]);
        m_held.set();
        m_waited_for = !m_leave.wait(20000);
        for (DWORD i = 0; i < count; ++i)
            ::HeapUnlock(heaps[i]);
    }

    std::atomic<bool> m_waited_for{false};
    NamedEvent m_held;
    NamedEvent m_leave;
    BoundedThread m_thread;
};

KOR_IMPORT(malloc);
KOR_IMPORT(free);

TEST_F(SessionLog, ModulesOfAMinidumpTakeNoMemoryWhileOtherThreadsAreSuspended)
{
    constexpr int MODULES = 70; // more than this program has by itself
    DumpFunction function;
    reporter();
    const DumpFiles files(reinterpret_cast<HANDLE>(std::uintptr_t{0x7FF0}));
    bool waited = false;
    int heap_calls = 0;
    function.then = [&](HANDLE, const MINIDUMP_EXCEPTION_INFORMATION*, const MINIDUMP_CALLBACK_INFORMATION* callback)
    {
        const Hook<mallocImport> allocations;
        const Hook<freeImport> releases;
        ASSERT_TRUE(allocations.installed() && releases.installed());
        wchar_t name[] = L"C:\\app\\module-000.dll";
        {
            const HeldHeaps heaps;
            MINIDUMP_CALLBACK_INPUT input{};
            MINIDUMP_CALLBACK_OUTPUT output{};
            input.CallbackType = ModuleCallback;
            input.Module.FullPath = name;
            const int before = allocations.calls() + releases.calls();
            for (int i = 0; i < MODULES; ++i)
            {
                name[std::size(name) - 6] = static_cast<wchar_t>(L'0' + i % 10);
                callback->CallbackRoutine(callback->CallbackParam, &input, &output);
            }
            heap_calls = allocations.calls() + releases.calls() - before;
            waited = heaps.is_waited_for();
        }
    };
    for (int dump = 1; dump <= 3; ++dump)
    {
        reporter().produceMinidump(nullptr);
        EXPECT_EQ(heap_calls, 0);
        EXPECT_FALSE(waited);
        ASSERT_EQ(reporter().getModulesList().size(), static_cast<std::size_t>(MODULES * dump));
    }
    EXPECT_EQ(reporter().getModulesList().back().FullPath, std::wstring(L"C:\\app\\module-009.dll"));
}

TEST_F(SessionLog, AMinidumpOfMoreModulesThanThereIsRoomForHasTheFirstOnes)
{
    DumpFunction function;
    reporter();
    const DumpFiles files(reinterpret_cast<HANDLE>(std::uintptr_t{0x7FF0}));
    const std::wstring long_path = L"C:\\" + std::wstring(10'000, L'a');
    function.then = [&](HANDLE, const MINIDUMP_EXCEPTION_INFORMATION*, const MINIDUMP_CALLBACK_INFORMATION* callback)
    {
        std::wstring path = long_path;
        MINIDUMP_CALLBACK_INPUT input{};
        MINIDUMP_CALLBACK_OUTPUT output{};
        input.CallbackType = ModuleCallback;
        input.Module.FullPath = path.data();
        for (int i = 0; i < 10'000; ++i)
        {
            input.Module.BaseOfImage = static_cast<ULONG64>(i);
            EXPECT_EQ(callback->CallbackRoutine(callback->CallbackParam, &input, &output), TRUE);
        }
        input.Module.FullPath = nullptr;
        EXPECT_EQ(callback->CallbackRoutine(callback->CallbackParam, &input, &output), TRUE);
    };
    reporter().produceMinidump(nullptr);
    const auto& modules = reporter().getModulesList();
    ASSERT_GT(modules.size(), 64u);
    ASSERT_LT(modules.size(), 10'000u);
    EXPECT_EQ(modules.front().FullPath, long_path);
    EXPECT_EQ(modules.back().FullPath, nullptr); // there was no room for its path
    ULONG64 number = 0;
    for (const MINIDUMP_MODULE_CALLBACK& module : modules)
        EXPECT_EQ(module.BaseOfImage, number++);
}

TEST_F(SessionLog, AMinidumpOfTheSameSecondTakesThePlaceOfTheLast)
{
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    const std::string file = m_directory.file("minidump-viewer-2024-01-31-235959.dmp");
    reporter();
    ASSERT_TRUE(write_file(file, std::string(5'000'000, 'x')));
    for (int i = 0; i < 2; ++i)
    {
        const std::size_t modules = reporter().getModulesList().size();
        reporter().produceMinidump(&crash.pointers);
        const std::string bytes = read_file(file);
        EXPECT_EQ(bytes.substr(0, 4), "MDMP");
        EXPECT_LT(bytes.size(), 4'000'000u);
        EXPECT_GT(reporter().getModulesList().size(), modules + 2);
    }
    EXPECT_EQ(files_of(m_directory), Lines{"minidump-viewer-2024-01-31-235959.dmp"});
    EXPECT_TRUE(::DeleteFileA(file.c_str())) << "it is still open";
    m_time.now.wSecond = 58;
    reporter().produceMinidump(&crash.pointers);
    EXPECT_EQ(files_of(m_directory), Lines{"minidump-viewer-2024-01-31-235958.dmp"});
}

// The crash line -----------------------------------------------------------------------
class SessionLogCrashLine : public SessionLog
{
protected:
    SessionLogCrashLine() : m_pid([] { return 1200; }), m_tid([]() -> DWORD { return 3344; })
    {
        EXPECT_TRUE(m_pid.installed() && m_tid.installed());
        m_time.now = {2024, 3, 2, 5, 14, 7, 9, 42};
    }

    std::string text() const { return read_file(m_directory.file("crashes.log")); }

    Hook<_getpidImport> m_pid;
    Hook<GetCurrentThreadIdImport> m_tid;
};

TEST_F(SessionLogCrashLine, HasDayTimeProgramProcessThreadAndCode)
{
    reporter();
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    Host::reportToCrashLogFile(&crash.pointers);
    EXPECT_EQ(
        text(),
        "05/03 14:07:09.042 Crashed Process Details: C:\\app\\viewer.exe[1200,3344] Exception Code: 0xc0000005\r\n");
}

TEST_F(SessionLogCrashLine, TakesNoMemoryOfItsOwn)
{
    reporter();
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    int allocations = 0;
    {
        const Hook<mallocImport> counted;
        ASSERT_TRUE(counted.installed());
        Host::reportToCrashLogFile(&crash.pointers);
        allocations = counted.calls();
    }
    EXPECT_EQ(allocations, 0);
    EXPECT_EQ(lines_of(text()).size(), 1u);
}

TEST_F(SessionLogCrashLine, TellsTheTimeInTheZoneThatIsKnownSinceEnableAndAsksForNone)
{
    m_time.hours_ahead = 2;
    m_time.now.wMinute = 8; // the zone may change on the minute
    reporter().enable();
    const int questions = m_time.questions();
    m_time.hours_ahead = 3;
    m_time.now.wMinute = 9;
    Host::reportToCrashLogFile(nullptr);
    const std::wstring dump = reporter().generateMinidumpFullPath();
    const std::wstring report = reporter().getLogFullPath(L"crash");
    EXPECT_EQ(m_time.questions(), questions);
    EXPECT_EQ(text().substr(0, 18), "05/03 16:09:09.042");
    EXPECT_EQ(dump, path("minidump-viewer-2024-03-05-160909.dmp"));
    EXPECT_EQ(report, path("crash-viewer-2024-03-05-160909.xml"));
}

TEST_F(SessionLogCrashLine, IsAppendedToThoseOfOthers)
{
    ASSERT_TRUE(write_file(m_directory.file("crashes.log"), "before\r\n"));
    reporter();
    Crash crash(0xE06D7363);
    Host::reportToCrashLogFile(&crash.pointers);
    m_time.now = {2024, 12, 2, 31, 23, 59, 59, 999};
    crash.record.ExceptionCode = 1;
    Host::reportToCrashLogFile(&crash.pointers);
    EXPECT_EQ(
        lines_of(text()),
        (Lines{
            "before",
            "05/03 14:07:09.042 Crashed Process Details: C:\\app\\viewer.exe[1200,3344] Exception Code: 0xe06d7363",
            "31/12 23:59:59.999 Crashed Process Details: C:\\app\\viewer.exe[1200,3344] Exception Code: 0x00000001"}));
}

TEST_F(SessionLogCrashLine, OfNoExceptionHasTheCodeZero)
{
    reporter();
    Host::reportToCrashLogFile(nullptr);
    EXCEPTION_POINTERS empty{};
    Host::reportToCrashLogFile(&empty);
    const std::string line =
        "05/03 14:07:09.042 Crashed Process Details: C:\\app\\viewer.exe[1200,3344] Exception Code: 0x00000000";
    EXPECT_EQ(lines_of(text()), (Lines{line, line}));
}

TEST_F(SessionLogCrashLine, OfAProgramWithoutAPathSaysUnknown)
{
    const Hook<GetModuleFileNameAImport> fails([](HMODULE, char*, DWORD) -> DWORD { return 0; });
    ASSERT_TRUE(fails.installed());
    reporter();
    EXPECT_GT(fails.calls(), 0);
    Host::reportToCrashLogFile(nullptr);
    EXPECT_EQ(
        lines_of(text()),
        Lines{"05/03 14:07:09.042 Crashed Process Details: Unknown[1200,3344] Exception Code: 0x00000000"});
}

TEST_F(SessionLogCrashLine, OfAProgramWithALongPathHasAsMuchAsFits)
{
    m_program.path = "C:\\" + std::string(300, 'a');
    reporter();
    Host::reportToCrashLogFile(nullptr);
    EXPECT_EQ(
        lines_of(text()), Lines{
                              "05/03 14:07:09.042 Crashed Process Details: C:\\" + std::string(252, 'a') +
                              "[1200,3344] Exception Code: 0x00000000"});
}

TEST_F(SessionLogCrashLine, ThatCannotBeWrittenIsLeftOut)
{
    reporter();
    const std::size_t told = lines().size();
    const EnvironmentVariable elsewhere("PRISMATE_LOG_DIR", m_directory.file("no such directory"));
    reporter().enable();
    Host::reportToCrashLogFile(nullptr);
    EXPECT_EQ(lines().size(), told);
    EXPECT_EQ(files_of(m_directory), Lines());
}

TEST_F(SessionLogCrashLine, KeepsTheErrorsOfTheThreadAsAllOfItsKindDo)
{
    Crash crash(EXCEPTION_ACCESS_VIOLATION);
    const std::function<void()> calls[] = {
        [] { Kor_SessionLog::GetInstance(); },
        [&] { reporter().produceMinidump(&crash.pointers); },
        [&] { reporter().createReport(&crash.pointers); },
        [&] { Host::reportToCrashLogFile(&crash.pointers); },
        [] { Host::saveState(); },
        [] { reporter().addDllToLoad("missing.dll"); },
        [] { reporter().enable(); },
        [] { reporter().disable(); },
    };
    for (const auto& call : calls)
    {
        ::SetLastError(4711);
        errno = 33;
        call();
        EXPECT_EQ(::GetLastError(), 4711u) << (&call - calls);
        EXPECT_EQ(errno, 33) << (&call - calls);
    }
}
} // namespace
