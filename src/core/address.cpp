#include "core/address.h"

#include <algorithm>
#include <cstring>

namespace kor::core
{
std::uint32_t ipv4_mask(std::uint32_t address) noexcept
{
    std::uint8_t octets[4];
    std::memcpy(octets, &address, sizeof octets); // network order: the first octet comes first
    std::size_t kept = sizeof octets;
    while (kept > 1 && octets[kept - 1] == 0)
        --kept;
    std::uint8_t mask[4] = {};
    std::fill_n(mask, kept, std::uint8_t{0xFF});
    std::uint32_t result = 0;
    std::memcpy(&result, mask, sizeof mask);
    return result;
}

bool ipv6_prefix(int bits, Prefix& prefix) noexcept
{
    if (bits < 0 || bits > 127)
        return false;
    const unsigned int partial = static_cast<unsigned int>(bits) % 8;
    prefix.bytes = static_cast<std::int8_t>(bits / 8);
    prefix.partial_mask = partial == 0 ? 0 : 0xFFu << (8 - partial);
    return true;
}

int prefix_bits(const Prefix& prefix) noexcept
{
    int bits = prefix.bytes * 8;
    for (std::uint32_t mask = prefix.partial_mask; (mask & 0x80) != 0; mask <<= 1)
        ++bits;
    return bits;
}

void apply_prefix(Ipv6Bytes& address, const Prefix& prefix) noexcept
{
    if (prefix.bytes < 0 || prefix.bytes >= static_cast<int>(IPV6_BYTES))
        return;
    std::uint8_t* const partial = address + prefix.bytes;
    *partial = static_cast<std::uint8_t>(*partial & prefix.partial_mask);
    std::fill(partial + 1, address + IPV6_BYTES, std::uint8_t{0});
}

bool is_ipv4_text(std::string_view text) noexcept
{
    int octets = 0;
    for (bool more = true; more; ++octets)
    {
        const std::string_view octet = text.substr(0, text.find('.'));
        more = octet.size() < text.size();
        text.remove_prefix(octet.size() + (more ? 1 : 0));
        const bool all_digits = std::all_of(
            octet.begin(), octet.end(), [](char character) { return character >= '0' && character <= '9'; });
        if (octet.empty() || octet.size() > 3 || !all_digits || (octet.size() > 1 && octet[0] == '0') ||
            (octet.size() == 3 && octet > "255"))
            return false;
    }
    return octets == 4;
}

bool is_mapped_ipv4(const Ipv6Bytes& address) noexcept
{
    constexpr std::uint8_t mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    return std::memcmp(address, mapped, sizeof mapped) == 0;
}
} // namespace kor::core
