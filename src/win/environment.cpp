#include "win/environment.h"

#include <windows.h>

namespace kor::win
{
namespace
{
template <class Char, class Get>
std::optional<std::basic_string<Char>> read_variable(const Char* name, Get get)
{
    std::basic_string<Char> value(256, Char{});
    for (;;)
    {
        ::SetLastError(ERROR_SUCCESS); // an empty value is a success of length 0
        const DWORD length = get(name, value.data(), static_cast<DWORD>(value.size()));
        if (length == 0 && ::GetLastError() != ERROR_SUCCESS)
            return std::nullopt;
        const bool fits = length < value.size();
        value.resize(length); // when it does not fit, the length includes the terminator
        if (fits)
            return value;
    }
}
} // namespace

std::optional<std::string> environment(const char* name) { return read_variable(name, &::GetEnvironmentVariableA); }

std::optional<std::wstring> environment(const wchar_t* name) { return read_variable(name, &::GetEnvironmentVariableW); }
} // namespace kor::win
