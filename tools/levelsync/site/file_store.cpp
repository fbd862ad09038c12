#include "site/file_store.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "core/site.h"
#include "failure.h"
#include "file.h"
#include "history.h"
#include "site/refusal.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr ULONGLONG LOOK_INTO_EVERY_MS = 60'000; // also where no file looks changed
constexpr DWORD SETTLE_MS = 300;                 // in which a copy that is under way goes on
constexpr int MOST_LOOKS = 10;                   // until two have seen the same
constexpr ULONGLONG TURN_PATIENCE_MS = 10'000;
constexpr DWORD PAUSE_MS = 10;
constexpr std::size_t MOST_DOCUMENT_BYTES = 1 << 16; // of a change, and of a machine's words
constexpr std::string_view DOCUMENT = ".json";

bool ends_with(std::string_view text, std::string_view end) noexcept
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool is_of_documents(std::string_view folder) noexcept { return folder != "groups"; }

std::size_t most_bytes_of(const std::string& key) noexcept
{
    if (key == "base")
        return kor::core::MOST_SITE_BASE_BYTES;
    if (key.compare(0, 7, "groups/") == 0)
        return kor::core::MOST_SITE_GROUP_BYTES;
    return key.compare(0, 10, "overrides/") == 0 ? kor::core::MOST_SITE_OVERRIDE_BYTES : MOST_DOCUMENT_BYTES;
}

std::string version_of(std::string_view bytes)
{
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(fingerprint(bytes)));
    return text;
}

/// A file that somebody writes to at that moment.
class Moving : public Failure
{
public:
    explicit Moving(const std::wstring& path)
        : Failure(shown(utf8(path)) + " changes while it is read.", "Try again in a moment.")
    {
    }
};

/// Nothing where there is no such file. Whoever writes to it keeps this from reading half of it.
std::optional<std::string> read_bounded(const std::wstring& path, std::size_t most)
{
    const OwnedHandle file(::CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
        FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    const DWORD error = is_valid(file) ? ERROR_SUCCESS : ::GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return std::nullopt;
    LARGE_INTEGER size{};
    if (error == ERROR_SHARING_VIOLATION)
        throw Moving(path);
    if (error != ERROR_SUCCESS || ::GetFileSizeEx(file.get(), &size) == FALSE)
        throw Failure(shown(utf8(path)) + " cannot be read: " + system_text(::GetLastError()) + ".", "");
    if (size.QuadPart > static_cast<LONGLONG>(most))
        throw Refusal(
            shown(utf8(path)) + " has " + std::to_string(size.QuadPart) + " bytes; " + std::to_string(most) +
            " are the most.");
    std::string bytes(static_cast<std::size_t>(size.QuadPart) + 1, '\0'); // one more tells of growth
    DWORD count = 0;
    if (::ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == FALSE ||
        count != size.QuadPart)
        throw Moving(path);
    bytes.resize(count);
    return bytes;
}

std::uint64_t joined_number(DWORD high, DWORD low) noexcept { return (static_cast<std::uint64_t>(high) << 32) | low; }

/// A folder that cannot be looked through is not an empty one.
void require_end(const std::wstring& pattern, DWORD usual)
{
    const DWORD error = ::GetLastError();
    if (error != usual && error != ERROR_PATH_NOT_FOUND)
        throw Failure(
            shown(utf8(pattern)) + " cannot be looked through: " + system_text(error) + ".",
            own_account() + " needs the right to read there.");
}

void require_made(const std::wstring& folder)
{
    if (::CreateDirectoryW(folder.c_str(), nullptr) != FALSE || ::GetLastError() == ERROR_ALREADY_EXISTS)
        return;
    throw Failure(
        "The folder " + shown(utf8(folder)) + " cannot be made: " + system_text(::GetLastError()) + ".",
        own_account() + " needs the right to write there.");
}
} // namespace

struct FileStore::Listed
{
    std::string key;
    std::uint64_t size = 0;
    std::uint64_t changed = 0; ///< in tenths of a microsecond since 1601
};

FileStore::FileStore(const std::string& folder) : m_folder(wide(folder)) {}

