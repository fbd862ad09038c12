#include "feed.h"

#include <windows.h>

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "Kor_Package.h"
#include "hosts.h"
#include "log_query.h"
#include "log_text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t OTHER_FIELDS = 512; // bytes of a line's report, beside its text

kor::core::LogSelection selection_of(int package)
{
    kor::core::LogFilter filter;
    filter.packages = {package};
    return kor::core::LogSelection(std::move(filter), KOR_PACKAGE_PERFMON);
}

/// Cuts UTF-8 where a character begins.
void cut(std::string& text, std::size_t size)
{
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        --size;
    text.resize(size);
}
} // namespace

LineFeed::LineFeed(std::vector<std::wstring> folders, int package)
    : m_package(package), m_begun(now()), m_follower(std::move(folders), selection_of(package))
{
}

void LineFeed::poll()
{
    m_follower.poll([this](const kor::core::LogRecord& record, const std::string& log) { keep(record, log); });
}

void LineFeed::keep(const kor::core::LogRecord& record, const std::string& log)
{
    Json report = json_of(record, log);
    std::string text = report["text"].get<std::string>();
    if (text.size() > LONGEST_TEXT)
    {
        cut(text, LONGEST_TEXT);
        report["is_cut"] = true;
    }
    const std::size_t size = OTHER_FIELDS + text.size();
    report["text"] = std::move(text);
    report["number"] = ++m_last;
    m_lines.push_back({m_last, report.value("level", -1), report.value("client", std::string()), report, size});
    m_bytes += size;
    while (m_lines.size() > MOST_KEPT || m_bytes > MOST_BYTES)
    {
        m_bytes -= m_lines.front().size;
        m_lines.pop_front();
    }
}

Json LineFeed::since(const PageLines& wanted) const
{
    const std::function<bool(std::string_view)> fits = wanted.client.empty() ? nullptr : client_test({wanted.client});
    std::vector<const Line*> chosen;
    std::size_t left_out = 0;
    for (auto line = m_lines.rbegin(); line != m_lines.rend() && line->number > wanted.after; ++line)
    {
        // Banners tell neither level nor client.
        if (line->level > wanted.level || (fits && !fits(line->client)))
            continue;
        if (chosen.size() < MOST_GIVEN)
            chosen.push_back(&*line);
        else
            ++left_out;
    }
    Json lines = Json::array();
    for (auto line = chosen.rbegin(); line != chosen.rend(); ++line)
        lines.push_back((*line)->report);
    const std::uint64_t first = m_lines.empty() ? m_last + 1 : m_lines.front().number;
    // Of those that are no longer kept nobody can tell whether they were wanted.
    left_out += static_cast<std::size_t>(first > wanted.after + 1 ? first - wanted.after - 1 : 0);
    return {
        {"begun", utc_text(m_begun)},
        {"files", m_follower.count()},
        {"last", m_last},
        {"left_out", left_out},
        {"lines", lines}};
}

LineFeed& LineFeeds::of(int package)
{
    const std::uint64_t ticks = ::GetTickCount64();
    for (Used& used : m_feeds)
    {
        if (used.feed.package() != package)
            continue;
        used.used_at = ticks;
        return used.feed;
    }
    if (m_feeds.size() >= MOST)
        m_feeds.erase(std::min_element(
            m_feeds.begin(), m_feeds.end(), [](const Used& a, const Used& b) { return a.used_at < b.used_at; }));
    return m_feeds.emplace_back(Used{LineFeed(log_folders(m_folder), package), ticks}).feed;
}

void LineFeeds::poll()
{
    const std::uint64_t ticks = ::GetTickCount64();
    m_feeds.remove_if([ticks](const Used& used) { return ticks - used.used_at > IDLE_MS; });
    for (Used& used : m_feeds)
        used.feed.poll();
}
} // namespace levelsync
