#include "Kor_SessionLogWatcher.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "Kor/crash_files.h"
#include "Kor/minidump.h"
#include "Kor/watching.h"
#include "core/system_texts.h"
#include "core/watch_layout.h"
#include "core/watch_reading.h"
#include "win/clock.h"
#include "win/path.h"
#include "win/watch_objects.h"

namespace
{
using kor::win::OwnedHandle;

constexpr DWORD LOOK_AGAIN_MS = 100; // at what nothing tells of
constexpr ULONGLONG MOST_WAIT_MS = 10'000;
// One that ends at once, for whatever reason, is not started for ever.
constexpr int MOST_STAND_BYS = 20;

struct Shared
{
    kor::win::OwnersSecurity security{kor::win::OwnersSecurity::Owner::BY_NUMBER};
    kor::win::NamedSection section = kor::win::NamedSection::find_or_create(
        kor::core::WATCH_TABLE_NAME.data(), sizeof(kor::core::WatchTable), security);
    OwnedHandle turn = kor::win::find_or_create_mutex(kor::core::WATCH_TURN_NAME.data(), security);
    OwnedHandle wake = kor::win::find_or_create_event(kor::core::WATCH_WAKE_NAME.data(), security);

    explicit operator bool() const noexcept { return section.view() != nullptr && turn && wake; }
    kor::core::WatchTable& table() const noexcept { return *static_cast<kor::core::WatchTable*>(section.view()); }
};

/// The process that watches, null when none does.
OwnedHandle open_watcher(const kor::core::WatchTable& table)
{
    const std::uint32_t id = table.watcher;
    if (id == 0)
        return {};
    OwnedHandle process(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    const bool is_it = kor::win::is_running(process.get()) &&
                       kor::win::identity_of(process.get()).created == table.watcher_created.load();
    return is_it ? std::move(process) : OwnedHandle();
}

bool is_free(const kor::core::WatchedEntry& entry) noexcept { return entry.process.load() == 0; }

void free_entry(kor::core::WatchedEntry& entry) noexcept
{
    entry.is_ready = 0;
    entry.handles_are_for = 0;
    entry.created = 0;
    entry.process.store(0, std::memory_order_release); // last: then it is somebody else's
}

std::wstring own_program()
{
    constexpr DWORD LONGEST_PATH = 32'768;
    std::wstring path(LONGEST_PATH, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), LONGEST_PATH));
    return path;
}

/// What a watcher does in its turn.
class Turn
{
public:
    explicit Turn(Shared& shared) noexcept : m_shared(shared) {}

    /// Until nobody is watched any more.
    void watch();

private:
    struct Job
    {
        Turn& turn;
        std::size_t index;
    };

    static DWORD WINAPI watch_one(void* job);

    kor::core::WatchTable& table() noexcept { return m_shared.table(); }

    void announce() noexcept;
    bool look_at_table();
    bool begin(std::size_t index);
    bool is_empty() noexcept;
    bool ends_now() noexcept;
    void look_after_stand_by();

    Shared& m_shared;
    kor::DumpWriter m_dumps;
    OwnedHandle m_stand_by;
    int m_stand_bys = 0;
    std::atomic<int> m_threads{0};
    std::array<std::atomic<bool>, kor::core::MOST_WATCHED> m_is_watched{};
};

void Turn::announce() noexcept
{
    const kor::core::ProcessIdentity own = kor::win::identity_of(::GetCurrentProcess());
    table().watcher_created = own.created;
    table().watcher = own.process;
}

void Turn::watch()
{
    announce();
    while (!ends_now())
    {
        const bool is_settled = look_at_table();
        look_after_stand_by();
        const HANDLE either[] = {m_shared.wake.get(), m_stand_by.get()};
        ::WaitForMultipleObjects(m_stand_by ? 2 : 1, either, FALSE, is_settled ? INFINITE : LOOK_AGAIN_MS);
    }
}

/// False when some entry is to be looked at again.
bool Turn::look_at_table()
{
    bool is_settled = true;
    for (std::size_t i = 0; i < kor::core::MOST_WATCHED; ++i)
    {
        if (is_free(table().entries[i]) || m_is_watched[i])
            continue;
        is_settled = begin(i) && is_settled;
    }
    return is_settled;
}

