#include "core/location_prefix.h"

#include <charconv>
#include <limits>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
constexpr auto NONE = std::string_view::npos;

/// Takes the sign and what tells the base off the front.
int take_base(std::string_view& digits) noexcept
{
    if (digits.empty() || digits.front() != '0')
        return 10;
    if (digits.size() < 3 || (digits[1] != 'x' && digits[1] != 'X'))
        return 8;
    digits.remove_prefix(2);
    return 16;
}

bool take_sign(std::string_view& digits) noexcept
{
    const bool negative = !digits.empty() && digits.front() == '-';
    if (negative || (!digits.empty() && digits.front() == '+'))
        digits.remove_prefix(1);
    return negative;
}
} // namespace

bool read_line_number(std::string_view field, std::int32_t& line) noexcept
{
    line = 0;
    if (field.empty())
        return true;
    while (!field.empty() && is_blank(field.front()))
        field.remove_prefix(1);
    const bool negative = take_sign(field);
    const int base = take_base(field);
    std::uint32_t value = 0; // unsigned, as this reads no second sign
    const char* const end = field.data() + field.size();
    const std::from_chars_result result = std::from_chars(field.data(), end, value, base);
    const std::int64_t number = negative ? -static_cast<std::int64_t>(value) : static_cast<std::int64_t>(value);
    if (result.ec != std::errc() || result.ptr != end || number > std::numeric_limits<std::int32_t>::max() ||
        number < std::numeric_limits<std::int32_t>::min())
        return false;
    line = static_cast<std::int32_t>(number);
    return true;
}

LocatedText read_location(std::string_view text) noexcept
{
    LocatedText located{false, {}, {}, {}, 0, text};
    const std::size_t open = text.find('<');
    const std::size_t close = text.find('>', open == NONE ? text.size() : open);
    const std::size_t comma = text.find(',', open == NONE ? text.size() : open);
    const std::size_t dot = text.find('.', comma == NONE ? text.size() : comma);
    const std::size_t colon = text.find(':', dot == NONE ? text.size() : dot);
    if (close == NONE || colon == NONE)
        return located;
    located.has_prefix = true;
    located.thread = text.substr(open + 1, comma - open - 1);
    located.class_name = text.substr(comma + 1, dot - comma - 1);
    located.function = text.substr(dot + 1, colon - dot - 1);
    // The end of the prefix is looked for on its own, so it may stand in front of the colon.
    if (colon < close && read_line_number(text.substr(colon + 1, close - colon - 1), located.line))
        located.body = text.substr(close + 1);
    return located;
}
} // namespace kor::core
