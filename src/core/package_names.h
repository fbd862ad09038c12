// package_names.h - what programs call their packages, in a file beside the `logger` file.

#ifndef KOR_CORE_PACKAGE_NAMES_H
#define KOR_CORE_PACKAGE_NAMES_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace kor::core
{
/// The file. Lines are only added to it, each in one piece, so programs need not wait for each other.
constexpr wchar_t PACKAGE_NAMES_FILE[] = L"logger.packages";

constexpr std::size_t MAX_PACKAGE_NAME = 39; // as in a `logger` file

/// True for a name that a `logger` file could have: one word without control characters, not too long.
bool is_package_name(std::string_view name) noexcept;

/// A line that says so, with its newline. program: the program that calls the package that.
std::string package_name_line(int package, std::string_view name, std::string_view program);

/// What such lines say. Of several for the same package and program the last one counts, for lines are only added. What
/// is no such line is left out.
class NamedPackages
{
public:
    /// Packages are numbered up to package_count - 1.
    NamedPackages(std::string_view text, int package_count);

    /// Empty where that program has not named it.
    const std::string& name(int package, std::string_view program) const;

    /// Names by package and program.
    const std::map<std::pair<int, std::string>, std::string>& all() const noexcept { return m_names; }

private:
    std::map<std::pair<int, std::string>, std::string> m_names;
};
} // namespace kor::core

#endif // KOR_CORE_PACKAGE_NAMES_H
