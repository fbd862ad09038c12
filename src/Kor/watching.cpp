#include "Kor/watching.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Kor/crash_files.h"
#include "Kor/last_lines.h"
#include "Kor/session_crash.h"
#include "core/crash_texts.h"
#include "core/last_lines.h"
#include "core/line_ring_reader.h"
#include "core/session_text.h"
#include "win/clock.h"
#include "win/output_file.h"
#include "win/path.h"
#include "win/utf8.h"
#include "win/zone_clock.h"

namespace kor
{
namespace
{
using core::DumpRequest;
using core::WatchedProcess;

constexpr DWORD HANG_CODE = 0xE0000003; // in the report of a process that hangs, as the system has none
constexpr std::size_t MOST_RECORDED = 64 * 1024 * 1024;
constexpr int MOST_NAMES = 40; // tried for a file, so that its program has ten seconds to itself
constexpr DWORD NEXT_NAME_MS = 250;
constexpr std::size_t MOST_MODULES = 1024; // a process with more has those that came first in its reports

/// A report on its way to its file.
class FileText final : public core::TextBlocks
{
public:
    explicit FileText(win::OutputFile& file) noexcept : m_file(file) {}

private:
    void write(const wchar_t* text, std::size_t length) override { m_file.write(text, length * sizeof(wchar_t)); }

    win::OutputFile& m_file;
};
} // namespace

/// The lines that the process has recorded, as they are now.
struct WatchedByUs::Lines
{
    explicit Lines(HANDLE section) noexcept
        : view(section == nullptr ? nullptr : ::MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0))
    {
        MEMORY_BASIC_INFORMATION region{};
        if (!view || ::VirtualQuery(view.get(), &region, sizeof region) == 0)
            return;
        const std::size_t size = std::min<std::size_t>(region.RegionSize, MOST_RECORDED);
        room = win::OwnedPages(
            ::VirtualAlloc(nullptr, size + Recorder::COMMENT_SIZE, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (!room)
            return;
        text = static_cast<char*>(room.get()) + size;
        lines.emplace(view.get(), size, room.get(), size);
        if (!lines->is_ring())
            lines.reset();
    }

    win::OwnedView view;
    win::OwnedPages room;
    char* text = nullptr;
    std::optional<core::LineRingReader> lines;
};

// Beginning ----------------------------------------------------------------------------------------------------------
WatchedByUs::WatchedByUs(core::WatchedEntry& entry, const DumpWriter& dumps)
    : m_dumps(dumps), m_identity{entry.process, entry.created}
{
    take_given_handles(entry);
    if (!m_process)
        m_process = win::OwnedHandle(::OpenProcess(
            PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_DUP_HANDLE | SYNCHRONIZE, FALSE, m_identity.process));
    if (m_process && !(win::identity_of(m_process.get()) == m_identity))
        m_process = win::OwnedHandle(); // the id belongs to another process now
    if (m_section.view() == nullptr)
        m_section = win::NamedSection::open(core::WatchName(m_identity).text(), sizeof(WatchedProcess));
    if (m_section.view() != nullptr && !core::is_watched_process(told(), sizeof(WatchedProcess), m_identity))
        m_section = win::NamedSection();
    if (m_section.view() != nullptr)
    {
        m_folder_at_begin = core::watched_folder(told());
        m_heartbeats.take_over(told());
    }
    m_news = win::open_event(core::WatchName(m_identity, core::WATCH_NEWS).text());
    m_answer = win::open_event(core::WatchName(m_identity, core::WATCH_ANSWER).text());
    entry.handles_are_for.store(0);
}

void WatchedByUs::take_given_handles(const core::WatchedEntry& entry) noexcept
{
    if (entry.handles_are_for != ::GetCurrentProcessId())
        return;
    const auto handle = [](std::uint32_t number)
    { return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(number)); };
    // Whatever else a number may stand for, it is not closed.
    if (win::identity_of(handle(entry.process_handle)) == m_identity)
        m_process = win::OwnedHandle(handle(entry.process_handle));
    if (win::OwnedView(::MapViewOfFile(handle(entry.section_handle), FILE_MAP_READ, 0, 0, sizeof(WatchedProcess))))
        m_section = win::NamedSection::adopt(win::OwnedHandle(handle(entry.section_handle)), sizeof(WatchedProcess));
}

// Watching -----------------------------------------------------------------------------------------------------------
void WatchedByUs::watch()
{
    for (;;)
    {
        look_at_news();
        const DWORD limit = m_heartbeats.time_to_next_look(told(), win::watch_time());
        const HANDLE either[] = {m_process.get(), m_news.get()};
        const DWORD what = ::WaitForMultipleObjects(m_news ? 2 : 1, either, FALSE, limit);
        if (what == WAIT_OBJECT_0 || what == WAIT_FAILED)
            break;
        look_at_heartbeats();
    }
    report_end();
}

void WatchedByUs::look_at_news()
{
    find_recorder();
    answer_request();
}

void WatchedByUs::find_recorder()
{
    if (m_recorder)
        return;
    if (told().recorder_is_for.load(std::memory_order_acquire) == ::GetCurrentProcessId())
    {
        const auto given = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(told().recorder_handle.load()));
        const win::OwnedView view(::MapViewOfFile(given, FILE_MAP_READ, 0, 0, 0));
        if (view)
            m_recorder = win::OwnedHandle(given);
    }
    const core::RingOwner owner{m_identity.process, m_identity.created};
    for (const std::string_view where : {core::GLOBAL_RING, core::LOCAL_RING})
        if (!m_recorder)
            m_recorder =
                win::OwnedHandle(::OpenFileMappingA(FILE_MAP_READ, FALSE, core::RingName(where, owner).text()));
}

