// enum_declaration.h - the source text of an enumeration, taken apart.

#ifndef KOR_CORE_ENUM_DECLARATION_H
#define KOR_CORE_ENUM_DECLARATION_H

#include <cstddef>
#include <string>
#include <string_view>

namespace kor::core
{
/// True when text has "enum" in it, and then its name: what follows that, or "enum class", and one
/// separator, up to a blank, a brace, a newline or a tab. May be empty.
bool parse_family_name(std::string_view text, std::string_view& name) noexcept;

/// The enumerators between the braces of a declaration that begins with its keyword and has one
/// separator in front of its name; see Kor_Legend::Register. May be empty.
std::string_view find_enum_list(std::string_view text, std::string_view name) noexcept;

/// Takes the first entry of a list off its front, with the comma behind it. False when none is left.
class EnumPieces
{
public:
    explicit EnumPieces(std::string_view list) noexcept : m_rest(list), m_more(true) {}
    bool next(std::string_view& piece) noexcept;

private:
    std::string_view m_rest;
    bool m_more;
};

/// Nothing, or nothing but blanks and tabs.
bool is_empty_piece(std::string_view piece) noexcept;

enum class EnumValueError
{
    NONE,
    NOT_A_NUMBER,
    OUT_OF_RANGE ///< of int
};

/// An entry with "=" is cut in front of that, and value becomes the decimal number behind it; blanks
/// in front of the number and anything behind its digits are passed over. Without "=", or in error,
/// value stays.
EnumValueError parse_enum_value(std::string_view& piece, int& value) noexcept;

/// Without blanks and tabs at both ends; but a text of nothing else stays as it is.
std::string_view trim_enum_spaces(std::string_view piece) noexcept;

/// Whether a compiler would take the text for a name. Bytes beyond ASCII count as letters.
bool is_identifier(std::string_view text) noexcept;

/// The next value of a running number; after the largest int comes the smallest.
int next_enum_value(int value) noexcept;

/// The letters A to Z become small ones, whatever the locale.
void make_lower_case(std::string& text) noexcept;

/// The smallest of the 107 sizes that is not below n; 20011 when all are.
int next_table_size(int n) noexcept;
} // namespace kor::core

#endif // KOR_CORE_ENUM_DECLARATION_H
