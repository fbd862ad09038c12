#include "core/recorder_settings.h"

#include <charconv>
#include <cstring>

#include "core/line_ring.h"

namespace kor::core
{
namespace
{
/// Takes digits off the front. False when there is none, or too many.
template <class Number>
bool take_digits(std::string_view& text, Number& number) noexcept
{
    const std::from_chars_result taken = std::from_chars(text.data(), text.data() + text.size(), number);
    if (taken.ec != std::errc() || number < 0)
        return false;
    text.remove_prefix(static_cast<std::size_t>(taken.ptr - text.data()));
    return true;
}

bool take(std::string_view& text, char one, char other) noexcept
{
    if (text.empty() || (text.front() != one && text.front() != other))
        return false;
    text.remove_prefix(1);
    return true;
}

bool take_size(std::string_view& text, std::size_t& bytes) noexcept
{
    constexpr std::int64_t KILO = 1024;
    std::int64_t number = 0;
    if (!take_digits(text, number))
        return false;
    const std::int64_t unit = take(text, 'K', 'k') ? KILO : take(text, 'M', 'm') ? KILO * KILO : 1;
    if (number > static_cast<std::int64_t>(LineRing::MOST_SIZE))
        return false;
    bytes = static_cast<std::size_t>(number * unit);
    return is_recorder_size(bytes);
}

bool take_level(std::string_view& text, int& level) noexcept
{
    return take(text, ',', ',') && take_digits(text, level) && is_recorder_level(level);
}

bool take_package(std::string_view& text, RecorderSettings& to) noexcept
{
    int package = 0;
    int level = 0;
    const bool is_one = take(text, ',', ',') && take_digits(text, package) && package < PACKAGE_COUNT &&
                        take(text, '=', '=') && take_digits(text, level) && is_recorder_level(level);
    if (is_one)
        to.levels[package] = static_cast<std::int8_t>(level);
    return is_one;
}
} // namespace

bool is_recorder_size(std::size_t bytes) noexcept
{
    return bytes == 0 || (bytes >= LineRing::LEAST_SIZE && bytes <= LineRing::MOST_SIZE);
}

bool read_recorder_settings(std::string_view text, RecorderSettings& to) noexcept
{
    to.level = 0;
    std::memset(to.levels, RecorderSettings::AS_ALL, sizeof to.levels);
    if (!take_size(text, to.bytes))
        return false;
    if (!text.empty() && !take_level(text, to.level))
        return false;
    while (!text.empty())
        if (!take_package(text, to))
            return false;
    return true;
}
} // namespace kor::core
