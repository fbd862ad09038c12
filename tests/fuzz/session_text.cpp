// session_text.cpp - any UTF-16 text on its way into a report, and any text as a time.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "core/session_time.h"
#include "core/text_blocks.h"
#include "require.h"

namespace
{
constexpr std::uint64_t END_OF_READABLE_TIMES = 32535216000000; // the year 3001

class Collected final : public kor::core::TextBlocks
{
public:
    std::wstring text;

private:
    void write(const wchar_t* block, std::size_t length) override
    {
        require(length > 0 && length <= BLOCK_SIZE);
        text.append(block, length);
    }
};

bool is_between(wchar_t c, std::uint32_t first, std::uint32_t last)
{
    return static_cast<std::uint32_t>(c) >= first && static_cast<std::uint32_t>(c) <= last;
}

/// How many units at the front of text make up a character that may stand in a document, 0 for none.
std::size_t length_of_character(std::wstring_view text)
{
    const wchar_t c = text[0];
    if (is_between(c, 0xD800, 0xDBFF))
        return text.size() > 1 && is_between(text[1], 0xDC00, 0xDFFF) ? 2 : 0;
    const bool is_character =
        c == 0x9 || c == 0xA || c == 0xD || is_between(c, 0x20, 0xD7FF) || is_between(c, 0xE000, 0xFFFD);
    return is_character ? 1 : 0;
}

std::wstring with_replacements(std::wstring_view text)
{
    std::wstring result;
    while (!text.empty())
    {
        const std::size_t length = length_of_character(text);
        result += length == 0 ? std::wstring_view(L"\xFFFD") : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

/// The text that a reader of the document gets. Ends the target where it is not well-formed.
std::wstring unescaped(std::wstring_view text)
{
    constexpr std::pair<std::wstring_view, wchar_t> ESCAPES[] = {
        {L"&amp;", L'&'}, {L"&lt;", L'<'}, {L"&gt;", L'>'}, {L"&quot;", L'"'}, {L"&apos;", L'\''}};
    std::wstring result;
    while (!text.empty())
    {
        if (text[0] == L'&')
        {
            bool known = false;
            for (const auto& [escape, character] : ESCAPES)
            {
                if (text.substr(0, escape.size()) != escape)
                    continue;
                result += character;
                text.remove_prefix(escape.size());
                known = true;
                break;
            }
            require(known);
            continue;
        }
        require(std::wstring_view(L"<>\"'").find(text[0]) == std::wstring_view::npos);
        const std::size_t length = length_of_character(text);
        require(length > 0);
        result += text.substr(0, length);
        text.remove_prefix(length);
    }
    return result;
}

void check_escapes(const std::wstring& text)
{
    const std::wstring expected = with_replacements(text);
    static const std::wstring most_of_a_block(kor::core::TextBlocks::BLOCK_SIZE - 3, L'a');
    for (const std::wstring_view in_front : {std::wstring_view(), std::wstring_view(most_of_a_block)})
    {
        Collected to;
        to.put(in_front);
        to.put_escaped(text);
        to.flush();
        require(to.text.compare(0, in_front.size(), in_front) == 0);
        require(unescaped(std::wstring_view(to.text).substr(in_front.size())) == expected);
    }
    require(kor::core::replace_forbidden(text) == expected);
    require(kor::core::count_plain(text) <= text.size());
}

std::wstring written(std::int64_t time)
{
    wchar_t text[kor::core::SESSION_TIME_LENGTH];
    kor::core::write_session_time(text, time);
    return {text, kor::core::SESSION_TIME_LENGTH};
}

void check_text_as_time(std::wstring_view text)
{
    const auto time = kor::core::read_session_time(text);
    if (!time.has_value())
        return;
    require(text.size() == kor::core::SESSION_TIME_LENGTH);
    require(*time < END_OF_READABLE_TIMES);
    require(kor::core::read_session_time(written(static_cast<std::int64_t>(*time))) == time);
}

void check_time(std::int64_t time)
{
    const std::wstring text = written(time);
    std::wstring form = text;
    for (wchar_t& c : form)
        if (is_between(c, L'0', L'9'))
            c = L'd';
    require(form == L"dddd-dd-dd dd:dd:dd.ddd");
    const auto read = kor::core::read_session_time(text);
    if (time < 0 || static_cast<std::uint64_t>(time) >= END_OF_READABLE_TIMES)
        require(!read.has_value());
    else
        require(read == static_cast<std::uint64_t>(time));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::wstring text;
    for (std::size_t i = 0; i + 1 < size; i += 2)
        text += static_cast<wchar_t>(data[i] | data[i + 1] << 8);
    check_escapes(text);
    check_text_as_time(text);

    std::wstring bytes; // digits and separators come more often one byte each
    for (std::size_t i = 0; i < size; ++i)
        bytes += static_cast<wchar_t>(data[i]);
    check_escapes(bytes);
    check_text_as_time(bytes);
    check_text_as_time(std::wstring_view(bytes).substr(0, kor::core::SESSION_TIME_LENGTH));

    std::int64_t time = 0;
    std::memcpy(&time, data, size < sizeof time ? size : sizeof time);
    check_time(time);
    check_time(time % static_cast<std::int64_t>(END_OF_READABLE_TIMES));
    return 0;
}
