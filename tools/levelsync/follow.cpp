#include "follow.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <set>
#include <utility>

#include "core/calendar.h"
#include "core/log_line.h"
#include "failure.h"

namespace levelsync
{
namespace
{
using kor::core::LogLine;
using kor::core::LogPiece;
using kor::core::LogRecord;

constexpr ULONGLONG LOOK_FOR_FILES_MS = 1'000;
constexpr std::int64_t IDLE_MS = 60'000;        // without a line: then a file is closed until it grows
constexpr std::int64_t CLOCKS_APART_MS = 2'000; // of who writes and of who reads
} // namespace

Follower::Follower(std::vector<std::wstring> folders, kor::core::LogSelection selection)
    : m_folders(std::move(folders)), m_selection(std::move(selection)), m_since(now() - CLOCKS_APART_MS)
{
    LogFiles logs;
    for (const std::wstring& folder : m_folders)
    {
        FoundLogs found = find_logs(folder);
        std::move(found.logs.begin(), found.logs.end(), std::back_inserter(logs));
    }
    m_zone = zone_of(logs);
    look_for_files(true);
}

void Follower::poll(const Give& give)
{
    if (::GetTickCount64() - m_looked_at >= LOOK_FOR_FILES_MS)
        look_for_files(false);
    std::deque<LogRecord> records;
    for (std::size_t index = 0; index < m_sources.size(); ++index)
        read(index, records);
    std::vector<std::size_t> order(records.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(
        order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return records[a].time < records[b].time; });
    for (const std::size_t at : order)
    {
        const LogRecord& record = records[at];
        Source& source = m_sources[record.source];
        if (record.begins)
            source.wanted = record.time >= m_since && m_selection.wants(record);
        if (source.wanted)
            give(record, source.file->name());
    }
}

/// Opens what is new. A folder that cannot be listed at the moment is looked at again.
void Follower::look_for_files(bool is_first)
{
    m_looked_at = ::GetTickCount64();
    std::set<std::wstring> there;
    for (const std::wstring& folder : m_folders)
    {
        std::vector<std::wstring> paths;
        try
        {
            paths = files_of(folder);
        }
        catch (const Failure&)
        {
            continue;
        }
        for (const std::wstring& path : paths)
        {
            if (is_other_kind(path))
                continue;
            auto file = std::make_unique<LogFile>(path);
            if (file->error() != ERROR_SUCCESS)
                continue;
            std::wstring identity = file->identity();
            there.insert(identity);
            const auto known = m_known.find(identity);
            if (known == m_known.end())
                add(std::move(file), std::move(identity), is_first);
            else if (Source& source = m_sources[known->second];
                     !source.file->is_open() && source.splitter.position() != file->size())
                source.file->take(*file);
        }
    }
    // The identity of a file that is gone may become another's.
    for (auto known = m_known.begin(); known != m_known.end();)
    {
        const bool is_gone = !m_sources[known->second].file->is_open() && there.count(known->first) == 0;
        known = is_gone ? m_known.erase(known) : std::next(known);
    }
}

void Follower::add(std::unique_ptr<LogFile> file, std::wstring identity, bool is_first)
{
    const std::uint64_t size = file->size();
    const std::uint64_t begin = is_first ? size : kor::core::find_log_start(*file, size, m_since);
    const bool is_idle = is_first && file->last_written() < m_since - IDLE_MS;
    m_known.emplace(std::move(identity), m_sources.size());
    Source& source = m_sources.emplace_back(std::move(file), begin);
    source.grown_at = ::GetTickCount64();
    if (is_idle)
        source.file->let_go();
}

void Follower::read(std::size_t index, std::deque<LogRecord>& records)
{
    Source& source = m_sources[index];
    if (!source.file->is_open())
        return;
    const std::uint64_t size = source.file->size(); // what comes meanwhile is for the next time
    if (size < source.splitter.position())
        source.splitter.restart(0);
    const std::uint64_t before = source.splitter.position();
    const std::size_t first = records.size();
    LogPiece piece;
    while (source.splitter.position() <= size && source.splitter.next(piece))
    {
        const bool is_head = piece.begins_line && begins_record(kor::core::read_log_line(piece.line()));
        if (is_head || records.size() == first)
            begin_record(index, piece, records);
        else
            records.back().append(piece.bytes);
    }
    const ULONGLONG ticks = ::GetTickCount64();
    if (source.splitter.position() != before)
        source.grown_at = ticks;
    else if (ticks - source.grown_at >= static_cast<ULONGLONG>(IDLE_MS))
        source.file->let_go();
}

/// A record, or what came later of the one before.
void Follower::begin_record(std::size_t index, const LogPiece& piece, std::deque<LogRecord>& records)
{
    Source& source = m_sources[index];
    LogRecord& record = records.emplace_back();
    record.source = index;
    record.append(piece.bytes);
    const std::string_view text = record.text();
    record.line = kor::core::read_log_line(text.substr(0, piece.line().size()));
    record.begins = piece.begins_line && begins_record(record.line);
    if (record.line.has_zone)
    {
        const std::int64_t wall = kor::core::wall_milliseconds(record.line.time);
        source.time = wall - m_zone->minutes_ahead(wall, record.line.zone_minutes) * kor::core::MS_PER_MINUTE;
    }
    else if (record.line.has_time || source.time == 0)
    {
        source.time = now(); // a line that does not tell its year has just been written
    }
    record.time = source.time;
}
} // namespace levelsync
