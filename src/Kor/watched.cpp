#include "Kor/watched.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "Kor/recorder.h"
#include "core/system_texts.h"
#include "core/watch_reading.h"
#include "win/line_section.h"
#include "win/owner_lock.h"
#include "win/path.h"
#include "win/process_end.h"

namespace kor
{
namespace
{
using core::DumpRequest;
using core::WatchedProcess;

// How long a crash waits for the watcher to take the work over, and then for it to be done: together with a minidump of the
// process's own, less than a crash may take.
constexpr DWORD CLAIM_MS = 2'000;
constexpr DWORD DUMP_MS = 25'000;

win::OwnerLock watched_lock;
win::OwnerLock heartbeats_lock; // of its own: a promise does not wait for the start of a watcher

core::ProcessIdentity own_identity() noexcept
{
    const core::RingOwner own = win::own_process();
    return {own.process, own.created};
}

/// The folder of this DLL, where its watcher lies beside it. Throws when there is no memory.
std::wstring library_folder()
{
    HMODULE self = nullptr;
    ::GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<const wchar_t*>(&watched), &self);
    constexpr DWORD LONGEST_PATH = 32'768;
    std::wstring path(LONGEST_PATH, L'\0');
    path.resize(::GetModuleFileNameW(self, path.data(), LONGEST_PATH));
    path.resize(path.find_last_of(L'\\') + 1); // npos + 1 is 0
    return path;
}

void set_identity(WatchedProcess& to) noexcept
{
    to.version = core::WATCH_VERSION;
    to.size = sizeof to;
    to.identity = own_identity();
    wchar_t path[core::WATCH_PROGRAM_SIZE] = {};
    ::GetModuleFileNameW(nullptr, path, core::WATCH_PROGRAM_SIZE);
    path[core::WATCH_PROGRAM_SIZE - 1] = L'\0'; // a path that was cut may have no end
    core::tell_text(to.program_path, std::size(to.program_path), path);
    to.magic.store(core::WATCH_MAGIC, std::memory_order_release);
}
} // namespace

Watched* find_or_make_watched(const char*& wrong) noexcept
{
    const win::OwnerLockGuard guard(watched_lock);
    if (Watched* const made = watched; made != nullptr || !guard.held())
        return made;
    const core::ProcessIdentity identity = own_identity();
    win::OwnersSecurity security(win::OwnersSecurity::Owner::BY_NUMBER);
    auto section = win::NamedSection::create(core::WatchName(identity).text(), sizeof(WatchedProcess), security);
    auto table = win::NamedSection::find_or_create(core::WATCH_TABLE_NAME.data(), sizeof(core::WatchTable), security);
    win::OwnedHandle news = win::find_or_create_event(core::WatchName(identity, core::WATCH_NEWS).text(), security);
    win::OwnedHandle answer = win::find_or_create_event(core::WatchName(identity, core::WATCH_ANSWER).text(), security);
    win::OwnedHandle wake = win::find_or_create_event(core::WATCH_WAKE_NAME.data(), security);
    if (section.view() == nullptr || table.view() == nullptr || !news || !answer || !wake)
    {
        wrong = "what it shares with its watcher cannot be made";
        return nullptr;
    }
    set_identity(*static_cast<WatchedProcess*>(section.view()));
    auto* const made = new (std::nothrow)
        Watched(std::move(section), std::move(table), std::move(news), std::move(answer), std::move(wake));
    wrong = "there is no memory";
    watched.store(made, std::memory_order_release);
    return made;
}

Watched::Watched(
    win::NamedSection section, win::NamedSection table, win::OwnedHandle news, win::OwnedHandle answer,
    win::OwnedHandle wake) noexcept
    : m_section(std::move(section)), m_table(std::move(table)), m_news(std::move(news)), m_answer(std::move(answer)),
      m_wake(std::move(wake))
{
}

// The watcher --------------------------------------------------------------------------------------------------------
bool Watched::find_or_start_watcher(const char*& wrong) noexcept
{
    const win::OwnerLockGuard guard(watched_lock);
    if (!guard.held())
    {
        wrong = "another thread is at it";
        return false;
    }
    core::WatchedEntry* const entry = enter();
    if (entry == nullptr)
    {
        wrong = "too many processes are watched";
        return false;
    }
    const bool is_there = find_watcher() || start_watcher();
    if (is_there)
        give_handles(*entry);
    else
        wrong = "LUMlogWatch.exe, which is to be beside LUMlog.dll or the program, does not start";
    change_request(DumpRequest::WITHDRAWN, DumpRequest::NONE); // of when there was none
    entry->is_ready.store(1, std::memory_order_release);       // also without: somebody else may start one
    m_has_begun.store(true, std::memory_order_release);
    tell_recorder();
    ::SetEvent(m_wake.get());
    return is_there;
}

