#include "Kor_SessionLog.h"

#include <windows.h>

#include <dbghelp.h>
#include <process.h>
#include <psapi.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <list>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "Kor/crash_files.h"
#include "Kor/last_lines.h"
#include "Kor/minidump.h"
#include "Kor/watched.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLogGatherer.h"
#include "core/file_path.h"
#include "core/fixed_text.h"
#include "core/system_texts.h"
#include "general_log.h"
#include "win/clock.h"
#include "win/kept_errors.h"
#include "win/library.h"
#include "win/memory.h"
#include "win/path.h"
#include "win/recursive_lock.h"
#include "win/text.h"

using kor::win::KeptErrors;
using kor::win::OwnedLibrary;
using kor::win::RecursiveGuard;

namespace
{
constexpr char SOURCE[] = "Kor_SessionLog";
constexpr DWORD PATH_SIZE = 256; // of the program's path, in characters
constexpr std::size_t DLL_PATH_SIZE = 260;
constexpr SIZE_T RESERVED_SIZE = 0x10000; // 64 KiB: the least that address space is handed out in
// What the heap gets back for a report, as it asks the system for megabytes or for nothing. The report of a small
// program with its modules took between 32 and 64 KiB; a server has more of them.
constexpr std::size_t RESERVED_HEAP_SIZE = 256 * 1024;

// Recursive, as reading the state writes to the general log, and a destination there may ask for the instance. It
// gets none until there is one.
kor::win::RecursiveLock lock;
std::atomic<bool> created{false};
bool being_made = false; // only the holder of the lock looks at it

// What the system's dump code takes. Where a crash has not got back what was kept for it, to have it do without would
// be its end.
constexpr std::size_t DUMP_MEMORY = 16 * 1024;

/// A DLL that is to be there in a crash.
struct DllToLoad
{
    char path[DLL_PATH_SIZE];
    OwnedLibrary module;
};

/// How many modules the process has now.
std::size_t count_modules() noexcept
{
    DWORD bytes = 0;
    return ::EnumProcessModules(::GetCurrentProcess(), nullptr, 0, &bytes) ? bytes / sizeof(HMODULE) : 0;
}

const std::list<MINIDUMP_MODULE_CALLBACK> no_modules;

/// The folder of all files, in the code page of the thread; or, where the process's code page lacks some of its
/// characters, as it is.
std::wstring find_directory()
{
    const char* const narrow = Kor_LogFile::GetLogConfigDir();
    std::optional<std::wstring> folder = kor::win::configured_folder();
    if (folder.has_value() && kor::win::wide(narrow, CP_ACP) != *folder)
        return *std::move(folder);
    return kor::win::wide_for_thread(narrow);
}

/// "viewer"
std::wstring find_program_name()
{
    wchar_t path[PATH_SIZE] = {};
    ::GetModuleFileNameW(nullptr, path, PATH_SIZE);
    path[PATH_SIZE - 1] = L'\0'; // a path that was cut may have no end
    return std::wstring(kor::core::program_name(path));
}

/// text() as a pointer, null when there was no memory for it.
template <class Text>
const wchar_t* pointer_to(Text&& text) noexcept
try
{
    return text().c_str();
}
catch (...)
{
    return nullptr;
}

DWORD code_of(const EXCEPTION_POINTERS* exception) noexcept
{
    return exception == nullptr || exception->ExceptionRecord == nullptr ? 0
                                                                         : exception->ExceptionRecord->ExceptionCode;
}
} // namespace

