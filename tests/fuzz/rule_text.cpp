// rule_text.cpp - any bytes as the text of log-level rules: what it is split into, and joined again.

#include "core/rule_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "require.h"

using kor::core::RuleText;
using Items = std::vector<std::string_view>;

namespace
{
bool has(std::string_view text, char c) { return text.find(c) != std::string_view::npos; }

std::string joined(const Items& items)
{
    std::string text;
    for (const std::string_view item : items)
        text.append(text.empty() ? "" : ",").append(item);
    return text;
}

Items split_at_commas(const std::string& text)
{
    Items items;
    const std::string_view all = text;
    for (std::size_t at = 0; at < all.size();)
    {
        const std::size_t end = std::min(all.find(',', at), all.size());
        items.push_back(all.substr(at, end - at));
        at = end + 1;
    }
    return items;
}

/// The number that strtoll reads, whose rules are the same.
long long number_in(std::string_view text) { return std::strtoll(std::string(text).c_str(), nullptr, 10); }

void check_id(std::string_view item)
{
    constexpr long long largest = std::numeric_limits<std::uint32_t>::max();
    constexpr long long smallest = std::numeric_limits<std::int32_t>::min();
    const kor::core::IdText id = kor::core::read_id(item);
    const long long value = number_in(item);
    require(id.cut == (value > largest || value < smallest));
    require(id.id == static_cast<std::uint32_t>(std::clamp(value, smallest, largest)));
}

void check_address(std::string_view item)
{
    constexpr long long largest = std::numeric_limits<int>::max();
    constexpr long long smallest = std::numeric_limits<int>::min();
    const kor::core::AddressText address = kor::core::split_address(item);
    require(is_inside(address.address, item));
    require(!has(address.address, '/'));
    if (!has(item, '/'))
    {
        require(address.address == item);
        require(address.bits == -1);
        return;
    }
    require(item.substr(0, address.address.size() + 1) == std::string(address.address) + '/');
    const long long bits = number_in(item.substr(address.address.size() + 1));
    require(address.bits == std::clamp(bits, smallest, largest));
}

void check_rule(const RuleText& rule, std::string_view text)
{
    require(
        rule.field_count ==
        std::min<std::size_t>(4, static_cast<std::size_t>(std::count(text.begin(), text.end(), ';'))));
    require(
        rule.level == std::clamp<long long>(
                          number_in(text.substr(0, text.find(';'))), std::numeric_limits<int>::min(),
                          std::numeric_limits<int>::max()));
    for (std::size_t i = 0; i < 4; ++i)
    {
        require(i < rule.field_count || rule.lists[i].empty());
        for (const std::string_view item : rule.lists[i])
        {
            require(is_inside(item, text));
            require(!item.empty() && !has(item, ',') && !has(item, ';'));
            check_address(item);
            check_id(item);
        }
    }
}

/// Joins a rule, and splits what comes of it.
void join_and_split(const RuleText& rule)
{
    const std::string lists[4] = {
        joined(rule.lists[0]), joined(rule.lists[1]), joined(rule.lists[2]), joined(rule.lists[3])};
    const std::string text = kor::core::join_rule(rule.level, lists, rule.field_count);
    const Items pieces = kor::core::split_rules(text);
    require(pieces.size() == 1);
    const RuleText again = kor::core::split_rule(pieces[0]);
    require(again.level == rule.level);
    require(again.field_count == std::min<std::size_t>(rule.field_count, 3));
    require(again.lists[0] == rule.lists[0]);
    require(again.lists[1] == rule.lists[1]);
    if (rule.field_count < 4)
    {
        require(again.lists[2] == rule.lists[2]);
        require(kor::core::join_rule(again.level, lists, again.field_count) == text);
    }
    else // the session ids have become part of the process ids
        require(again.lists[2] == split_at_commas(lists[2] + ':' + lists[3]));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const char* last = text.data();
    for (const std::string_view piece : kor::core::split_rules(text))
    {
        require(is_inside(piece, text));
        require(piece.data() > last && piece.data()[-1] == '(' && piece.data()[piece.size()] == ')');
        require(!has(piece, ')'));
        // No rule begins between this one and the one before it.
        require(std::find(last, piece.data() - 1, '(') == piece.data() - 1);
        last = piece.data() + piece.size() + 1;

        const RuleText rule = kor::core::split_rule(piece);
        check_rule(rule, piece);
        join_and_split(rule);
    }
    const std::string_view rest = text.substr(static_cast<std::size_t>(last - text.data()));
    const std::size_t open = rest.find('(');
    require(open == std::string_view::npos || !has(rest.substr(open), ')'));

    check_rule(kor::core::split_rule(text), text); // text that never was in parentheses
    check_address(text);
    check_id(text);
    return 0;
}
