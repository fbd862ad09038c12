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

std::string narrow_or_utf8(const wchar_t* text)
{
    BOOL lacks_some = FALSE;
    // A process whose code page is UTF-8 can not be asked this, and need not be.
    const int size = ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text, -1, nullptr, 0, nullptr, &lacks_some);
    return narrow(text, size > 0 && !lacks_some ? CP_ACP : CP_UTF8);
}

std::wstring wide(const char* text, unsigned int code_page)
{
    const int size = ::MultiByteToWideChar(code_page, 0, text, -1, nullptr, 0);
    if (size <= 0)
        return {};
    std::wstring characters(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(code_page, 0, text, -1, characters.data(), size);
    characters.pop_back();
    return characters;
}

std::wstring wide_for_thread(const char* text) { return wide(text, CP_THREAD_ACP); }
} // namespace kor::win
