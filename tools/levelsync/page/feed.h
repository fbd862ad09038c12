// feed.h - the lines of one package, as they come.

#ifndef LEVELSYNC_PAGE_FEED_H
#define LEVELSYNC_PAGE_FEED_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <vector>

#include "follow.h"
#include "source.h"
#include "tool.h"

namespace levelsync
{
/// Keeps the newest lines that were written since it was made.
class LineFeed
{
public:
    static constexpr std::size_t MOST_GIVEN = 500;      ///< lines of one answer
    static constexpr std::size_t MOST_KEPT = 2'000;     ///< lines, for filters that change
    static constexpr std::size_t MOST_BYTES = 4 << 20;  ///< of all that are kept, about
    static constexpr std::size_t LONGEST_TEXT = 16'384; ///< bytes of one; the rest is left out

    LineFeed(std::vector<std::wstring> folders, int package);

    int package() const noexcept { return m_package; }

    /// Reads what was written since the last time.
    void poll();

    /// The newest of the lines that came behind a number and are wanted.
    Json since(const PageLines& wanted) const;

private:
    struct Line
    {
        std::uint64_t number;
        int level;          // -1: none
        std::string client; // empty: none
        Json report;
        std::size_t size; // about what it takes
    };

    void keep(const kor::core::LogRecord& record, const std::string& log);

    int m_package;
    Time m_begun;
    Follower m_follower;
    std::deque<Line> m_lines;
    std::size_t m_bytes = 0;
    std::uint64_t m_last = 0;
};

/// Those of the packages that are looked at.
class LineFeeds
{
public:
    explicit LineFeeds(const Folder& folder) : m_folder(folder) {}

    /// Begins one where there is none.
    LineFeed& of(int package);

    /// Reads on in all of them, and ends those that nobody looks at any more.
    void poll();

private:
    static constexpr std::size_t MOST = 4;
    static constexpr std::uint64_t IDLE_MS = 300'000; // a browser asks a hidden page's questions once a minute

    struct Used
    {
        LineFeed feed;
        std::uint64_t used_at;
    };

    const Folder& m_folder;
    std::list<Used> m_feeds;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_FEED_H
