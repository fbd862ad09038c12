#include "core/rule_text.h"

#include <algorithm>
#include <limits>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
/// Takes the text up to separator, and the separator, off the front of rest. False when the last
/// piece has been taken.
bool take_piece(std::string_view& rest, bool& more, char separator, std::string_view& piece) noexcept
{
    if (!more)
        return false;
    const std::size_t end = rest.find(separator);
    more = end != std::string_view::npos;
    piece = rest.substr(0, end);
    rest.remove_prefix(more ? end + 1 : rest.size());
    return true;
}

std::vector<std::string_view> split_items(std::string_view field)
{
    std::vector<std::string_view> items;
    bool more = true;
    std::string_view item;
    while (take_piece(field, more, ',', item) && !item.empty())
        items.push_back(item);
    return items;
}
} // namespace

std::vector<std::string_view> split_rules(std::string_view text)
{
    std::vector<std::string_view> rules;
    rules.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), ')')));
    for (;;)
    {
        const std::size_t open = text.find('(');
        if (open == std::string_view::npos)
            return rules;
        const std::size_t close = text.find(')', open);
        if (close == std::string_view::npos)
            return rules;
        rules.push_back(text.substr(open + 1, close - open - 1));
        text.remove_prefix(close + 1);
    }
}

RuleText split_rule(std::string_view text)
{
    RuleText rule;
    bool more = true;
    std::string_view field;
    take_piece(text, more, ';', field);
    rule.level = clamp_to_int(number_at_front(field));
    for (auto& list : rule.lists)
    {
        if (!take_piece(text, more, ';', field))
            break;
        list = split_items(field);
        ++rule.field_count;
    }
    return rule;
}

AddressText split_address(std::string_view text) noexcept
{
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos)
        return {text, -1};
    return {text.substr(0, slash), clamp_to_int(number_at_front(text.substr(slash + 1)))};
}

IdText read_id(std::string_view text) noexcept
{
    constexpr std::int64_t largest = std::numeric_limits<std::uint32_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int32_t>::min();
    const std::int64_t value = number_at_front(text);
    // Negative ones keep their 32 bits: a signed listing prints ids above 2147483647 so.
    return {static_cast<std::uint32_t>(std::clamp(value, smallest, largest)), value < smallest || value > largest};
}

std::string join_rule(int level, const std::string (&lists)[4], std::size_t list_count)
{
    std::string text = "(" + std::to_string(level);
    for (std::size_t i = 0; i < list_count; ++i)
    {
        text += i == RULE_SESSIONS ? ':' : ';';
        text += lists[i];
    }
    return text + ")";
}
} // namespace kor::core
