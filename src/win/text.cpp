#include "win/text.h"

#include <windows.h>

namespace kor::win
{
namespace
{
std::string narrow(const wchar_t* text, unsigned int code_page)
{
    const int size = ::WideCharToMultiByte(code_page, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return {};
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(code_page, 0, text, -1, bytes.data(), size, nullptr, nullptr);
    bytes.pop_back(); // the terminator, which std::string has of its own
    return bytes;
}
} // namespace

std::string narrow(const wchar_t* text) { return narrow(text, CP_ACP); }
std::string narrow_for_thread(const wchar_t* text) { return narrow(text, CP_THREAD_ACP); }

std::wstring wide_for_thread(const char* text)
{
    const int size = ::MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, nullptr, 0);
    if (size <= 0)
        return {};
    std::wstring characters(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, characters.data(), size);
    characters.pop_back();
    return characters;
}
} // namespace kor::win
