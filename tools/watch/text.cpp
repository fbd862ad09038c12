#include "text.h"

#include <io.h>
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

void print(std::FILE* to, const std::string& text)
{
    const auto console = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(to)));
    DWORD mode = 0;
    if (!::GetConsoleMode(console, &mode))
    {
        std::fputs(text.c_str(), to);
        return;
    }
    const std::wstring characters = wide(text);
    DWORD written = 0;
    std::fflush(to);
    ::WriteConsoleW(console, characters.data(), static_cast<DWORD>(characters.size()), &written, nullptr);
}
} // namespace lumlogwatch
