#include "site/store.h"

#include <windows.h>

#include <algorithm>

#include "failure.h"
#include "file.h"
#include "site/etcd_store.h"
#include "site/file_store.h"
#include "text.h"

namespace levelsync
{
namespace
{
std::string variable(const wchar_t* name)
{
    std::wstring value(32'768, L'\0'); // as long as a variable can be
    value.resize(::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return utf8(value);
}

std::string take_line(std::string& text)
{
    std::string line = text.substr(0, text.find('\n'));
    text.erase(0, line.size() + 1);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

Credentials read_credentials(const std::string& file)
{
    if (file.empty())
        return {variable(L"LEVELSYNC_SITE_USER"), variable(L"LEVELSYNC_SITE_PASSWORD")};
    auto text = read_whole(wide(file));
    if (!text)
        throw Failure(
            "There is no file " + shown(file) + ".", "--credentials names a file with user and password, a line each.",
            WRONG_CALL);
    Credentials credentials;
    credentials.user = take_line(*text);
    credentials.password = take_line(*text);
    return credentials;
}
} // namespace

std::unique_ptr<SiteStore> open_store(const std::string& address, const std::string& credentials)
{
    kor::core::SiteAddress place = kor::core::read_site_address(address);
    if (!place.problem.empty())
        throw Failure(
            shown(place.problem),
            "Say it as in --site file:\\\\server\\share\\lumlog or --site etcd:http://server:2379/lumlog.", WRONG_CALL);
    if (!place.folder.empty())
        return std::make_unique<FileStore>(place.folder);
    return std::make_unique<EtcdStore>(std::move(place), read_credentials(credentials));
}
} // namespace levelsync