// Minidumps ----------------------------------------------------------------------------------------------------------
bool WatchedByUs::change_request(DumpRequest from, DumpRequest to) noexcept
{
    auto expected = static_cast<std::uint32_t>(from);
    return shared().request.compare_exchange_strong(expected, static_cast<std::uint32_t>(to));
}

void WatchedByUs::answer_request()
{
    if (!change_request(DumpRequest::REQUESTED, DumpRequest::CLAIMED))
        return;
    ::SetEvent(m_answer.get());
    const std::wstring name =
        core::watched_file_name(told().dump_name, std::size(told().dump_name), L"minidump-", L".dmp");
    const std::wstring path = folder() + name;
    MINIDUMP_EXCEPTION_INFORMATION crash{};
    crash.ThreadId = told().crashed_thread;
    crash.ExceptionPointers = reinterpret_cast<EXCEPTION_POINTERS*>(static_cast<std::uintptr_t>(told().exception));
    crash.ClientPointers = TRUE;
    const bool is_written = !name.empty() && dump(path, crash.ExceptionPointers == nullptr ? nullptr : &crash);
    if (is_written)
        tell_modules();
    // Where the process has waited in vain, it has written one of its own.
    if (!change_request(DumpRequest::CLAIMED, is_written ? DumpRequest::DONE : DumpRequest::FAILED) || !is_written)
        ::DeleteFileW(path.c_str());
    ::SetEvent(m_answer.get());
}

bool WatchedByUs::dump(const std::wstring& path, MINIDUMP_EXCEPTION_INFORMATION* crash)
{
    m_modules = ModuleList();
    m_modules.make_room(MOST_MODULES);
    MINIDUMP_CALLBACK_INFORMATION callback{};
    callback.CallbackRoutine = &note_module;
    callback.CallbackParam = &m_modules;
    Lines recorded(m_recorder.get());
    std::string_view newest;
    if (recorded.lines)
        newest = core::newest_lines(*recorded.lines, recorded.text, Recorder::COMMENT_SIZE);
    return m_dumps.write(path.c_str(), {m_process.get(), m_identity.process, crash, newest, &callback});
}

BOOL WINAPI WatchedByUs::note_module(void* list, MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT*)
{
    if (input->CallbackType == ModuleCallback)
        static_cast<ModuleList*>(list)->add(input->Module);
    return TRUE;
}

void WatchedByUs::tell_modules() noexcept
{
    std::uint32_t count = 0;
    for (const MINIDUMP_MODULE_CALLBACK& module : m_modules.list())
    {
        if (count == core::MOST_WATCHED_MODULES)
            break;
        core::WatchedModule& to = shared().modules[count++];
        to.base = module.BaseOfImage;
        to.size = module.SizeOfImage;
        to.checksum = module.CheckSum;
        to.time_stamp = module.TimeDateStamp;
        to.file_version[0] = module.VersionInfo.dwFileVersionMS;
        to.file_version[1] = module.VersionInfo.dwFileVersionLS;
        to.product_version[0] = module.VersionInfo.dwProductVersionMS;
        to.product_version[1] = module.VersionInfo.dwProductVersionLS;
        core::tell_text(to.path, std::size(to.path), module.FullPath == nullptr ? L"" : module.FullPath);
    }
    shared().module_count.store(count, std::memory_order_release);
}

// Hangs --------------------------------------------------------------------------------------------------------------
void WatchedByUs::look_at_heartbeats()
{
    const std::vector<core::LateHeartbeat> changes = m_heartbeats.look(told(), win::watch_time());
    // First: should this watcher be ended over it, the next one does not tell it again.
    shared().late_heartbeats.store(m_heartbeats.late());
    for (const core::LateHeartbeat& late : changes)
    {
        tell_hang(late);
        if (!late.is_back)
            report_hang(late);
    }
}

void WatchedByUs::tell_hang(const core::LateHeartbeat& late) const
{
    win::local_system_time(); // notes the zone
    win::OutputFile file = win::OutputFile::append((folder() + L"hangs.log").c_str());
    if (!file.is_open())
        return;
    core::HangLine line{};
    line.time = crash_time();
    const std::string program = core::watched_program_text(told());
    line.program = program;
    line.process = m_identity.process;
    line.heartbeat = late.name;
    line.silence_ms = late.silence;
    line.is_back = late.is_back;
    char text[core::CRASH_LINE_SIZE];
    const std::string_view bytes = core::write_hang_line(text, line);
    file.write(bytes.data(), bytes.size());
}

