// folder_test.cpp - folders of every kind that a path can name, with the rules for paths that Windows has and Wine has
// not: 259 characters at most and either separator, or, behind the prefix \\?\, any length and the backslash alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <direct.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_PerformanceLog.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "open_line.h"
#include "recording_destination.h"
#include "wide_directory.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace
{
KOR_IMPORT(CreateFileW);
KOR_IMPORT(_wfopen);
KOR_IMPORT(_wmkdir);

using Paths = std::vector<std::wstring>;

bool is_verbatim(const std::wstring& path) { return path.rfind(L"\\\\?\\", 0) == 0; }

/// What Windows says to a path: limit is of files, 12 less for folders, whose files must have names.
bool is_refused(const std::wstring& path, std::size_t limit)
{
    if (!is_verbatim(path))
        return path.size() >= limit;
    return path.find(L'/') != std::wstring::npos || path.find(L"\\\\", 4) != std::wstring::npos;
}

/// Has the DLL's calls obey the rules of Windows, and notes the paths.
class Folder : public ::testing::Test
{
protected:
    static constexpr std::size_t FILES = MAX_PATH;
    static constexpr std::size_t FOLDERS = MAX_PATH - 12;

    Folder()
        : m_creates(
              [this](
                  const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                  DWORD flags, HANDLE pattern) -> HANDLE
              {
                  m_paths.emplace_back(path);
                  if (!is_refused(path, FILES))
                      return ::CreateFileW(path, access, share, attributes, disposition, flags, pattern);
                  ::SetLastError(ERROR_PATH_NOT_FOUND);
                  return INVALID_HANDLE_VALUE;
              }),
          m_opens(
              [this](const wchar_t* path, const wchar_t* mode) -> FILE*
              {
                  m_paths.emplace_back(path);
                  return is_refused(path, FILES) ? nullptr : ::_wfopen(path, mode);
              }),
          m_makes(
              [this](const wchar_t* path) -> int
              {
                  m_paths.emplace_back(path);
                  if (!is_refused(path, FOLDERS))
                      return ::_wmkdir(path);
                  errno = ENOENT;
                  return -1;
              })
    {
        EXPECT_TRUE(m_creates.installed() && m_opens.installed() && m_makes.installed());
    }

    /// Writes a line or a record with each of the logs, and expects them in their files.
    void write_all(const WideDirectory& directory, const std::wstring& named)
    {
        const WideLogFolder folder(named);
        KorGLog.Open("viewer"); // the other logs go by its configuration
        KorGLog.ReadFile();
        Kor_LogFile log(777, false);
        CapturedStream err(stderr);
        EXPECT_EQ(log.Open("test.log", "viewer"), 0);
        EXPECT_EQ(log.LogNoHeadline("album 7"), 0);
        Kor_PerfmonLogFile monitor(0);
        EXPECT_EQ(monitor.Open("perf.log", "viewer"), 0);
        EXPECT_EQ(monitor.LogNoHeadline("page 3\n"), 0);
        Kor_PerformanceLog::GetInstance()->WriteRecord("scan", "load", 1, "album 7", "page 3");
        Kor_PerformanceLog::CloseInstance();

        EXPECT_EQ(err.text(), "");
        EXPECT_EQ(directory.text(L"test.log"), "album 7\n");
        EXPECT_THAT(directory.text(L"perf.log"), EndsWith("page 3\n"));
        std::string records;
        for (const std::wstring& name : directory.names())
            if (name.find(L"_P") != std::wstring::npos)
                records += directory.text(name);
        EXPECT_THAT(records, EndsWith(",scan,load,1,album 7,page 3\n"));
    }

    Paths m_paths;

private:
    Hook<CreateFileWImport> m_creates;
    Hook<_wfopenImport> m_opens;
    Hook<_wmkdirImport> m_makes;
};

TEST_F(Folder, OutsideTheAnsiCodePageHasAllLogs)
{
    const WideDirectory directory({L"\u0436\u0443\u0440\u043d\u0430\u043b-\u65e5\u672c"});
    write_all(directory, directory.path());
}

TEST_F(Folder, OutsideTheBasicPlaneHasAllLogs)
{
    const WideDirectory directory({L"\U0001F4D6"});
    write_all(directory, directory.path());
}

TEST_F(Folder, WithTheVerbatimPrefixHasAllLogs)
{
    const WideDirectory directory({L"logs"});
    write_all(directory, directory.verbatim());
    EXPECT_THAT(m_paths, testing::Each(testing::StartsWith(directory.verbatim())));
}

TEST_F(Folder, WithTheVerbatimPrefixAndABackslashBehindHasAllLogs)
{
    const WideDirectory directory({L"logs"});
    write_all(directory, directory.verbatim() + L'\\');
}

TEST_F(Folder, LongerThanAPathMayOtherwiseBeHasAllLogs)
{
    const WideDirectory directory({std::wstring(120, L'a'), std::wstring(120, L'b'), std::wstring(120, L'\u65e5')});
    write_all(directory, directory.path());
}

TEST_F(Folder, WithNamesAtTheLimitHasAllLogs)
{
    // 235 and more: what is added for a file crosses the limit of files, and of folders.
    for (const std::size_t length : std::vector<std::size_t>{190, 200, 201, 235, 247, 248, 259, 260})
    {
        SCOPED_TRACE(length);
        const WideDirectory directory(length);
        ASSERT_EQ(directory.path().size(), length);
        write_all(directory, directory.path());
    }
}

TEST_F(Folder, WithForwardSlashesAndDotsHasAllLogs)
{
    const WideDirectory directory({std::wstring(120, L'a'), std::wstring(120, L'b')});
    std::wstring named = directory.path() + L"\\..\\.\\" + std::wstring(120, L'b');
    std::replace(named.begin(), named.end(), L'\\', L'/');
    write_all(directory, named);
}

TEST_F(Folder, ThatIsRelativeIsTheOneOfTheCurrentFolder)
{
    const WideDirectory directory({L"above", L"logs"});
    wchar_t before[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, before);
    ASSERT_TRUE(::SetCurrentDirectoryW((directory.path() + L"\\..").c_str()));
    write_all(directory, L"logs");
    ::SetCurrentDirectoryW(before);
}

/// The paths that logs open in a folder that cannot be had.
Paths paths_in(const std::wstring& folder, Paths& noted)
{
    const WideLogFolder variable(folder);
    const CapturedStream err(stderr);
    noted.clear();
    Kor_LogFile(777, false).ReOpen("test.log", "viewer", false);
    return noted;
}

TEST_F(Folder, OnAServerIsNamedAsSuchAtAnyLength)
{
    Hook<CreateFileWImport> nowhere(
        [this](const wchar_t* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) -> HANDLE
        {
            m_paths.emplace_back(path);
            ::SetLastError(ERROR_BAD_NETPATH);
            return INVALID_HANDLE_VALUE;
        });
    ASSERT_TRUE(nowhere.installed());
    const std::wstring deep(250, L'd');
    EXPECT_THAT(paths_in(L"\\\\server\\share", m_paths).back(), L"\\\\server\\share\\test.log");
    EXPECT_THAT(paths_in(L"//server/share/logs", m_paths).back(), L"\\\\server\\share\\logs\\test.log");
    EXPECT_THAT(
        paths_in(L"\\\\server\\share\\" + deep, m_paths).back(), L"\\\\?\\UNC\\server\\share\\" + deep + L"\\test.log");
    EXPECT_THAT(paths_in(L"\\\\?\\UNC\\server\\share", m_paths).back(), L"\\\\?\\UNC\\server\\share\\test.log");
}

// What is told ------------------------------------------------------------------------------------------------------
TEST_F(Folder, ThatIsMissingIsReportedAsItWasNamed)
{
    begin_on_a_new_line();
    const WideLogFolder folder(L"Z:/tmp\\no such folder");
    CapturedStream err(stderr);
    Kor_LogFile(777, false).Open("test.log", "viewer");
    EXPECT_EQ(err.text(), "Failed to open log file [Z:/tmp\\no such folder/test.log]");
}

TEST_F(Folder, ThatIsMissingOutsideTheCodePageIsReportedInUtf8)
{
    begin_on_a_new_line();
    const WideLogFolder folder(L"Z:\\tmp\\\u65e5\u672c");
    CapturedStream err(stderr);
    Kor_LogFile(777, false).Open("test.log", "viewer");
    EXPECT_EQ(err.text(), "Failed to open log file [Z:\\tmp\\\xe6\x97\xa5\xe6\x9c\xac/test.log]");
}

TEST_F(Folder, OfAnyLengthStandsWholeInTheLineAboutTheRecords)
{
    const WideDirectory directory(
        {std::wstring(120, L'a'), std::wstring(120, L'b'), L"\u65e5"}, "2\nfile_size_limit_in_mb=0\nLibrary 106 4\n");
    const WideLogFolder folder(directory.path());
    KorGLog.Open("viewer");
    KorGLog.ReadFile();
    RecordingDestination destination;
    KorGLog.RegisterLogDestination(&destination);
    Kor_PerformanceLog::GetInstance();
    Kor_PerformanceLog::CloseInstance();
    KorGLog.UnregisterLogDestination(&destination);
    const std::string plain(directory.path().begin(), directory.path().end() - 1);
    const std::string text = destination.messages.at(0).text;
    EXPECT_EQ(text.substr(0, text.rfind('/') + 1), "Kor_PerformanceLog::Init: filename is " + plain + "\xe6\x97\xa5/");
}
} // namespace
