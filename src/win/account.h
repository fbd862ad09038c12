// account.h - what the process's token says about the account it runs under.

#ifndef KOR_WIN_ACCOUNT_H
#define KOR_WIN_ACCOUNT_H

namespace kor::win
{
/// True when the account is in the built-in Administrators group and its token is not the limited one
/// that user account control hands out.
bool is_unlimited_administrator();

/// True when the token holds the privilege, enabled. False also when that cannot be found out.
bool holds_privilege(const char* name);
} // namespace kor::win

#endif // KOR_WIN_ACCOUNT_H
