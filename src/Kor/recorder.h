// recorder.h - the last lines of the process, kept in memory where somebody has asked for it.

#ifndef KOR_RECORDER_H
#define KOR_RECORDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Kor_Package.h"
#include "core/line_ring.h"
#include "core/recorder_settings.h"
#include "win/line_section.h"

namespace kor
{
/// The memory with the lines, and which lines are to be there. Once made it stays until the library goes, as a thread may be
/// recording a line at any time.
class Recorder
{
public:
    /// section: has a view of size bytes.
    Recorder(win::LineSection section, std::size_t size, const core::RingOwner& owner) noexcept;
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// The level up to which messages of a package are recorded that are not written.
    int level(int package) const noexcept
    {
        const bool is_one = static_cast<unsigned int>(package) < static_cast<unsigned int>(PACKAGE_COUNT);
        const int own = is_one ? m_levels[package].load(std::memory_order_relaxed) : core::RecorderSettings::AS_ALL;
        return own == core::RecorderSettings::AS_ALL ? m_level.load(std::memory_order_relaxed) : own;
    }

    void set_level(int level) noexcept { m_level = level; }
    void set_level(int package, int level) noexcept { m_levels[package] = static_cast<std::int8_t>(level); }

    void record(const core::RecordedLine& line, const core::LineParts& text) noexcept { m_ring.record(line, text); }

    const void* memory() const noexcept { return m_section.view(); }
    std::size_t size() const noexcept { return m_size; }
    HANDLE mapping() const noexcept { return m_section.mapping(); }

    /// size() bytes, and COMMENT_SIZE behind them, for a crash, which has no memory but what is there. Null when there was
    /// none, too, and as long as somebody has it.
    void* take_crash_room() noexcept { return m_crash_room_is_taken.exchange(true) ? nullptr : m_crash_room.get(); }
    void give_crash_room_back() noexcept { m_crash_room_is_taken = false; }

    static constexpr std::size_t COMMENT_SIZE = 64 * 1024;

private:
    win::LineSection m_section;
    std::size_t m_size;
    win::OwnedPages m_crash_room; // not touched before a crash, so it takes no memory of the machine
    std::atomic<bool> m_crash_room_is_taken{false};
    core::LineRing m_ring;
    std::atomic<int> m_level{0};
    std::atomic<std::int8_t> m_levels[PACKAGE_COUNT];
};

/// Null as long as nothing is recorded.
extern std::atomic<Recorder*> recorder;

/// The level up to which messages of a package are recorded that are not written, 0: none is.
inline int recorder_level(int package) noexcept
{
    const Recorder* const used = recorder.load(std::memory_order_acquire);
    return used == nullptr ? 0 : used->level(package);
}

/// What the program wants, unless PRISMATE_LOG_RECORDER says otherwise; see Kor_LogFile. Each returns 0 or -1.
int set_recorder(std::size_t bytes, int level) noexcept;
int set_recorder_level(int package, int level) noexcept;

/// Goes by PRISMATE_LOG_RECORDER, where that is set. True when something is recorded that was not before.
bool read_recorder() noexcept;

/// Gives the recorder back when the library goes and the process stays.
struct RecorderEnd
{
    RecorderEnd() noexcept = default;
    RecorderEnd(const RecorderEnd&) = delete;
    RecorderEnd& operator=(const RecorderEnd&) = delete;
    ~RecorderEnd();
};
} // namespace kor

#endif // KOR_RECORDER_H
