#include "core/log_mask.h"

#include <algorithm>

#include "core/address.h"

namespace kor::core
{
namespace
{
// Accounts that are nobody's.
constexpr std::string_view SERVICE_ACCOUNTS[] = {"system",         "local service", "localservice", "network service",
                                                 "networkservice", "local system",  "localsystem",  "nt authority",
                                                 "public",         "default",       "(null)",       "unknown"};

// What stands in front of the name of somebody's folder.
constexpr std::string_view HOMES[] = {"\\users\\", "/users/", "/home/", "\\documents and settings\\"};

constexpr std::size_t LONGEST_ADDRESS = 45; // characters of an IPv6 address that ends in an IPv4 one

constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
constexpr bool is_hex(char c) noexcept { return is_digit(c) || (lower(c) >= 'a' && lower(c) <= 'f'); }

/// Letters, digits, the underscore, and all bytes of letters beyond ASCII.
constexpr bool is_of_word(char c) noexcept
{
    return is_digit(c) || (lower(c) >= 'a' && lower(c) <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

constexpr bool is_of_address(char c) noexcept { return is_hex(c) || c == ':' || c == '.'; }

std::string lower_case(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), &lower);
    return result;
}

/// The word that text begins with, or its first character.
std::string_view first_word(std::string_view text) noexcept
{
    std::size_t length = 0;
    while (length < text.size() && is_of_word(text[length]))
        ++length;
    return text.substr(0, std::max<std::size_t>(length, 1));
}

/// "user-17"
bool is_stand_in(std::string_view name, std::string_view kind) noexcept
{
    return name.size() > kind.size() && name.substr(0, kind.size()) == kind &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(kind.size()), name.end(), &is_digit);
}

bool read_ipv4(std::string_view text, std::uint8_t* octets) noexcept
{
    for (int i = 0; i < 4; ++i)
    {
        unsigned value = 0;
        std::size_t digits = 0;
        for (; digits < text.size() && digits < 3 && is_digit(text[digits]); ++digits)
            value = value * 10 + static_cast<unsigned>(text[digits] - '0');
        if (digits == 0 || value > 255)
            return false;
        octets[i] = static_cast<std::uint8_t>(value);
        text.remove_prefix(digits);
        if (i == 3)
            break;
        if (text.empty() || text.front() != '.')
            return false;
        text.remove_prefix(1);
    }
    return text.empty();
}

/// Up to four hexadecimal digits.
bool take_group(std::string_view& text, unsigned& value) noexcept
{
    std::size_t digits = 0;
    value = 0;
    for (; digits < text.size() && is_hex(text[digits]); ++digits)
    {
        const char c = lower(text[digits]);
        value = value * 16 + static_cast<unsigned>(is_digit(c) ? c - '0' : c - 'a' + 10);
        if (digits == 4)
            return false;
    }
    text.remove_prefix(digits);
    return digits > 0;
}

bool read_ipv6(std::string_view text, std::uint8_t* bytes) noexcept
{
    std::uint8_t groups[16] = {};
    std::size_t filled = 0;
    std::size_t gap = 17; // where "::" stands; beyond all: nowhere
    if (text.size() < 2 || (text[0] == ':' && text[1] != ':'))
        return false;
    while (!text.empty())
    {
        if (text.size() >= 2 && text[0] == ':' && text[1] == ':')
        {
            if (gap <= 16)
                return false;
            gap = filled;
            text.remove_prefix(2);
            continue;
        }
        if (filled > 0 && gap != filled)
        {
            if (text.front() != ':')
                return false;
            text.remove_prefix(1);
        }
        std::uint8_t octets[4];
        if (filled <= 12 && read_ipv4(text, octets))
        {
            std::copy(octets, octets + 4, groups + filled);
            filled += 4;
            break;
        }
        unsigned value = 0;
        if (filled > 14 || !take_group(text, value))
            return false;
        groups[filled++] = static_cast<std::uint8_t>(value >> 8);
        groups[filled++] = static_cast<std::uint8_t>(value);
    }
    if (gap > 16 ? filled != 16 : filled > 14)
        return false;
    const std::size_t front = std::min(gap, filled);
    std::fill(bytes, bytes + 16, std::uint8_t{0});
    std::copy(groups, groups + front, bytes);
    std::copy_backward(groups + front, groups + filled, bytes + 16);
    return true;
}

std::string key_of(const std::uint8_t* bytes, std::size_t count)
{
    return std::string(reinterpret_cast<const char*>(bytes), count);
}
} // namespace

bool read_address(std::string_view text, AddressBytes& address) noexcept
{
    address = {};
    if (read_ipv4(text, address.bytes + 12))
    {
        address.bytes[10] = 0xFF;
        address.bytes[11] = 0xFF;
    }
    else if (!read_ipv6(text, address.bytes))
    {
        return false;
    }
    address.is_ipv4 = is_mapped_ipv4(address.bytes);
    return true;
}

void LogMask::add_user(std::string_view name) { add_name(name, "user-", m_users); }

void LogMask::add_host(std::string_view name) { add_name(name, "host-", m_hosts); }

void LogMask::learn(const LogLine& line)
{
    add_user(line.user);
    AddressBytes address;
    if (!line.client.empty() && !read_address(line.client.substr(0, line.client.find('%')), address))
        add_host(line.client);
}

