#include "core/file_path.h"

namespace kor::core
{
namespace
{
constexpr std::wstring_view VERBATIM = L"\\\\?\\";
constexpr std::wstring_view DEVICE = L"\\\\.\\";
constexpr std::wstring_view NETWORK = L"\\\\";

bool begins_with(std::wstring_view text, std::wstring_view beginning) noexcept
{
    return text.substr(0, beginning.size()) == beginning;
}
} // namespace

bool is_verbatim(std::wstring_view path) noexcept { return begins_with(path, VERBATIM); }

std::wstring tidy_verbatim(std::wstring_view path)
{
    std::wstring tidy(path.substr(0, VERBATIM.size()));
    for (const wchar_t c : path.substr(tidy.size()))
    {
        const bool is_separator = c == L'/' || c == L'\\';
        if (!is_separator)
            tidy += c;
        else if (tidy.back() != L'\\')
            tidy += L'\\';
    }
    return tidy;
}

std::wstring lift_length_limit(std::wstring full_path)
{
    if (full_path.size() <= LONGEST_PLAIN_PATH || is_verbatim(full_path) || begins_with(full_path, DEVICE))
        return full_path;
    if (begins_with(full_path, NETWORK))
        return full_path.replace(0, NETWORK.size(), L"\\\\?\\UNC\\");
    return full_path.insert(0, VERBATIM);
}
} // namespace kor::core
