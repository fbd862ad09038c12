// Kor_SessionLog.h - what a host calls when it crashes: minidump, crash report, crash line, state.

#ifndef KOR_SESSIONLOG_H
#define KOR_SESSIONLOG_H

#include <list>
#include <memory>
#include <string>

#include "Kor_Package.h"

struct _EXCEPTION_POINTERS;
struct _MINIDUMP_CALLBACK_INPUT;
struct _MINIDUMP_CALLBACK_OUTPUT;
struct _MINIDUMP_MODULE_CALLBACK;

struct Kor_SessionLogHost;

/// The crash reporter of the process. It catches nothing by itself: the host installs the handlers that it
/// wants, and calls from them
///
///     Kor_SessionLogHost::reportToCrashLogFile(exception);    // first: one line in the crash log of all processes
///     reporter->produceMinidump(exception);                   // before the report, as it finds the modules
///     reporter->createReport(exception);                      // an XML report with exception, modules and events
///     Kor_SessionLogHost::saveState();                        // statistics, which the next process begins with
///
/// The line comes first as it needs least: no memory, no lock, and milliseconds. Each of the others needs more of a
/// process of which nobody knows what is broken.
///
/// All files go to the configuration directory (PRISMATE_LOG_DIR). Their names:
///
///     <type>-<program>-<year>-<month>-<day>-<hour><minute><second>.xml     a report
///     minidump-<program>-<the same>.dmp
///     crashes.log                                                          of all processes
///     CLGState.mp                                                          of all processes
///
/// Unless Activate(true) came first the instance is inert: members do nothing and return null. What is
/// reported comes from Kor_SessionLogGatherer, which is switched on by an Activate of its own.
///
/// Threads: Activate and GetInstance may be called from any thread. The others take no lock, as they are for the
/// thread that crashes; the host sees to it that one thread at a time crashes. Failures are silent or told in the
/// general log, nothing is thrown.
class KOR_API Kor_SessionLog
{
public:
    /// The instance, null before the first GetInstance and once it has been destroyed.
    static Kor_SessionLog* myInstance;
    /// True: the instance is inert. Changed by Activate only.
    static bool bBypass;
    /// True: createReport writes nothing. For hosts that want the crash line alone.
    static bool bOnlyReportToCrashLogFile;
    /// Kept for the host, without effect here.
    static bool bSuppressExceptions;

    /// Switches the reporter on or off. Without effect once there is an instance.
    static void Activate(bool active);

    /// The instance. The first call makes it: reads the state that the last process has left, loads the DLLs that are
    /// needed in a crash, and reserves memory for it. Null when there is no memory, and once it has been
    /// destroyed.
    static Kor_SessionLog* GetInstance();

    /// True once there is, or was, an instance.
    static bool IsActive();

    static void setReportToCrashLogFileOnly(bool only);

    Kor_SessionLog(const Kor_SessionLog&) = delete;
    Kor_SessionLog& operator=(const Kor_SessionLog&) = delete;

    /// Loads the DLLs that were added and are not loaded yet and, the first time, keeps back 64 KiB of address space and
    /// 256 KiB of the heap, so that a process that has used up its own still gets its report. The first report of
    /// either kind gives them back.
    void enable();
    /// Frees what enable has loaded and reserved.
    void disable();

    /// Has the next enable load a DLL. A path of more than 259 bytes is refused, with a warning in the general log.
    void addDllToLoad(const char* path);

    /// Writes a crash report named "crash-...". exception: as the handler got it; null: nothing is known of it.
    void createReport(_EXCEPTION_POINTERS* exception);
    /// The same to a file of the host's choice. eventId: the host's name for this crash; null: none.
    void createReport(_EXCEPTION_POINTERS* exception, const wchar_t* reportPath, const wchar_t* eventId);

    /// Writes a report without an exception, named "session-..." unless a report was named before.
    void createSessionReport();

