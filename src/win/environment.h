// environment.h - environment variables as they are now, not as the C runtime found them at start.

#ifndef KOR_WIN_ENVIRONMENT_H
#define KOR_WIN_ENVIRONMENT_H

#include <optional>
#include <string>

namespace kor::win
{
/// The variable's value, nothing when it is not set.
std::optional<std::string> environment(const char* name);
std::optional<std::wstring> environment(const wchar_t* name);

inline bool is_set(const char* name) { return environment(name).has_value(); }
} // namespace kor::win

#endif // KOR_WIN_ENVIRONMENT_H
