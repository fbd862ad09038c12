// Kor_PerfmonLogFile.h - the performance-monitor log and its named timers.

#ifndef KOR_PERFMONLOGFILE_H
#define KOR_PERFMONLOGFILE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_Package.h"
#include "rw/cstring.h"
#include "rw/threadlocal.h"
#include "rw/valhashmap.h"

namespace kor::win
{
class AppendFile;
class OwnerLock;
} // namespace kor::win

/// One stopwatch, in milliseconds of the system clock: a clock that is changed meanwhile shows in the
/// result.
class KOR_API Kor_PerfmonTimerData
{
public:
    /// Started at 0, and running.
    Kor_PerfmonTimerData() noexcept;
    Kor_PerfmonTimerData(const Kor_PerfmonTimerData& other) noexcept;
    Kor_PerfmonTimerData& operator=(const Kor_PerfmonTimerData&) = delete;
    virtual ~Kor_PerfmonTimerData();

    /// True for the very same object only.
    virtual bool operator==(const Kor_PerfmonTimerData& other) const noexcept;

    /// Starts anew.
    void Reset() noexcept;

    /// Stops now, also when it was stopped before.
    void Stop() noexcept;

    /// Milliseconds from start to stop. A running timer is stopped by that.
    std::int64_t GetTime() noexcept;

    /// Milliseconds since 1 January 1970 UTC.
    static std::uint64_t GetTickCount() noexcept;

private:
    std::int64_t m_start;
    std::int64_t m_stop;     // -1: running
    unsigned char* m_buffer; // heap, of nobody in this library; null
};

/// Hashes a key by its own hash function.
template <class K>
struct Kor_DefaultHash
{
    std::size_t operator()(const K& key) const noexcept { return key.hash(); }
};

/// Gives a hash functor the form that the map calls.
template <class Hash, class K>
class Kor_HashWrap
{
public:
    explicit Kor_HashWrap(const Hash& hash = Hash()) : m_hash(hash) {}
    std::size_t operator()(const K& key) const noexcept { return m_hash(key); }

private:
    Hash m_hash;
};

/// A hash map with a hash functor of one's own.
template <class K, class V, class Hash>
class Kor_ValHashMap : public RWTValHashMap<K, V, Kor_HashWrap<Hash, K>>
{
public:
    explicit Kor_ValHashMap(std::size_t buckets) : RWTValHashMap<K, V, Kor_HashWrap<Hash, K>>(buckets) {}
};

/// Stopwatches by name; names that differ in case are different. Results are 1 for done and 0 for not
/// found, except where it is said. What goes wrong is written to the general log.
///
/// Threads: the members that are declared here may be called from any thread at any time; those of the map
/// below are for tests. A record that GetTimerData gave must not be used while another thread may remove
/// it. Once the DLL has begun to go, there are no timers and none can be added.
class KOR_API Kor_PerfmonTimers : public Kor_ValHashMap<RWCString, Kor_PerfmonTimerData*, Kor_DefaultHash<RWCString>>
{
public:
    Kor_PerfmonTimers();
    Kor_PerfmonTimers(const Kor_PerfmonTimers&) = delete;
    Kor_PerfmonTimers& operator=(const Kor_PerfmonTimers&) = delete;

    /// Forgets the timers but does not delete them: others may hold what GetTimerData gave them.
    virtual ~Kor_PerfmonTimers();

    /// Starts a timer under a new name. Returns 0 when that was done and 1 when the name is taken, whose
    /// timer goes on.
    int AddTimer(RWCString name);

    int Stop(RWCString name);

    /// Milliseconds from start to stop; a running timer is stopped by that. Without a timer of that name
    /// time stays as it is.
    int GetTime(RWCString name, std::int64_t& time);

    /// The same, and starts the timer anew.
    int GetTimeAndReset(RWCString name, std::int64_t& time);

    /// The same as GetTime, and removes the timer.
    int GetTimeAndRemove(RWCString name, std::int64_t& time);

    /// The timer of that name, which stays the set's own; null when there is none.
    Kor_PerfmonTimerData* GetTimerData(RWCString name);

    /// Deletes the timer.
    int Remove(RWCString name);

    /// The name with a number behind it, to tell repeated operations apart.
    static RWCString GenerateID(RWCString name, long n);

private:
    class Guard;

    Kor_PerfmonTimerData* find(const RWCString& name) const;
    int get_time(const RWCString& name, std::int64_t& time);
    Kor_PerfmonTimerData* get_data(const RWCString& name);
    int remove_timer(const RWCString& name);

    kor::win::OwnerLock* m_lock; // null when there was no memory for it
    bool m_ended;
};

/// One thread's call parameters.
class KOR_API Kor_PerfmonLogMTVars
{
public:
    Kor_PerfmonLogMTVars& operator()() noexcept { return *this; }

    /// Does nothing: the parameters stay until StoreParams notes others.
    void ResetParams() noexcept {}

    std::int32_t m_enabled = 1; ///< 0: nothing is written
    std::int32_t m_level = 1;   ///< 2 critical to 7 debug
    std::int32_t m_package = 0;
};