struct Kor_SessionLog::Content
{
    /// Works out what paths are made of, and takes room for them. Throws when there is no memory. In a crash, to ask
    /// for the directory may wait for whoever reads standard output, and to ask for the program's name for the
    /// loader's lock.
    void find_names();
    /// The same, and room for modules. Without memory all stays as it was.
    void prepare_for_crash() noexcept;
    /// Writes the recorded lines beside the minidump and the report, where there are any. Once for both.
    void write_last_lines(kor::LastLines& lines) noexcept;
    /// Has the watcher write the minidump. False when it does not, and there is none of it.
    bool dump_from_outside(EXCEPTION_POINTERS* exception) noexcept;
    /// What the watcher has to know of all this.
    kor::WatchedNames watched_names() const noexcept { return {directory, program, process_name}; }
    void tell_report_name(const wchar_t* path) const noexcept;
    /// Makes a path of the directory, the type, the program, the present time, and the end of the name.
    void name(std::wstring& path, std::wstring_view type, std::wstring_view end) const;

    std::wstring directory; // ends with a backslash
    std::wstring program;
    std::wstring crash_log_path;
    std::wstring report_path;
    std::wstring state_path;
    std::wstring minidump_path;
    std::wstring last_lines_path;
    bool last_lines_are_written = false; // since the last report
    char process_name[PATH_SIZE] = "";   // empty until enable
    kor::ModuleList modules;
    bool enabled = false;
    std::list<DllToLoad> dlls;
    void* reserved_memory = nullptr;
    std::unique_ptr<unsigned char[]> reserved_heap; // never touched, so it takes no memory of the machine
    int process_id = ::_getpid();
    kor::DumpWriter dump_writer;
};

void Kor_SessionLog::Content::find_names()
{
    constexpr std::size_t LONGEST_NAME = 64; // of the library's own files, but for the program's
    directory = find_directory() + L"\\";
    program = find_program_name();
    crash_log_path = directory + kor::CRASH_LOG_NAME;
    if (crash_log_path.size() > kor::core::LONGEST_PLAIN_PATH || kor::core::is_verbatim(crash_log_path))
        crash_log_path = kor::win::system_path(crash_log_path); // now, as it takes memory
    for (std::wstring* const path : {&report_path, &minidump_path, &last_lines_path})
        path->reserve(directory.size() + program.size() + LONGEST_NAME);
}

void Kor_SessionLog::Content::prepare_for_crash() noexcept
try
{
    constexpr std::size_t MORE_TO_COME = 64; // modules that the process may load
    kor::win::local_system_time();           // notes the zone
    find_names();
    modules.make_room(2 * count_modules() + MORE_TO_COME);
    if (kor::Watched* const process = kor::watched.load(std::memory_order_acquire))
        process->set_names(watched_names());
}
catch (...)
{
    return;
}

void Kor_SessionLog::Content::name(std::wstring& path, std::wstring_view type, std::wstring_view end) const
{
    kor::name_file(path, directory, type, program, end);
}

void Kor_SessionLog::Content::write_last_lines(kor::LastLines& lines) noexcept
try
{
    if (last_lines_are_written || !lines.are_there())
        return;
    name(last_lines_path, L"lastlines", L".log");
    last_lines_are_written = lines.write_to(last_lines_path.c_str());
    if (last_lines_are_written)
        kor::tell_watcher(kor::core::WATCH_LAST_LINES);
}
catch (...) // no memory for a path that is longer than it was
{
    return;
}

bool Kor_SessionLog::Content::dump_from_outside(EXCEPTION_POINTERS* exception) noexcept
try
{
    kor::Watched* const process = kor::watched.load(std::memory_order_acquire);
    if (process == nullptr)
        return false;
    name(minidump_path, L"minidump", L".dmp");
    const std::wstring_view file = std::wstring_view(minidump_path).substr(directory.size());
    if (process->dump(file, exception, modules))
        return true;
    ::DeleteFileW(minidump_path.c_str()); // what a watcher has begun that was killed over it
    return false;
}
catch (...) // no memory for a path that is longer than it was
{
    return false;
}

void Kor_SessionLog::Content::tell_report_name(const wchar_t* path) const noexcept
{
    kor::Watched* const process = kor::watched.load(std::memory_order_acquire);
    if (process != nullptr && path != nullptr && path == report_path)
        process->tell_report_name(std::wstring_view(path).substr(directory.size()));
}

