#include "Kor_CrashHandlers.h"

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <string_view>

#include "Kor/general_log.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "core/crash_texts.h"
#include "core/system_texts.h"
#include "win/owned.h"

#include <dbghelp.h> // behind windows.h

namespace
{
// What all that is written may take, also where the machine is busy. The crash may have left a lock behind that one of
// the steps needs, and a process that hangs is worse than one without a report.
constexpr DWORD MOST_TIME_MS = 60'000;

// Stack for all that is written, of which an eighth was seen in use.
constexpr SIZE_T STACK_FOR_REPORT = 256 * 1024;

// Memory that is held back, as a report cannot be put together without.
constexpr SIZE_T MEMORY_FOR_HANDLER = 16 * 1024 * 1024;

// How GCC's runtime shows a C++ exception to the system.
constexpr DWORD THROWN_BY_GCC = 0x20474343;

constexpr char FILE_NAME[] = "Kor_CrashHandlers";

std::atomic<bool> is_installed{false};
std::atomic<DWORD> crashed_thread{0};
std::atomic<void*> held_back_memory{nullptr};
HANDLE crash_event = nullptr; // for the life of the process, as all of this
char* spare_stack = nullptr;
LPTOP_LEVEL_EXCEPTION_FILTER previous_filter = nullptr;

// ExitProcess would run destructors and DLLs' ends in a process of which nobody knows what is broken.
[[noreturn]] void end_process(DWORD code)
{
    ::TerminateProcess(::GetCurrentProcess(), code);
    std::abort(); // not reached; TerminateProcess is not declared as a function that does not return
}

/// True for the first thread that asks.
bool is_first_to_crash()
{
    DWORD none = 0;
    return crashed_thread.compare_exchange_strong(none, ::GetCurrentThreadId());
}

/// For whoever comes second. The thread that reports may be crashing over again, in what is broken: then the report
/// ends where it is. Any other thread leaves it the time to get done.
[[noreturn]] void leave_it_to_the_first(DWORD code)
{
    if (crashed_thread != ::GetCurrentThreadId())
        ::WaitForSingleObject(::GetCurrentProcess(), MOST_TIME_MS);
    end_process(code);
}

// What is written ----------------------------------------------------------------------------------------------------
const wchar_t* name_of(DWORD code) noexcept
{
    switch (code)
    {
    case Kor_CrashHandlers::CODE_ABORT:
        return L"abort()";
    case Kor_CrashHandlers::CODE_TERMINATE:
        return L"std::terminate()";
    case Kor_CrashHandlers::CODE_EXCEPTION:
        return L"an uncaught C++ exception";
    default:
        return kor::core::exception_name(code);
    }
}

/// Where an address lies, as far as the modules are known that the minidump has found: asking Windows would take a lock
/// that another thread may hold.
kor::core::CrashMessage message_of(const Kor_SessionLog& reporter, const EXCEPTION_RECORD& record) noexcept
{
    const auto address = reinterpret_cast<std::uintptr_t>(record.ExceptionAddress);
    kor::core::CrashMessage message{name_of(record.ExceptionCode), record.ExceptionCode, nullptr, address};
    for (const MINIDUMP_MODULE_CALLBACK& module : reporter.getModulesList())
    {
        if (module.FullPath == nullptr || address < module.BaseOfImage ||
            address - module.BaseOfImage >= module.SizeOfImage)
            continue;
        message.module = module.FullPath;
        message.address = address - module.BaseOfImage;
    }
    return message;
}

/// The last thing that is written, as destinations of the host's own get it, of which nobody knows what they need.
void tell_log(const Kor_SessionLog& reporter, const EXCEPTION_RECORD& record) noexcept
{
    char buffer[kor::core::CRASH_MESSAGE_SIZE];
    const std::string_view text = kor::core::write_crash_message(buffer, message_of(reporter, record));
    KorGLog.LogTextAt(
        FILE_NAME, "write_everything_and_end", __LINE__, KOR_LEVEL_SEVERE, KOR_PACKAGE_LIBRARY, text.data(),
        static_cast<int>(text.size()));
}

/// For the first thread that crashes: writes everything, on that thread, whose id and stack the minidump is to have.
[[noreturn]] void write_everything_and_end(EXCEPTION_POINTERS* exception)
{
    ::SetEvent(crash_event);
    Kor_CrashHandlers::ReleaseMemory();

    Kor_SessionLogHost::reportToCrashLogFile(exception); // first, as it needs least

    Kor_SessionLog* const reporter = Kor_SessionLog::myInstance; // GetInstance might make one, which is not for now
    if (reporter != nullptr)
    {
        reporter->produceMinidump(exception); // before the report, as it finds the modules
        reporter->createReport(exception);
    }
    Kor_SessionLogHost::saveState();
    if (reporter != nullptr)
        tell_log(*reporter, *exception->ExceptionRecord);

    // Whoever was here before has its turn, unless the host wants silence. Its answer does not count: after a
    // crash the process does not go on.
    if (previous_filter != nullptr && !Kor_SessionLog::bSuppressExceptions)
        previous_filter(exception);
    end_process(exception->ExceptionRecord->ExceptionCode);
}

/// What all handlers lead to. Does not come back.
[[noreturn]] void report_crash(EXCEPTION_POINTERS* exception)
{
    if (is_first_to_crash())
        write_everything_and_end(exception);
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    if (crashed_thread != ::GetCurrentThreadId())
        KOR_GENERAL_LOG(
            FILE_NAME, "report_crash", KOR_LEVEL_ERROR, "this thread has crashed, too (0x%08lx), and waits for the end",
            static_cast<unsigned long>(code));
    leave_it_to_the_first(code);
}

/// For crashes of which the system has made no exception. The minidump shows the stack as it is here: the function
/// that gave up has called this one.
[[noreturn]] void report_crash_without_exception(DWORD code)
{
    CONTEXT context{};
    ::RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = code;
    record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS exception{&record, &context};
    report_crash(&exception);
}

// Full stacks --------------------------------------------------------------------------------------------------------
SIZE_T stack_left()
{
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    ::GetCurrentThreadStackLimits(&low, &high);
    return reinterpret_cast<ULONG_PTR>(&low) - low;
}

/// Has the thread go on in write_everything_and_end, on the spare stack, once the handler returns. It stays the thread
/// that it is, and for the system its stack is the full one, which so gets into the minidump.
void continue_on_spare_stack(const EXCEPTION_POINTERS& exception)
{
    static EXCEPTION_RECORD record;
    static CONTEXT context;
    static EXCEPTION_POINTERS kept{&record, &context};
    record = *exception.ExceptionRecord;
    context = *exception.ContextRecord;

    // As behind a call: below its return address, of which there is none, a function finds room for four arguments.
    constexpr SIZE_T CALL = 5 * sizeof(void*);
    exception.ContextRecord->Rsp = reinterpret_cast<DWORD64>(spare_stack + STACK_FOR_REPORT - CALL);
    exception.ContextRecord->Rip = reinterpret_cast<DWORD64>(&write_everything_and_end);
    exception.ContextRecord->Rcx = reinterpret_cast<DWORD64>(&kept);
}

// The system leaves the handler what PrepareThread asked for, which is enough. Where the thread did not ask, and under
// Wine, it is a thousand bytes or two, which are not enough for anything but this.
LONG on_stack_overflow(EXCEPTION_POINTERS* exception)
{
    if (stack_left() >= STACK_FOR_REPORT / 2)
        report_crash(exception);
    if (!is_first_to_crash())
        leave_it_to_the_first(EXCEPTION_STACK_OVERFLOW);
    continue_on_spare_stack(*exception);
    return EXCEPTION_CONTINUE_EXECUTION;
}

// The handlers -------------------------------------------------------------------------------------------------------
LONG WINAPI on_unhandled_exception(EXCEPTION_POINTERS* exception)
{
    // On some threads a C++ exception of GCC's gets here before its runtime calls std::terminate. Going on leads
    // there, so that it is told in the same way on all threads.
    if (exception->ExceptionRecord->ExceptionCode == THROWN_BY_GCC)
        return EXCEPTION_CONTINUE_EXECUTION;
    report_crash(exception);
}

// Sees every exception first, also those that somebody is going to handle: so it acts on the only one that the
// filter above may never get to see, for want of stack.
LONG WINAPI on_any_exception(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW)
        return on_stack_overflow(exception);
    return EXCEPTION_CONTINUE_SEARCH;
}

