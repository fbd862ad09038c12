// private_file.h - what the environment says of the files that programs open their logs with.

#ifndef KOR_PRIVATE_FILE_H
#define KOR_PRIVATE_FILE_H

#include <optional>
#include <string>

namespace kor
{
/// The name of the file that a program asks for by name: with the process's id in it where PRISMATE_LOG_FILE_PER_PROCESS
/// is 1. A tool's own log stays one file, as each of its runs is another process.
std::wstring private_file_name(const char* name);

/// How many older files PRISMATE_LOG_FILES wants kept. Nothing when it is not set, or, with a warning, when it is no such
/// number.
std::optional<int> configured_file_count();
} // namespace kor

#endif // KOR_PRIVATE_FILE_H