// Life ------------------------------------------------------------------------------------------------------
Kor_SessionLog* Kor_SessionLog::myInstance = nullptr;
bool Kor_SessionLog::bBypass = true;
bool Kor_SessionLog::bOnlyReportToCrashLogFile = false;
bool Kor_SessionLog::bSuppressExceptions = false;

void Kor_SessionLog::Activate(bool active)
{
    if (created.load(std::memory_order_acquire))
        return;
    const RecursiveGuard guard(lock);
    if (guard.held() && !created.load(std::memory_order_relaxed))
        bBypass = !active;
}

Kor_SessionLog* Kor_SessionLog::GetInstance()
{
    if (created.load(std::memory_order_acquire))
        return myInstance;
    const KeptErrors kept;
    const RecursiveGuard guard(lock);
    if (!guard.held() || being_made || created.load(std::memory_order_relaxed))
        return myInstance;
    being_made = true;
    myInstance = new (std::nothrow) Kor_SessionLog;
    being_made = false;
    if (myInstance != nullptr)
        created.store(true, std::memory_order_release);
    return myInstance;
}

bool Kor_SessionLog::IsActive() { return created.load(std::memory_order_acquire); }

void Kor_SessionLog::setReportToCrashLogFileOnly(bool only)
{
    bOnlyReportToCrashLogFile = only;
    if (kor::Watched* const process = kor::watched.load(std::memory_order_acquire))
        process->set_line_only(only);
}

Kor_SessionLog::Kor_SessionLog()
{
    if (bBypass)
        return;
    try
    {
        auto content = std::make_unique<Content>();
        content->find_names();
        m_content = std::move(content);
    }
    catch (...)
    {
        return;
    }
    load_state();
    enable();
}

Kor_SessionLog::~Kor_SessionLog()
{
    saveState();
    disable();
    myInstance = nullptr;
}

void Kor_SessionLog::load_state()
{
    Kor_SessionLogGatherer* const gatherer = Kor_SessionLogGatherer::GetInstance();
    const wchar_t* const path = getStateFullPath();
    if (gatherer == nullptr || path == nullptr)
        return;
    Kor_SessionLogGatherer_Loader loader(gatherer);
    gatherer->loadFromFile(path, loader);
}

void Kor_SessionLog::saveState()
{
    Kor_SessionLogGatherer* const gatherer = Kor_SessionLogGatherer::GetInstance();
    if (m_content != nullptr && gatherer != nullptr)
        gatherer->generateReport(getStateFullPath(), false);
}

// What a crash needs ------------------------------------------------------------------------------------------
void Kor_SessionLog::addDllToLoad(const char* path)
{
    if (m_content == nullptr || path == nullptr)
        return;
    const KeptErrors kept;
    if (std::strlen(path) >= DLL_PATH_SIZE)
    {
        KOR_GENERAL_LOG(
            SOURCE, "Kor_SessionLog::addDllToLoad", kor::LEVEL_WARNING, "The path of a DLL is too long: %s\n", path);
        return;
    }
    try
    {
        m_content->dlls.emplace_back();
    }
    catch (...)
    {
        return;
    }
    kor::core::copy_cut(m_content->dlls.back().path, path);
}

void Kor_SessionLog::enable()
{
    if (m_content == nullptr)
        return;
    const KeptErrors kept;
    load_dlls();
    m_content->prepare_for_crash();
    if (m_content->enabled)
        return;
    reserve_memory();
    find_process_name();
    m_content->enabled = true;
}

bool Kor_SessionLog::start_watcher(const char*& wrong) noexcept
{
    return prepare_watcher(wrong) && kor::watched.load()->find_or_start_watcher(wrong);
}

/// All but the watcher itself.
bool Kor_SessionLog::prepare_watcher(const char*& wrong) noexcept
try
{
    if (m_content == nullptr)
        return false;
    kor::Watched* const process = kor::find_or_make_watched(wrong);
    if (process == nullptr)
        return false;
    process->set_names(m_content->watched_names());
    process->set_line_only(bOnlyReportToCrashLogFile);
    return true;
}
catch (...)
{
    wrong = "there is no memory";
    return false;
}

