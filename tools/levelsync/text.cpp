#include "text.h"

#include <windows.h>

#include <algorithm>
#include <cctype>

namespace levelsync
{
namespace
{
std::wstring wide_from(std::string_view text, UINT code_page, DWORD flags)
{
    if (text.empty())
        return {};
    const int size = static_cast<int>(text.size());
    const int length = ::MultiByteToWideChar(code_page, flags, text.data(), size, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(std::max(length, 0)), L'\0');
    ::MultiByteToWideChar(code_page, flags, text.data(), size, result.data(), length);
    return result;
}

char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool drives_a_terminal(wchar_t c) noexcept { return (c < 0x20 && c != L'\t') || (c >= 0x7F && c <= 0x9F); }
} // namespace

std::string utf8(std::wstring_view text)
{
    if (text.empty())
        return {};
    const int size = static_cast<int>(text.size());
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(std::max(length, 0)), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), length, nullptr, nullptr);
    return result;
}

std::wstring wide(std::string_view text) { return wide_from(text, CP_UTF8, 0); }

bool is_utf8(std::string_view bytes)
{
    return bytes.empty() || !wide_from(bytes, CP_UTF8, MB_ERR_INVALID_CHARS).empty();
}

std::string shown(std::string_view bytes)
{
    std::wstring text = wide_from(bytes, is_utf8(bytes) ? CP_UTF8 : CP_ACP, 0);
    std::replace_if(text.begin(), text.end(), &drives_a_terminal, L'\x00B7');
    return utf8(text);
}

std::string counted(std::size_t count, std::string_view one, std::string_view many)
{
    return std::to_string(count).append(" ").append(count == 1 ? one : many);
}

std::string joined(const std::vector<std::string>& parts, std::string_view last)
{
    std::string text;
    for (std::size_t i = 0; i < parts.size(); ++i)
    {
        if (i > 0)
            text += i + 1 == parts.size() ? last : std::string_view(", ");
        text += parts[i];
    }
    return text;
}

std::size_t columns_of(std::string_view text) noexcept
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(std::string_view text, std::size_t columns)
{
    std::string result(text);
    const std::size_t used = columns_of(text);
    if (used < columns)
        result.append(columns - used, ' ');
    return result;
}

std::string lower_case(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), &lower);
    return result;
}

bool is_pattern(std::string_view text) noexcept { return text.find_first_of("*?") != std::string_view::npos; }

bool matches(std::string_view pattern, std::string_view name)
{
    // Where the last star was, and what it has taken so far: no more than these two have to be tried again.
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::string_view::npos;
    std::size_t taken = 0;
    while (n < name.size())
    {
        if (p < pattern.size() && pattern[p] == '*')
        {
            star = p++;
            taken = n;
        }
        else if (p < pattern.size() && (pattern[p] == '?' || lower(pattern[p]) == lower(name[n])))
        {
            ++p;
            ++n;
        }
        else if (star != std::string_view::npos)
        {
            p = star + 1;
            n = ++taken;
        }
        else
        {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}
} // namespace levelsync
