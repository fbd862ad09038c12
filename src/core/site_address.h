// site_address.h - where a site keeps what it wants: a folder that machines share, or a store of keys.

#ifndef KOR_CORE_SITE_ADDRESS_H
#define KOR_CORE_SITE_ADDRESS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kor::core
{
/// A server of a store.
struct SiteEndpoint
{
    bool is_secure = false; ///< by TLS
    std::string host;       ///< name or address; an IPv6 address without its brackets
    std::uint16_t port = 0;

    /// "http://store.example:2379", with brackets where the host needs them.
    std::string text() const;
};

/// "file:FOLDER" or "etcd:http://HOST:PORT[,http://HOST:PORT]...[/PREFIX]", taken apart.
struct SiteAddress
{
    std::string problem;                 ///< why it is none, a whole sentence; empty: it is one
    std::string folder;                  ///< empty: a store of keys
    std::vector<SiteEndpoint> endpoints; ///< of a store
    std::string prefix; ///< of its keys, with "/" in front and none behind: "/lumlog" where none is given

    /// As it was meant; what no key and no folder can tell apart looks the same.
    std::string text() const;
};

SiteAddress read_site_address(std::string_view text);
} // namespace kor::core

#endif // KOR_CORE_SITE_ADDRESS_H
