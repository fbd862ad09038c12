// Reports, states, dumps and crash lines in folders of every kind that a path can name, with the rules for paths that
// Windows has and Wine has not.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "import_hook.h"
#include "session_report.h"
#include "wide_directory.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace
{
using Gatherer = Kor_SessionLogGatherer;

KOR_IMPORT(CreateFileW);
KOR_IMPORT(SetFileInformationByHandle);

constexpr std::size_t LONGEST_NAME = MAX_PATH - 1;

bool is_refused(const std::wstring& path)
{
    if (path.rfind(L"\\\\?\\", 0) != 0)
        return path.size() > LONGEST_NAME;
    return path.find(L'/') != std::wstring::npos || path.find(L"\\\\", 4) != std::wstring::npos;
}

class SessionFolder : public ::testing::Test
{
protected:
    SessionFolder()
        : m_creates(
              [](const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                 DWORD flags, HANDLE pattern) -> HANDLE
              {
                  if (!is_refused(path))
                      return ::CreateFileW(path, access, share, attributes, disposition, flags, pattern);
                  ::SetLastError(ERROR_PATH_NOT_FOUND);
                  return INVALID_HANDLE_VALUE;
              }),
          m_renames(
              [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS what, void* data, DWORD size) -> BOOL
              {
                  const auto* const rename = static_cast<const FILE_RENAME_INFO*>(data);
                  if (what != FileRenameInfo ||
                      !is_refused({rename->FileName, rename->FileNameLength / sizeof(wchar_t)}))
                      return ::SetFileInformationByHandle(file, what, data, size);
                  ::SetLastError(ERROR_PATH_NOT_FOUND);
                  return FALSE;
              })
    {
        EXPECT_TRUE(m_creates.installed() && m_renames.installed());
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
    }

    /// Leaves all that a crash can leave, and reads the state again.
    void expect_all_files(const WideDirectory& directory, const std::wstring& named) const
    {
        const WideLogFolder folder(named);
        Gatherer::Activate(true);
        Kor_SessionLog::Activate(true);
        Kor_SessionLog& reporter = *Kor_SessionLog::GetInstance();
        Gatherer& session = *Gatherer::GetInstance();
        session.reportEvent(L"Page", L"read", Gatherer::COUNTED, 1, nullptr);
        for (int i = 0; i < 2; ++i) // the second finds the state of the first
        {
            reporter.produceMinidump(nullptr);
            reporter.createReport(nullptr);
            Kor_SessionLogHost::reportToCrashLogFile(nullptr);
            Kor_SessionLogHost::saveState();
        }
        EXPECT_EQ(std::wstring(reporter.getStateFullPath()), named + L"\\CLGState.mp");
        EXPECT_THAT(std::wstring(reporter.getLogFullPath(L"crash")), StartsWith(named + L"\\crash-"));
        Kor_SessionLogGatherer_Loader loader(&session);
        session.loadFromFile(reporter.getStateFullPath(), loader);

        std::vector<std::wstring> kinds;
        for (const std::wstring& name : directory.names())
            if (kinds.empty() || kinds.back() != name.substr(0, 6)) // a later minidump has another time
                kinds.push_back(name.substr(0, 6));
        EXPECT_THAT(kinds, UnorderedElementsAre(L"CLGSta", L"crash-", L"crashe", L"minidu"));
        EXPECT_THAT(stats_text(session), HasSubstr(L"<statentry type='Page' subject='read' count='1'>"));
        const std::string log = m_log.text();
        EXPECT_THAT(log, Not(HasSubstr(" ERROR ")));
        EXPECT_THAT(log, Not(HasSubstr(" WARNING ")));
        EXPECT_THAT(log.substr(log.rfind("state written to '")), Not(HasSubstr("does't exist")));
        Kor_SessionLogHost::destroy();
    }

    const LogDirectory m_log{LIBRARY_TO_FILE};
    const Hook<CreateFileWImport> m_creates;
    const Hook<SetFileInformationByHandleImport> m_renames;
};

TEST_F(SessionFolder, MayHaveCharactersThatTheCodePageLacks)
{
    const WideDirectory directory({L"\x65E5\x672C \x0416\x00E9"});
    expect_all_files(directory, directory.path());
}

TEST_F(SessionFolder, MayBeLongerThanAPathWithoutAPrefix)
{
    const WideDirectory directory({std::wstring(120, L'a'), std::wstring(120, L'b')});
    expect_all_files(directory, directory.path());
}

TEST_F(SessionFolder, MayBeAsLongAsAFolderWithoutAPrefixSoThatItsFilesAreLonger)
{
    const WideDirectory directory(std::size_t{MAX_PATH - 25});
    expect_all_files(directory, directory.path());
}

TEST_F(SessionFolder, MayHaveThePrefixAndTheOtherSeparator)
{
    const WideDirectory directory({L"\x65E5", std::wstring(200, L'b')});
    std::wstring named = directory.verbatim();
    named.replace(named.rfind(L'\\'), 1, L"/");
    expect_all_files(directory, named);
}
} // namespace
