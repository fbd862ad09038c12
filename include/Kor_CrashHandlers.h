// Kor_CrashHandlers.h - handlers for the ways in which a process crashes.

#ifndef KOR_CRASHHANDLERS_H
#define KOR_CRASHHANDLERS_H

#include <csignal>
#include <cstdlib>
#include <exception>

#include "Kor_Package.h"

/// Handlers that notice a crash, have Kor_SessionLog write everything, and end the process:
///
///     int main()
///     {
///         KorGLog.Open("viewer.log", "viewer");
///         Kor_CrashHandlers::Install();
///
/// In this order: the crash line, the minidump, the report, the state, and a SEVERE line in the general log with the
/// exception, module and offset. Then the filter that was there before has its turn, and the process ends by
/// TerminateProcess with the exception's code. All of it takes a minute at most; then the process ends with what is
/// written.
///
/// What belongs to a C++ runtime is inline here: a DLL that has a runtime of its own would set its own handlers only.
/// A host whose parts have several runtimes calls Install in each.
class Kor_CrashHandlers
{
public:
    // Exception codes of crashes for which the system has none. They stand in the crash line and in the report, and are
    // the exit codes of the process.
    static constexpr unsigned long CODE_ABORT = 0xE0000001;     ///< abort() was called
    static constexpr unsigned long CODE_TERMINATE = 0xE0000002; ///< std::terminate() without an exception; a pure call
    static constexpr unsigned long CODE_EXCEPTION = 0xE06D7363; ///< a C++ exception that nobody caught, of any compiler

    /// Installs the handlers for the whole process and for the calling thread, and switches session events and the crash
    /// reporter on where they are not yet. At the start of main, before there are threads: it reserves memory,
    /// makes a thread that watches over the time, keeps the library loaded, and has the system show no dialogs when
    /// something is wrong. False when Kor_SessionLog or Kor_SessionLogGatherer was used before it was activated, or
    /// without memory; nothing is installed then. A further call is for a further runtime, and no harm.
    static bool Install()
    {
        if (!InstallWithoutRuntime())
            return false;
        std::signal(SIGABRT, &on_abort);
#ifdef _MSC_VER
        _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
        _set_purecall_handler(&on_terminate); // elsewhere a pure virtual call ends in std::terminate
#endif
        PrepareThread();
        return true;
    }

    /// To be called first on every other thread: what is a thread's own cannot be installed from outside. Without it the
    /// thread's crashes are reported all the same, but for stack overflows on Windows and, with some compilers, what an
    /// uncaught exception says.
    static void PrepareThread()
    {
        KeepStackForHandlers();
        std::set_terminate(&on_terminate); // with some compilers each thread has its own
    }

    // What handlers of a host's own call for crashes of which the system has made no exception, on the thread that has
    // crashed. The minidump shows the stack as it is then.

    /// After abort().
    [[noreturn]] static KOR_API void ReportAbort() noexcept;

    /// In std::terminate(). what: what the exception says of itself, which gets among the errors of the report; null: there
    /// is no exception.
    [[noreturn]] static KOR_API void ReportTerminate(const char* what) noexcept;

    /// Gives back the memory that is held back for a crash, before something that needs some.
    static KOR_API void ReleaseMemory() noexcept;

    // The parts of Install and PrepareThread that are the same for all runtimes.

    /// As Install; of abort() in a runtime other than the library's, and of std::terminate(), the process still ends without a
    /// word.
    static KOR_API bool InstallWithoutRuntime();

    /// Has Windows keep stack for the handlers when the calling thread overflows its own.
    static KOR_API void KeepStackForHandlers() noexcept;

private:
    static void on_abort(int) { ReportAbort(); }

    // Nothing has been unwound when nobody catches an exception: the throw is still on the stack.
    [[noreturn]] static void on_terminate()
    {
        const std::exception_ptr thrown = std::current_exception();
        if (thrown == nullptr)
            ReportTerminate(nullptr);
        ReleaseMemory(); // the exception may be the one that tells of a lack of it
        try
        {
            std::rethrow_exception(thrown);
        }
        catch (const std::exception& error)
        {
            ReportTerminate(error.what());
        }
        catch (...)
        {
            ReportTerminate("an object that is no std::exception");
        }
    }
};

#endif // KOR_CRASHHANDLERS_H