void Kor_SessionLog::load_dlls() noexcept
{
    for (DllToLoad& dll : m_content->dlls)
        if (!dll.module)
            dll.module = OwnedLibrary(::LoadLibraryExA(dll.path, nullptr, 0));
}

void Kor_SessionLog::reserve_memory()
{
    constexpr char FUNCTION[] = "Kor_SessionLog::enable";
    m_content->reserved_heap.reset(new (std::nothrow) unsigned char[RESERVED_HEAP_SIZE]);
    m_content->reserved_memory = ::VirtualAlloc(nullptr, RESERVED_SIZE, MEM_RESERVE, PAGE_NOACCESS);
    if (m_content->reserved_memory != nullptr)
        KOR_GENERAL_LOG(
            SOURCE, FUNCTION, kor::LEVEL_DEBUG, "Successfully reserved memory for crashlog processing at %p\n",
            m_content->reserved_memory);
    else
        KOR_GENERAL_LOG(SOURCE, FUNCTION, kor::LEVEL_ERROR, "Failed to reserve memory for crashlog processing\n");
}

void Kor_SessionLog::find_process_name() noexcept
{
    char(&name)[PATH_SIZE] = m_content->process_name;
    if (::GetModuleFileNameA(nullptr, name, PATH_SIZE) == 0)
        kor::core::copy_cut(name, "Unknown");
    name[PATH_SIZE - 1] = '\0'; // a path that was cut may have no end
}

void Kor_SessionLog::disable()
{
    if (m_content == nullptr || !m_content->enabled)
        return;
    const KeptErrors kept;
    for (DllToLoad& dll : m_content->dlls)
        dll.module = OwnedLibrary();
    release_reserved_memory("Kor_SessionLog::disable");
    m_content->enabled = false;
}

void Kor_SessionLog::release_reserved_memory(const char* function)
{
    void*& memory = m_content->reserved_memory;
    if (memory != nullptr && !::VirtualFree(memory, 0, MEM_RELEASE))
        KOR_GENERAL_LOG(
            SOURCE, function, kor::LEVEL_ERROR, "Failed to release memory reserved for crashlog processing\n");
    memory = nullptr;
    m_content->reserved_heap = nullptr;
}

// Reports -------------------------------------------------------------------------------------------------------
void Kor_SessionLog::createReport(_EXCEPTION_POINTERS* exception)
{
    if (m_content == nullptr)
        return;
    const KeptErrors kept;
    if (!bOnlyReportToCrashLogFile)
        release_reserved_memory("Kor_SessionLog::createReport"); // the path may take the first of it
    // It names the report also when none is to be written now.
    createReport(exception, getLogFullPath(L"crash"), nullptr);
}

void Kor_SessionLog::createReport(_EXCEPTION_POINTERS* exception, const wchar_t* reportPath, const wchar_t* eventId)
{
    if (m_content == nullptr || bOnlyReportToCrashLogFile)
        return;
    const KeptErrors kept;
    release_reserved_memory("Kor_SessionLog::createReport");
    {
        kor::LastLines lines;
        m_content->write_last_lines(lines);
        m_content->last_lines_are_written = false; // the next report has its own
    }
    Kor_SessionLogGatherer* const gatherer = Kor_SessionLogGatherer::GetInstance();
    if (gatherer == nullptr)
        return;
    m_content->tell_report_name(reportPath);
    gatherer->reportException(exception, eventId);
    gatherer->generateReport(reportPath, true);
    kor::tell_watcher(kor::core::WATCH_REPORT);
}

void Kor_SessionLog::createSessionReport()
{
    if (m_content == nullptr)
        return;
    const KeptErrors kept;
    release_reserved_memory("Kor_SessionLog::createSessionReport");
    if (Kor_SessionLogGatherer* const gatherer = Kor_SessionLogGatherer::GetInstance())
        gatherer->generateReport(getLogFullPath(L"session"), true);
}

