#include "Kor/package_names_file.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

#include "Kor/configuration_folder.h"
#include "Kor/diagnostics.h"
#include "Kor_LogConf.h"
#include "Kor_Package.h"
#include "core/package_names.h"
#include "win/output_file.h"
#include "win/owned.h"
#include "win/owner_lock.h"
#include "win/path.h"
#include "win/utf8.h"

namespace
{
/// Names of all packages by a hundred programs. What is longer was not written by programs, or by one that calls its
/// packages something else at each start, and grows no more.
constexpr std::size_t LARGEST_FILE = 1 << 22;

/// "viewer.exe": what a program can say of itself before it has opened its log.
std::string own_program()
{
    constexpr DWORD LONGEST_PATH = 32'768;
    std::wstring path(LONGEST_PATH, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), LONGEST_PATH));
    return kor::win::utf8_of_wide(path.substr(path.find_last_of(L'\\') + 1));
}

/// False when there is more than LARGEST_FILE. No file is as good as an empty one.
bool read_small_file(const std::wstring& path, std::string& text)
{
    const kor::win::OwnedFile file(kor::win::open_file(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING));
    LARGE_INTEGER size{};
    if (!file || ::GetFileSizeEx(file.get(), &size) == FALSE)
        return true;
    if (size.QuadPart > static_cast<LONGLONG>(LARGEST_FILE))
        return false;
    text.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (::ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr) == FALSE)
        read = 0;
    text.resize(read);
    return true;
}

/// What this process calls its packages, without terminators where they are long.
struct OwnNames
{
    kor::win::OwnerLock lock;
    std::atomic<bool> has_some{false};
    char names[PACKAGE_COUNT][kor::core::MAX_PACKAGE_NAME]{};
};
OwnNames own_names;
} // namespace

void kor::remember_package_name(int package, std::string_view name) noexcept
{
    const win::OwnerLockGuard guard(own_names.lock);
    auto& kept = own_names.names[package];
    const std::size_t size = std::min(name.size(), sizeof kept);
    std::memset(kept, 0, sizeof kept);
    std::memcpy(kept, name.data(), size);
    own_names.has_some = true;
}

void kor::copy_package_name(int package, char* to) noexcept
{
    if (!own_names.has_some || !Kor_LogConf::IsPackageNoLegal(package))
        return;
    const win::OwnerLockGuard guard(own_names.lock);
    if (guard.held() && own_names.names[package][0] != '\0')
        std::memcpy(to, own_names.names[package], sizeof own_names.names[package]);
}

void kor::keep_package_name(int package, std::string_view name)
{
    const std::wstring path = configuration_folder() + L"\\" + core::PACKAGE_NAMES_FILE;
    const std::string program = own_program();
    std::string text;
    if (!read_small_file(path, text) || core::NamedPackages(text, PACKAGE_COUNT).name(package, program) == name)
        return;
    // One that somebody ended in the middle of his line is gone on with in a line of its own.
    std::string line = core::package_name_line(package, name, program);
    if (!text.empty() && text.back() != '\n')
        line.insert(0, 1, '\n');
    win::OutputFile file = win::OutputFile::append(path.c_str());
    if (!file.is_open() || !file.write(line.data(), line.size()))
        KOR_TRACE("The name of package %d cannot be kept in %s\n", package, win::path_text(path).c_str());
}
