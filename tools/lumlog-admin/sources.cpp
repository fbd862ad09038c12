#include "sources.h"

#include <algorithm>
#include <memory>

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
constexpr wchar_t LOGS[] = L"SYSTEM\\CurrentControlSet\\Services\\EventLog";
constexpr wchar_t MESSAGES[] = L"EventMessageFile";
constexpr wchar_t CATEGORIES[] = L"CategoryMessageFile";
constexpr wchar_t CATEGORY_COUNT[] = L"CategoryCount";
constexpr wchar_t TYPES_SUPPORTED[] = L"TypesSupported";
constexpr wchar_t FOLDER[] = L"LUMlogFolder"; // no name of the system's: for who registers anew
constexpr std::size_t KEY_NAME_SIZE = 256;
constexpr int MOST_ATTEMPTS = 20;

struct KeyClose
{
    using pointer = HKEY;
    void operator()(HKEY key) const noexcept { ::RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<HKEY, KeyClose>;

OwnedKey open_key(HKEY parent, const std::wstring& name) noexcept
{
    HKEY key = nullptr;
    ::RegOpenKeyExW(parent, name.c_str(), 0, KEY_READ, &key);
    return OwnedKey(key);
}

std::vector<std::wstring> children_now(HKEY key)
{
    std::vector<std::wstring> names;
    wchar_t name[KEY_NAME_SIZE];
    DWORD length = KEY_NAME_SIZE;
    for (DWORD i = 0; ::RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, length = KEY_NAME_SIZE)
        names.emplace_back(name, length);
    return names;
}

/// Keys are found by their place, and places change when another program registers or removes a source: what comes out is
/// good when it comes out twice.
std::vector<std::wstring> children_of(HKEY key)
{
    std::vector<std::wstring> names = children_now(key);
    for (int attempt = 0; attempt < MOST_ATTEMPTS; ++attempt)
    {
        std::vector<std::wstring> again = children_now(key);
        if (again == names)
            break;
        names = std::move(again);
    }
    return names;
}

std::wstring text_value(HKEY key, const wchar_t* name)
{
    DWORD size = 0;
    const DWORD kinds = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    if (::RegGetValueW(key, nullptr, name, kinds, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return {};
    std::wstring value(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    if (::RegGetValueW(key, nullptr, name, kinds, nullptr, value.data(), &size) != ERROR_SUCCESS)
        return {};
    value.resize(value.find(L'\0'));
    return value;
}

DWORD number_value(HKEY key, const wchar_t* name) noexcept
{
    DWORD value = 0;
    DWORD size = sizeof value;
    ::RegGetValueW(key, nullptr, name, RRF_RT_REG_DWORD, nullptr, &value, &size);
    return value;
}

Source read_source(HKEY key, const std::wstring& log, const std::wstring& name)
{
    return {
        log,
        name,
        text_value(key, MESSAGES),
        text_value(key, CATEGORIES),
        number_value(key, CATEGORY_COUNT),
        number_value(key, TYPES_SUPPORTED),
        text_value(key, FOLDER)};
}

/// Calls look(source) for each; ends where that returns true.
template <class Look>
void for_each_source(Look&& look)
{
    const OwnedKey logs = open_key(HKEY_LOCAL_MACHINE, LOGS);
    for (const std::wstring& log : children_of(logs.get()))
    {
        const OwnedKey sources = open_key(logs.get(), log);
        for (const std::wstring& name : children_of(sources.get()))
        {
            const OwnedKey key = open_key(sources.get(), name);
            if (key != nullptr && look(read_source(key.get(), log, name)))
                return;
        }
    }
}

std::wstring path_of(const Source& source) { return std::wstring(LOGS) + L'\\' + source.log + L'\\' + source.name; }

void require_success(LSTATUS result, const Source& source)
{
    if (result == ERROR_SUCCESS)
        return;
    const std::string what = "The event source " + shown(utf8(source.name)) + " cannot be changed: ";
    throw Failure(
        what + system_text(static_cast<DWORD>(result)) + ".",
        result == ERROR_ACCESS_DENIED ? "Run lumlog-admin as an administrator: event sources are the machine's."
                                      : "What was registered before is still there.");
}

void set_text(HKEY key, const wchar_t* name, const std::wstring& value, DWORD kind, const Source& source)
{
    if (value.empty())
    {
        ::RegDeleteValueW(key, name);
        return;
    }
    const DWORD size = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
    require_success(::RegSetValueExW(key, name, 0, kind, reinterpret_cast<const BYTE*>(value.c_str()), size), source);
}

void set_number(HKEY key, const wchar_t* name, DWORD value, const Source& source)
{
    require_success(
        ::RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value), source);
}
} // namespace

bool same_name(const std::wstring& left, const std::wstring& right) noexcept
{
    return ::CompareStringOrdinal(left.c_str(), -1, right.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::wstring file_name_of(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

bool is_there(const std::wstring& path) noexcept
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::vector<std::wstring> files_of(const std::wstring& list)
{
    std::vector<std::wstring> files;
    std::size_t begin = 0;
    while (begin <= list.size() && !list.empty())
    {
        const std::size_t end = std::min(list.find(L';', begin), list.size());
        if (end > begin)
        {
            wchar_t path[1024] = {};
            const std::wstring written = list.substr(begin, end - begin);
            const DWORD length = ::ExpandEnvironmentStringsW(written.c_str(), path, 1024);
            files.emplace_back(length == 0 || length > 1024 ? written : path);
        }
        begin = end + 1;
    }
    return files;
}

std::vector<Source> sources_with(const std::wstring& file_name)
{
    std::vector<Source> found;
    for_each_source(
        [&](Source source)
        {
            const std::vector<std::wstring> files = files_of(source.messages);
            if (std::any_of(
                    files.begin(), files.end(),
                    [&](const std::wstring& file) { return same_name(file_name_of(file), file_name); }))
                found.push_back(std::move(source));
            return false;
        });
    return found;
}

std::optional<Source> find_source(const std::wstring& name)
{
    std::optional<Source> found;
    for_each_source(
        [&](Source source)
        {
            if (same_name(source.name, name))
                found = std::move(source);
            return found.has_value();
        });
    return found;
}

void write_source(const Source& source)
{
    HKEY opened = nullptr;
    require_success(
        ::RegCreateKeyExW(
            HKEY_LOCAL_MACHINE, path_of(source).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr),
        source);
    const OwnedKey key(opened);
    set_text(key.get(), MESSAGES, source.messages, REG_EXPAND_SZ, source);
    set_text(key.get(), CATEGORIES, source.categories, REG_EXPAND_SZ, source);
    set_number(key.get(), CATEGORY_COUNT, source.category_count, source);
    set_number(key.get(), TYPES_SUPPORTED, source.types, source);
    set_text(key.get(), FOLDER, source.folder, REG_SZ, source);
}

void remove_source(const Source& source)
{
    const LSTATUS result = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, path_of(source).c_str());
    if (result != ERROR_FILE_NOT_FOUND)
        require_success(result, source);
}
} // namespace lumlog_admin
