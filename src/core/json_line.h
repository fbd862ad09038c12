// json_line.h - a message as one line of JSON, whatever bytes its texts have.

#ifndef KOR_CORE_JSON_LINE_H
#define KOR_CORE_JSON_LINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/headline.h"

namespace kor::core
{
/// The characters of the Basic Multilingual Plane that the bytes 0x80 to 0xFF stand for where they are no UTF-8.
using CodePage = std::array<char16_t, 128>;

/// What a byte becomes that stands for no character.
constexpr char16_t REPLACEMENT = 0xFFFD;

/// What a line tells. Texts are bytes of any kind; one that is empty is left out, but for the message's.
struct JsonLine
{
    std::int64_t utc_ms; ///< since 1970, up to the year 9999
    int zone_minutes;    ///< local time minus UTC
    int level;
    std::string_view level_name;
    int package;
    std::string_view package_name;
    std::string_view application;
    int process;
    unsigned int thread;
    std::string_view thread_name;
    std::string_view client;
    long session;          ///< below 1: none
    std::string_view file; ///< empty: the message does not say where it is from; line and function are left out too
    int line;
    std::string_view function;
    bool is_bare;           ///< without a headline in a log
    std::string_view run;   ///< says with sequence which line it is
    std::uint64_t sequence; ///< from 1 on
    std::string_view text;
};

/// What became of a line.
struct WrittenJson
{
    std::size_t size; ///< with the newline at the end; 0: there was not even room for what stands in front of the text
    bool is_cut;      ///< the text is not all there
};

/// Writes a line. It is an object of JSON in UTF-8, whatever the texts hold, and has one newline, at its end: control
/// characters are escaped (C0, DEL and C1), and so are the characters that end a line in Unicode (U+2028, U+2029) or change
/// the order in which one is shown (U+202A to U+202E, U+2066 to U+2069). A byte that is no UTF-8 is the character that it
/// has in other. A text for which there is no room is cut between two characters.
WrittenJson write_json_line(Buffer to, const JsonLine& from, const CodePage& other) noexcept;

/// Room in which the line is not cut, whatever its texts are.
std::size_t most_json_size(const JsonLine& from) noexcept;

/// Without the newline that ends a message.
std::string_view without_newline(std::string_view text) noexcept;

/// Without the beginning of a character of UTF-8 at the end, of a text that was cut anywhere.
std::string_view without_cut_character(std::string_view text) noexcept;
} // namespace kor::core

#endif // KOR_CORE_JSON_LINE_H
