// The name of the shared block, which depends on what the process's token may do.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <memory>

#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(OpenProcessToken);
KOR_IMPORT(GetTokenInformation);
KOR_IMPORT(EqualSid);
KOR_IMPORT(LookupPrivilegeValueA);
KOR_IMPORT(PrivilegeCheck);
KOR_IMPORT(OpenFileMappingA);
KOR_IMPORT(CreateFileMappingA);
KOR_IMPORT(CloseHandle);

const std::string GLOBAL_NAME = "Global\\SM_LOG_OBJ_NAME_12_0";
const std::string LOCAL_NAME = "Local\\SM_LOG_OBJ_NAME_12_0";

enum class Privilege
{
    HELD,
    NOT_HELD,
    CHECK_FAILS,
    UNKNOWN
};

/// What the calls about the token answer.
struct Token
{
    bool can_be_opened = true;
    bool groups_can_be_read = true;
    bool is_administrator = false;
    DWORD elevation = TokenElevationTypeDefault; ///< 0: not told
    Privilege privilege = Privilege::NOT_HELD;
};

/// Makes a log under such a token, and tells the names that attaching then tries: one to open for
/// each that is "Global", two for "Local", and the one to create.
class Identity
{
public:
    Lines names_for(const Token& token)
    {
        m_token = token;
        const LogDirectory directory;
        const Kor_LogFile log(777, false);
        return tried_names();
    }

    static Lines tried_names()
    {
        Lines names;
        Hook<OpenFileMappingAImport> open(
            [&](DWORD access, BOOL inherit, const char* name) -> HANDLE
            {
                EXPECT_EQ(access, 0xF001Fu);
                EXPECT_FALSE(inherit);
                names.push_back(name);
                ::SetLastError(ERROR_FILE_NOT_FOUND);
                return nullptr;
            });
        Hook<CreateFileMappingAImport> create(
            [&](HANDLE, SECURITY_ATTRIBUTES*, DWORD, DWORD, DWORD, const char* name) -> HANDLE
            {
                names.push_back(std::string("create ") + name);
                ::SetLastError(ERROR_ACCESS_DENIED);
                return nullptr;
            });
        EXPECT_TRUE(open.installed() && create.installed());
        CapturedStream err(stderr);
        void* view = &names;
        EXPECT_EQ(Kor_LogFile::AttachSharedMemory(&view), -1);
        EXPECT_EQ(view, nullptr);
        EXPECT_EQ(err.text(), "Failed in CreateFileMapping.error 5\n");
        return names;
    }

    Lines privileges; ///< that were looked up
    Lines sids;       ///< that groups were compared with
    int elevation_queries = 0;
    std::vector<HANDLE> opened;
    DWORD group_buffer = 0;

private:
    static std::string text_of_sid(PSID sid)
    {
        char* text = nullptr;
        if (!::ConvertSidToStringSidA(sid, &text))
            return "?";
        const std::string result(text);
        ::LocalFree(text);
        return result;
    }

    Token m_token;

    Hook<OpenProcessTokenImport> m_open{
        [this](HANDLE process, DWORD access, HANDLE* token) -> BOOL
        {
            if (!m_token.can_be_opened)
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return FALSE;
            }
            const BOOL result = ::OpenProcessToken(process, access, token);
            opened.push_back(*token);
            return result;
        }};
    Hook<GetTokenInformationImport> m_information{
        [this](HANDLE token, TOKEN_INFORMATION_CLASS what, void* buffer, DWORD size, DWORD* needed) -> BOOL
        {
            if (what == TokenElevationType)
            {
                ++elevation_queries;
                EXPECT_GE(size, sizeof(DWORD));
                *static_cast<DWORD*>(buffer) = m_token.elevation;
                *needed = sizeof(DWORD);
                return m_token.elevation != 0;
            }
            EXPECT_EQ(what, TokenGroups);
            group_buffer = size;
            if (!m_token.groups_can_be_read)
            {
                ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return FALSE;
            }
            return ::GetTokenInformation(token, what, buffer, size, needed);
        }};
    Hook<EqualSidImport> m_equal{
        [this](PSID a, PSID b) -> BOOL
        {
            const std::string first = text_of_sid(a);
            sids.push_back(first == "S-1-5-32-544" ? first : text_of_sid(b));
            return m_token.is_administrator;
        }};
    Hook<LookupPrivilegeValueAImport> m_lookup{
        [this](const char* system, const char* name, LUID* luid) -> BOOL
        {
            EXPECT_EQ(system, nullptr);
            privileges.push_back(name);
            if (m_token.privilege == Privilege::UNKNOWN)
            {
                ::SetLastError(ERROR_NO_SUCH_PRIVILEGE);
                return FALSE;
            }
            return ::LookupPrivilegeValueA(system, name, luid);
        }};
    Hook<PrivilegeCheckImport> m_check{
        [this](HANDLE, PRIVILEGE_SET* set, BOOL* held) -> BOOL
        {
            EXPECT_EQ(set->PrivilegeCount, 1u);
            *held = m_token.privilege == Privilege::HELD;
            return m_token.privilege != Privilege::CHECK_FAILS;
        }};
};

