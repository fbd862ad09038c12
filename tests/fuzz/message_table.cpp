// message_table.cpp - any texts under any numbers, written as a message table and read again.

#include "core/message_table.h"

#include <cstring>

#include "../support/message_table_reader.h"
#include "require.h"

using kor::core::MAX_TABLE_TEXT;
using kor::core::MessageTexts;

namespace
{
constexpr std::size_t MOST_UNITS = 16; // that an input says of a text

/// Texts as pieces: a number, a length, and so many units.
MessageTexts texts_of(const std::uint8_t* data, std::size_t size)
{
    MessageTexts texts;
    // The length at which texts are cut takes a thousand times as long as others. In inputs of one size alone: otherwise
    // most of what is kept has such a text, and nearly all of the time is spent on these.
    const bool may_be_long = size == 2 + 2 * MOST_UNITS;
    std::uint32_t number = 0;
    while (size >= 2)
    {
        // Mostly the next number; every so often one that lies anywhere.
        number += data[0] < 0xF0 ? data[0] & 3u : data[0] * 0x1010101u;
        std::size_t length = data[1] % MOST_UNITS;
        if (data[1] == 0xFF && may_be_long && texts.empty())
            length = MAX_TABLE_TEXT + 2;
        data += 2;
        size -= 2;
        std::u16string& text = texts[number];
        text.assign(length, u'x');
        for (std::size_t i = 0; i < length && i < MOST_UNITS && size >= 2; ++i, data += 2, size -= 2)
        {
            const std::size_t place = length > MOST_UNITS ? length - 1 - i : i;
            text[place] = static_cast<char16_t>(data[0] | data[1] << 8);
        }
        for (char16_t& unit : text)
            if (unit == 0)
                unit = u' '; // ends a text
    }
    return texts;
}

bool is_first_half(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    MessageTexts texts = texts_of(data, size);
    const std::vector<std::uint8_t> bytes = kor::core::message_table(texts);
    for (auto& [number, text] : texts)
    {
        const std::u16string plain = kor::core::plain_message(text);
        require(plain.size() >= text.size() + 2);
        require(plain.find(u'\r') == plain.size() - 2 && plain.find(u'\n') == plain.size() - 1);
        if (text.size() > MAX_TABLE_TEXT)
        {
            text.resize(MAX_TABLE_TEXT);
            if (is_first_half(text.back()))
                text.pop_back();
        }
    }
    const auto read = MessageTableReader(bytes).read();
    require(read.has_value());
    require(*read == texts);
    return 0;
}
