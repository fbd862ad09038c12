#include "processes.h"

#include "Kor_LogFile.h"
#include "failure.h"
#include "owned.h"
#include "text.h"

#include <tlhelp32.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace levelsync
{
namespace
{
constexpr wchar_t LIBRARY[] = L"LUMlog.dll";
constexpr std::size_t LONGEST_NAME = 256; // of an application; longer ones are cut

/// Where the library lies in a process.
struct Loaded
{
    const unsigned char* base;
    DWORD size;
};

std::optional<Loaded> find_library(unsigned long process)
{
    const OwnedHandle modules(::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process));
    MODULEENTRY32W module{};
    module.dwSize = sizeof module;
    for (BOOL found = is_valid(modules) ? ::Module32FirstW(modules.get(), &module) : FALSE; found != FALSE;
         found = ::Module32NextW(modules.get(), &module))
        if (::lstrcmpiW(module.szModule, LIBRARY) == 0)
            return Loaded{module.modBaseAddr, module.modBaseSize};
    return std::nullopt;
}

/// As many of the bytes as can be read.
std::size_t read_memory(const OwnedHandle& process, const void* from, void* to, std::size_t size)
{
    SIZE_T count = 0;
    ::ReadProcessMemory(process.get(), from, to, size, &count);
    return count;
}

/// What tells one build of the library from others.
struct Build
{
    DWORD checksum = 0;
    DWORD size = 0;
    bool operator==(const Build& other) const noexcept { return checksum == other.checksum && size == other.size; }
};

std::optional<Build> build_of(const OwnedHandle& process, const unsigned char* base)
{
    IMAGE_DOS_HEADER dos{};
    IMAGE_NT_HEADERS64 headers{};
    if (read_memory(process, base, &dos, sizeof dos) != sizeof dos ||
        read_memory(process, base + dos.e_lfanew, &headers, sizeof headers) != sizeof headers)
        return std::nullopt;
    return Build{headers.OptionalHeader.CheckSum, headers.OptionalHeader.SizeOfImage};
}

/// A text of the other process, byte by byte, as what lies behind its end may not be readable.
std::string read_text(const OwnedHandle& process, const char* from)
{
    std::string text;
    char c = '\0';
    while (text.size() < LONGEST_NAME && read_memory(process, from + text.size(), &c, 1) == 1 && c != '\0')
        text += c;
    return text;
}

/// The name that the process gave its log, from the library's own variable there; empty before it gave one. Nothing when
/// that cannot be told: another build of the library, or no right to look.
std::optional<std::string> name_in_library(const OwnedHandle& process, const Loaded& there)
{
    const auto* const here = reinterpret_cast<const unsigned char*>(::GetModuleHandleW(LIBRARY));
    const OwnedHandle self(::OpenProcess(PROCESS_VM_READ, FALSE, ::GetCurrentProcessId()));
    const auto own_build = build_of(self, here);
    if (!own_build || !(build_of(process, there.base) == own_build))
        return std::nullopt;
    const auto* const variable = reinterpret_cast<const unsigned char*>(&Kor_LogMTVars::m_app_name);
    const char* name = nullptr;
    if (read_memory(process, there.base + (variable - here), &name, sizeof name) != sizeof name)
        return std::nullopt;
    return name == nullptr ? std::string() : read_text(process, name);
}

std::string name_of_program(const OwnedHandle& process)
{
    std::wstring path(32'768, L'\0');
    auto size = static_cast<DWORD>(path.size());
    if (::QueryFullProcessImageNameW(process.get(), 0, path.data(), &size) == FALSE)
        return {};
    path.resize(size);
    path.erase(0, path.find_last_of(L'\\') + 1);
    path.resize(std::min(path.find_last_of(L'.'), path.size()));
    return utf8(path);
}
} // namespace

std::string application_of(const Tool& tool, unsigned long process)
{
    const OwnedHandle looked_into(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_VM_READ, FALSE, process));
    const OwnedHandle handle(
        is_valid(looked_into) ? nullptr : ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    if (!is_valid(looked_into) && !is_valid(handle))
        throw Failure(
            "No process " + std::to_string(process) + " runs, or it cannot be looked at.",
            "--app NAME says the application without looking.");
    if (is_valid(looked_into))
    {
        const auto library = find_library(process);
        const auto name = library ? name_in_library(looked_into, *library) : std::nullopt;
        if (name)
            return *name;
    }
    const std::string program = name_of_program(is_valid(looked_into) ? looked_into : handle);
    tool.console.error(
        "What process " + std::to_string(process) + " calls itself in its log cannot be told; its program's name, " +
            program + ", is taken for it. --app NAME says it.",
        Style::CAREFUL);
    return program;
}
} // namespace levelsync
