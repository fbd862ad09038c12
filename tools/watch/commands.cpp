#include "commands.h"

#include <windows.h>

#include <cstdio>

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
    if (error == ERROR_SUCCESS)
        return DONE;
    std::fprintf(
        stderr, "%s: %s.%s\n", what, system_text(error).c_str(),
        error == ERROR_ACCESS_DENIED
            ? " It takes an administrator, as the settings are the machine's: HKEY_LOCAL_MACHINE."
            : "");
    return NOT_DONE;
}
} // namespace

int have_registered(const std::string& program, const std::string& folder)
{
    return tell("The program is not registered", register_program(file_name(program), wide(folder)));
}

int have_unregistered(const std::string& program)
{
    return tell("The program is registered as it was", unregister_program(file_name(program)));
}
} // namespace lumlogwatch
