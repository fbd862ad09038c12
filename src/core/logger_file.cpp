#include "core/logger_file.h"

#include <limits>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
constexpr std::string_view SIZE_LIMIT_KEY = "file_size_limit_in_mb=";
constexpr std::size_t SIZE_LIMIT_DIGITS = 19; // as many characters as the largest 64-bit number has

constexpr std::size_t NAME_COLUMNS = 41; // a package name is followed by blanks up to here

LoggerLine parse_output(std::string_view line) noexcept
{
    LoggerLine result;
    result.kind = LoggerLine::OUTPUT;
    const std::int64_t value = number_at_front(line);
    result.to_debugger = value == 3;
    if (value == 0)
        result.output = 0;
    else
        result.output = value == 2 || value == 3 ? 2 : 1;
    return result;
}

LoggerLine parse_size_limit(std::string_view line) noexcept
{
    LoggerLine result;
    result.kind = LoggerLine::SIZE_LIMIT;
    if (line.substr(0, SIZE_LIMIT_KEY.size()) != SIZE_LIMIT_KEY)
        return result;
    const std::int64_t value = number_at_front(line.substr(SIZE_LIMIT_KEY.size(), SIZE_LIMIT_DIGITS));
    result.size_limit = static_cast<std::uint32_t>(value);
    // A writer prints limits of 2^31 and more as negative numbers; those come back as they were.
    result.cut = value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::uint32_t>::max();
    return result;
}

/// The word behind a "[", if that is what comes next.
std::string_view take_rules(std::string_view text) noexcept
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    if (text.empty() || text.front() != '[')
        return {};
    text.remove_prefix(1);
    return take_word(text);
}
} // namespace

bool LoggerFileReader::next_byte(char& byte)
{
    if (m_block_at == m_block_end)
    {
        m_block_end = m_from.read(m_block, sizeof m_block);
        m_block_at = 0;
    }
    if (m_block_at == m_block_end)
        return false;
    byte = m_block[m_block_at++];
    return true;
}

bool LoggerFileReader::next(std::string_view& line)
{
    std::size_t length = 0;
    bool has_bytes = false;
    char byte = '\0';
    while (!m_too_long && next_byte(byte))
    {
        has_bytes = true;
        if (byte == '\n')
            break;
        m_too_long = length == MAX_LOGGER_LINE;
        if (!m_too_long)
            m_line[length++] = byte;
    }
    if (m_too_long || !has_bytes)
        return false;
    line = std::string_view(m_line, length);
    line = line.substr(0, line.find('\0'));
    return true;
}

bool is_logger_comment(std::string_view line) noexcept
{
    return !line.empty() && (line.front() == '#' || line.front() == '!');
}

LoggerLine LoggerFileParser::parse(std::string_view line) noexcept
{
    if (m_size_limit_due)
    {
        m_size_limit_due = false;
        return parse_size_limit(line);
    }
    if (is_logger_comment(line))
        return {};
    if (!m_output_read)
    {
        m_output_read = true;
        m_size_limit_due = true;
        return parse_output(line);
    }
    return parse_package(line);
}

LoggerLine LoggerFileParser::parse_package(std::string_view line) noexcept
{
    LoggerLine result;
    result.name = take_word(line);
    if (result.name.empty())
        return {};

    std::int64_t value = 0;
    if (take_number(line, value))
    {
        m_number = clamp_to_int(value);
        m_number_known = true;
        if (take_number(line, value))
        {
            m_level = value;
            result.rules = take_rules(line);
        }
    }
    result.number = m_number;
    if (!m_number_known)
        result.kind = LoggerLine::UNREADABLE;
    else if (m_number < 0 || m_number >= m_package_count)
        result.kind = LoggerLine::PACKAGE_OUT_OF_RANGE;
    else
        result.kind = LoggerLine::PACKAGE;
    result.level = static_cast<std::uint8_t>(m_level);
    result.cut = m_level < 0 || m_level > std::numeric_limits<std::uint8_t>::max();
    return result;
}

bool find_logger_comment(std::string_view line, int package_count, LoggerComment& comment) noexcept
{
    if (is_logger_comment(line))
        return false;
    std::string_view rest = line;
    std::int64_t number = 0;
    const std::size_t slash = line.find('/');
    if (take_word(rest).empty() || !take_number(rest, number) || slash == std::string_view::npos || number < 0 ||
        number >= package_count)
        return false;
    comment.number = static_cast<int>(number);
    comment.text = line.substr(slash);
    return true;
}

std::string logger_file_header(int output, std::uint32_t size_limit)
{
    // The spelling is part of the format.
    const std::string dashes = "#------------------------------------------------------------------------\n";
    return "#\n"
           "# logger configuration file\n"
           "#\n"
           "# Lines started with # or ! are comment lines\n"
           "#\n" +
           dashes +
           "# part 1: set the output of the messages\n"
           "# 0=stderr    1=syslog-file   2=private-file \n" +
           dashes + std::to_string(output) + "\n" + std::string(SIZE_LIMIT_KEY) +
           std::to_string(static_cast<std::int32_t>(size_limit)) + "\n" + dashes +
           "# part 2: set the error level of each package. Each line consist of 3 fields\n"
           "# first field is package name (and it is ignored)\n"
           "# second field is package key. It must not be changed. This value is \n"
           "# the the Kor_Package constans in Kor_Package file devided by PACKAGE_RANGE\n"
           "# constans\n"
           "# third field is the error level witch is a digit between 1 to 7:\n"
           "# 0=unspecified  1=severe  2=critical  3=error  4=warning\n"
           "# 5=notice  6=information  7=debug\n" +
           dashes;
}

std::string
logger_package_line(std::string_view name, int number, int level, std::string_view rules, std::string_view comment)
{
    std::string line(name);
    if (line.size() < NAME_COLUMNS)
        line.resize(NAME_COLUMNS, ' ');
    line += ' ' + std::to_string(number) + "          " + std::to_string(level) + ' ';
    line.append(rules).append(" ").append(comment).append("\n");
    return line;
}
} // namespace kor::core
