#include "core/site_address.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
constexpr std::string_view SHARE = "file:";
constexpr std::string_view STORE = "etcd:";
constexpr std::string_view PLAIN = "http://";
constexpr std::string_view SECURE = "https://";
constexpr std::string_view USUAL_PREFIX = "/lumlog";
constexpr std::uint16_t USUAL_PORT = 2379;
constexpr std::size_t MOST_ENDPOINTS = 16;
constexpr std::size_t MOST_HOST_CHARACTERS = 253; // of a name, as resolvers have it
constexpr std::size_t MOST_PREFIX_CHARACTERS = 200;

bool begins_with(std::string_view text, std::string_view front) noexcept
{
    return text.substr(0, front.size()) == front;
}

SiteAddress refused(std::string problem)
{
    SiteAddress address;
    address.problem = std::move(problem);
    return address;
}

bool is_host_character(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_';
}

bool is_host(std::string_view host, bool is_bracketed) noexcept
{
    return !host.empty() && host.size() <= MOST_HOST_CHARACTERS &&
           std::all_of(
               host.begin(), host.end(),
               [is_bracketed](char c) { return is_host_character(c) || (is_bracketed && (c == ':' || c == '%')); });
}

std::optional<std::uint16_t> read_port(std::string_view text)
{
    const bool has_digits = !text.empty() && text.size() <= 5 &&
                            std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const std::int64_t value = has_digits ? number_at_front(text) : 0;
    return value >= 1 && value <= 65'535 ? std::optional<std::uint16_t>(static_cast<std::uint16_t>(value))
                                         : std::nullopt;
}

/// "http://host:port"; nothing for what is none.
std::optional<SiteEndpoint> read_endpoint(std::string_view text)
{
    SiteEndpoint endpoint;
    endpoint.is_secure = begins_with(text, SECURE);
    if (!endpoint.is_secure && !begins_with(text, PLAIN))
        return std::nullopt;
    text.remove_prefix(endpoint.is_secure ? SECURE.size() : PLAIN.size());
    const bool is_bracketed = !text.empty() && text.front() == '[';
    const std::size_t close = is_bracketed ? text.find(']') : 0;
    if (close == std::string_view::npos)
        return std::nullopt;
    const std::size_t colon = text.find(':', close);
    const std::string_view host =
        is_bracketed ? text.substr(1, close - 1) : text.substr(0, std::min(colon, text.size()));
    const std::string_view behind = is_bracketed ? text.substr(close + 1) : text.substr(host.size());
    endpoint.host = host;
    endpoint.port = USUAL_PORT;
    if (!behind.empty())
    {
        const auto port = behind.front() == ':' ? read_port(behind.substr(1)) : std::nullopt;
        if (!port)
            return std::nullopt;
        endpoint.port = *port;
    }
    return is_host(host, is_bracketed) ? std::optional<SiteEndpoint>(endpoint) : std::nullopt;
}

bool is_prefix(std::string_view prefix) noexcept
{
    return prefix.size() <= MOST_PREFIX_CHARACTERS && prefix.find("//") == std::string_view::npos &&
           std::all_of(prefix.begin(), prefix.end(), [](char c) { return is_host_character(c) || c == '/'; });
}

SiteAddress read_store(std::string_view text)
{
    SiteAddress address;
    address.prefix = USUAL_PREFIX;
    const std::size_t last = text.rfind(',') == std::string_view::npos ? 0 : text.rfind(',') + 1;
    const std::size_t scheme = text.find("://", last);
    const std::size_t slash = scheme == std::string_view::npos ? scheme : text.find('/', scheme + 3);
    if (slash != std::string_view::npos)
    {
        std::string_view prefix = text.substr(slash);
        while (!prefix.empty() && prefix.back() == '/')
            prefix.remove_suffix(1);
        if (!is_prefix(prefix))
            return refused("The front of the keys has characters other than letters, digits, and - _ . / between.");
        if (!prefix.empty())
            address.prefix = prefix;
        text = text.substr(0, slash);
    }
    if (text.find('@') != std::string_view::npos)
        return refused(
            "An address has no user and no password in it: they would stand in histories and lists of processes.");
    for (bool more = true; more;)
    {
        const std::size_t comma = text.find(',');
        const std::string_view one = text.substr(0, comma);
        more = comma != std::string_view::npos;
        text.remove_prefix(more ? comma + 1 : text.size());
        const auto endpoint = read_endpoint(one);
        if (!endpoint)
            return refused('"' + std::string(one) + "\" is no server of a store.");
        address.endpoints.push_back(*endpoint);
        if (address.endpoints.size() > MOST_ENDPOINTS)
            return refused("The address names more than " + std::to_string(MOST_ENDPOINTS) + " servers.");
    }
    return address;
}
} // namespace

std::string SiteEndpoint::text() const
{
    const bool needs_brackets = host.find(':') != std::string::npos;
    return std::string(is_secure ? SECURE : PLAIN) + (needs_brackets ? '[' + host + ']' : host) + ':' +
           std::to_string(port);
}

std::string SiteAddress::text() const
{
    if (!folder.empty())
        return std::string(SHARE) + folder;
    std::string text(STORE);
    for (std::size_t i = 0; i < endpoints.size(); ++i)
        text += (i == 0 ? "" : ",") + endpoints[i].text();
    return text + prefix;
}

SiteAddress read_site_address(std::string_view text)
{
    if (begins_with(text, STORE))
        return read_store(text.substr(STORE.size()));
    if (!begins_with(text, SHARE))
        return refused('"' + std::string(text) + "\" is no address of a site.");
    SiteAddress address;
    address.folder = text.substr(SHARE.size());
    while (address.folder.size() > 1 && (address.folder.back() == '\\' || address.folder.back() == '/') &&
           address.folder[address.folder.size() - 2] != ':')
        address.folder.pop_back();
    if (address.folder.empty() || address.folder.find('\0') != std::string::npos)
        return refused("The address names no folder.");
    return address;
}
} // namespace kor::core