    /// Writes a minidump and notes the modules of the process for the report. exception may be null.
    void produceMinidump(_EXCEPTION_POINTERS* exception);

    // Paths: valid until the next call that changes them, null without memory.

    /// A new path for a minidump, with the present time.
    const wchar_t* generateMinidumpFullPath();
    /// The path of the last minidump; a new one when there was none.
    const wchar_t* getMinidumpFullPath();
    /// The path of the report. The first type that is asked for names it; all later calls return the same.
    const wchar_t* getLogFullPath(std::wstring type);
    const wchar_t* getStateFullPath();

    /// The modules that minidumps have found so far, those of the last dump last.
    const std::list<_MINIDUMP_MODULE_CALLBACK>& getModulesList() const noexcept;

    bool getSuppressExceptions() const noexcept { return bSuppressExceptions; }
    void setSuppressExceptions(bool suppress) noexcept { bSuppressExceptions = suppress; }

    /// False always.
    bool DEBUG_checkFilter() const noexcept { return false; }

protected:
    Kor_SessionLog();
    /// Saves the state and disables.
    ~Kor_SessionLog();

private:
    friend struct Kor_SessionLogHost;

    struct Content;

    void reportToCrashLogFile(_EXCEPTION_POINTERS* exception);
    void saveState();
    void load_state();
    bool start_watcher(const char*& wrong) noexcept;
    bool prepare_watcher(const char*& wrong) noexcept;
    void load_dlls() noexcept;
    void find_process_name() noexcept;
    void reserve_memory();
    void release_reserved_memory(const char* function);
    static int __stdcall miniDumpCallback(
        void* instance, _MINIDUMP_CALLBACK_INPUT* input, _MINIDUMP_CALLBACK_OUTPUT* output);

    std::unique_ptr<Content> m_content;
};

/// What the host alone may have done, each on the instance, if there is one. Not part of Kor_SessionLog, so that
/// other code which writes reports cannot do it by mistake.
struct KOR_API Kor_SessionLogHost
{
    /// Appends the line of a crash to crashes.log. exception may be null.
    static void reportToCrashLogFile(_EXCEPTION_POINTERS* exception);

    /// Writes the state file, which the next process begins with.
    static void saveState();

    /// Destroys the instance, which saves the state. To be called at the end of main, when no other thread uses the
    /// reporter. There will be no second instance.
    static void destroy();

    /// Has a process of its own (LUMlogWatch.exe, beside LUMlog.dll or the program) watch this one, from now to its end. It
    /// writes the minidump of a crash, from outside, where nothing of this process can be broken; and of an end that no
    /// handler sees, such as a fast-fail or a kill, the line, the last lines and the report. One serves all processes of a
    /// session of Windows and ends with the last of them. To be called behind GetInstance of an activated reporter, or
    /// Kor_CrashHandlers::Install; takes the time of starting a program, if none is there yet, and does not wait for it. A
    /// further call starts one where somebody has ended all of them. False, with a warning in the general log, when
    /// there is none: then all is as without.
    static bool startWatcher();

    /// The same for a host whose start is not to wait for that of another program: a thread looks for the watcher and starts
    /// it, and writes the warning when there is none. Until then, some milliseconds, a crash is as without; heartbeats and
    /// events count from the call on. False, with a warning, when nothing is under way. Keeps the library loaded as
    /// long as that thread runs.
    static bool startWatcherInBackground();

    /// Promises the watcher a next call within so many milliseconds, from any thread. Where it does not come, the watcher
    /// writes a minidump and a report of the process as it hangs, once, and a line in hangs.log, where another one says when
    /// it is back. 0: nothing is promised any more. name: of at most 47 bytes, one for each promise; there is room for 16.
    /// False where no watcher was asked for, and where there is no room. Takes less than a microsecond, and no lock but for
    /// the first call of a name; one that promises more than the last one also wakes the watcher.
    static bool heartbeat(const char* name, unsigned milliseconds);
};

#endif // KOR_SESSIONLOG_H
