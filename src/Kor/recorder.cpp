#include "Kor/recorder.h"

#include <new>
#include <optional>
#include <string>
#include <utility>

#include "Kor/diagnostics.h"
#include "Kor/shared_name.h"
#include "Kor/watched.h"
#include "win/environment.h"
#include "win/owner_lock.h"
#include "win/process_end.h"

namespace kor
{
namespace
{
win::OwnerLock recorder_lock;
std::atomic<Recorder*> made{nullptr}; // also while nothing is recorded

/// What the environment says, nothing when it says nothing that can be understood.
std::optional<core::RecorderSettings> configured_recorder() noexcept
try
{
    const std::optional<std::string> text = win::environment("PRISMATE_LOG_RECORDER");
    if (!text)
        return std::nullopt;
    core::RecorderSettings settings;
    if (core::read_recorder_settings(*text, settings))
        return settings;
    KOR_WARN(
        "PRISMATE_LOG_RECORDER=%s is not understood, so it does not count. It is to be like 256K,7 or 256K,0,17=7: "
        "bytes from 64K to 64M, the level of all packages from 0 to 7, and those of single ones.\n",
        text->c_str());
    return std::nullopt;
}
catch (const std::bad_alloc&)
{
    return std::nullopt;
}

/// Null when there is no memory.
Recorder* find_or_make(std::size_t bytes) noexcept
{
    const win::OwnerLockGuard guard(recorder_lock);
    if (made != nullptr || !guard.held())
        return made;
    const core::RingOwner owner = win::own_process();
    win::LineSection section(owner, bytes, shared_block_name == GLOBAL_BLOCK_NAME);
    if (section.view() != nullptr)
        made = new (std::nothrow) Recorder(std::move(section), bytes, owner);
    return made;
}

int use(const core::RecorderSettings& settings) noexcept
{
    if (settings.bytes == 0)
    {
        recorder = nullptr;
        return 0;
    }
    Recorder* const used = find_or_make(settings.bytes);
    if (used == nullptr)
        return -1;
    used->set_level(settings.level);
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        used->set_level(package, settings.levels[package]);
    recorder.store(used, std::memory_order_release);
    tell_watcher_of_recorder();
    return 0;
}
} // namespace

Recorder::Recorder(win::LineSection section, std::size_t size, const core::RingOwner& owner) noexcept
    : m_section(std::move(section)), m_size(size),
      m_crash_room(::VirtualAlloc(nullptr, size + COMMENT_SIZE, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)),
      m_ring(m_section.view(), size, owner)
{
    for (auto& level : m_levels)
        level.store(core::RecorderSettings::AS_ALL, std::memory_order_relaxed);
}

int set_recorder(std::size_t bytes, int level) noexcept
{
    if (!core::is_recorder_size(bytes) || !core::is_recorder_level(level))
        return -1;
    if (configured_recorder())
        return 0;
    if (bytes == 0)
    {
        recorder = nullptr;
        return 0;
    }
    Recorder* const used = find_or_make(bytes);
    if (used == nullptr)
        return -1;
    used->set_level(level);
    recorder.store(used, std::memory_order_release);
    tell_watcher_of_recorder();
    return 0;
}

int set_recorder_level(int package, int level) noexcept
{
    const bool is_level = level == core::RecorderSettings::AS_ALL || core::is_recorder_level(level);
    const bool is_package = package >= 0 && package < PACKAGE_COUNT;
    if (!is_level || !is_package)
        return -1;
    if (configured_recorder())
        return 0;
    Recorder* const used = made;
    if (used == nullptr)
        return -1;
    used->set_level(package, level);
    return 0;
}

bool read_recorder() noexcept
{
    static std::atomic<bool> was_read{false};
    if (is_tool_program() || was_read.exchange(true))
        return false;
    const std::optional<core::RecorderSettings> configured = configured_recorder();
    return configured && use(*configured) == 0 && configured->bytes != 0;
}

RecorderEnd::~RecorderEnd()
{
    if (win::process_is_ending())
        return;
    recorder = nullptr;
    delete made.exchange(nullptr);
}
} // namespace kor
