// zone_clock.h - local time by the zone of Windows.

#ifndef KOR_WIN_ZONE_CLOCK_H
#define KOR_WIN_ZONE_CLOCK_H

#include "core/session_text.h"

namespace kor::win
{
/// Asks Windows for the zone once for all times of the same minute. For one thread.
class ZoneClock final : public core::LocalClock
{
public:
    std::int64_t local(std::int64_t utc) override;

private:
    std::int64_t m_minute = -1;
    std::int64_t m_offset = 0;
};

/// The zone as it is known, without a question to Windows: see known_zone_offset_ms.
class KnownZoneClock final : public core::LocalClock
{
public:
    std::int64_t local(std::int64_t utc) override;
};
} // namespace kor::win

#endif // KOR_WIN_ZONE_CLOCK_H
