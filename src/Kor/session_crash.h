// session_crash.h - what a report tells of a crash, with and without the gatherer.

#ifndef KOR_SESSION_CRASH_H
#define KOR_SESSION_CRASH_H

#include <windows.h>

#include <psapi.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <optional>
#include <string_view>

#include "core/session_text.h"
#include "core/small_text.h"
#include "core/system_texts.h"
#include "core/text_blocks.h"

#include <dbghelp.h> // behind windows.h

namespace kor
{
/// How much memory the process uses, nothing when Windows does not tell.
std::optional<PROCESS_MEMORY_COUNTERS_EX> sample_memory() noexcept;
/// The same of a process that the handle allows to be read.
std::optional<PROCESS_MEMORY_COUNTERS_EX> sample_memory_of(HANDLE process) noexcept;

/// What is known of a crash when it comes.
struct CrashFacts
{
    static constexpr std::size_t TEXT_SIZE = 256; // characters, as of all paths of programs here

    wchar_t module[TEXT_SIZE];
    std::uint32_t code;
    std::uint32_t address; // as readers know it: 32 bits
    bool has_event_id;
    wchar_t event_id[TEXT_SIZE];
    std::optional<PROCESS_MEMORY_COUNTERS_EX> memory;
};

/// Takes no memory. exception may be null. event_id: cut where there is no room for it; null: none.
void find_facts(CrashFacts& to, const EXCEPTION_POINTERS* exception, const wchar_t* event_id) noexcept;

/// Keeps a crash while the gatherer cannot be had. Room for it is there beforehand. Any thread may use it at any time; a
/// second crash that comes while the first one waits is left to the crash log.
class WaitingCrash
{
public:
    void put(const EXCEPTION_POINTERS* exception, const wchar_t* event_id) noexcept;

    bool is_there() const noexcept { return m_state.load(std::memory_order_acquire) == State::THERE; }
    /// There must be one.
    const CrashFacts& facts() const noexcept { return m_facts; }
    void clear() noexcept { m_state.store(State::NONE, std::memory_order_release); }

private:
    enum class State
    {
        NONE,
        CHANGING,
        THERE
    };

    std::atomic<State> m_state{State::NONE};
    CrashFacts m_facts{};
};

/// Puts the element SessionLogData of a report for which no gatherer's document can be had: with the crash and the modules.
/// Takes no memory.
void put_crash(
    core::TextBlocks& to, const CrashFacts& crash, const std::list<MINIDUMP_MODULE_CALLBACK>& modules,
    core::LocalClock& clock);

// Each calls set(name, text) with what attributes an element of the report has, in their order.

/// event_id: null: none.
template <class Set>
void tell_exception(const CrashFacts& crash, const wchar_t* event_id, Set&& set)
{
    set(L"Module", std::wstring_view(crash.module));
    set(L"Code", core::SmallText().add_hex(crash.code));
    if (event_id != nullptr)
        set(L"EventID", std::wstring_view(event_id));
    set(L"Description", core::exception_name(crash.code));
    set(L"Address", core::SmallText().add_hex(crash.address));
}

/// Readers know the numbers as ones of 32 bits.
template <class Set>
void tell_memory(const PROCESS_MEMORY_COUNTERS_EX& memory, Set&& set)
{
    const auto number = [](std::uint64_t value)
    { return core::SmallText().add_number(static_cast<std::uint32_t>(value)); };
    set(L"page_fault_count", number(memory.PageFaultCount));
    set(L"peak_working_set_size", number(memory.PeakWorkingSetSize));
    set(L"working_set_size", number(memory.WorkingSetSize));
    set(L"quota_peak_paged_pool_usage", number(memory.QuotaPeakPagedPoolUsage));
    set(L"quota_paged_pool_usage", number(memory.QuotaPagedPoolUsage));
    set(L"quota_peak_non_paged_pool_usage", number(memory.QuotaPeakNonPagedPoolUsage));
    set(L"quota_non_paged_pool_usage", number(memory.QuotaNonPagedPoolUsage));
    set(L"page_file_usage", number(memory.PagefileUsage));
    set(L"peak_page_file_usage", number(memory.PeakPagefileUsage));
    set(L"private_usage", number(memory.PrivateUsage));
}

template <class Set>
void tell_module(const MINIDUMP_MODULE_CALLBACK& module, core::LocalClock& clock, Set&& set)
{
    constexpr std::uint64_t MS_PER_SECOND = 1000;
    const auto version = [](DWORD most, DWORD least)
    {
        core::SmallText text;
        text.add_number(HIWORD(most)).add(L'.').add_number(LOWORD(most)).add(L'.');
        return text.add_number(HIWORD(least)).add(L'.').add_number(LOWORD(least));
    };
    set(L"FullPath", std::wstring_view(module.FullPath == nullptr ? L"" : module.FullPath));
    set(L"BaseAddress", core::SmallText().add_hex(static_cast<std::uint32_t>(module.BaseOfImage)));
    set(L"ImageSize", core::SmallText().add_number(static_cast<std::int32_t>(module.SizeOfImage)));
    wchar_t time[core::SESSION_TIME_LENGTH];
    core::write_session_time(time, core::local_session_time(clock, module.TimeDateStamp * MS_PER_SECOND));
    set(L"ImageTimeStamp", std::wstring_view(time, std::size(time)));
    const VS_FIXEDFILEINFO& info = module.VersionInfo;
    set(L"FileVersion", version(info.dwFileVersionMS, info.dwFileVersionLS));
    set(L"ProductVersion", version(info.dwProductVersionMS, info.dwProductVersionLS));
}
} // namespace kor

#endif // KOR_SESSION_CRASH_H
