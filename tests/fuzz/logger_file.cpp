// logger_file.cpp - any bytes as a `logger` file. What the parser makes of a line is compared with what
// scanf makes of it, whose format the grammar is.

#include "core/logger_file.h"
#include "core/stream_source.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "require.h"

using kor::core::LoggerLine;
using kor::core::MAX_LOGGER_LINE;

namespace
{
constexpr int PACKAGES = 750;

struct Lines
{
    std::vector<std::string> texts;
    bool ended_early = false;
};

/// The lines that a reader has to find.
Lines lines_of(std::string_view file)
{
    Lines lines;
    while (!file.empty())
    {
        const std::size_t end = file.find('\n');
        const std::string_view line = file.substr(0, end);
        if (line.size() > MAX_LOGGER_LINE)
        {
            lines.ended_early = true;
            break;
        }
        lines.texts.emplace_back(line.substr(0, line.find('\0')));
        file.remove_prefix(end == std::string_view::npos ? file.size() : end + 1);
    }
    return lines;
}

/// True when line has a number that scanf might not be able to hold.
bool has_long_number(const std::string& line)
{
    int digits = 0;
    return std::any_of(
        line.begin(), line.end(),
        [&digits](unsigned char c)
        {
            digits = std::isdigit(c) != 0 ? digits + 1 : 0;
            return digits > 9;
        });
}

/// A parser made of scanf.
class ScannedFile
{
public:
    /// line: without long numbers.
    void compare(const std::string& line, const LoggerLine& result)
    {
        const bool is_comment = !line.empty() && (line[0] == '#' || line[0] == '!');
        if (m_lines_after_output == 1)
        {
            ++m_lines_after_output;
            compare_size_limit(line, result);
        }
        else if (is_comment)
            require(result.kind == LoggerLine::NOTHING);
        else if (m_lines_after_output == 0)
        {
            ++m_lines_after_output;
            const int value = std::atoi(line.c_str());
            require(result.kind == LoggerLine::OUTPUT);
            require(result.output == (value == 3 ? 2 : value >= 0 && value <= 2 ? value : 1));
            require(result.to_debugger == (value == 3));
        }
        else
            compare_package(line, result);
    }

private:
    static void compare_size_limit(const std::string& line, const LoggerLine& result)
    {
        const char key[] = "file_size_limit_in_mb=";
        std::uint32_t limit = 0;
        if (line.compare(0, sizeof key - 1, key) == 0)
            limit = static_cast<std::uint32_t>(std::atoll(line.substr(sizeof key - 1, 19).c_str()));
        require(result.kind == LoggerLine::SIZE_LIMIT);
        require(result.size_limit == limit);
    }

    void compare_package(const std::string& line, const LoggerLine& result)
    {
        char name[MAX_LOGGER_LINE + 1] = "";
        char rules[MAX_LOGGER_LINE + 1] = "";
        const int fields = std::sscanf(line.c_str(), "%199s%d%d [%199s", name, &m_number, &m_level, rules);
        m_number_known = m_number_known || fields >= 2;
        if (fields < 1)
            require(result.kind == LoggerLine::NOTHING);
        else if (!m_number_known)
            require(result.kind == LoggerLine::UNREADABLE);
        else
        {
            const bool is_package = m_number >= 0 && m_number < PACKAGES;
            require(result.kind == (is_package ? LoggerLine::PACKAGE : LoggerLine::PACKAGE_OUT_OF_RANGE));
            require(result.number == m_number);
            require(result.name == name);
            require(result.level == static_cast<std::uint8_t>(m_level));
            require(result.cut == (m_level < 0 || m_level > 255));
            require(result.rules == rules);
        }
    }

    int m_lines_after_output = 0;
    bool m_number_known = false;
    int m_number = 0;
    int m_level = 4;
};

/// A package that is written reads back the same, as long as its line is one.
void write_and_read(const LoggerLine& package)
{
    const std::string rules = package.rules.empty() ? "" : '[' + std::string(package.rules);
    const std::string written =
        kor::core::logger_package_line(package.name, package.number, package.level, rules, "//");
    if (written.size() - 1 > MAX_LOGGER_LINE || kor::core::is_logger_comment(written))
        return;

    std::istringstream stream(written);
    kor::core::StreamSource source(stream);
    kor::core::LoggerFileReader reader(source);
    std::string_view line;
    require(reader.next(line));
    kor::core::LoggerFileParser parser(PACKAGES);
    parser.parse("2");
    parser.parse("");
    const LoggerLine again = parser.parse(line);
    require(again.kind == LoggerLine::PACKAGE);
    require(again.number == package.number);
    require(again.name == package.name);
    require(again.level == package.level);
    require(again.rules == package.rules);
    require(!again.cut);
    require(!reader.next(line));
    require(!reader.ended_early());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string file(reinterpret_cast<const char*>(data), size);
    const Lines expected = lines_of(file);

    std::istringstream stream(file);
    kor::core::StreamSource source(stream);
    kor::core::LoggerFileReader reader(source);
    kor::core::LoggerFileParser parser(PACKAGES);
    ScannedFile scanned;
    bool comparable = true;
    std::size_t count = 0;
    std::string_view line;
    while (reader.next(line))
    {
        require(count < expected.texts.size());
        require(line == expected.texts[count]);
        require(line.size() <= MAX_LOGGER_LINE);

        const LoggerLine result = parser.parse(line);
        require(is_empty_or_inside(result.name, line));
        require(is_empty_or_inside(result.rules, line));
        if (result.kind == LoggerLine::PACKAGE)
        {
            require(result.number >= 0 && result.number < PACKAGES);
            require(!result.name.empty());
            write_and_read(result);
        }
        // Once the two have different numbers, lines that lack one differ too.
        comparable = comparable && !has_long_number(expected.texts[count]);
        if (comparable)
            scanned.compare(expected.texts[count], result);
        ++count;
    }
    require(count == expected.texts.size());
    require(reader.ended_early() == expected.ended_early);
    return 0;
}