/// A thread that ends the process when a report takes too long. Made before there is a crash, as afterwards the
/// system may be unable to make one; holds nothing while it waits, and ends with the process.
DWORD WINAPI watch_the_time(void*)
{
    ::WaitForSingleObject(crash_event, INFINITE);
    ::WaitForSingleObject(::GetCurrentProcess(), MOST_TIME_MS);
    end_process(ERROR_TIMEOUT);
}

// Set-up -------------------------------------------------------------------------------------------------------------
bool start_reporting()
{
    Kor_SessionLogGatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    return Kor_SessionLogGatherer::GetInstance() != nullptr && !Kor_SessionLogGatherer::bBypass &&
           Kor_SessionLog::GetInstance() != nullptr && !Kor_SessionLog::bBypass;
}

/// Handlers cannot be taken back for sure, so what they run has to stay. False when that cannot be had.
bool keep_library_loaded() noexcept
{
    HMODULE self = nullptr;
    return ::GetModuleHandleExW(
               GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
               reinterpret_cast<const wchar_t*>(&is_installed), &self) != FALSE;
}

bool take_what_a_crash_needs()
{
    const auto memory = [](SIZE_T size)
    { return ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); };
    held_back_memory = memory(MEMORY_FOR_HANDLER);
    spare_stack = static_cast<char*>(memory(STACK_FOR_REPORT));
    crash_event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (spare_stack == nullptr || crash_event == nullptr)
        return false;
    const kor::win::OwnedHandle watch(::CreateThread(nullptr, 0, &watch_the_time, nullptr, 0, nullptr));
    return watch && keep_library_loaded();
}
} // namespace

