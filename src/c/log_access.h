// log_access.h - what the functions for C need of a log beyond its public members.

#ifndef KOR_C_LOG_ACCESS_H
#define KOR_C_LOG_ACCESS_H

#include <atomic>

#include "Kor_LogFile.h"
#include "lumlog.h"

/// What the functions for C need of a log's inside.
struct Kor_LogFileForC
{
    template <class Value, class Member>
    static const volatile Value* place(const Member& member) noexcept
    {
        static_assert(sizeof(Value) == sizeof(Member) && std::atomic<Value>::is_always_lock_free);
        return reinterpret_cast<const volatile Value*>(&member);
    }

    /// Where a log keeps what decides that a message is not wanted.
    static lum_gate of(const Kor_LogFile& log) noexcept
    {
        return {
            sizeof(lum_gate),
            PACKAGE_COUNT,
            reinterpret_cast<const char* const volatile*>(&log.m_shared_conf),
            place<lum_uint64>(log.m_seen_count),
            reinterpret_cast<const void* const volatile*>(&log.m_local_conf),
            place<unsigned short>(log.m_cache_generation),
            place<unsigned short>(log.m_level_cache[0]),
            reinterpret_cast<const volatile lum_uint64* const volatile*>(&log.m_quick_stamp)};
    }

    static int open_without_file(Kor_LogFile& log, const char* app_name, bool banners)
    {
        log.m_banners = banners;
        return log.Open(app_name);
    }

    static bool isolate(Kor_LogFile& log, const Kor_LogConf* contents) noexcept { return log.isolate(contents); }
};

#endif // KOR_C_LOG_ACCESS_H
