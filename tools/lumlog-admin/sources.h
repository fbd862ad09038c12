// sources.h - event sources: the keys of the registry that tell the event viewer where texts are.

#ifndef LUMLOG_ADMIN_SOURCES_H
#define LUMLOG_ADMIN_SOURCES_H

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace lumlog_admin
{
/// What stands in the key of a source, whoever has registered it.
struct Source
{
    std::wstring log; ///< "Application" and others: the log that it writes to
    std::wstring name;
    std::wstring messages;   ///< files with a semicolon between them
    std::wstring categories; ///< a file; empty: none
    DWORD category_count = 0;
    DWORD types = 0;
    std::wstring folder; ///< of the level file that the categories' names are from; empty: they have none
};

/// Event types that the library reports: errors, warnings, information.
constexpr DWORD TYPES = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
constexpr wchar_t LOG[] = L"Application"; ///< where a source goes that is opened by its name alone

/// All sources of all logs that show texts of a file of this name, wherever it lies: "LUMlogEvents.dll".
std::vector<Source> sources_with(const std::wstring& file_name);

/// The source of this name in whatever log it is; names differ in more than case.
std::optional<Source> find_source(const std::wstring& name);

/// Throws Failure, with what to do, when the right is missing.
void write_source(const Source& source);

/// Throws Failure when the right is missing. A source that is not there is none the more.
void remove_source(const Source& source);

/// The files of a list with semicolons, with the variables in it replaced.
std::vector<std::wstring> files_of(const std::wstring& list);

bool same_name(const std::wstring& left, const std::wstring& right) noexcept;

/// "LUMlogEvents.dll" of a path.
std::wstring file_name_of(const std::wstring& path);
bool is_there(const std::wstring& path) noexcept;
} // namespace lumlog_admin

#endif // LUMLOG_ADMIN_SOURCES_H
