// log_text.h - log files that tests make up.

#ifndef KOR_TESTS_LOG_TEXT_H
#define KOR_TESTS_LOG_TEXT_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "core/log_line.h"
#include "core/log_split.h"

/// A file of these bytes, which a test may change meanwhile.
class TextBytes final : public kor::core::LogBytes
{
public:
    explicit TextBytes(std::string_view bytes) : text(bytes) {}

    std::size_t read(std::uint64_t at, char* to, std::size_t size) override
    {
        if (at >= text.size())
            return 0;
        const std::size_t count = std::min(size, text.size() - static_cast<std::size_t>(at));
        std::memcpy(to, text.data() + at, count);
        return count;
    }

    std::string text;
};

/// A message of package 320 on 21 November 2026, UTC. clock: as in "08:00:00.000".
inline std::string message_at(std::string_view clock, std::string_view text, std::string_view application = "viewer")
{
    return "2026-11-21 " + std::string(clock) + "+00:00 INFO    (320) " + std::string(application) +
           " (32,280)  host.cpp(113) replay -> " + std::string(text) + "\r\n";
}

/// event: "Start" or "End".
inline std::string banner_at(std::string_view clock, std::string_view event)
{
    return "===== viewer (32) " + std::string(event) + " Session at 2026-11-21 " + std::string(clock) +
           "+00:00, User root on VM =====\r\n";
}

/// Milliseconds of a time as in "2026-11-21 08:00:00.000".
inline std::int64_t utc_of(std::string_view time)
{
    const std::string line = std::string(time) + "+00:00 INFO    (000) x (1,2)   -> ";
    return kor::core::wall_milliseconds(kor::core::read_log_line(line).time);
}

#endif // KOR_TESTS_LOG_TEXT_H
