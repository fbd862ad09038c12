// rule_text.h - the text of log-level rules, taken apart and put together.

#ifndef KOR_CORE_RULE_TEXT_H
#define KOR_CORE_RULE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kor::core
{
/// The parenthesised pieces of text, without their parentheses; views into text.
std::vector<std::string_view> split_rules(std::string_view text);

/// One rule's text, taken apart. Views into it.
struct RuleText
{
    int level = 0;
    std::size_t field_count = 0; ///< lists that the text has, empty ones included: 0 to 4
    std::vector<std::string_view> lists[4];
};

/// Places of RuleText::lists.
enum RuleList
{
    RULE_ADDRESSES,
    RULE_APPLICATIONS,
    RULE_PROCESSES,
    RULE_SESSIONS
};

/// Reads "level;addresses;applications;process ids;session ids". An empty item ends its list.
RuleText split_rule(std::string_view text);

/// "address/bits" taken apart; bits is -1 when there is no slash.
struct AddressText
{
    std::string_view address;
    int bits;
};
AddressText split_address(std::string_view text) noexcept;

/// A process or session id. Ids have 32 bits: what is larger becomes the largest, and says so.
struct IdText
{
    std::uint32_t id;
    bool cut;
};
IdText read_id(std::string_view text) noexcept;

/// The inverse of split_rule, in parentheses, with the first list_count of the lists as finished
/// texts. The session ids follow a colon, not a semicolon, and so come back as part of the process
/// ids: existing files and tools have it so.
std::string join_rule(int level, const std::string (&lists)[4], std::size_t list_count);
} // namespace kor::core

#endif // KOR_CORE_RULE_TEXT_H
