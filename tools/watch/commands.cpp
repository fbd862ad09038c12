#include "commands.h"

#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string_view>

#include "local_dumps.h"
#include "text.h"

namespace lumlogwatch
{
namespace
{
std::wstring file_name(const std::string& path)
{
    const std::wstring text = wide(path);
    return text.substr(text.find_last_of(L"\\/:") + 1); // npos + 1 is 0
}

int tell(const char* what, unsigned long error)
{
    print(
        stderr, std::string(what) + ": " + system_text(error) + '.' +
                    (error == ERROR_ACCESS_DENIED
                         ? " It takes an administrator, as the settings are the machine's: HKEY_LOCAL_MACHINE.\n"
                         : "\n"));
    return NOT_DONE;
}

/// Windows expands variables when it writes a minidump, and knows no folder that is current.
std::wstring whole_path(const std::wstring& folder)
{
    if (folder.find(L'%') != std::wstring::npos)
        return folder;
    constexpr DWORD LONGEST_PATH = 32'768;
    std::wstring whole(LONGEST_PATH, L'\0');
    const DWORD length = ::GetFullPathNameW(folder.c_str(), LONGEST_PATH, whole.data(), nullptr);
    whole.resize(length < LONGEST_PATH ? length : 0);
    return whole.empty() ? folder : whole;
}
} // namespace

bool is_program(const std::string& program)
{
    constexpr std::wstring_view END = L".exe";
    const std::wstring name = file_name(program);
    return name.size() > END.size() && ::_wcsicmp(name.c_str() + (name.size() - END.size()), END.data()) == 0;
}

int have_registered(const std::string& program, const std::string& folder)
{
    const std::wstring name = file_name(program);
    const std::wstring whole = whole_path(wide(folder));
    if (const auto error = register_program(name, whole); error != ERROR_SUCCESS)
        return tell("The program is not registered", error);
    print(
        stdout, "When " + utf8(name) + " ends unseen, Windows writes a minidump into " + utf8(whole) +
                    " and keeps the newest " + std::to_string(DUMPS_KEPT) + ".\n");
    return DONE;
}

int have_unregistered(const std::string& program)
{
    const std::wstring name = file_name(program);
    const auto error = unregister_program(name);
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
        return tell("The program is registered as it was", error);
    print(stdout, utf8(name) + (error == ERROR_SUCCESS ? " is not registered any more.\n" : " was not registered.\n"));
    return DONE;
}
} // namespace lumlogwatch
