// package_names_file.h - the file in which programs leave what they call their packages.

#ifndef KOR_PACKAGE_NAMES_FILE_H
#define KOR_PACKAGE_NAMES_FILE_H

#include <string_view>

namespace kor
{
/// Adds a line to the file when this program did not call the package that already. What cannot be read or written is left as it is:
/// names are a help for people, and nothing to hold up a program for.
void keep_package_name(int package, std::string_view name);
} // namespace kor

#endif // KOR_PACKAGE_NAMES_FILE_H
