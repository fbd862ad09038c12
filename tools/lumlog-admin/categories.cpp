#include "categories.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <memory>

#include "core/level_file.h"
#include "core/message_table.h"
#include "failure.h"
#include "text.h"

using levelsync::Failure;
using levelsync::shown;
using levelsync::system_text;
using levelsync::utf8;

namespace lumlog_admin
{
namespace
{
constexpr wchar_t PREFIX[] = L"LUMlogCategories-";
constexpr wchar_t SUFFIX[] = L".dll";
constexpr WORD MESSAGE_TABLE = 11; // RT_MESSAGETABLE
constexpr WORD FIRST_RESOURCE = 1; // as message compilers number it
constexpr WORD NEUTRAL = 0;        // any language
constexpr std::uint64_t PATIENCE_MS = 3'000;
constexpr DWORD PAUSE_MS = 20;

static_assert(sizeof(wchar_t) == sizeof(char16_t));

std::u16string utf16(const std::wstring& text) { return {text.begin(), text.end()}; }

LPCWSTR number_name(WORD number) noexcept { return reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(number)); }

std::vector<std::uint8_t> table_of(const PackageNames& names)
{
    kor::core::MessageTexts texts;
    for (DWORD number = 1; number <= CATEGORY_COUNT; ++number)
        texts[number] = kor::core::plain_message(utf16(L"package " + std::to_wstring(number)));
    for (const auto& [number, name] : names)
        if (number > 0 && static_cast<DWORD>(number) <= CATEGORY_COUNT && !name.empty())
            texts[static_cast<DWORD>(number)] = kor::core::plain_message(utf16(name));
    return kor::core::message_table(texts);
}

/// FNV-1a: two tables that differ get different names.
std::wstring mark_of(const std::vector<std::uint8_t>& bytes)
{
    std::uint32_t hash = 2'166'136'261u;
    for (const std::uint8_t byte : bytes)
        hash = (hash ^ byte) * 16'777'619u;
    wchar_t text[9];
    std::swprintf(text, std::size(text), L"%08x", static_cast<unsigned>(hash));
    return text;
}

/// Goes unless it is put in place.
class FileInTheMaking
{
public:
    explicit FileInTheMaking(std::wstring path) : m_path(std::move(path)) {}
    FileInTheMaking(const FileInTheMaking&) = delete;
    FileInTheMaking& operator=(const FileInTheMaking&) = delete;
    ~FileInTheMaking() { ::DeleteFileW(m_path.c_str()); }

    const std::wstring& path() const noexcept { return m_path; }

private:
    const std::wstring m_path;
};

[[noreturn]] void fail_to_make(const std::wstring& path, DWORD error)
{
    throw Failure(
        "The file with the packages' names, " + shown(utf8(path)) + ", cannot be made: " + system_text(error) + ".",
        error == ERROR_ACCESS_DENIED ? "Run lumlog-admin as an administrator, who may write into its folder."
                                     : "What was registered before is still there.");
}

/// A scanner may have a new file open for a moment.
template <class Attempt>
bool succeeds_soon(Attempt&& attempt)
{
    const std::uint64_t begin = ::GetTickCount64();
    while (!attempt())
    {
        const DWORD error = ::GetLastError();
        const bool may_pass = error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
        if (!may_pass || ::GetTickCount64() - begin > PATIENCE_MS)
        {
            ::SetLastError(error);
            return false;
        }
        ::Sleep(PAUSE_MS);
    }
    return true;
}

bool replace_resources(const std::wstring& path, std::vector<std::uint8_t>& table)
{
    const HANDLE update = ::BeginUpdateResourceW(path.c_str(), TRUE);
    if (update == nullptr)
        return false;
    const bool is_in = ::UpdateResourceW(
                           update, number_name(MESSAGE_TABLE), number_name(FIRST_RESOURCE), NEUTRAL, table.data(),
                           static_cast<DWORD>(table.size())) != FALSE;
    const DWORD error = ::GetLastError();
    if (::EndUpdateResourceW(update, is_in ? FALSE : TRUE) == FALSE)
        return false;
    if (!is_in)
        ::SetLastError(error);
    return is_in;
}

std::wstring folder_of(const std::wstring& path) { return path.substr(0, path.find_last_of(L"\\/") + 1); }

struct ModuleFree
{
    using pointer = HMODULE;
    void operator()(HMODULE module) const noexcept { ::FreeLibrary(module); }
};
using OwnedModule = std::unique_ptr<HMODULE, ModuleFree>;

struct FindEnd
{
    using pointer = HANDLE;
    void operator()(HANDLE search) const noexcept
    {
        if (search != INVALID_HANDLE_VALUE)
            ::FindClose(search);
    }
};
} // namespace

