#include "crash_handlers.h"

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"

namespace
{
constexpr int PACKAGE_CRASH = 311;

// What all that is written may take, also where the machine is busy. The crash may have left a lock behind that one of
// the steps needs, and a process that hangs is worse than one without a report.
constexpr DWORD MOST_TIME_MS = 60000;

// Stack for all that is written, of which an eighth was seen in use.
constexpr SIZE_T STACK_FOR_REPORT = 256 * 1024;

// Memory that is held back, as a report cannot be put together without.
constexpr SIZE_T MEMORY_FOR_HANDLER = 16 * 1024 * 1024;

// How GCC's runtime shows a C++ exception to the system.
constexpr DWORD THROWN_BY_GCC = 0x20474343;

std::atomic<DWORD> crashed_thread{0};
HANDLE crash_event = nullptr;
std::atomic<void*> held_back_memory{nullptr};
char* spare_stack = nullptr;
LPTOP_LEVEL_EXCEPTION_FILTER previous_filter = nullptr;

// ExitProcess would run destructors and DLLs' ends in a process of which nobody knows what is broken.
[[noreturn]] void end_process(DWORD code)
{
    ::TerminateProcess(::GetCurrentProcess(), code);
    std::abort(); // not reached; TerminateProcess is not declared as a function that does not return
}

void release_held_back_memory() { ::VirtualFree(held_back_memory.exchange(nullptr), 0, MEM_RELEASE); }

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

/// For the first thread that crashes: writes everything, on that thread, whose id and stack the minidump is to have.
[[noreturn]] void write_everything_and_end(EXCEPTION_POINTERS* exception)
{
    ::SetEvent(crash_event);
    release_held_back_memory();

    Kor_SessionLogHost::reportToCrashLogFile(exception); // first, as it needs least

    Kor_SessionLog* const reporter = Kor_SessionLog::myInstance; // GetInstance might make one, which is not for now
    if (reporter != nullptr)
    {
        reporter->produceMinidump(exception); // before the report, as it finds the modules
        reporter->createReport(exception);
    }
    Kor_SessionLogHost::saveState();

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
        KOR_LOG(
            KorGLog, 3, PACKAGE_CRASH, "this thread has crashed, too (0x%08lx), and waits for the end",
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

// The system leaves the handler what prepare_thread_for_crashes asked for, which is enough. Where the thread did not
// ask, and under Wine, it is a thousand bytes or two, which are not enough for anything but this.
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
// filter above may never get to see, for want of stack. A host that recovers from stack overflows leaves it out.
LONG WINAPI on_any_exception(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW)
        return on_stack_overflow(exception);
    return EXCEPTION_CONTINUE_SEARCH;
}

/// Puts what an exception says of itself among the errors of the report.
void report_what(const std::exception_ptr& thrown)
{
    Kor_SessionLogGatherer* const session = Kor_SessionLogGatherer::myInstance;
    if (session == nullptr)
        return;
    try
    {
        std::rethrow_exception(thrown);
    }
    catch (const std::exception& error)
    {
        session->reportError(L"uncaught exception", L"%hs", error.what());
    }
    catch (...)
    {
        session->reportError(L"uncaught exception", L"an object that is no std::exception");
    }
}

// Nothing has been unwound when nobody catches an exception: the throw is still on the stack.
[[noreturn]] void on_terminate()
{
    const std::exception_ptr thrown = std::current_exception();
    if (thrown == nullptr)
        report_crash_without_exception(CRASH_TERMINATE);
    release_held_back_memory(); // the exception may be the one that tells of a lack of it
    report_what(thrown);
    report_crash_without_exception(CRASH_EXCEPTION);
}

// Also what std::terminate of a DLL comes to that brings a C++ runtime of its own.
void on_abort(int) { report_crash_without_exception(CRASH_ABORT); }

/// A thread that ends the process when a report takes too long. Made before there is a crash, as afterwards the
/// system may be unable to make one; holds nothing while it waits, and ends with the process.
DWORD WINAPI watch_the_time(void*)
{
    ::WaitForSingleObject(crash_event, INFINITE);
    ::WaitForSingleObject(::GetCurrentProcess(), MOST_TIME_MS);
    end_process(ERROR_TIMEOUT);
}
} // namespace

void install_crash_handlers()
{
    held_back_memory = ::VirtualAlloc(nullptr, MEMORY_FOR_HANDLER, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    spare_stack =
        static_cast<char*>(::VirtualAlloc(nullptr, STACK_FOR_REPORT, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    crash_event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    ::CloseHandle(::CreateThread(nullptr, 0, &watch_the_time, nullptr, 0, nullptr));

    // No dialog may keep a crashed process, which nobody might see, from its end.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    previous_filter = ::SetUnhandledExceptionFilter(&on_unhandled_exception);
    ::AddVectoredExceptionHandler(0, &on_any_exception); // behind those of debuggers and others
    std::signal(SIGABRT, &on_abort);
#ifdef _MSC_VER
    _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
    _set_purecall_handler(&on_terminate); // elsewhere a pure virtual call ends in std::terminate
#endif
    prepare_thread_for_crashes();
}

void prepare_thread_for_crashes()
{
    ULONG size = STACK_FOR_REPORT;
    ::SetThreadStackGuarantee(&size);
    std::set_terminate(&on_terminate); // with some compilers each thread has its own
}
