#include "tool.h"

#include <windows.h>

#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr wchar_t FILE_NAME[] = L"logger";
constexpr wchar_t VARIABLE[] = L"PRISMATE_LOG_DIR";
constexpr wchar_t DEFAULT_FOLDER[] = L"log"; // as the library has it, below the current folder

std::wstring variable(const wchar_t* name)
{
    std::wstring value(32'768, L'\0'); // as long as a variable can be
    value.resize(::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

std::wstring absolute(const std::wstring& path)
{
    std::wstring result(32'768, L'\0');
    result.resize(::GetFullPathNameW(path.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    while (result.size() > 3 && (result.back() == L'\\' || result.back() == L'/'))
        result.pop_back();
    return result;
}

/// Who names the file means its folder.
std::wstring without_file(std::wstring path)
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const std::size_t slash = path.find_last_of(L"\\/");
    const bool is_file = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    if (is_file && slash != std::wstring::npos && ::lstrcmpiW(path.c_str() + slash + 1, FILE_NAME) == 0)
        path.resize(slash);
    return path;
}
} // namespace

Folder find_folder(const std::string& option)
{
    std::wstring named = option.empty() ? variable(VARIABLE) : wide(option);
    const bool is_given = !named.empty();
    if (!is_given)
        named = DEFAULT_FOLDER;
    Folder folder{without_file(absolute(named)), is_given, {}};
    folder.file = folder.name(FILE_NAME);
    return folder;
}

std::string system_text(unsigned long error)
{
    wchar_t text[512] = {};
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, 512, nullptr);
    std::string result = shown(utf8({text, length}));
    while (!result.empty() && static_cast<unsigned char>(result.back()) <= ' ')
        result.pop_back();
    while (result.size() >= 2 && result.compare(result.size() - 2, 2, "\xC2\xB7") == 0) // the line end it came with
        result.resize(result.size() - 2);
    return (result.empty() ? "no text" : result) + " (error " + std::to_string(error) + ")";
}
} // namespace levelsync
