#include "core/enum_declaration.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
constexpr auto NONE = std::string_view::npos;
constexpr std::string_view ENUM_KEYWORD = "enum";
constexpr std::string_view CLASS_KEYWORD = "class";
constexpr std::string_view ENUM_CLASS = "enum class";

// Sizes of hash tables. From 113 on primes are left out: it only has to grow by steps.
constexpr std::array<int, 107> TABLE_SIZES = {
    2,   3,   5,   7,   11,  13,  17,  19,   23,   29,   31,   37,   41,   43,   47,   53,   59,   61,
    67,  71,  73,  79,  83,  89,  97,  101,  103,  107,  113,  131,  139,  151,  163,  173,  181,  193,
    199, 223, 229, 233, 241, 257, 269, 277,  283,  307,  313,  331,  347,  353,  367,  379,  389,  401,
    419, 431, 439, 449, 461, 479, 491, 503,  521,  541,  557,  569,  577,  593,  601,  613,  619,  641,
    647, 659, 673, 683, 701, 719, 733, 743,  757,  769,  787,  809,  821,  827,  839,  857,  877,  883,
    907, 919, 937, 947, 967, 977, 991, 1009, 2003, 3001, 4001, 5003, 6007, 7001, 8009, 9001, 10007};
constexpr int SIZE_BEYOND_THE_TABLE = 20011;

std::string_view part(std::string_view text, std::size_t from, std::size_t to) noexcept
{
    return from < to && from < text.size() ? text.substr(from, to - from) : std::string_view();
}
} // namespace

bool parse_family_name(std::string_view text, std::string_view& name) noexcept
{
    const std::size_t keyword = text.find(ENUM_KEYWORD);
    if (keyword == NONE)
        return false;
    const std::size_t scoped = text.find(ENUM_CLASS);
    const std::size_t start = (scoped == NONE ? keyword + ENUM_KEYWORD.size() : scoped + ENUM_CLASS.size()) + 1;
    name = part(text, start, std::min(text.find_first_of(" {\n\t", start), text.size()));
    return true;
}

std::string_view find_enum_list(std::string_view text, std::string_view name) noexcept
{
    std::size_t offset = ENUM_KEYWORD.size() + 1 + name.size();
    if (text.find(ENUM_CLASS) != NONE)
        offset += CLASS_KEYWORD.size() + 1;
    const std::size_t first = text.find_first_not_of(" {\t", offset);
    const std::size_t last = text.find_last_not_of(" \t};");
    return last == NONE ? std::string_view() : part(text, first, last + 1);
}

bool EnumPieces::next(std::string_view& piece) noexcept
{
    if (!m_more)
        return false;
    const std::size_t comma = m_rest.find(',');
    m_more = comma != NONE;
    piece = m_rest.substr(0, comma);
    m_rest.remove_prefix(m_more ? comma + 1 : m_rest.size());
    return true;
}

bool is_empty_piece(std::string_view piece) noexcept { return piece.find_first_not_of(" \t") == NONE; }

EnumValueError parse_enum_value(std::string_view& piece, int& value) noexcept
{
    const std::size_t equals = piece.find('=');
    if (equals == NONE)
        return EnumValueError::NONE;
    std::string_view text = piece.substr(equals + 1);
    std::int64_t number = 0;
    if (!take_number(text, number))
        return EnumValueError::NOT_A_NUMBER;
    if (number != clamp_to_int(number))
        return EnumValueError::OUT_OF_RANGE;
    value = static_cast<int>(number);
    piece = piece.substr(0, equals);
    return EnumValueError::NONE;
}

std::string_view trim_enum_spaces(std::string_view piece) noexcept
{
    const std::size_t first = piece.find_first_not_of(" \t");
    return first == NONE ? piece : piece.substr(first, piece.find_last_not_of(" \t") - first + 1);
}

bool is_identifier(std::string_view text) noexcept
{
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    const auto is_letter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               (static_cast<unsigned char>(c) & 0x80) != 0;
    };
    return !text.empty() && !is_digit(text.front()) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return is_letter(c) || is_digit(c); });
}

int next_enum_value(int value) noexcept
{
    return value == std::numeric_limits<int>::max() ? std::numeric_limits<int>::min() : value + 1;
}

void make_lower_case(std::string& text) noexcept
{
    for (char& c : text)
    {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
}

int next_table_size(int n) noexcept
{
    const auto found = std::lower_bound(TABLE_SIZES.begin(), TABLE_SIZES.end(), n);
    return found == TABLE_SIZES.end() ? SIZE_BEYOND_THE_TABLE : *found;
}
} // namespace kor::core
