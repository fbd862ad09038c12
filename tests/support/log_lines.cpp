#include "log_lines.h"

#include <algorithm>
#include <cctype>

namespace
{
constexpr std::size_t TIME_LENGTH = 29;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::size_t end_of_digits(const std::string& text, std::size_t from)
{
    while (from < text.size() && is_digit(text[from]))
        ++from;
    return from;
}

/// Replaces "<open>digits,digits" at the first place that has it from `from` on.
bool mask_process_and_thread(std::string& line, char open, std::size_t from)
{
    for (std::size_t at = line.find(open, from); at != std::string::npos; at = line.find(open, at + 1))
    {
        const std::size_t comma = end_of_digits(line, at + 1);
        if (comma == at + 1 || comma >= line.size() || line[comma] != ',')
            continue;
        const std::size_t end = end_of_digits(line, comma + 1);
        if (end == comma + 1)
            continue;
        line.replace(at + 1, end - at - 1, "<pid>,<tid>");
        return true;
    }
    return false;
}

/// "[042][5120" becomes "[<ms>][<tid>".
void mask_unix_headline(std::string& line)
{
    for (std::size_t at = line.find('['); at != std::string::npos; at = line.find('[', at + 1))
    {
        const std::size_t milliseconds_end = end_of_digits(line, at + 1);
        if (milliseconds_end != at + 4 || line.compare(milliseconds_end, 2, "][") != 0)
            continue;
        const std::size_t thread_end = end_of_digits(line, milliseconds_end + 2);
        if (thread_end == milliseconds_end + 2)
            continue;
        line.replace(at, thread_end - at, "[<ms>][<tid>");
        return;
    }
}

void mask_banner(std::string& line)
{
    std::size_t session = line.find(" Start Session at ");
    if (session == std::string::npos)
        session = line.find(" End Session at ");
    if (session == std::string::npos)
        return;
    const std::size_t open = line.rfind('(', session);
    if (open != std::string::npos && end_of_digits(line, open + 1) + 1 == session && line[session - 1] == ')')
    {
        const std::size_t length = session - 1 - (open + 1);
        line.replace(open + 1, length, "<pid>");
        session = open + 7;
    }
    const std::size_t time = line.find(" at ", session) + 4;
    if (!is_time_text(std::string_view(line).substr(time, TIME_LENGTH)))
        return;
    line.replace(time, TIME_LENGTH, "<time>");
    const std::size_t user = time + 6;
    if (line.compare(user, 7, ", User ") != 0)
        return;
    const std::size_t end = line.rfind(" =====");
    if (end == std::string::npos || end < user + 7)
        return;
    const std::size_t host = line.find(" on ", user + 7);
    if (host != std::string::npos && host < end)
        line.replace(user + 7, end - user - 7, "<user> on <host>");
    else
        line.replace(user + 7, end - user - 7, "<user>");
}
} // namespace

bool is_time_text(std::string_view text)
{
    constexpr std::string_view form = "dddd-dd-dd dd:dd:dd.ddd+dd:dd";
    static_assert(form.size() == TIME_LENGTH);
    return text.size() == form.size() &&
           std::equal(
               text.begin(), text.end(), form.begin(),
               [](char c, char f) { return f == 'd'   ? is_digit(c)
                                           : f == '+' ? c == '+' || c == '-'
                                                      : c == f; });
}

std::string text_of(std::string_view bytes)
{
    std::string result;
    result.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        if (bytes[i] != '\r' || i + 1 == bytes.size() || bytes[i + 1] != '\n')
            result += bytes[i];
    }
    return result;
}

std::vector<std::string> lines_of(std::string_view text)
{
    const std::string plain = text_of(text);
    std::vector<std::string> result;
    std::size_t start = 0;
    for (std::size_t end = plain.find('\n'); end != std::string::npos; end = plain.find('\n', start))
    {
        result.push_back(plain.substr(start, end - start));
        start = end + 1;
    }
    if (start < plain.size())
        result.push_back(plain.substr(start));
    return result;
}

std::string masked_line(std::string_view text)
{
    std::string line(text);
    if (line.compare(0, 6, "===== ") == 0)
    {
        mask_banner(line);
    }
    else if (is_time_text(std::string_view(line).substr(0, TIME_LENGTH)))
    {
        line.replace(0, TIME_LENGTH, "<time>");
        if (line.compare(6, 2, " [") == 0)
            mask_process_and_thread(line, '[', 7);
        else
            mask_process_and_thread(line, '(', 6);
    }
    else
    {
        mask_unix_headline(line);
    }
    return line;
}

std::vector<std::string> masked_lines(std::string_view text)
{
    std::vector<std::string> result = lines_of(text);
    for (std::string& line : result)
        line = masked_line(line);
    return result;
}