/// The performance-monitor log: one line per measurement, to a file of its own, to standard error or to the
/// event log, as the general log's configuration says. The level of package 109 turns it on.
///
///     if (KorPLog.StoreParams("viewer", __LINE__, 5, 109) != 0)
///         KorPLog.FLog("load", "fg", "cpu", 12.34, "ms", std::int64_t{1500});
///
/// Lines end where the text ends: it brings its newline. They are cut at MAX_LINE_LEN - 1 characters, where a
/// newline at the end is lost as well, so that the next line goes on behind. The members that write leave
/// the thread's last error and errno as they were, report no error of the output, and throw nothing.
///
/// Threads: from any thread at any time, but for the opening members and Close, which are for one thread
/// and not for when others write. Loader lock: construct and destroy only.
class KOR_API Kor_PerfmonLogFile
{
public:
    static const int MAX_LINE_LEN; ///< 1024: bytes of a line with its terminator

    /// The argument is not used.
    explicit Kor_PerfmonLogFile(int unused);
    Kor_PerfmonLogFile(const Kor_PerfmonLogFile&) = delete;
    Kor_PerfmonLogFile& operator=(const Kor_PerfmonLogFile&) = delete;

    /// Writes the banner of the end, if the log is open, and closes it.
    ~Kor_PerfmonLogFile();

    // Opening. Each returns 0, also when the log is open already and nothing changes, and -1 when the event
    // source could not be registered; a file stays open then.

    /// Without a file.
    int Open(const char* appName);

    /// Writes to the caller's stream, which the log closes in the end. Null gives -1, after opening the rest.
    int Open(std::FILE* stream, const char* appName);

    /// Appends to fileName in the folder that PRISMATE_LOG_DIR names. Where it cannot be opened, lines go to
    /// the event log instead.
    int Open(const char* fileName, const char* appName);

    /// -1 when nothing is open.
    int Close();

    // Filtering.

    /// True when package 109 writes up to level 5 at least.
    int IsPerfmonEnabled();

    /// The level in force for the package of a code of the general log: code / 10000.
    unsigned char GetLogLevel(int id);

    /// Notes the level of the calling thread's next lines and returns 1, or returns 0 when package 109 does
    /// not write that level. The other arguments are not used.
    int StoreParams(const char* source, int line, int level, int package);

    // Writing. Texts are printf formats with their arguments.

    /// A line with time, level, application, process, thread and context in front.
    void Log(const char* format, ...) KOR_PRINTF(2, 3);

    /// A bare text; -1 when the thread's lines are not enabled. In the event log such texts are collected,
    /// for each thread, until one ends a line or 448 characters have come together.
    int LogNoHeadline(const char* format, ...) KOR_PRINTF(2, 3);

    /// Prints the text to stream, or is LogNoHeadline when that is null.
    int PrintOrLog(std::FILE* stream, const char* format, ...) KOR_PRINTF(3, 4);

    /// Writes "T=title,name=value,...". types: one character for each pair of arguments, a name and a
    /// value: d or m for an int, f for a double, g for a std::int64_t, s for a text. For another character
    /// give the name alone; the line says that it was not recognised.
    void FLog(const char* title, const char* types, ...);

    /// Formats and writes; args is a va_list. Returns 0.
    int SendLog(int noHeadline, const char* format, char* args);

    /// A text for every line from now on, null for none.
    void SetContext(const char* text);

    /// The process's named timers.
    Kor_PerfmonTimers& Timers() noexcept { return m_timers; }

private:
    /// What a thread has for the event log and has not reported yet. In its place, as the end of the
    /// process may stop a thread anywhere, and what it leaves must be readable.
    struct Pending
    {
        static constexpr std::size_t SIZE = 448 + 1024; // an event that is not full yet, one more text, a terminator

        char text[SIZE] = {};
        std::uint32_t length = 0; // set when the text is there
        std::int32_t level = 1;
        std::int32_t package = 0;
        Kor_PerfmonLogFile* owner = nullptr;
    };

    int Init(const char* appName);
    int PrintToSyslog(int noHeadline, const char* format, char* args);
    int EndNoHeadLine();

    bool is_closed() const noexcept;
    void open_file(const char* name);
    Kor_PerfmonLogMTVars* find_params() noexcept;
    int output() const noexcept;
    bool prepare_banner() noexcept;
    void
    write_line(bool to_console, const Kor_PerfmonLogMTVars& params, int noHeadline, const char* format, char* args);
    void collect(const Kor_PerfmonLogMTVars& params, const char* text);
    void report(const char* text, int level, int package) noexcept;
    void report_pending(Pending& pending, int level, int package) noexcept;
    void report_left_behind() noexcept;
    static void leave_behind(Pending& pending);

    std::atomic<std::FILE*> m_file;
    void* m_event_source;
    std::uint32_t m_event_types[8];
    char* m_app_name; // heap
    RWTThreadLocal<Kor_PerfmonLogMTVars> m_params;
    RWTThreadLocal<Pending>* m_pending; // goes before the log closes, so that what threads have is not lost
    std::int32_t m_process_id;
    char m_user_name[255];
    char m_computer_name[255];
    char* m_context; // heap
    Kor_PerfmonTimers m_timers;
    kor::win::AppendFile* m_append_file;
    kor::win::OwnerLock* m_lock; // of name, context and what ended threads have left
    std::vector<Pending> m_left_behind;
};

/// The performance-monitor log of the process: there right after the general log, and gone right before it.
extern KOR_API Kor_PerfmonLogFile KorPLog;

#endif // KOR_PERFMONLOGFILE_H
