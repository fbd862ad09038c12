// file_path.h - paths in the forms that Windows tells apart.

#ifndef KOR_CORE_FILE_PATH_H
#define KOR_CORE_FILE_PATH_H

#include <string>
#include <string_view>

namespace kor::core
{
/// True for a path that Windows takes letter by letter: one that begins with \\?\ .
bool is_verbatim(std::wstring_view path) noexcept;

/// A verbatim path as its file system wants it: no separator but the backslash, and one of them at a time.
std::wstring tidy_verbatim(std::wstring_view path);

/// Longest full path that goes without a prefix. Files end at 259 characters and folders at 247; what is
/// written beside a file has a longer name than the file.
constexpr std::size_t LONGEST_PLAIN_PATH = 200;

/// A full path (of a drive, or \\server\share) as it can be opened however long it is: a longer one than
/// LONGEST_PLAIN_PATH gets the prefix that makes it verbatim. What is verbatim or names a device (\\.\) stays.
std::wstring lift_length_limit(std::wstring full_path);
} // namespace kor::core

#endif // KOR_CORE_FILE_PATH_H
