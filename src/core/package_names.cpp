#include "core/package_names.h"

#include <algorithm>
#include <cstdint>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
bool is_visible(char c) noexcept
{
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte != 0x7F;
}

/// "310 Reader viewer.exe"
bool read_line(
    std::string_view line, int package_count, int& package, std::string_view& name, std::string_view& program)
{
    std::int64_t number = 0;
    if (!take_number(line, number) || number < 0 || number >= package_count)
        return false;
    package = static_cast<int>(number);
    name = take_word(line);
    while (!line.empty() && line.front() == ' ')
        line.remove_prefix(1);
    program = line;
    return is_package_name(name) && !program.empty();
}
} // namespace

bool is_package_name(std::string_view name) noexcept
{
    return !name.empty() && name.size() <= MAX_PACKAGE_NAME && std::all_of(name.begin(), name.end(), &is_visible);
}

std::string package_name_line(int package, std::string_view name, std::string_view program)
{
    return std::to_string(package).append(" ").append(name).append(" ").append(program).append("\n");
}

NamedPackages::NamedPackages(std::string_view text, int package_count)
{
    while (!text.empty())
    {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        int package = 0;
        std::string_view name;
        std::string_view program;
        if (read_line(line, package_count, package, name, program))
            m_names[{package, std::string(program)}] = std::string(name);
    }
}

const std::string& NamedPackages::name(int package, std::string_view program) const
{
    static const std::string none;
    const auto found = m_names.find({package, std::string(program)});
    return found == m_names.end() ? none : found->second;
}
} // namespace kor::core