TEST(LogIdentity, TheBlocksNameFollowsFromTheToken)
{
    const struct
    {
        const char* what;
        Token token;
        bool global;
    } rows[] = {
        {"administrator, no split token", {true, true, true, TokenElevationTypeDefault, Privilege::NOT_HELD}, true},
        {"elevated administrator", {true, true, true, TokenElevationTypeFull, Privilege::NOT_HELD}, true},
        {"administrator, elevation not told", {true, true, true, 0, Privilege::NOT_HELD}, true},
        {"limited administrator without", {true, true, true, TokenElevationTypeLimited, Privilege::NOT_HELD}, false},
        {"limited administrator with", {true, true, true, TokenElevationTypeLimited, Privilege::HELD}, true},
        {"user with the privilege", {true, true, false, TokenElevationTypeDefault, Privilege::HELD}, true},
        {"user without", {true, true, false, TokenElevationTypeDefault, Privilege::NOT_HELD}, false},
        {"elevated user without", {true, true, false, TokenElevationTypeFull, Privilege::NOT_HELD}, false},
        {"privilege unknown", {true, true, false, TokenElevationTypeDefault, Privilege::UNKNOWN}, false},
        {"check fails", {true, true, false, TokenElevationTypeDefault, Privilege::CHECK_FAILS}, false},
        {"no groups, without", {true, false, true, TokenElevationTypeFull, Privilege::NOT_HELD}, false},
        {"no groups, with", {true, false, true, TokenElevationTypeFull, Privilege::HELD}, true},
        {"no token", {false, true, true, TokenElevationTypeFull, Privilege::NOT_HELD}, false},
    };
    const Lines global{GLOBAL_NAME, "create " + GLOBAL_NAME};
    const Lines local{LOCAL_NAME, GLOBAL_NAME, "create " + LOCAL_NAME}; // may join a block of more privileged ones
    for (const auto& row : rows)
    {
        Identity identity;
        EXPECT_EQ(identity.names_for(row.token), row.global ? global : local) << row.what;
    }
}

TEST(LogIdentity, TheGroupsAreComparedWithTheBuiltInAdministrators)
{
    Identity identity;
    identity.names_for({});

    ASSERT_FALSE(identity.sids.empty());
    for (const std::string& sid : identity.sids)
        EXPECT_EQ(sid, "S-1-5-32-544");
    EXPECT_EQ(identity.group_buffer, 32768u);
    EXPECT_EQ(identity.privileges, Lines{"SeCreateGlobalPrivilege"});
}

TEST(LogIdentity, AnAdministratorsPrivilegeIsNotAskedFor)
{
    Identity identity;
    identity.names_for({true, true, true, TokenElevationTypeFull, Privilege::HELD});
    EXPECT_EQ(identity.elevation_queries, 1);
    EXPECT_TRUE(identity.privileges.empty());

    Identity other;
    other.names_for({true, true, false, TokenElevationTypeFull, Privilege::HELD});
    EXPECT_EQ(other.elevation_queries, 0); // nor is the elevation of one who is no administrator
}

TEST(LogIdentity, EveryTokenThatIsOpenedIsClosedOnce)
{
    Identity identity;
    std::vector<HANDLE> closed;
    Hook<CloseHandleImport> hook(
        [&](HANDLE handle) -> BOOL
        {
            closed.push_back(handle);
            return TRUE; // not now, so that no two tokens are the same handle
        });
    ASSERT_TRUE(hook.installed());
    const LogDirectory directory;
    const auto log = std::make_unique<Kor_LogFile>(777, false);

    EXPECT_FALSE(identity.opened.empty());
    for (const HANDLE token : identity.opened)
    {
        EXPECT_EQ(std::count(closed.begin(), closed.end(), token), 1);
        ::CloseHandle(token);
    }
}

TEST(LogIdentity, WithInfoTheNameIsPrintedWhenTheBlockIsAttached)
{
    const EnvironmentVariable info("PRISMATE_LOG_INFO", "x");
    for (const bool global : {true, false})
    {
        Identity identity;
        CapturedStream out(stdout);
        Token token;
        token.privilege = global ? Privilege::HELD : Privilege::NOT_HELD;
        identity.names_for(token);
        EXPECT_EQ(out.text(), "file mapping name is " + (global ? GLOBAL_NAME : LOCAL_NAME) + "\n");
    }
}

// A block that is only this process's --------------------------------------------
TEST(LogIdentity, SetCustomLogLevelRefusesWhileTheConfigurationInUseIsNotTheLogsOwn)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    Hook<OpenFileMappingAImport> open(
        [](DWORD, BOOL, const char*) -> HANDLE
        {
            ::SetLastError(ERROR_FILE_NOT_FOUND);
            return nullptr;
        });
    Hook<CreateFileMappingAImport> create(
        [](HANDLE file, SECURITY_ATTRIBUTES*, DWORD protection, DWORD high, DWORD low, const char*) -> HANDLE
        {
            const HANDLE mapping = ::CreateFileMappingA(file, nullptr, protection, high, low, nullptr); // no name
            ::SetLastError(0);
            return mapping;
        });
    ASSERT_TRUE(open.installed() && create.installed());
    ASSERT_EQ(log.AttachSharedMemory(), 0); // the block is now its own, but not in use

    EXPECT_EQ(log.SetCustomLogLevel(3, 7, false), -1);
    EXPECT_EQ(log.SetCustomLogLevel(Kor_LogConf::OUTPUT_STDERR, 3, 7, true), -1);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 4);
    EXPECT_EQ(log.GetConf()->GetOutput(), 2);

    ASSERT_EQ(log.WriteToSharedMemory(), 0);
    EXPECT_EQ(log.SetCustomLogLevel(3, 7, false), 0);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7);
}
} // namespace