core::WatchedEntry* Watched::enter() noexcept
{
    if (m_entry != nullptr)
        return m_entry;
    const core::ProcessIdentity own = told().identity;
    for (core::WatchedEntry& entry : table().entries)
    {
        std::uint32_t nobody = 0;
        if (!entry.process.compare_exchange_strong(nobody, own.process))
            continue;
        entry.created.store(own.created);
        m_entry = &entry;
        break;
    }
    return m_entry;
}

/// Looks for the one there is.
bool Watched::find_watcher() noexcept
{
    const std::uint32_t id = table().watcher;
    if (id == 0)
        return false;
    if (m_watcher && ::GetProcessId(m_watcher.get()) == id && win::is_running(m_watcher.get()))
        return true;
    win::OwnedHandle process(
        ::OpenProcess(SYNCHRONIZE | PROCESS_DUP_HANDLE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    if (!process || !win::is_running(process.get()) ||
        win::identity_of(process.get()).created != table().watcher_created.load())
        return false;
    m_watcher = std::move(process);
    return true;
}

bool Watched::start_watcher() noexcept
try
{
    const std::wstring folder = library_folder();
    std::wstring beside_program(core::watched_text(told().program_path, std::size(told().program_path)));
    beside_program.resize(beside_program.find_last_of(L'\\') + 1);
    for (const std::wstring& place : {folder, beside_program})
    {
        m_watcher = win::start_program((place + L"LUMlogWatch.exe").c_str(), L"--watch", place.c_str());
        if (m_watcher)
            return true;
    }
    return false;
}
catch (const std::bad_alloc&)
{
    return false;
}

/// So that the watcher has them even when this process ends before it comes to look.
void Watched::give_handles(core::WatchedEntry& entry) noexcept
{
    if (entry.is_ready != 0)
        return;
    win::give_handle(m_watcher.get(), m_table.mapping()); // keeps it for the watcher to open
    entry.process_handle = win::give_handle(m_watcher.get(), ::GetCurrentProcess());
    entry.section_handle = win::give_handle(m_watcher.get(), m_section.mapping());
    if (entry.process_handle != 0 && entry.section_handle != 0)
        entry.handles_are_for = ::GetProcessId(m_watcher.get());
}

// What is told -------------------------------------------------------------------------------------------------------
void Watched::set_names(const WatchedNames& names)
{
    WatchedProcess& to = told();
    const std::wstring folder = win::system_path(std::wstring(names.folder)); // the watcher's own folder is another
    core::tell_text(to.folder, std::size(to.folder), folder);
    core::tell_text(to.program, std::size(to.program), names.program);
    to.program_text[names.program_text.copy(to.program_text, std::size(to.program_text) - 1)] = '\0';
}

void Watched::set_line_only(bool only) noexcept { told().line_only.store(only ? 1 : 0); }

void Watched::tell_step(core::WatchSteps step) noexcept
{
    if (step != core::WATCH_ENDED_ORDERLY)
        told().step_time.store(win::watch_time());
    told().steps.fetch_or(step);
}

void Watched::tell_report_name(std::wstring_view name) noexcept
{
    core::tell_text(told().report_name, std::size(told().report_name), name);
}

void Watched::tell_event(const core::ToldEvent& event) noexcept
{
    if (event.event != nullptr && (event.event->flags & Kor_SessionLogGatherer::HIDDEN) == 0)
        core::tell_event(
            told(), *event.event, static_cast<std::uint32_t>(event.list), event.begin_time, event.end_time);
}

void Watched::tell_recorder() noexcept
{
    // Whoever comes second, of a recorder and of a watcher that are started at the same time, sees the other.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const Recorder* const lines = recorder.load(std::memory_order_acquire);
    if (lines == nullptr || !m_has_begun.load(std::memory_order_acquire) || !m_watcher ||
        m_recorder_is_told.exchange(true))
        return;
    const std::uint32_t handle = win::give_handle(m_watcher.get(), lines->mapping());
    if (handle == 0)
    {
        m_recorder_is_told = false;
        return;
    }
    told().recorder_handle = handle;
    told().recorder_is_for.store(::GetProcessId(m_watcher.get()), std::memory_order_release);
    ::SetEvent(m_news.get());
}

bool Watched::heartbeat(std::string_view name, DWORD period_ms) noexcept
{
    core::WatchedHeartbeat* heartbeat = core::find_heartbeat(told(), name);
    if (heartbeat == nullptr)
    {
        const win::OwnerLockGuard guard(heartbeats_lock);
        if (guard.held())
            heartbeat = core::add_heartbeat(told(), name);
    }
    if (heartbeat == nullptr)
        return false;
    if (core::tell_heartbeat(*heartbeat, period_ms, win::watch_time()))
        ::SetEvent(m_news.get());
    return true;
}

// A minidump from outside ----------------------------------------------------------------------------------------------
bool Watched::change_request(DumpRequest from, DumpRequest to) noexcept
{
    auto expected = static_cast<std::uint32_t>(from);
    return told().request.compare_exchange_strong(expected, static_cast<std::uint32_t>(to));
}

DumpRequest Watched::request() noexcept { return static_cast<DumpRequest>(told().request.load()); }

/// Until the watcher has gone on, or is gone, or the time is over.
void Watched::wait_while(DumpRequest state, DWORD limit_ms) noexcept
{
    const ULONGLONG end = ::GetTickCount64() + limit_ms;
    const HANDLE either[] = {m_answer.get(), m_watcher.get()};
    DWORD count = m_watcher ? 2 : 1;
    while (request() == state)
    {
        const ULONGLONG now = ::GetTickCount64();
        if (now >= end)
            return;
        const DWORD what = ::WaitForMultipleObjects(count, either, FALSE, static_cast<DWORD>(end - now));
        if (what == WAIT_FAILED || (what == WAIT_OBJECT_0 + 1 && state == DumpRequest::CLAIMED))
            return;
        if (what == WAIT_OBJECT_0 + 1)
            count = 1; // another watcher may take over
    }
}

bool Watched::dump(std::wstring_view name, EXCEPTION_POINTERS* exception, ModuleList& modules) noexcept
{
    WatchedProcess& to = told();
    if (!m_has_begun.load(std::memory_order_acquire) || name.size() >= std::size(to.dump_name) ||
        !change_request(DumpRequest::NONE, DumpRequest::FILLING))
        return false;
    to.crashed_thread = ::GetCurrentThreadId();
    to.exception = reinterpret_cast<std::uintptr_t>(exception);
    to.module_count = 0;
    core::tell_text(to.dump_name, std::size(to.dump_name), name);
    find_watcher(); // another one may have taken over since
    to.request.store(static_cast<std::uint32_t>(DumpRequest::REQUESTED));
    ::SetEvent(m_news.get());

    wait_while(DumpRequest::REQUESTED, CLAIM_MS);
    if (!change_request(DumpRequest::REQUESTED, DumpRequest::WITHDRAWN))
    {
        find_watcher();
        wait_while(DumpRequest::CLAIMED, DUMP_MS);
        change_request(DumpRequest::CLAIMED, DumpRequest::WITHDRAWN);
    }
    const bool is_written = request() == DumpRequest::DONE;
    if (is_written)
        take_modules(modules);
    to.request.store(static_cast<std::uint32_t>(is_written ? DumpRequest::NONE : DumpRequest::WITHDRAWN));
    return is_written;
}

void Watched::take_modules(ModuleList& modules) noexcept
{
    modules.begin_dump();
    const std::uint32_t count = core::watched_module_count(told());
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const core::WatchedModule& from = told().modules[i];
        wchar_t path[std::size(core::WatchedModule{}.path)];
        std::copy(std::begin(from.path), std::end(from.path), path);
        path[std::size(path) - 1] = L'\0';
        MINIDUMP_MODULE_CALLBACK module{};
        module.FullPath = path;
        module.BaseOfImage = from.base;
        module.SizeOfImage = from.size;
        module.CheckSum = from.checksum;
        module.TimeDateStamp = from.time_stamp;
        module.VersionInfo.dwFileVersionMS = from.file_version[0];
        module.VersionInfo.dwFileVersionLS = from.file_version[1];
        module.VersionInfo.dwProductVersionMS = from.product_version[0];
        module.VersionInfo.dwProductVersionLS = from.product_version[1];
        modules.add(module);
    }
}

// The end ------------------------------------------------------------------------------------------------------------
WatchedEnd::~WatchedEnd()
{
    tell_watcher(core::WATCH_ENDED_ORDERLY);
    if (!win::process_is_ending())
        delete watched.exchange(nullptr);
}
} // namespace kor
