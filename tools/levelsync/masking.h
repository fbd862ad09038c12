// masking.h - files for others to read: what LogMask replaces, replaced in texts of each form that a folder holds.

#ifndef LEVELSYNC_MASKING_H
#define LEVELSYNC_MASKING_H

#include <string>
#include <string_view>

#include "core/log_mask.h"
#include "tool.h"

namespace levelsync
{
/// A text of bytes, or of UTF-16 with its mark in front, in the form that it had.
std::string masked_text(kor::core::LogMask& mask, std::string_view bytes);

/// All texts in it, but for the names of its fields. Learns the users that it names as such.
void mask_json(kor::core::LogMask& mask, Json& json);

/// A file of JSON, an object a line, such as the history.
std::string masked_json_lines(kor::core::LogMask& mask, std::string_view bytes);

/// A text that comes in parts, which may end within a name.
class MaskedParts
{
public:
    explicit MaskedParts(kor::core::LogMask& mask) : m_mask(mask) {}

    /// What is ready of the text so far. ends: nothing of it follows.
    std::string add(std::string_view part, bool ends);

private:
    kor::core::LogMask& m_mask;
    std::string m_waiting;
};
} // namespace levelsync

#endif // LEVELSYNC_MASKING_H
