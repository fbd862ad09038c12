// comment_reader.cpp - any bytes as a `logger` file, read for the comments of its packages.

#include "core/logger_file.h"
#include "core/stream_source.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "require.h"

using kor::core::LoggerComment;

namespace
{
void check_comment(std::string_view line, int package_count)
{
    LoggerComment comment;
    const bool found = kor::core::find_logger_comment(line, package_count, comment);

    const std::string copy(line);
    const std::size_t slash = copy.find('/');
    const bool is_marked = !copy.empty() && (copy[0] == '#' || copy[0] == '!');
    char name[kor::core::MAX_LOGGER_LINE + 1] = "";
    char digits[kor::core::MAX_LOGGER_LINE + 1] = "";
    // The number as text, for scanf has no answer to one that is too large.
    const bool scanned = std::sscanf(copy.c_str(), "%199s %199[-+0-9]", name, digits) == 2;
    char* number_end = digits;
    const long long number = std::strtoll(digits, &number_end, 10);
    const bool has_number = scanned && number_end != digits;

    require(found == (!is_marked && has_number && slash != std::string::npos && number >= 0 && number < package_count));
    if (found)
    {
        require(comment.number == number);
        require(comment.number < package_count);
        require(comment.text.front() == '/');
        require(comment.text == copy.substr(slash));
        require(comment.text.data() == line.data() + slash);
    }
}

/// A comment that is written with its package is found again, unless a slash stands before it.
void write_and_find(std::string_view line, int package_count)
{
    LoggerComment comment;
    if (!kor::core::find_logger_comment(line, package_count, comment))
        return;
    const std::string written = kor::core::logger_package_line("Name", comment.number, 4, "[(5;;a)]", comment.text);
    LoggerComment again;
    require(
        kor::core::find_logger_comment(std::string_view(written).substr(0, written.size() - 1), package_count, again));
    require(again.number == comment.number);
    require(again.text == comment.text);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
    kor::core::StreamSource source(stream);
    kor::core::LoggerFileReader reader(source);
    std::string_view line;
    while (reader.next(line))
    {
        for (const int package_count : {750, 1, 0})
        {
            check_comment(line, package_count);
            write_and_find(line, package_count);
        }
    }
    return 0;
}