bool Kor_CrashHandlers::InstallWithoutRuntime()
{
    if (!start_reporting())
        return false;
    if (is_installed.exchange(true))
        return true;
    is_installed = take_what_a_crash_needs();
    if (!is_installed)
        return false;
    // No dialog may keep a crashed process, which nobody might see, from its end.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    previous_filter = ::SetUnhandledExceptionFilter(&on_unhandled_exception);
    ::AddVectoredExceptionHandler(0, &on_any_exception); // behind those of debuggers and others
    std::signal(SIGABRT, &on_abort);                     // for programs in C that share the library's C runtime
    KeepStackForHandlers();
    return true;
}

void Kor_CrashHandlers::KeepStackForHandlers() noexcept
{
    ULONG size = STACK_FOR_REPORT;
    ::SetThreadStackGuarantee(&size);
}

void Kor_CrashHandlers::ReleaseMemory() noexcept
{
    if (void* const memory = held_back_memory.exchange(nullptr))
        ::VirtualFree(memory, 0, MEM_RELEASE);
}

void Kor_CrashHandlers::ReportAbort() noexcept { report_crash_without_exception(CODE_ABORT); }

void Kor_CrashHandlers::ReportTerminate(const char* what) noexcept
{
    if (what == nullptr)
        report_crash_without_exception(CODE_TERMINATE);
    ReleaseMemory();
    if (Kor_SessionLogGatherer* const session = Kor_SessionLogGatherer::myInstance)
        session->reportError(L"uncaught exception", L"%hs", what);
    report_crash_without_exception(CODE_EXCEPTION);
}
