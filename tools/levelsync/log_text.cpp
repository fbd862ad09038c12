#include "log_text.h"

#include <algorithm>

#include "core/log_line.h"
#include "text.h"
#include "times.h"

namespace levelsync
{
namespace
{
using kor::core::LogLine;
using kor::core::LogRecord;

Style style_of(const LogLine& line)
{
    switch (line.kind)
    {
    case LogLine::START_BANNER:
    case LogLine::END_BANNER:
    case LogLine::GOES_ON_ELSEWHERE:
    case LogLine::GOES_ON_HERE:
    case LogLine::MONITOR_START:
    case LogLine::MONITOR_END:
        return Style::STRONG;
    case LogLine::FULL_NOTICE:
    case LogLine::ROTATION_NOTICE:
        return Style::CAREFUL;
    default:
        break;
    }
    if (line.level > 0 && line.level <= 3)
        return Style::BAD;
    return line.level == 4 ? Style::CAREFUL : line.level == 7 ? Style::FAINT : Style::PLAIN;
}

const char* kind_name(LogLine::Kind kind)
{
    switch (kind)
    {
    case LogLine::MESSAGE:
        return "message";
    case LogLine::START_BANNER:
        return "start";
    case LogLine::END_BANNER:
        return "end";
    case LogLine::FULL_NOTICE:
        return "full";
    case LogLine::MEASUREMENT:
        return "measurement";
    case LogLine::MONITOR_START:
        return "monitor start";
    case LogLine::MONITOR_END:
        return "monitor end";
    case LogLine::CRASH:
        return "crash";
    case LogLine::GOES_ON_ELSEWHERE:
        return "goes on elsewhere";
    case LogLine::GOES_ON_HERE:
        return "goes on here";
    case LogLine::ROTATION_NOTICE:
        return "not renamed";
    case LogLine::BARE:
        break;
    }
    return "bare";
}

/// Each line as it can be shown, with "\n" behind it.
std::string shown_lines(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty())
    {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        text += shown(line) + '\n';
    }
    return text;
}

void add(Json& to, const char* name, std::string_view value)
{
    if (!value.empty())
        to[name] = shown(value);
}

void add_number(Json& to, const char* name, std::int64_t value)
{
    if (value >= 0)
        to[name] = value;
}

std::string message_of(const LogRecord& record)
{
    const std::string_view all = record.text();
    const bool is_message = record.begins && record.line.kind == LogLine::MESSAGE;
    const std::size_t begin = is_message ? static_cast<std::size_t>(record.line.text.data() - all.data()) : 0;
    std::string text = shown_lines(all.substr(begin));
    if (record.ends && !text.empty())
        text.pop_back();
    return text;
}
} // namespace

void print_record(Console& console, const LogRecord& record)
{
    console.print(text_of(console, record), style_of(record.line));
}

std::string text_of(const Console& console, const LogRecord& record)
{
    if (console.is_terminal())
        return shown_lines(record.text());
    std::string text(record.text());
    if (record.ends && !text.empty() && text.back() != '\n')
        text += "\r\n"; // of a line that is just being written
    return text;
}

Json json_of(const LogRecord& record, const std::string& log)
{
    const LogLine& line = record.line;
    Json json{{"time", utc_text(record.time)}, {"kind", kind_name(line.kind)}};
    if (line.level >= 0)
        json["level"] = line.level;
    add_number(json, "package", line.package);
    add(json, "application", line.application);
    add_number(json, "process", line.process);
    add_number(json, "thread", line.thread);
    add(json, "thread_name", line.thread_name);
    add(json, "client", line.client);
    if (line.session != 0)
        json["session"] = line.session;
    add(json, "file", line.file);
    if (!line.file.empty())
        json["line"] = line.source_line;
    add(json, "function", line.function);
    json["text"] = message_of(record);
    if (!record.begins || !record.ends)
        json["part"] = record.begins ? "first" : record.ends ? "last" : "middle";
    json["log"] = log;
    return json;
}
} // namespace levelsync
