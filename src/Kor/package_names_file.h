// package_names_file.h - the file in which programs leave what they call their packages.

#ifndef KOR_PACKAGE_NAMES_FILE_H
#define KOR_PACKAGE_NAMES_FILE_H

#include <string_view>

namespace kor
{
/// Adds a line to the file when this program did not call the package that already. What cannot be read or written is left
/// as it is: names are a help for people, and nothing to hold up a program for.
void keep_package_name(int package, std::string_view name);

/// Keeps in this process what it calls the package. name: of is_package_name.
void remember_package_name(int package, std::string_view name) noexcept;

/// Writes what this process calls the package into a buffer of core::MAX_PACKAGE_NAME characters at least, which is left
/// alone when it has no name for it.
void copy_package_name(int package, char* to) noexcept;
} // namespace kor

#endif // KOR_PACKAGE_NAMES_FILE_H
