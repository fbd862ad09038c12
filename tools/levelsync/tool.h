// tool.h - what each command of LevelSync is given.

#ifndef LEVELSYNC_TOOL_H
#define LEVELSYNC_TOOL_H

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "console.h"

namespace levelsync
{
class SiteStore;

/// In the order in which it is filled.
using Json = nlohmann::ordered_json;

/// What a program tells whoever has called it.
enum ExitCode
{
    DONE = 0,
    NOT_DONE = 1,
    WRONG_CALL = 2
};

/// Where the level file is.
struct Folder
{
    std::wstring path; ///< of the folder, absolute
    bool is_given;     ///< false: neither --dir nor PRISMATE_LOG_DIR says where, and "log" is taken
    std::wstring file; ///< the level file, logger
    std::wstring name(const wchar_t* file_name) const { return path + L'\\' + file_name; }
};

/// The folder that --dir names (empty: not given), or else the environment.
Folder find_folder(const std::string& option);

/// One call of the program.
struct Tool
{
    Console& console;
    bool json; ///< the report goes out as JSON
    Folder folder;
    std::string command_line;     ///< the words after the program's name, for the history
    std::string version;          ///< of LevelSync
    std::string site = {};        ///< address of a site, where the command is about one
    std::string credentials = {}; ///< file with the user and the password for it; empty: the environment says
    /// Opens the site's store in place of its address; null: that is opened.
    std::function<std::unique_ptr<SiteStore>()> open_store = {};

    /// Prints a report for programs. What others have written need not be UTF-8.
    void print(const Json& report) const
    {
        console.print(report.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
    }
};
} // namespace levelsync

#endif // LEVELSYNC_TOOL_H