void WatchedByUs::report_hang(const core::LateHeartbeat& late)
{
    write_last_lines();
    const std::wstring path = path_of(L"minidump", L".dmp");
    if (!dump(path, nullptr))
        ::DeleteFileW(path.c_str());
    write_report(path_of(L"hang", L".xml"), HANG_CODE, win::wide_of_utf8(late.name).c_str());
}

// Ends that no handler sees --------------------------------------------------------------------------------------------
void WatchedByUs::report_end()
{
    DWORD code = 0;
    ::GetExitCodeProcess(m_process.get(), &code);
    const bool came_to_end = (told().steps.load() & core::WATCH_ENDED_ORDERLY) != 0;
    if (core::is_orderly_end(code, came_to_end))
        return;
    const std::uint32_t missing = core::missing_steps(told(), win::watch_time());
    std::uint32_t begun = (core::WATCH_LINE | core::WATCH_LAST_LINES | core::WATCH_REPORT) & ~missing;
    // Noted first: should this watcher be ended over a step, the next one does not take it again.
    const auto begin = [&](core::WatchSteps step)
    {
        if ((missing & step) == 0)
            return false;
        begun |= step;
        shared().step_time.store(win::watch_time());
        shared().steps.store(begun);
        return true;
    };
    win::local_system_time(); // notes the zone
    if (begin(core::WATCH_LINE))
    {
        core::CrashLine line{};
        line.time = crash_time();
        const std::string program = core::watched_program_text(told());
        line.program = program;
        line.process = m_identity.process;
        line.code = code;
        append_crash_line((folder() + CRASH_LOG_NAME).c_str(), line);
    }
    if (begin(core::WATCH_LAST_LINES))
        write_last_lines();
    if (!begin(core::WATCH_REPORT))
        return;
    // One that the process has begun and not ended is written anew.
    const std::wstring file =
        core::watched_file_name(told().report_name, std::size(told().report_name), L"crash-", L".xml");
    write_report(file.empty() ? path_of(L"crash", L".xml") : folder() + file, code, nullptr);
}

// Files --------------------------------------------------------------------------------------------------------------
std::wstring WatchedByUs::folder() const
{
    std::wstring folder = core::watched_folder(told());
    return folder.empty() ? m_folder_at_begin : folder;
}

std::wstring WatchedByUs::program() const
{
    std::wstring name = core::watched_file_name(told().program, std::size(told().program));
    return name.empty() ? L"unknown" : name;
}

/// Made at once, so that programs of one name that end in the same second do not take the places of each other's files.
std::wstring WatchedByUs::path_of(const wchar_t* type, const wchar_t* end) const
{
    for (int tries = 1;; ++tries)
    {
        win::local_system_time(); // notes the zone
        std::wstring path;
        name_file(path, folder(), type, program(), end);
        const win::OwnedFile made(win::open_file(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW));
        if (made || ::GetLastError() != ERROR_FILE_EXISTS || tries == MOST_NAMES)
            return path;
        ::Sleep(NEXT_NAME_MS); // names have the second in them
    }
}

void WatchedByUs::write_last_lines()
{
    Lines recorded(m_recorder.get());
    if (recorded.lines)
        write_lines(*recorded.lines, recorded.text, path_of(L"lastlines", L".log").c_str());
}

void WatchedByUs::write_report(const std::wstring& path, DWORD code, const wchar_t* event_id) const
{
    CrashFacts facts{};
    const std::wstring module = core::watched_text(told().program_path, std::size(told().program_path));
    facts.module[module.copy(facts.module, CrashFacts::TEXT_SIZE - 1)] = L'\0';
    facts.code = code;
    facts.has_event_id = event_id != nullptr;
    if (event_id != nullptr)
        facts.event_id[std::wstring_view(event_id).copy(facts.event_id, CrashFacts::TEXT_SIZE - 1)] = L'\0';
    if (win::is_running(m_process.get()))
        facts.memory = sample_memory_of(m_process.get());

    core::WatchedEvents events(told());
    core::SessionEvent note;
    note.type = L"Warning";
    note.subject = L"LUMlogWatch";
    note.weight = 1;
    note.begin_time = note.end_time = win::milliseconds_since_1970();
    note.info = L"Written by the watcher of the process. Only its latest events are there, and neither context nor "
                L"statistics.";
    events.warnings.push_back(std::move(note));
    core::SessionSnapshot snapshot;
    snapshot.history = events.history.view();
    snapshot.errors = events.errors.view();
    snapshot.warnings = events.warnings.view();
    snapshot.statistics_start = win::milliseconds_since_1970();

    win::OutputFile file = win::OutputFile::create(path.c_str());
    if (!file.is_open())
        return;
    const auto text = std::make_unique<FileText>(file);
    win::ZoneClock clock;
    core::SessionWriter writer(*text, clock);
    text->put(core::REPORT_BEGIN);
    put_crash(*text, facts, m_modules.list(), clock);
    writer.put_lists(snapshot);
    writer.put_all_statistics(snapshot);
    text->put(core::REPORT_END);
    text->flush();
}
} // namespace kor
