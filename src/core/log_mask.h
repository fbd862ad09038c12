// log_mask.h - logs for others to read: addresses and names of users replaced by stand-ins.

#ifndef KOR_CORE_LOG_MASK_H
#define KOR_CORE_LOG_MASK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/log_line.h"

namespace kor::core
{
/// The bytes of an address in text form, with an IPv4 one mapped into IPv6.
struct AddressBytes
{
    std::uint8_t bytes[16] = {};
    bool is_ipv4 = false;
};

/// Reads all of text as "192.0.2.7" or as an IPv6 address, "::ffff:192.0.2.7" among them. False for anything else.
bool read_address(std::string_view text, AddressBytes& address) noexcept;

/// Replaces the same address by the same stand-in wherever it stands, and so with names, as long as this lives.
///
/// IPv4 addresses become ip-1-2-3-4, whose parts are counted anew below each network, so that addresses of one network
/// are seen to be of it; zeros at the end, by which a rule means a network, stay. IPv6 addresses become ip6-1-2, the
/// first number for the network of 64 bits. Users become user-1, hosts that are named as clients host-1. Addresses of the
/// machine itself (127.x.x.x, ::1) and those that are none (0.0.0.0, ::) stay.
class LogMask
{
public:
    /// A name to be replaced, whatever the case of its letters, where it stands as a word.
    void add_user(std::string_view name);
    void add_host(std::string_view name);

    /// Adds the names that a line tells: the user of a banner, a client that is no address.
    void learn(const LogLine& line);

    /// A line, or several, with all that is to be replaced replaced. What is no text goes through as it is.
    std::string mask(std::string_view text);

    /// How many different ones were replaced or are known.
    std::size_t addresses() const noexcept { return m_addresses.size(); }
    std::size_t users() const noexcept { return m_users; }

private:
    struct Name
    {
        std::string text; ///< in lower case
        std::string stand_in;
    };

    void add_name(std::string_view name, const char* kind, std::size_t& count);
    const Name* find_name(std::string_view text) const;
    bool replace_address(std::string_view text, std::size_t& at, std::string& to);
    bool replace_name(std::string_view text, std::size_t& at, std::string& to) const;
    bool replace_home(std::string_view text, std::size_t& at, std::string& to);
    std::string stand_in(const AddressBytes& address);
    std::string ipv4_stand_in(const std::uint8_t* octets);
    std::string ipv6_stand_in(const std::uint8_t* bytes);
    unsigned number_of(const std::string& network, const std::string& part);

    std::map<std::string, std::vector<Name>> m_names; // by their first words
    std::size_t m_users = 0;
    std::size_t m_hosts = 0;
    std::map<std::string, std::string> m_addresses; // stand-ins
    std::map<std::string, unsigned> m_numbers;      // of the parts of addresses
    std::map<std::string, unsigned> m_counts;       // of networks
};
} // namespace kor::core

#endif // KOR_CORE_LOG_MASK_H
