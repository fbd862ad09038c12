#include "win/utf8.h"

#include <windows.h>

#include <algorithm>
#include <limits>

namespace kor::win
{
namespace
{
/// The system counts in int; a text that is longer than that is cut.
template <class Character>
int length_of(std::basic_string_view<Character> text) noexcept
{
    constexpr std::size_t MOST = std::numeric_limits<int>::max() / 4; // so that each way of writing it can be counted
    return static_cast<int>(std::min(text.size(), MOST));
}

std::wstring widen(unsigned int code_page, std::string_view text)
{
    const int length = length_of(text);
    std::wstring wide(static_cast<std::size_t>(length), L'\0'); // no way of writing takes fewer bytes than units
    const int written = length == 0 ? 0 : ::MultiByteToWideChar(code_page, 0, text.data(), length, wide.data(), length);
    wide.resize(static_cast<std::size_t>(written));
    return wide;
}

std::string narrow(unsigned int code_page, std::wstring_view text)
{
    const int length = length_of(text);
    if (length == 0)
        return {};
    const int size = ::WideCharToMultiByte(code_page, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(code_page, 0, text.data(), length, bytes.data(), size, nullptr, nullptr);
    return bytes;
}
} // namespace

std::wstring wide_of_utf8(std::string_view text) { return widen(CP_UTF8, text); }

std::string utf8_of_wide(std::wstring_view text) { return narrow(CP_UTF8, text); }

std::string narrow_of_utf8(std::string_view text) { return narrow(CP_ACP, widen(CP_UTF8, text)); }

std::string utf8_of_narrow(std::string_view text) { return narrow(CP_UTF8, widen(CP_ACP, text)); }

core::CodePage code_page() noexcept
{
    core::CodePage page{};
    unsigned int byte = 0x80;
    for (char16_t& character : page)
    {
        const char text = static_cast<char>(byte++);
        wchar_t wide = L'\0';
        const bool is_whole = ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, &text, 1, &wide, 1) == 1;
        character = is_whole ? static_cast<char16_t>(wide) : core::REPLACEMENT;
    }
    return page;
}

bool put_wide_of_utf8(const char* text, wchar_t* buffer, int size) noexcept
{
    if (::MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer, size) != 0)
        return true;
    buffer[size - 1] = L'\0'; // the system fills what room there is
    return false;
}
} // namespace kor::win