PackageNames read_names(const std::wstring& folder)
{
    const std::wstring path = folder + L"\\logger";
    std::FILE* const opened = ::_wfopen(path.c_str(), L"rb");
    if (opened == nullptr)
        throw Failure(
            "There is no " + shown(utf8(path)) + " that can be read.",
            "Name the folder of the level file with --dir, or leave --dir out: categories then have numbers alone.");
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(opened, &std::fclose);
    std::string bytes;
    char part[4096];
    for (std::size_t count = 0; (count = std::fread(part, 1, sizeof part, opened)) > 0;)
        bytes.append(part, count);
    const kor::core::LevelFile level_file(std::move(bytes));
    PackageNames names;
    for (const auto& [number, package] : level_file.packages())
        names[number] = levelsync::wide(shown(package.name));
    return names;
}

std::wstring make_category_file(const std::wstring& pattern, const PackageNames& names)
{
    std::vector<std::uint8_t> table = table_of(names);
    const std::wstring path = folder_of(pattern) + PREFIX + mark_of(table) + SUFFIX;
    const FileInTheMaking made(path + L".new");
    if (::CopyFileW(pattern.c_str(), made.path().c_str(), FALSE) == FALSE)
        fail_to_make(path, ::GetLastError());
    ::SetFileAttributesW(made.path().c_str(), FILE_ATTRIBUTE_NORMAL);
    if (!succeeds_soon([&] { return replace_resources(made.path(), table); }))
        fail_to_make(path, ::GetLastError());
    const auto put_in_place = [&]
    { return ::MoveFileExW(made.path().c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE; };
    // One that the event viewer has open has the same name, and so the same texts.
    if (!put_in_place() && text_in(path, 1).empty() && !succeeds_soon(put_in_place))
        fail_to_make(path, ::GetLastError());
    return path;
}

int remove_unused_category_files(const std::wstring& folder, const std::vector<Source>& used_by)
{
    int left = 0;
    WIN32_FIND_DATAW found = {};
    const std::wstring pattern = folder + L"\\" + PREFIX + L"*";
    const std::unique_ptr<HANDLE, FindEnd> search(::FindFirstFileW(pattern.c_str(), &found));
    if (search.get() == INVALID_HANDLE_VALUE)
        return left;
    do
    {
        const std::wstring path = folder + L"\\" + found.cFileName;
        const bool is_used = std::any_of(
            used_by.begin(), used_by.end(),
            [&](const Source& source) { return same_name(file_name_of(source.categories), found.cFileName); });
        if (is_used || ::DeleteFileW(path.c_str()) != FALSE)
            continue;
        ::MoveFileExW(path.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
        ++left;
    } while (::FindNextFileW(search.get(), &found) != FALSE);
    return left;
}

std::wstring text_in(const std::wstring& file, DWORD number)
{
    const OwnedModule module(
        ::LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    if (module == nullptr)
        return {};
    wchar_t text[1024] = {};
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module.get(), number, 0, text, 1024, nullptr);
    std::wstring result(text, length);
    while (!result.empty() && (result.back() == L'\n' || result.back() == L'\r'))
        result.pop_back();
    return result;
}
} // namespace lumlog_admin