/// False when that has to be tried again.
bool Turn::begin(std::size_t index)
{
    kor::core::WatchedEntry& entry = table().entries[index];
    if (entry.is_ready.load(std::memory_order_acquire) == 0)
    {
        // Whoever has taken it is about to fill it in, or was ended over that.
        const OwnedHandle process(::OpenProcess(SYNCHRONIZE, FALSE, entry.process));
        if (!process && ::GetLastError() == ERROR_ACCESS_DENIED)
            return false;
        if (!kor::win::is_running(process.get()) && entry.is_ready.load() == 0)
            free_entry(entry);
        return false;
    }
    m_is_watched[index] = true;
    ++m_threads;
    constexpr SIZE_T STACK = 256 * 1024;
    std::unique_ptr<Job> job(new (std::nothrow) Job{*this, index});
    const OwnedHandle thread(
        job == nullptr
            ? nullptr
            : ::CreateThread(nullptr, STACK, &watch_one, job.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    if (!thread)
    {
        m_is_watched[index] = false;
        --m_threads;
        return false;
    }
    static_cast<void>(job.release()); // the thread's now
    return true;
}

DWORD WINAPI Turn::watch_one(void* given)
{
    const std::unique_ptr<Job> job(static_cast<Job*>(given));
    Turn& turn = job->turn;
    kor::core::WatchedEntry& entry = turn.table().entries[job->index];
    try
    {
        kor::WatchedByUs process(entry, turn.m_dumps);
        if (process.is_there())
            process.watch();
    }
    catch (...) // no memory
    {
    }
    const HANDLE wake = turn.m_shared.wake.get();
    free_entry(entry); // first, or else the one that has ended would be begun again
    turn.m_is_watched[job->index] = false;
    --turn.m_threads; // from here on there may be no turn any more
    ::SetEvent(wake);
    return 0;
}

bool Turn::is_empty() noexcept
{
    for (const kor::core::WatchedEntry& entry : table().entries)
        if (!is_free(entry))
            return false;
    return true;
}

/// Whoever enters itself looks for the watcher afterwards, and this looks at the entries after it has gone: one of the two
/// sees the other.
bool Turn::ends_now() noexcept
{
    if (m_threads != 0 || !is_empty())
        return false;
    table().watcher = 0;
    if (is_empty())
        return true;
    announce();
    return false;
}

void Turn::look_after_stand_by()
{
    if (kor::win::is_running(m_stand_by.get()) || m_stand_bys == MOST_STAND_BYS)
        return;
    ++m_stand_bys;
    const std::wstring program = own_program();
    const std::wstring folder = program.substr(0, program.find_last_of(L'\\') + 1); // npos + 1 is 0
    m_stand_by = kor::win::start_program(program.c_str(), L"--stand-by", folder.c_str());
    table().stand_by = m_stand_by ? ::GetProcessId(m_stand_by.get()) : 0;
}

/// Waits for the turn; false when another process has it.
bool take_turn(const Shared& shared, bool stand_by)
{
    const ULONGLONG end = ::GetTickCount64() + MOST_WAIT_MS;
    for (;;)
    {
        const DWORD what = ::WaitForSingleObject(shared.turn.get(), stand_by ? INFINITE : LOOK_AGAIN_MS);
        if (what == WAIT_OBJECT_0 || what == WAIT_ABANDONED)
            return true;
        if (what == WAIT_FAILED || open_watcher(shared.table()) || ::GetTickCount64() >= end)
            return false;
    }
}

/// A process that has given its handles to this one may have ended since: it can be looked at as long as this has them.
void wait_for_adoption(const Shared& shared)
{
    const ULONGLONG end = ::GetTickCount64() + MOST_WAIT_MS;
    const auto waits = [&]
    {
        for (const kor::core::WatchedEntry& entry : shared.table().entries)
            if (!is_free(entry) && entry.handles_are_for == ::GetCurrentProcessId())
                return true;
        return false;
    };
    while (waits() && ::GetTickCount64() < end)
        ::Sleep(LOOK_AGAIN_MS); // nothing tells of it
}

std::wstring default_path(DWORD process)
{
    std::wstring program(32'768, L'\0');
    auto size = static_cast<DWORD>(program.size());
    const OwnedHandle handle(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    if (!handle || !::QueryFullProcessImageNameW(handle.get(), 0, program.data(), &size))
        size = 0;
    program.resize(size);
    std::wstring folder = kor::win::configured_folder().value_or(L".");
    kor::win::local_system_time(); // notes the zone
    std::wstring path;
    kor::name_file(path, folder + L"\\", L"minidump", kor::core::program_name(program), L".dmp");
    return path;
}
} // namespace

Kor_SessionLogWatcher::Ended Kor_SessionLogWatcher::Run(bool standBy)
try
{
    Shared shared;
    if (!shared)
        return Ended::FAILED;
    if (!take_turn(shared, standBy))
    {
        wait_for_adoption(shared);
        return Ended::AS_ANOTHER_WATCHES;
    }
    Turn(shared).watch();
    ::ReleaseMutex(shared.turn.get());
    return Ended::WITH_THE_LAST;
}
catch (...)
{
    return Ended::FAILED;
}

bool Kor_SessionLogWatcher::WriteMinidump(
    unsigned long process, const wchar_t* path, wchar_t* used, unsigned int usedSize, unsigned long& error)
try
{
    const OwnedHandle handle(
        ::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_DUP_HANDLE | SYNCHRONIZE, FALSE, process));
    error = ::GetLastError();
    if (used != nullptr && usedSize != 0)
        used[0] = L'\0';
    if (!handle)
        return false;
    const std::wstring file = kor::win::system_path(path == nullptr ? default_path(process) : path);
    if (used != nullptr && usedSize != 0)
        used[file.copy(used, usedSize - 1)] = L'\0';
    // Before the process is stopped for it. A file that cannot be had stays as it is.
    if (const kor::win::OwnedFile made(kor::win::open_file(file.c_str(), GENERIC_WRITE, 0, OPEN_ALWAYS)); !made)
    {
        error = ::GetLastError();
        return false;
    }
    ::SetLastError(ERROR_SUCCESS);
    const bool is_written = kor::DumpWriter().write(file.c_str(), {handle.get(), process, nullptr, {}, nullptr});
    error = ::GetLastError();
    if (!is_written)
        ::DeleteFileW(file.c_str());
    return is_written;
}
catch (...)
{
    error = ERROR_NOT_ENOUGH_MEMORY;
    return false;
}

unsigned long Kor_SessionLogWatcher::FindWatcher()
{
    const auto section =
        kor::win::NamedSection::open(kor::core::WATCH_TABLE_NAME.data(), sizeof(kor::core::WatchTable));
    const auto* const table = static_cast<const kor::core::WatchTable*>(section.view());
    return table == nullptr || !open_watcher(*table) ? 0 : table->watcher.load();
}

unsigned int Kor_SessionLogWatcher::ForEachWatched(
    void (*tell)(void* context, unsigned long process, const wchar_t* program), void* context)
try
{
    const auto section =
        kor::win::NamedSection::open(kor::core::WATCH_TABLE_NAME.data(), sizeof(kor::core::WatchTable));
    const auto* const table = static_cast<const kor::core::WatchTable*>(section.view());
    unsigned int count = 0;
    if (table == nullptr)
        return count;
    for (const kor::core::WatchedEntry& entry : table->entries)
    {
        const kor::core::ProcessIdentity identity{entry.process, entry.created};
        if (identity.process == 0 || entry.is_ready == 0)
            continue;
        const auto told =
            kor::win::NamedSection::open(kor::core::WatchName(identity).text(), sizeof(kor::core::WatchedProcess));
        const auto* const process = static_cast<const kor::core::WatchedProcess*>(told.view());
        if (process == nullptr || !kor::core::is_watched_process(*process, sizeof *process, identity))
            continue;
        ++count;
        tell(
            context, identity.process,
            kor::core::watched_text(process->program_path, std::size(process->program_path)).c_str());
    }
    return count;
}
catch (...)
{
    return 0;
}
