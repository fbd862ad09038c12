#include "win/text.h"

#include <windows.h>

namespace kor::win
{
std::string narrow(const wchar_t* text)
{
    const int size = ::WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return {};
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_ACP, 0, text, -1, bytes.data(), size, nullptr, nullptr);
    bytes.pop_back(); // the terminator, which std::string has of its own
    return bytes;
}
} // namespace kor::win
