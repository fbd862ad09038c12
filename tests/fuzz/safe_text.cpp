// safe_text.cpp - any bytes as a text from outside: what is written has no control character, begins no line of a log and
// stays in its room.

#include "core/safe_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/log_line.h"
#include "require.h"

using kor::core::SafeStyle;
using kor::core::SafeText;

namespace
{
/// Looks byte by byte, and not by way of what is tested.
void require_harmless(std::string_view text, bool is_name)
{
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        const auto c = static_cast<unsigned char>(text[at]);
        require(c >= 0x20 || (!is_name && (c == '\t' || c == '\n')));
        require(c != 0x7F);
        const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0U;
        require(!(c == 0xC2 && next >= 0x80 && next <= 0x9F));
        if (at > 0 && text[at - 1] == '\n')
            require(c == '\n' || text.substr(at, 4) == "    ");
    }
    for (const char* const character :
         {"\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAA", "\xE2\x80\xAE", "\xE2\x81\xA6", "\xE2\x81\xA9"})
        require(text.find(character) == std::string_view::npos);
}

void try_style(std::string_view text, SafeStyle style)
{
    const bool is_name = style == SafeStyle::NAME;
    const std::size_t size = kor::core::safe_size(text, style);
    std::vector<char> room(size);
    const SafeText made = kor::core::write_safe({room.data(), size}, text, style);
    require(made.read == text.size() && made.written == size);
    const std::string_view whole(room.data(), size);
    require_harmless(whole, is_name);
    if (kor::core::is_safe(text, style))
        require(whole == text);
    else // line breaks with nothing behind them come out as they are
        require(whole != text || (!is_name && text.find('\n') != std::string_view::npos));

    std::vector<char> small(size / 2);
    const SafeText part = kor::core::write_safe({small.data(), small.size()}, text, style);
    require(part.written <= small.size() && part.read <= text.size());
    require(std::string_view(small.data(), part.written) == whole.substr(0, part.written));
}

void try_message(std::string_view text, std::size_t size, bool indented)
{
    const std::string terminated(text.substr(0, text.find('\0')));
    std::vector<char> buffer(size);
    const std::size_t held = std::min(terminated.size(), size - 1);
    std::memcpy(buffer.data(), terminated.data(), held);
    buffer[held] = '\0';
    const int length = held < terminated.size() ? -1 : static_cast<int>(held);
    const int made = kor::core::make_message_safe({buffer.data(), size}, length, terminated.size(), indented);
    require(made >= 0 && static_cast<std::size_t>(made) < size && buffer[static_cast<std::size_t>(made)] == '\0');
    require_harmless({buffer.data(), static_cast<std::size_t>(made)}, false);
    if (indented && made > 0 && buffer[0] != '\n')
        require(std::string_view(buffer.data(), 4) == "    ");
}

void try_name(std::string_view text, std::size_t size)
{
    const std::string terminated(text.substr(0, text.find('\0')));
    std::vector<char> buffer(size);
    const std::size_t held = std::min(terminated.size(), size - 1);
    std::memcpy(buffer.data(), terminated.data(), held);
    buffer[held] = '\0';
    const int made =
        kor::core::make_name_safe({buffer.data(), size}, held < terminated.size() ? -1 : static_cast<int>(held));
    require_harmless({buffer.data(), made < 0 ? size - 1 : static_cast<std::size_t>(made)}, true);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try_style(input, SafeStyle::MESSAGE);
    try_style(input, SafeStyle::NAME);
    for (const bool indented : {false, true})
        for (const std::size_t room : {64u, 512u, 2048u})
            try_message(input, room, indented);
    try_name(input, 200);
    const std::string held(input);
    const kor::core::SafeMessage finished(held, !held.empty() && held.back() == '\n', true);
    require_harmless(finished.text(), false);
    return 0;
}