std::wstring FileStore::path_of(const std::string& key) const
{
    std::string name = key;
    const std::size_t slash = name.find('/');
    if (slash != std::string::npos)
    {
        if (is_of_documents(std::string_view(name).substr(0, slash)))
            name += DOCUMENT;
        name[slash] = '\\';
    }
    return m_folder + L'\\' + wide(name);
}

/// Stops behind one more than most.
std::vector<FileStore::Listed> FileStore::list(const std::string& folder, std::size_t most) const
{
    std::vector<Listed> files;
    WIN32_FIND_DATAW found{};
    const std::wstring pattern = m_folder + L'\\' + wide(folder) + L"\\*";
    const HANDLE search =
        ::FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE)
    {
        require_end(pattern, ERROR_FILE_NOT_FOUND);
        return files;
    }
    bool has_more = true;
    while (has_more && files.size() <= most)
    {
        std::string name = utf8(found.cFileName);
        const bool is_document = ends_with(name, DOCUMENT);
        if (is_of_documents(folder) && is_document)
            name.resize(name.size() - DOCUMENT.size());
        // What editors and copies in the making leave there is nobody's.
        const bool is_one = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && kor::core::is_site_name(name) &&
                            !ends_with(name, ".new") && is_document == is_of_documents(folder);
        if (is_one)
            files.push_back(
                {folder + '/' + name, joined_number(found.nFileSizeHigh, found.nFileSizeLow),
                 joined_number(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime)});
        has_more = ::FindNextFileW(search, &found) != FALSE;
    }
    const DWORD error = ::GetLastError();
    ::FindClose(search);
    if (!has_more)
    {
        ::SetLastError(error);
        require_end(pattern, ERROR_NO_MORE_FILES);
    }
    std::sort(files.begin(), files.end(), [](const Listed& a, const Listed& b) { return a.key < b.key; });
    return files;
}

std::vector<FileStore::Listed> FileStore::list_state() const
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (::GetFileAttributesExW(m_folder.c_str(), GetFileExInfoStandard, &data) == FALSE)
        throw Failure(
            "The folder " + shown(utf8(m_folder)) + " cannot be reached: " + system_text(::GetLastError()) + ".",
            "Look at the address, and whether the file server runs.");
    std::vector<Listed> files;
    if (::GetFileAttributesExW(path_of("base").c_str(), GetFileExInfoStandard, &data) != FALSE)
        files.push_back(
            {"base", joined_number(data.nFileSizeHigh, data.nFileSizeLow),
             joined_number(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)});
    constexpr std::size_t MOST_GROUPS = kor::core::MOST_SITE_GROUPS * 2;
    const std::vector<Listed> groups = list("groups", MOST_GROUPS);
    const std::vector<Listed> overrides = list("overrides", kor::core::MOST_SITE_OVERRIDES);
    if (groups.size() > MOST_GROUPS)
        throw Refusal("The site has more than " + std::to_string(MOST_GROUPS) + " groups.");
    if (overrides.size() > kor::core::MOST_SITE_OVERRIDES)
        throw Refusal(
            "The site has more than " + std::to_string(kor::core::MOST_SITE_OVERRIDES) + " overrides, the most.");
    files.insert(files.end(), groups.begin(), groups.end());
    files.insert(files.end(), overrides.begin(), overrides.end());
    return files;
}

SiteRead FileStore::load(const std::vector<Listed>& files) const
{
    SiteRead found;
    std::string all;
    for (const Listed& file : files)
    {
        auto bytes = read_bounded(path_of(file.key), most_bytes_of(file.key));
        if (!bytes)
            throw Moving(path_of(file.key));
        std::string version = version_of(*bytes);
        all.append(file.key).append(" ").append(version).append("\n");
        found.values.push_back({file.key, std::move(*bytes), std::move(version)});
    }
    found.mark.state = version_of(all);
    return found;
}

SiteMark FileStore::mark()
{
    const std::vector<Listed> files = list_state();
    std::string listing;
    for (const Listed& file : files)
        listing.append(file.key + ' ' + std::to_string(file.size) + ' ' + std::to_string(file.changed) + '\n');
    const ULONGLONG clock = ::GetTickCount64();
    if (m_loaded_at != 0 && listing == m_listing && clock - m_loaded_at < LOOK_INTO_EVERY_MS)
        return m_mark;
    m_mark = load(files).mark;
    m_listing = listing;
    m_loaded_at = clock;
    return m_mark;
}