void LogMask::add_name(std::string_view name, const char* kind, std::size_t& count)
{
    const std::string text = lower_case(name);
    const bool is_service =
        std::find(std::begin(SERVICE_ACCOUNTS), std::end(SERVICE_ACCOUNTS), text) != std::end(SERVICE_ACCOUNTS);
    if (text.empty() || is_service || is_stand_in(text, kind))
        return;
    std::vector<Name>& names = m_names[std::string(first_word(text))];
    if (std::any_of(names.begin(), names.end(), [&text](const Name& known) { return known.text == text; }))
        return;
    ++count;
    names.push_back({text, kind + std::to_string(count)});
    // Of two that begin alike the longer one is meant.
    std::stable_sort(
        names.begin(), names.end(), [](const Name& a, const Name& b) { return a.text.size() > b.text.size(); });
}

std::string LogMask::mask(std::string_view text)
{
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    std::size_t at = 0;
    while (at < text.size())
    {
        const bool begins_word = at == 0 || !is_of_word(text[at - 1]);
        if (replace_home(text, at, result) ||
            (begins_word && (replace_address(text, at, result) || replace_name(text, at, result))))
            continue;
        result += text[at++];
    }
    return result;
}

/// Replaces an address that begins there.
bool LogMask::replace_address(std::string_view text, std::size_t& at, std::string& to)
{
    if (!is_of_address(text[at]) || text[at] == '.' || (at > 0 && is_of_address(text[at - 1])))
        return false;
    std::size_t end = at;
    while (end < text.size() && is_of_address(text[end]) && end - at <= LONGEST_ADDRESS)
        ++end;
    // A full stop or a colon behind an address is not of it.
    while (end > at && (text[end - 1] == '.' || (text[end - 1] == ':' && (end - at < 2 || text[end - 2] != ':'))))
        --end;
    const std::string_view candidate = text.substr(at, end - at);
    if (end < text.size() && is_of_word(text[end]))
        return false;
    // A name with colons in it may be made of hexadecimal digits too, but hardly of any from 0 to 9.
    if (std::none_of(candidate.begin(), candidate.end(), &is_digit))
        return false;
    AddressBytes address;
    std::string_view read = candidate;
    if (!read_address(read, address))
    {
        read = candidate.substr(0, candidate.find(':')); // "192.0.2.7:8080"
        if (read.size() == candidate.size() || !read_address(read, address))
            return false;
    }
    const std::string replaced = stand_in(address);
    to += replaced.empty() ? std::string(read) : replaced;
    at += read.size();
    return true;
}

bool LogMask::replace_name(std::string_view text, std::size_t& at, std::string& to) const
{
    const Name* const name = m_names.empty() ? nullptr : find_name(text.substr(at));
    if (name == nullptr)
        return false;
    to += name->stand_in;
    at += name->text.size();
    return true;
}

/// The name that text begins with, as far as no word goes on behind it.
const LogMask::Name* LogMask::find_name(std::string_view text) const
{
    const auto found = m_names.find(lower_case(first_word(text)));
    if (found == m_names.end())
        return nullptr;
    for (const Name& name : found->second)
    {
        const std::size_t length = name.text.size();
        if (text.size() < length || lower_case(text.substr(0, length)) != name.text)
            continue;
        if (text.size() == length || !is_of_word(text[length]) || !is_of_word(text[length - 1]))
            return &name;
    }
    return nullptr;
}

/// Learns the name of a user by the folder that is his.
bool LogMask::replace_home(std::string_view text, std::size_t& at, std::string& to)
{
    if (text[at] != '\\' && text[at] != '/')
        return false;
    for (const std::string_view home : HOMES)
    {
        if (text.size() - at < home.size() || lower_case(text.substr(at, home.size())) != home)
            continue;
        std::size_t begin = at + home.size();
        while (begin < text.size() && text[begin] == home.back()) // as in sources and JSON: C:\\Users\\anna
            ++begin;
        const std::size_t end = std::min(text.find_first_of("\\/\"'<>|:*?,;)\r\n", begin), text.size());
        add_user(text.substr(begin, end - begin));
        to += text.substr(at, begin - at);
        at = begin;
        return true;
    }
    return false;
}

/// Empty for an address that stays.
std::string LogMask::stand_in(const AddressBytes& address)
{
    const bool is_none = std::all_of(address.bytes, address.bytes + 15, [](std::uint8_t byte) { return byte == 0; });
    const bool stays =
        address.is_ipv4 ? address.bytes[12] == 127 || address.bytes[12] == 0 : is_none && address.bytes[15] <= 1;
    if (stays)
        return {};
    std::string& known = m_addresses[key_of(address.bytes, 16)];
    if (known.empty())
        known = address.is_ipv4 ? ipv4_stand_in(address.bytes + 12) : ipv6_stand_in(address.bytes);
    return known;
}

std::string LogMask::ipv4_stand_in(const std::uint8_t* octets)
{
    std::size_t used = 4; // without the zeros at the end
    while (octets[used - 1] == 0)
        --used;
    std::string text = "ip";
    for (std::size_t i = 0; i < 4; ++i)
        text += '-' + std::to_string(i < used ? number_of(key_of(octets, i), key_of(octets, i + 1)) : 0);
    return text;
}

std::string LogMask::ipv6_stand_in(const std::uint8_t* bytes)
{
    const std::string network = "6" + key_of(bytes, 8);
    return "ip6-" + std::to_string(number_of("6", network)) + '-' +
           std::to_string(number_of(network, "6" + key_of(bytes, 16)));
}

/// The number of a part within its network, the next one for a part that is new.
unsigned LogMask::number_of(const std::string& network, const std::string& part)
{
    const auto [found, is_new] = m_numbers.try_emplace(part, 0);
    if (is_new)
        found->second = ++m_counts[network];
    return found->second;
}
} // namespace kor::core
