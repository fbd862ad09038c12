// json_line.cpp - any bytes as the texts of a line of JSON: another reader understands it, and finds in it what was there.

#include "core/json_line.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "require.h"

using kor::core::CodePage;
using kor::core::JsonLine;
using kor::core::WrittenJson;

namespace
{
/// Each byte is a character that no text of UTF-8 of the same length has.
const CodePage OTHER = []
{
    CodePage page{};
    for (unsigned int i = 0; i < page.size(); ++i)
        page.at(i) = static_cast<char16_t>(0xE080 + i);
    return page;
}();

/// Takes as much from the front as its first byte says.
std::string_view take(std::string_view& input)
{
    if (input.empty())
        return {};
    const std::size_t size = std::min<std::size_t>(static_cast<unsigned char>(input.front()), input.size() - 1);
    const std::string_view part = input.substr(1, size);
    input.remove_prefix(size + 1);
    return part;
}

/// The number of the character that a text begins with, and its length.
char32_t decode(std::string_view& text)
{
    const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    char32_t code = length == 1 ? byte(0) : byte(0) & (0xFFU >> (length + 1));
    require(text.size() >= length);
    for (std::size_t i = 1; i < length; ++i)
        code = code << 6 | (byte(i) & 0x3FU);
    text.remove_prefix(length);
    return code;
}

/// What was written leads back to the bytes: those of the code page are its characters, all others are themselves.
void require_same(std::string_view read, std::string_view bytes)
{
    while (!read.empty())
    {
        const std::string_view before = read;
        const char32_t code = decode(read);
        const bool is_other = code >= 0xE080 && code < 0xE100;
        const std::string_view encoded = before.substr(0, before.size() - read.size());
        if (is_other && bytes.substr(0, 1) == std::string(1, static_cast<char>(code - 0xE000)))
            bytes.remove_prefix(1);
        else
        {
            require(bytes.substr(0, encoded.size()) == encoded);
            bytes.remove_prefix(encoded.size());
        }
    }
    require(bytes.empty());
}

/// Byte by byte, and not by way of what is tested.
void require_one_line(std::string_view line)
{
    require(!line.empty() && line.back() == '\n');
    line.remove_suffix(1);
    while (!line.empty())
    {
        const char32_t code = decode(line);
        require(code >= 0x20 && (code < 0x7F || code > 0x9F));
        require(code < 0x2028 || code > 0x202E);
        require(code < 0x2066 || code > 0x2069);
    }
}

void require_text(const nlohmann::json& object, const char* key, std::string_view bytes)
{
    require(object.contains(key) != bytes.empty());
    if (!bytes.empty())
        require_same(object.at(key).get<std::string>(), bytes);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view input(reinterpret_cast<const char*>(data), size);
    JsonLine line{};
    line.application = take(input);
    line.thread_name = take(input);
    line.client = take(input);
    line.file = take(input);
    line.function = take(input);
    line.package_name = take(input);
    line.utc_ms = static_cast<std::int64_t>(size) * 1'000'000'007;
    line.zone_minutes = static_cast<int>(size % 1700) - 850;
    line.session = static_cast<long>(size % 3);
    line.is_bare = size % 2 == 0;
    line.run = "run";
    line.sequence = size;
    line.text = input;

    std::vector<char> room(kor::core::most_json_size(line));
    const WrittenJson made = kor::core::write_json_line({room.data(), room.size()}, line, OTHER);
    require(!made.is_cut && made.size <= room.size());
    const std::string_view whole(room.data(), made.size);
    require_one_line(whole);
    const nlohmann::json object = nlohmann::json::parse(whole);
    require_text(object, "application", line.application);
    require_text(object, "thread_name", line.thread_name);
    require_text(object, "client", line.client);
    require_text(object, "file", line.file);
    require_text(object, "function", line.file.empty() ? std::string_view() : line.function);
    require_text(object, "package_name", line.package_name);
    require_same(object.at("text").get<std::string>(), line.text);

    // With less room there is less of the text, and no more than the room.
    for (const std::size_t less : {made.size - 1, made.size - made.size / 4, made.size / 2})
    {
        std::vector<char> small(less);
        const WrittenJson cut = kor::core::write_json_line({small.data(), less}, line, OTHER);
        require(cut.is_cut && cut.size <= less);
        if (cut.size == 0)
            continue;
        require_one_line({small.data(), cut.size});
        const nlohmann::json part = nlohmann::json::parse(std::string_view(small.data(), cut.size));
        const auto text = part.at("text").get<std::string>();
        require(object.at("text").get<std::string>().substr(0, text.size()) == text);
    }
    const std::string_view uncut = kor::core::without_cut_character(line.text);
    require(line.text.size() - uncut.size() <= 3 && line.text.substr(0, uncut.size()) == uncut);
    return 0;
}
