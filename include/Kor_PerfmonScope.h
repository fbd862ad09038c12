// Kor_PerfmonScope.h - times a scope with a timer of the performance-monitor log. Header only.

#ifndef KOR_PERFMONSCOPE_H
#define KOR_PERFMONSCOPE_H

#include <atomic>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "Kor_Package.h"
#include "Kor_PerfmonLogFile.h"

/// Adds a timer to KorPLog when it is made, and writes its time as "T=title,ms=..." when it goes:
///
///     Kor_PerfmonScope timing("load album");
///
/// Where package 109 does not write that level when the scope begins, it costs next to nothing and no line is
/// written. Throws nothing; without memory it does not measure. Its line is one like others: where a scope
/// ends between a StoreParams of the same thread and its Log, that line gets the scope's level.
///
/// Threads: any number of scopes on any threads, with equal titles too. One object belongs to one thread at
/// a time.
class Kor_PerfmonScope
{
public:
    static constexpr int LEVEL_NOTICE = 5;
    static constexpr std::int64_t NOT_MEASURED = -1;

    /// level: of the line, as for Kor_PerfmonLogFile::StoreParams.
    explicit Kor_PerfmonScope(const char* title, int level = LEVEL_NOTICE) noexcept : m_level(level)
    {
        if (KorGLog.IsRejected(level, KOR_PACKAGE_PERFMON) ||
            level > KorPLog.GetLogLevel(KOR_PACKAGE_PERFMON * PACKAGE_RANGE))
            return;
        try
        {
            m_title = RWCString(title);
            m_timer = RWCString(unique_name(m_title));
            m_running = KorPLog.Timers().AddTimer(m_timer) == 0;
        }
        catch (const std::exception&)
        {
        }
    }

    Kor_PerfmonScope(const Kor_PerfmonScope&) = delete;
    Kor_PerfmonScope& operator=(const Kor_PerfmonScope&) = delete;

    /// Goes on with the other's measurement, which is then its own no more.
    Kor_PerfmonScope(Kor_PerfmonScope&& other) noexcept
        : m_title(std::move(other.m_title)), m_timer(std::move(other.m_timer)), m_level(other.m_level),
          m_running(std::exchange(other.m_running, false))
    {
    }

    /// Ends its own measurement first.
    Kor_PerfmonScope& operator=(Kor_PerfmonScope&& other) noexcept
    {
        if (this == &other)
            return *this;
        Stop();
        m_title = std::move(other.m_title);
        m_timer = std::move(other.m_timer);
        m_level = other.m_level;
        m_running = std::exchange(other.m_running, false);
        return *this;
    }

    ~Kor_PerfmonScope() { Stop(); }

    /// Ends the measurement before the scope does, and writes the line. Returns the milliseconds, or
    /// NOT_MEASURED when nothing is being measured.
    std::int64_t Stop() noexcept
    {
        if (!std::exchange(m_running, false))
            return NOT_MEASURED;
        std::int64_t time = NOT_MEASURED;
        try
        {
            KorPLog.Timers().GetTimeAndRemove(std::move(m_timer), time);
            if (KorPLog.StoreParams(nullptr, 0, m_level, KOR_PACKAGE_PERFMON) != 0)
                KorPLog.FLog(m_title.data(), "g", "ms", time);
        }
        catch (const std::exception&)
        {
        }
        return time;
    }

private:
    /// Each module that uses this header has a counter of its own, so its place is part of the name.
    static std::string unique_name(const RWCString& title)
    {
        static std::atomic<std::uint32_t> count{0};
        return title.data() + ('#' + std::to_string(reinterpret_cast<std::uintptr_t>(&count))) + '.' +
               std::to_string(++count);
    }

    RWCString m_title;
    RWCString m_timer;
    int m_level;
    bool m_running = false;
};

#endif // KOR_PERFMONSCOPE_H
