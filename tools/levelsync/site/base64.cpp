#include "site/base64.h"

#include <cstddef>
#include <cstdint>

namespace levelsync
{
namespace
{
constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char FILL = '=';
} // namespace

std::string base64_of(std::string_view bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3)
    {
        const std::size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? DIGITS[(group >> (18 - 6 * k)) & 0x3F] : FILL;
    }
    return text;
}

std::optional<std::string> read_base64(std::string_view text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    while (!text.empty() && text.back() == FILL && text.size() % 4 != 2)
        text.remove_suffix(1);
    std::uint32_t group = 0;
    int bits = 0;
    for (const char c : text)
    {
        const std::size_t digit = DIGITS.find(c);
        if (digit == std::string_view::npos)
            return std::nullopt;
        group = ((group << 6) | static_cast<std::uint32_t>(digit)) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8)
        {
            bits -= 8;
            bytes += static_cast<char>((group >> bits) & 0xFF);
        }
    }
    return bytes;
}
} // namespace levelsync
