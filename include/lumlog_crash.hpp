// lumlog_crash.hpp - what a C++ program's own runtime has to do with crash handlers, for every compiler.
//
//     int main()
//     {
//         lum::install_crash_handlers();
//
// A crash then leaves a line, a minidump, a report, the state, and a SEVERE line in the log, and ends the process: see
// lum_crash_install.

#ifndef LUMLOG_CRASH_HPP
#define LUMLOG_CRASH_HPP

#include <csignal>
#include <cstdlib>
#include <exception>

#include "lumlog.h"

namespace lum
{
namespace detail
{
inline void on_abort(int) { ::lum_crash_abort(); }

// Nothing has been unwound when nobody catches an exception: the throw is still on the stack.
[[noreturn]] inline void on_terminate()
{
    if (const std::exception_ptr thrown = std::current_exception())
    {
        ::lum_crash_release_memory(); // the exception may be the one that tells of a lack of it
        try
        {
            std::rethrow_exception(thrown);
        }
        catch (const std::exception& error)
        {
            ::lum_crash_terminate(error.what());
        }
        catch (...)
        {
            ::lum_crash_terminate("an object that is no std::exception");
        }
    }
    ::lum_crash_terminate(nullptr);
    std::abort(); // not reached
}
} // namespace detail

/// What every thread but the one that installed the handlers calls first.
inline void prepare_thread_for_crashes()
{
    ::lum_crash_prepare_thread();
    std::set_terminate(&detail::on_terminate); // with some compilers each thread has its own
}

/// lum_crash_install for a C++ program: abort(), std::terminate() and exceptions that nobody catches are told, too. False:
/// nothing is installed.
inline bool install_crash_handlers()
{
    if (::lum_crash_install() != LUM_OK)
        return false;
    std::signal(SIGABRT, &detail::on_abort);
#ifdef _MSC_VER
    _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
    _set_purecall_handler(&detail::on_terminate); // elsewhere a pure virtual call ends in std::terminate
#endif
    prepare_thread_for_crashes();
    return true;
}

/// See lum_watch_start.
inline bool start_watcher() { return ::lum_watch_start() == LUM_OK; }

/// See lum_watch_start_in_background.
inline bool start_watcher_in_background() { return ::lum_watch_start_in_background() == LUM_OK; }

/// See lum_heartbeat.
inline bool heartbeat(const char* name, unsigned int milliseconds)
{
    return ::lum_heartbeat(name, milliseconds) == LUM_OK;
}
} // namespace lum

#endif // LUMLOG_CRASH_HPP
