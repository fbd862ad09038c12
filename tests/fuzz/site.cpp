// site.cpp - any bytes as what a site wants: it is refused with a sentence, or the file that comes of it is one that is read
// as it looks and says what was asked for.

#include "core/site.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/level_check.h"
#include "core/site_address.h"
#include "require.h"

using namespace kor::core;

namespace
{
constexpr std::int64_t NOW = 1'700'000'000'000;
constexpr char SOUND_BASE[] =
    "2\nfile_size_limit_in_mb=10\nReader 310 5 // reads\nReplay 320 6 [(7;;viewer)] // replays\n";

/// Pieces between bytes of 0xFE, which no UTF-8 has.
std::string take_piece(std::string_view& rest)
{
    const std::string piece(rest.substr(0, rest.find('\xFE')));
    rest.remove_prefix(piece.size() + (piece.size() < rest.size() ? 1 : 0));
    return piece;
}

SiteOverride take_override(std::string_view& rest, int number)
{
    SiteOverride over;
    over.id = std::to_string(number);
    over.name = take_piece(rest);
    over.reason = take_piece(rest);
    for (auto& list : over.filters.lists)
    {
        std::string entry = take_piece(rest);
        if (!entry.empty())
            list.push_back(std::move(entry));
    }
    const std::string numbers = take_piece(rest);
    over.package = numbers.empty() ? 320 : static_cast<unsigned char>(numbers[0]) * 3 % 750;
    over.level = numbers.size() < 2 ? 7 : numbers[1] % 10;
    over.made = NOW - 1'000;
    over.until = NOW + (numbers.size() < 3 ? 1'000 : numbers[2] * 100'000LL);
    return over;
}

void require_sound(const SiteWish& wish, const MergedSite& merged)
{
    if (!merged.problem.empty())
    {
        require(merged.bytes.empty());
        return;
    }
    const LevelFile base(*wish.base);
    const LevelFile file(merged.bytes);
    require(file.output() == base.output() && file.size_limit() == base.size_limit());
    require(!file.cut_line() && !file.has_byte_order_mark());
    require(is_valid_utf8(merged.bytes));
    for (const Finding& finding : check_level_file(file))
        require(finding.oddity != Oddity::WRONG);
    for (const auto& [number, package] : base.packages())
        require(file.packages().count(number) == 1);
    if (wish.groups.empty() && merged.live.empty())
        require(merged.bytes == *wish.base);
    // Once more on top of itself it changes nothing.
    SiteWish again = wish;
    again.base = merged.bytes;
    require(merge_site(again, NOW).bytes == merged.bytes);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const SiteAddress address = read_site_address(rest);
    if (address.problem.empty())
        require(read_site_address(address.text()).text() == address.text());
    SiteWish wish;
    wish.base = take_piece(rest);
    if (wish.base->empty())
        wish.base = SOUND_BASE;
    const std::string section = take_piece(rest);
    if (!section.empty())
        wish.groups.push_back({"servers", section});
    for (int number = 1; !rest.empty() && number < 4; ++number)
        wish.overrides.push_back(take_override(rest, number));
    require_sound(wish, merge_site(wish, NOW));
    return 0;
}
