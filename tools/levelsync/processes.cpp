#include "processes.h"

#include "failure.h"
#include "owned.h"
#include "text.h"

namespace levelsync
{
std::string application_of(const Tool&, unsigned long process)
{
    const OwnedHandle handle(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    std::wstring path(32'768, L'\0');
    auto size = static_cast<DWORD>(path.size());
    if (!is_valid(handle) || ::QueryFullProcessImageNameW(handle.get(), 0, path.data(), &size) == FALSE)
        throw Failure(
            "No process " + std::to_string(process) + " runs, or it cannot be looked at.",
            "--app NAME says the application without looking.");
    path.resize(size);
    path.erase(0, path.find_last_of(L'\\') + 1);
    path.resize(std::min(path.find_last_of(L'.'), path.size()));
    return utf8(path);
}
} // namespace levelsync
