// message_table.h - the message table of a Windows resource, which FormatMessage and the event viewer read.

#ifndef KOR_CORE_MESSAGE_TABLE_H
#define KOR_CORE_MESSAGE_TABLE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kor::core
{
/// Texts by number. Each is a format of FormatMessage: %1 to %99 stand for what is handed over with an event.
using MessageTexts = std::map<std::uint32_t, std::u16string>;

/// The longest text of a table, in units of UTF-16: an entry's size is kept in 16 bits.
constexpr std::size_t MAX_TABLE_TEXT = 32'763;

/// A text that stands for itself: what FormatMessage would replace is escaped, control characters become blanks, and a
/// line end follows, as the message compiler has it.
std::u16string plain_message(std::u16string_view text);

/// The bytes of a resource of the type RT_MESSAGETABLE, in the layout of MESSAGE_RESOURCE_DATA: with the low byte first,
/// texts in UTF-16, and one block for each run of numbers. A longer text than MAX_TABLE_TEXT is cut, between characters.
std::vector<std::uint8_t> message_table(const MessageTexts& texts);
} // namespace kor::core

#endif // KOR_CORE_MESSAGE_TABLE_H
