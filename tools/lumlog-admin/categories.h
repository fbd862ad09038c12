// categories.h - the file that tells the event viewer what the categories of events, which are packages, are called.

#ifndef LUMLOG_ADMIN_CATEGORIES_H
#define LUMLOG_ADMIN_CATEGORIES_H

#include <map>
#include <string>

#include "sources.h"

namespace lumlog_admin
{
/// Names of packages by their number.
using PackageNames = std::map<int, std::wstring>;

/// Categories are counted from 1: the event viewer shows none for events of package 0.
constexpr DWORD CATEGORY_COUNT = 749;

/// The names that the `logger` file in a folder gives packages. Throws Failure when it cannot be read.
PackageNames read_names(const std::wstring& folder);

/// A DLL beside this program that has a text for each package: its name, or "package 320". A copy of pattern, which has
/// its resources replaced. The same names make the same file, so that registering twice changes nothing; other names get
/// a file of another name, as the event viewer may have the old one open. Throws Failure.
std::wstring make_category_file(const std::wstring& pattern, const PackageNames& names);

/// Removes files that make_category_file has made and no source names any more. One that is open goes at the next start
/// of the machine. Returns how many of those there are.
int remove_unused_category_files(const std::wstring& folder, const std::vector<Source>& used_by);

/// The text that a file has for a number, without its line end; empty: none, or the file cannot be read.
std::wstring text_in(const std::wstring& file, DWORD number);
} // namespace lumlog_admin

#endif // LUMLOG_ADMIN_CATEGORIES_H
