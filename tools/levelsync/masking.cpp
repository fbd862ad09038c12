#include "masking.h"

#include <algorithm>

#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::string_view UTF16_MARK = "\xFF\xFE"; // of the byte order that Windows has

constexpr char USER_FIELD[] = "user"; // of the history

// Longer than any name or address; a text with no blank in so much has none to be cut in two.
constexpr std::size_t MOST_WAITING = 65'536;

std::wstring from_utf16(std::string_view bytes)
{
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<wchar_t>(
            static_cast<unsigned char>(bytes[2 * i]) | (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
    return text;
}

std::string to_utf16(std::wstring_view text)
{
    std::string bytes;
    bytes.reserve(text.size() * sizeof(wchar_t));
    for (const wchar_t unit : text)
    {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

std::string masked_line(kor::core::LogMask& mask, std::string_view line)
{
    Json json = Json::parse(line, nullptr, false);
    if (json.is_discarded())
        return mask.mask(line);
    mask_json(mask, json);
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}
} // namespace

std::string masked_text(kor::core::LogMask& mask, std::string_view bytes)
{
    if (bytes.substr(0, UTF16_MARK.size()) != UTF16_MARK)
        return mask.mask(bytes);
    const std::string text = utf8(from_utf16(bytes.substr(UTF16_MARK.size())));
    return std::string(UTF16_MARK) + to_utf16(wide(mask.mask(text)));
}

void mask_json(kor::core::LogMask& mask, Json& json)
{
    const auto user = json.is_object() ? json.find(USER_FIELD) : json.end();
    if (user != json.end() && user->is_string())
        mask.add_user(user->get_ref<const std::string&>());
    if (json.is_string())
        json = mask.mask(json.get_ref<const std::string&>());
    else if (json.is_structured())
        for (Json& value : json)
            mask_json(mask, value);
}

std::string masked_json_lines(kor::core::LogMask& mask, std::string_view bytes)
{
    std::string result;
    while (!bytes.empty())
    {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        result += masked_line(mask, bytes.substr(0, end));
        result += end < bytes.size() ? "\n" : "";
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
    }
    return result;
}

std::string MaskedParts::add(std::string_view part, bool ends)
{
    m_waiting += part;
    std::size_t ready = m_waiting.size();
    if (!ends)
    {
        // A name may have a blank in it, but no line break.
        std::size_t last = m_waiting.rfind('\n');
        if (last == std::string::npos && m_waiting.size() >= MOST_WAITING)
            last = m_waiting.find_last_of("\t ");
        if (last != std::string::npos)
            ready = last + 1;
        else if (m_waiting.size() < MOST_WAITING)
            ready = 0;
    }
    const std::string result = m_mask.mask(std::string_view(m_waiting).substr(0, ready));
    m_waiting.erase(0, ready);
    return result;
}
} // namespace levelsync
