// log_text.h - records of logs as they are shown.

#ifndef LEVELSYNC_LOG_TEXT_H
#define LEVELSYNC_LOG_TEXT_H

#include <string>

#include "console.h"
#include "core/log_records.h"
#include "tool.h"

namespace levelsync
{
/// Prints a record: on a terminal with a colour for its level and nothing that drives the terminal, else byte for byte
/// as it stands in the log.
void print_record(Console& console, const kor::core::LogRecord& record);

/// What print_record prints, without the colour.
std::string text_of(const Console& console, const kor::core::LogRecord& record);

/// All that the record tells. log: the name of its file.
Json json_of(const kor::core::LogRecord& record, const std::string& log);
} // namespace levelsync

#endif // LEVELSYNC_LOG_TEXT_H
