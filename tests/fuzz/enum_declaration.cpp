// enum_declaration.cpp - any bytes as the text of an enumeration: its name, its list and its entries.

#include "core/enum_declaration.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "require.h"

using kor::core::EnumValueError;

namespace
{
constexpr auto NONE = std::string_view::npos;

/// What the C library makes of the text behind an equals sign.
EnumValueError read_by_the_c_library(std::string_view text, long long& number)
{
    const std::string copy(text);
    char* end = nullptr;
    errno = 0;
    number = std::strtoll(copy.c_str(), &end, 10);
    if (end == copy.c_str())
        return EnumValueError::NOT_A_NUMBER;
    const bool fits =
        errno == 0 && number <= std::numeric_limits<int>::max() && number >= std::numeric_limits<int>::min();
    return fits ? EnumValueError::NONE : EnumValueError::OUT_OF_RANGE;
}

void check_piece(std::string_view piece)
{
    const std::string_view whole = piece;
    int value = 4;
    const EnumValueError error = kor::core::parse_enum_value(piece, value);
    const std::size_t equals = whole.find('=');
    long long expected = 4;
    if (equals == NONE)
        require(error == EnumValueError::NONE);
    else
        require(error == read_by_the_c_library(whole.substr(equals + 1), expected));
    if (error != EnumValueError::NONE)
    {
        require(value == 4 && piece == whole);
        return;
    }
    require(value == expected);
    require(piece == whole.substr(0, equals));

    const std::string_view name = kor::core::trim_enum_spaces(piece);
    require(is_empty_or_inside(name, whole));
    if (piece.find_first_not_of(" \t") == NONE)
        require(name == piece);
    else
        require(name.front() != ' ' && name.front() != '\t' && name.back() != ' ' && name.back() != '\t');
    std::string lower(name);
    kor::core::make_lower_case(lower);
    require(
        lower.size() == name.size() &&
        std::none_of(lower.begin(), lower.end(), [](char c) { return c >= 'A' && c <= 'Z'; }));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string_view name;
    const bool has_name = kor::core::parse_family_name(text, name);
    require(has_name == (text.find("enum") != NONE));
    require(is_empty_or_inside(name, text));
    require(name.find_first_of(" {\n\t") == NONE);

    const std::string_view list = kor::core::find_enum_list(text, name);
    require(is_empty_or_inside(list, text));
    if (!list.empty())
        require(
            std::string_view(" {\t").find(list.front()) == NONE && std::string_view(" \t};").find(list.back()) == NONE);

    kor::core::EnumPieces pieces(list);
    std::size_t taken = 0;
    std::ptrdiff_t count = 0;
    for (std::string_view piece; pieces.next(piece); ++count)
    {
        require(is_empty_or_inside(piece, list) && piece.find(',') == NONE);
        taken += piece.size();
        if (!kor::core::is_empty_piece(piece))
            check_piece(piece);
    }
    const std::ptrdiff_t commas = std::count(list.begin(), list.end(), ',');
    require(count == commas + 1 && taken + static_cast<std::size_t>(commas) == list.size());
    check_piece(text);
    return 0;
}
