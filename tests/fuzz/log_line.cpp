// log_line.cpp - any bytes as log files: what is read of each line, and that merging them loses nothing.

#include "core/log_line.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/log_filter.h"
#include "core/log_merge.h"
#include "core/log_records.h"
#include "require.h"

using kor::core::FixedZone;
using kor::core::LogFileFacts;
using kor::core::LogLine;
using kor::core::LogMerge;
using kor::core::LogReader;
using kor::core::LogRecord;

namespace
{
class Bytes final : public kor::core::LogBytes
{
public:
    explicit Bytes(std::string_view text) : m_text(text) {}

    std::size_t read(std::uint64_t at, char* to, std::size_t size) override
    {
        if (at >= m_text.size())
            return 0;
        // In pieces, as a file that is being written to may come.
        const std::size_t count = std::min({size, m_text.size() - static_cast<std::size_t>(at), std::size_t{7}});
        std::memcpy(to, m_text.data() + at, count);
        return count;
    }

private:
    std::string_view m_text;
};

void check_line(std::string_view text)
{
    const LogLine line = kor::core::read_log_line(text);
    for (const std::string_view view :
         {line.application, line.thread_name, line.client, line.file, line.function, line.user, line.computer})
        require(is_empty_or_inside(view, text));
    require(line.text.data() + line.text.size() == text.data() + text.size());
    require(line.kind == LogLine::MESSAGE || line.text == text);
    require(line.level >= LogLine::NONE && line.level <= 7);
    require(!line.has_zone || line.has_time);
    if (line.kind == LogLine::BARE)
    {
        require(!line.has_time && line.process == LogLine::NONE);
        return;
    }
    if (!line.has_time)
        return;
    require(line.time.month >= 1 && line.time.month <= 12 && line.time.day >= 1 && line.time.day <= 31);
    require(line.time.hour <= 23 && line.time.minute <= 59 && line.time.second <= 59 && line.time.milliseconds <= 999);
    if (line.kind != LogLine::MESSAGE || line.cut)
        return;
    // What stands in front of the message is a headline, and stays one whatever message follows.
    const std::string_view head = text.substr(0, static_cast<std::size_t>(line.text.data() - text.data()));
    require(head.size() <= kor::core::MAX_HEADLINE + 1);
    const std::string other = std::string(head) + (head.back() == ' ' ? "" : " ") + "other -> other";
    const LogLine again = kor::core::read_log_line(other);
    require(again.kind == LogLine::MESSAGE && !again.cut && again.application == line.application);
    require(
        again.text == "other -> other" && again.process == line.process && again.thread == line.thread &&
        again.session == line.session);
}

/// What a reader gives of a file: all of it but nuls in front of lines.
std::string without_leading_nuls(std::string_view text)
{
    std::string result;
    bool begins_line = true;
    for (const char c : text)
    {
        if (begins_line && c == '\0')
            continue;
        result += c;
        begins_line = c == '\n';
    }
    return result;
}

/// The files of the input: what the first byte says separates them.
std::vector<std::string_view> files_of(std::string_view input)
{
    std::vector<std::string_view> files;
    const char separator = input.front();
    input.remove_prefix(1);
    while (files.size() < 4)
    {
        const std::size_t end = std::min(input.find(separator), input.size());
        files.push_back(input.substr(0, end));
        if (end == input.size())
            break;
        input.remove_prefix(end + 1);
    }
    return files;
}

void check_merge(const std::vector<std::string_view>& files)
{
    const FixedZone zone(60);
    LogFileFacts facts;
    facts.last_written = 1'772'719'629'042;
    std::vector<std::unique_ptr<Bytes>> bytes;
    std::vector<std::unique_ptr<LogReader>> readers;
    std::vector<LogReader*> all;
    for (const std::string_view file : files)
    {
        bytes.push_back(std::make_unique<Bytes>(file));
        readers.push_back(std::make_unique<LogReader>(*bytes.back(), zone, facts));
        all.push_back(readers.back().get());
    }
    LogMerge merge(all);
    kor::core::LogFilter filter;
    filter.level = 4;
    filter.sessions = {3};
    kor::core::LogSelection selection(filter, 109);
    std::vector<std::string> given(files.size());
    LogRecord record;
    while (merge.next(record))
    {
        require(record.source < files.size());
        const bool wanted = selection.wants(record);
        require(!wanted || record.line.level <= 4);
        const std::string_view text = record.text();
        if (record.begins)
        {
            for (const std::string_view view : {record.line.application, record.line.client})
                require(is_empty_or_inside(view, text));
            require(is_inside(record.line.text, text));
        }
        given[record.source] += text;
    }
    for (std::size_t i = 0; i < files.size(); ++i)
        require(given[i] == without_leading_nuls(files[i]));
}

void check_start(std::string_view text)
{
    Bytes bytes(text);
    const std::uint64_t start = kor::core::find_log_start(bytes, text.size(), 1'772'719'629'042);
    require(
        start <= text.size() && (start == 0 || text[static_cast<std::size_t>(start) - 1] == '\n' ||
                                 text[static_cast<std::size_t>(start) - 1] == '\0'));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::vector<std::string_view> files = files_of({reinterpret_cast<const char*>(data), size});
    for (std::string_view file : files)
    {
        check_start(file);
        kor::core::looks_like_log(file);
        while (!file.empty())
        {
            const std::size_t end = std::min(file.find('\n'), file.size());
            check_line(file.substr(0, end));
            file.remove_prefix(std::min(end + 1, file.size()));
        }
    }
    check_merge(files);
    return 0;
}