SiteRead FileStore::read(const std::optional<std::vector<std::string>>&)
{
    SiteRead last;
    for (int looks = 0; looks < MOST_LOOKS; ++looks)
    {
        const bool is_first = last.mark.state.empty();
        if (looks > 0)
            ::Sleep(SETTLE_MS);
        try
        {
            SiteRead found = load(list_state());
            if (!is_first && found.mark == last.mark)
                return found;
            last = std::move(found);
        }
        catch (const Moving&)
        {
            last.mark.state.clear();
        }
    }
    throw Failure("Somebody keeps writing to the site in " + shown(utf8(m_folder)) + ".", "Try again in a moment.");
}

std::optional<SiteValue> FileStore::value(const std::string& key)
{
    auto bytes = read_bounded(path_of(key), most_bytes_of(key));
    if (!bytes)
        return std::nullopt;
    std::string version = version_of(*bytes);
    return SiteValue{key, std::move(*bytes), std::move(version)};
}

std::vector<SiteValue> FileStore::history(std::size_t most)
{
    std::vector<Listed> files = list("history", MOST_MACHINES);
    const std::size_t first = files.size() - std::min(most, files.size());
    std::vector<SiteValue> values;
    for (std::size_t i = first; i < files.size(); ++i)
        if (auto one = value(files[i].key))
            values.push_back(std::move(*one));
    return values;
}

/// The system lets go of it when this process ends, however it ends.
OwnedHandle FileStore::take_turn() const
{
    OwnedHandle file(::CreateFileW(
        (m_folder + L"\\site.lock").c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!is_valid(file))
        throw Failure(
            "The site in " + shown(utf8(m_folder)) + " cannot be changed: " + system_text(::GetLastError()) + ".",
            "Nothing was changed. " + own_account() + " needs the right to write there.");
    const ULONGLONG end = ::GetTickCount64() + TURN_PATIENCE_MS;
    OVERLAPPED at{};
    while (::LockFileEx(file.get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &at) == FALSE)
    {
        if (::GetTickCount64() >= end)
            throw Failure("Somebody else is changing the site.", "Nothing was changed. Try again.");
        ::Sleep(PAUSE_MS);
    }
    return file;
}

bool FileStore::write(const std::vector<SiteWrite>& writes)
{
    const OwnedHandle turn = take_turn();
    for (const SiteWrite& one : writes)
    {
        if (one.version == ANY_VERSION)
            continue;
        const auto there = value(one.key);
        if ((there ? there->version : std::string()) != one.version)
            return false;
    }
    for (const SiteWrite& one : writes)
    {
        const std::wstring path = path_of(one.key);
        if (!one.bytes)
        {
            if (::DeleteFileW(path.c_str()) == FALSE && ::GetLastError() != ERROR_FILE_NOT_FOUND)
                throw Failure(
                    shown(utf8(path)) + " cannot be removed: " + system_text(::GetLastError()) + ".",
                    "Look whether somebody has it open, and try again.");
            continue;
        }
        if (one.key.find('/') != std::string::npos)
            require_made(path.substr(0, path.rfind(L'\\')));
        Replacement(path, *one.bytes).put_in_place();
    }
    return true;
}

void FileStore::report(const std::string& machine, const std::string& bytes)
{
    const std::uint64_t clock = ::GetTickCount64();
    if (bytes == m_said && clock - m_said_at < REPORT_EVERY_MS)
        return;
    leave(machine, bytes);
    m_said = bytes;
    m_said_at = clock;
}

void FileStore::leave(const std::string& machine, const std::string& bytes)
{
    require_made(m_folder + L"\\machines");
    Replacement(path_of("machines/" + machine), bytes).put_in_place();
}

std::vector<SiteMachine> FileStore::machines()
{
    std::vector<SiteMachine> machines;
    for (const Listed& file : list("machines", MOST_MACHINES))
        if (auto one = value(file.key))
        {
            const Time said = time_of_ticks(static_cast<DWORD>(file.changed), static_cast<DWORD>(file.changed >> 32));
            machines.push_back({file.key.substr(9), std::move(one->bytes), now() - said < PRESENCE_MS});
        }
    return machines;
}
} // namespace levelsync