void Kor_SessionLog::produceMinidump(_EXCEPTION_POINTERS* exception)
{
    if (m_content == nullptr)
        return;
    const KeptErrors kept;
    kor::LastLines lines;
    m_content->write_last_lines(lines); // first, as it needs nothing
    if (m_content->dump_from_outside(exception))
    {
        kor::tell_watcher(kor::core::WATCH_DUMP);
        return;
    }
    if (!kor::win::has_memory(DUMP_MEMORY))
        return;
    m_content->modules.begin_dump();
    MINIDUMP_EXCEPTION_INFORMATION crash{};
    crash.ThreadId = ::GetCurrentThreadId();
    crash.ExceptionPointers = exception;
    crash.ClientPointers = FALSE;
    MINIDUMP_CALLBACK_INFORMATION callback{};
    callback.CallbackRoutine = &miniDumpCallback;
    callback.CallbackParam = this;
    // What the crash has damaged, or a lack of memory, may bring the system's code down. The report is still to come.
    m_content->dump_writer.write(
        generateMinidumpFullPath(), {::GetCurrentProcess(), ::GetCurrentProcessId(),
                                     exception == nullptr ? nullptr : &crash, lines.newest(), &callback});
}

/// Runs while all other threads are suspended, wherever they are: takes no memory and no lock.
int __stdcall Kor_SessionLog::miniDumpCallback(
    void* instance, _MINIDUMP_CALLBACK_INPUT* input, _MINIDUMP_CALLBACK_OUTPUT*)
{
    if (input->CallbackType == ModuleCallback)
        static_cast<Kor_SessionLog*>(instance)->m_content->modules.add(input->Module);
    return TRUE;
}

void Kor_SessionLog::reportToCrashLogFile(_EXCEPTION_POINTERS* exception)
{
    if (m_content == nullptr)
        return;
    const KeptErrors kept;
    kor::core::CrashLine line{};
    line.time = kor::crash_time();
    line.program = m_content->process_name;
    line.process = static_cast<std::uint32_t>(m_content->process_id);
    line.thread = ::GetCurrentThreadId();
    line.code = code_of(exception);
    kor::append_crash_line(m_content->crash_log_path.c_str(), line);
    kor::tell_watcher(kor::core::WATCH_LINE);
}

// Names -----------------------------------------------------------------------------------------------------------
const wchar_t* Kor_SessionLog::generateMinidumpFullPath()
{
    if (m_content == nullptr)
        return nullptr;
    return pointer_to(
        [this]() -> const std::wstring&
        {
            m_content->name(m_content->minidump_path, L"minidump", L".dmp");
            return m_content->minidump_path;
        });
}

const wchar_t* Kor_SessionLog::getMinidumpFullPath()
{
    if (m_content == nullptr || m_content->minidump_path.empty())
        return generateMinidumpFullPath();
    return m_content->minidump_path.c_str();
}

const wchar_t* Kor_SessionLog::getLogFullPath(std::wstring type)
{
    if (m_content == nullptr)
        return nullptr;
    return pointer_to(
        [&]() -> const std::wstring&
        {
            std::wstring& path = m_content->report_path;
            if (path.empty())
                m_content->name(path, type, L".xml");
            return path;
        });
}

const wchar_t* Kor_SessionLog::getStateFullPath()
{
    if (m_content == nullptr)
        return nullptr;
    return pointer_to(
        [this]() -> const std::wstring&
        {
            std::wstring& path = m_content->state_path;
            if (path.empty())
                path = m_content->directory + L"CLGState.mp";
            return path;
        });
}

const std::list<_MINIDUMP_MODULE_CALLBACK>& Kor_SessionLog::getModulesList() const noexcept
{
    return m_content == nullptr ? no_modules : m_content->modules.list();
}
