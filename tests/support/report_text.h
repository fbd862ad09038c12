// report_text.h - what a session report says, by plain search of its text.

#ifndef KOR_TESTS_REPORT_TEXT_H
#define KOR_TESTS_REPORT_TEXT_H

#include <windows.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "temp_directory.h"

/// A file of UTF-16 with its mark, as UTF-8 without one. Empty when it has no mark.
inline std::string utf8_of(const std::string& bytes)
{
    if (bytes.compare(0, 2, "\xFF\xFE") != 0 || bytes.size() % 2 != 0)
        return {};
    std::wstring wide;
    for (std::size_t i = 2; i < bytes.size(); i += 2)
        wide +=
            static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    const int size = static_cast<int>(wide.size());
    std::string text(
        static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr)),
        '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    return text;
}

/// What a report would say now. Empty when none is written.
template <class Gatherer>
std::string report_of(const Gatherer& gatherer)
{
    const TempDirectory directory;
    const std::string path = directory.file("report.xml");
    gatherer.generateReport(std::wstring(path.begin(), path.end()).c_str(), true);
    return utf8_of(read_file(path));
}

/// What stands between the first start tag of that name and its end tag.
inline std::string inside(const std::string& text, const std::string& name)
{
    const std::size_t start = text.find('<' + name);
    if (start == std::string::npos)
        return "no element " + name;
    const std::size_t begin = text.find('>', start) + 1;
    return text.substr(begin, text.find("</" + name + '>', begin) - begin);
}

inline std::string without_escapes(std::string text)
{
    const struct
    {
        std::string_view escape, character;
    } escapes[] = {{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
    for (const auto& [escape, character] : escapes)
        for (std::size_t at = text.find(escape); at != std::string::npos; at = text.find(escape, at + 1))
            text.replace(at, escape.size(), character);
    return text;
}

using Attributes = std::map<std::string, std::string>;

/// The attributes of all elements of that name, in the order of the text.
inline std::vector<Attributes> elements(const std::string& text, const std::string& name)
{
    std::vector<Attributes> all;
    for (std::size_t at = text.find('<' + name); at != std::string::npos; at = text.find('<' + name, at + 1))
    {
        std::size_t from = at + 1 + name.size();
        if (std::string_view(" />\r\n").find(text[from]) == std::string_view::npos)
            continue; // of a name that is longer
        Attributes attributes;
        for (;;)
        {
            from = text.find_first_not_of(" \r\n", from);
            if (from == std::string::npos || text[from] == '/' || text[from] == '>')
                break;
            const std::size_t equals = text.find('=', from);
            if (equals == std::string::npos || equals + 1 >= text.size())
                break; // of a report that is not whole
            const std::size_t end = text.find(text[equals + 1], equals + 2);
            if (end == std::string::npos)
                break;
            attributes[text.substr(from, equals - from)] = without_escapes(text.substr(equals + 2, end - equals - 2));
            from = end + 1;
        }
        all.push_back(attributes);
    }
    return all;
}

#endif // KOR_TESTS_REPORT_TEXT_H
