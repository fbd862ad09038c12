#include "win/account.h"

#include "win/owned.h"

namespace kor::win
{
namespace
{
constexpr DWORD GROUPS_SIZE = 32768; // room for the groups of any account of a large domain

OwnedHandle process_token() noexcept
{
    HANDLE token = nullptr;
    return OwnedHandle(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) != FALSE ? token : nullptr);
}

bool is_administrator(const OwnedHandle& token) noexcept
{
    alignas(SID) unsigned char administrators[SECURITY_MAX_SID_SIZE]; // S-1-5-32-544
    DWORD size = sizeof administrators;
    if (::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) == FALSE)
        return false;

    alignas(TOKEN_GROUPS) unsigned char buffer[GROUPS_SIZE];
    if (::GetTokenInformation(token.get(), TokenGroups, buffer, GROUPS_SIZE, &size) == FALSE)
        return false;
    const auto& groups = *reinterpret_cast<const TOKEN_GROUPS*>(buffer);
    for (DWORD i = 0; i < groups.GroupCount; ++i)
        if (::EqualSid(administrators, groups.Groups[i].Sid) != FALSE)
            return true;
    return false;
}

/// False also when Windows does not tell: systems without user account control have no limited tokens.
bool is_limited(const OwnedHandle& token) noexcept
{
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD size = 0;
    return ::GetTokenInformation(token.get(), TokenElevationType, &type, sizeof type, &size) != FALSE &&
           type == TokenElevationTypeLimited;
}
} // namespace

bool is_unlimited_administrator()
{
    const OwnedHandle token = process_token();
    return token && is_administrator(token) && !is_limited(token);
}

bool holds_privilege(const char* name)
{
    const OwnedHandle token = process_token();
    PRIVILEGE_SET wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Control = PRIVILEGE_SET_ALL_NECESSARY;
    wanted.Privilege[0].Attributes = SE_PRIVILEGE_ENABLED;
    BOOL held = FALSE;
    return token && ::LookupPrivilegeValueA(nullptr, name, &wanted.Privilege[0].Luid) != FALSE &&
           ::PrivilegeCheck(token.get(), &wanted, &held) != FALSE && held != FALSE;
}
} // namespace kor::win
