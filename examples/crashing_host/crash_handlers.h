// crash_handlers.h - handlers for the ways in which a process crashes, to be copied into a host. Each leads to
// Kor_SessionLog and then to the end of the process.

#ifndef CRASH_HANDLERS_H
#define CRASH_HANDLERS_H

/// Installs the handlers for the whole process and for the calling thread. To be called once, at the start of main:
/// after Kor_SessionLog::GetInstance(), without which there is nothing to report with, and before there are threads.
void install_crash_handlers();

/// To be called first on every other thread: what is a thread's own cannot be installed from outside. Without it the
/// thread's crashes are reported all the same, but for stack overflows.
void prepare_thread_for_crashes();

// Exception codes of crashes for which the system has none. They stand in the crash line and in the report, and are
// the exit codes of the process.
constexpr unsigned long CRASH_ABORT = 0xE0000001;     ///< abort() was called
constexpr unsigned long CRASH_TERMINATE = 0xE0000002; ///< std::terminate() without an exception; a pure virtual call
constexpr unsigned long CRASH_EXCEPTION = 0xE06D7363; ///< a C++ exception that nobody caught, whatever the compiler

#endif // CRASH_HANDLERS_H
