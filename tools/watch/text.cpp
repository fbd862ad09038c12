#include "text.h"

#include <windows.h>

#include <algorithm>

namespace lumlogwatch
{
std::string utf8(std::wstring_view text)
{
    const int size = static_cast<int>(text.size());
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(std::max(length, 0)), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), length, nullptr, nullptr);
    return result;
}

std::wstring wide(std::string_view text)
{
    const int size = static_cast<int>(text.size());
    const int length = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(std::max(length, 0)), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), length);
    return result;
}

std::string system_text(unsigned long error)
{
    wchar_t text[512] = {};
    DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, ARRAYSIZE(text), nullptr);
    while (length > 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.'))
        --length;
    return utf8({text, length}) + " (" + std::to_string(error) + ')';
}
} // namespace lumlogwatch
