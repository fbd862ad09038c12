// Kor_LogFile.h - the general log of a process: opening, filtering, writing, destinations.

#ifndef KOR_LOGFILE_H
#define KOR_LOGFILE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Kor_LogConf.h"
#include "Kor_LogLevel.h"
#include "Kor_Package.h"
#include "Mutex.h"
#include "rw/threadlocal.h"

/// Lets the compilers that can check a printf format against its arguments. The formatter is the
/// system C runtime's, so %I64d is understood and the C99 length letters z, j and t are not.
#if defined(__GNUC__) || defined(__clang__)
#define KOR_PRINTF(text, arguments) __attribute__((__format__(__printf__, text, arguments)))
#else
#define KOR_PRINTF(text, arguments)
#endif

namespace kor
{
class Client;
class Clients;
class OwnConf;
struct Isolation;
namespace win
{
class AppendFile;
}
} // namespace kor

struct Kor_LogFileForC;

/// A point in local time, field for field the SYSTEMTIME of Windows.
struct Kor_LocalTime
{
    std::uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
};

/// One thread's message context: the parameters of the message being written, its time, and the
/// buffers its headline is built in.
///
/// Belongs to one thread; only that thread touches it, except for the static members, which are the
/// process's. Those are written by SetIP, SetIPAndSID and Open and may be read at any time through
/// the headlines; code that reads the texts themselves must not race with those calls.
class KOR_API Kor_LogMTVars
{
public:
    static constexpr int LEVEL_COUNT = 8;
    static constexpr int HEADLINE_SIZE = 200; ///< bytes with the terminator; longer headlines are cut
    static constexpr int LOCATION_SIZE = 100;
    static constexpr int CONTEXT_SIZE = 100;
    static constexpr int TIME_TEXT_SIZE = 100;

    /// The calling thread's context: defaults, accepted, level 1, package 0; takes the time zone once
    /// and forgets the thread's name.
    Kor_LogMTVars();
    Kor_LogMTVars(const Kor_LogMTVars&) = delete;
    Kor_LogMTVars& operator=(const Kor_LogMTVars&) = delete;

    /// Takes the local time now. The zone stays as it was taken at construction.
    void UpdateTime() noexcept;

    /// Forgets location, headline and context of the message; level, package and accepted stay.
    void ResetParams() noexcept;

    /// Builds the location and context texts from the current parameters.
    void format_context() noexcept;

    /// Builds and returns a headline; the text stays valid until the thread's next message.
    /// force formats even when the buffer is marked as holding that very kind.
    char* AsStringFull(bool force) noexcept;        ///< private file, console, destinations
    char* AsStringPartialWS(bool force) noexcept;   ///< event log
    char* AsStringPartialUnix(bool force) noexcept; ///< Unix system logs

    /// "2024-03-05 14:07:09.042+02:00"; valid until the thread's next call.
    char* TimeText() noexcept;

    const char* m_file;     ///< not owned
    const char* m_function; ///< not owned, may be null
    std::int32_t m_line;    ///< 0: no location
    std::int32_t m_accepted;
    std::int32_t m_level;
    std::int32_t m_package;
    std::uint32_t m_thread_id;
    Kor_LocalTime m_time;
    char m_zone_sign;
    std::int32_t m_zone_hours;
    std::int32_t m_zone_minutes;
    const char* m_level_names[LEVEL_COUNT];
    std::int32_t m_headline_kind; ///< 1 full, 2 partial WS, 3 partial Unix, 0 none
    char m_headline[HEADLINE_SIZE];
    char m_location[LOCATION_SIZE];
    char m_context[CONTEXT_SIZE];
    bool m_has_location;
    bool m_has_context;
    bool m_has_thread_name;
    std::int32_t m_headline_length; ///< -1: the headline was cut
    std::int32_t m_references;

    static char* m_app_name; ///< heap text, null before the first Open
    static int m_proc_id;
    static long m_session_id;                   ///< 0: none
    static char* m_str_ip_address;              ///< heap text, null: none
    static RWTThreadLocal<char*> m_thread_name; ///< heap text of each thread, null: none

private:
    friend class Kor_LogFile;
    friend class Kor_LogDestFile;

    /// What the parameters tell of the message being written.
    struct Message
    {
        const char* file;
        const char* function;
        std::int32_t line, accepted, level, package;
        Kor_LocalTime time;
        std::uint64_t time_taken_at;
    };
    Message message() const noexcept;
    void restore(const Message& message) noexcept;

    std::string_view full_headline() noexcept;
    std::string_view time_text() noexcept;
    void look_at_identity() noexcept;
    const char* format_parts() noexcept;
    template <class Write>
    char* headline(int kind, bool force, Write write) noexcept;

    /// What the time text was made of.
    struct TimeParts
    {
        Kor_LocalTime time;
        std::int32_t zone_sign, zone_hours, zone_minutes;
    };

    char m_time_text[TIME_TEXT_SIZE];
    TimeParts m_time_parts;
    std::uint32_t m_time_length;   // 0: none was made yet
    std::uint64_t m_time_taken_at; // milliseconds of the system clock

    std::uint32_t m_uses; // of the parameters, by StoreParams and by messages

    // The process's texts as this thread saw them last, so that a line needs no lock for them.
    std::uint32_t m_seen_changes;
    const char* m_seen_name;
    const char* m_seen_ip;
    long m_seen_session;
    std::int32_t m_seen_process;
    std::uint32_t m_seen_thread;
    std::uint64_t m_seen_client; // the thread's own, 0: none
    bool m_has_client;
    char m_client[CONTEXT_SIZE];
    char m_origin[HEADLINE_SIZE]; // application, process and thread
    std::uint32_t m_client_length;
    std::uint32_t m_origin_length;
    std::uint32_t m_location_length;
    bool m_is_only_recorded; // the message: it is not to be written
};

/// A counted pointer to a context. Not atomic: it stays on the context's thread.
class KOR_API Kor_LogMTVarsPtr
{
public:
    /// Makes a new context.
    Kor_LogMTVarsPtr();
    explicit Kor_LogMTVarsPtr(Kor_LogMTVars* raw) noexcept;
    Kor_LogMTVarsPtr(const Kor_LogMTVarsPtr& other) noexcept;
    Kor_LogMTVarsPtr& operator=(const Kor_LogMTVarsPtr& other) noexcept;
    ~Kor_LogMTVarsPtr();

    Kor_LogMTVars* operator->() const noexcept { return m_raw; }

private:
    Kor_LogMTVars* m_raw;
};

/// Receives every written message once it is registered with a Kor_LogFile. Owned by the application,
/// which unregisters it before it goes; not from inside its own LogMessage.
class KOR_API Kor_LogDestBase
{
public:
    Kor_LogDestBase() = default;
    Kor_LogDestBase(const Kor_LogDestBase&) = default;
    Kor_LogDestBase& operator=(const Kor_LogDestBase&) = default;
    virtual ~Kor_LogDestBase();

    /// Called on the writing thread with the log's lock held; may itself log.
    /// context: the writing thread's. bare: the message carries no headline.
    /// text, length: the formatted message, normally ending in a newline; a message that was cut
    /// without one has the length 0xFFFFFFFF and ends at its terminator.
    /// The result, 0 for success, is not looked at by the log. What it throws, or raises with RaiseException, ends in
    /// the log, with a line of level 3 and package 106 in the output; the next destinations get the message all the
    /// same. A fault of the processor is a crash, and goes its way.
    virtual int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) = 0;
};

/// Hands messages to an attached debugger.
class KOR_API Kor_LogDestDebug : public Kor_LogDestBase
{
public:
    Kor_LogDestDebug() = default;
    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override;
};

/// Appends messages to a text file. A copy shares the stream; the last of them to go closes it.
class KOR_API Kor_LogDestFile : public Kor_LogDestBase
{
public:
    /// Opens path for appending. A failure is reported on standard error and every LogMessage then
    /// returns -1.
    explicit Kor_LogDestFile(const char* path);
    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override;

private:
    std::shared_ptr<std::FILE> m_file;
};

/// A file destination that keeps the messages of package 217 only.
class KOR_API Kor_TestLogDestFile : public Kor_LogDestFile
{
public:
    explicit Kor_TestLogDestFile(const char* path);
    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override;
};

/// The general log.
///
/// A caller asks StoreParams whether a message is wanted, which also notes where it comes from, and
/// then calls Log; KOR_LOG does both at once and evaluates nothing for a message nobody wants:
///
///     KOR_LOG(KorGLog, 5, 17, "loaded %d images in %.1f s", count, seconds);
///
/// Levels run from 1 (severe) to 7 (debug). Texts are cut at 2046 characters. The members that write
/// leave the thread's last error and errno as they were, return no error of the output, and never
/// throw, whatever a destination does.
///
/// Threads: everything may be called from any thread at any time, but the opening members should
/// come before the threads do. Loader lock: construct and destroy only.
class KOR_API Kor_LogFile
{
public:
    /// banners: write a line when the log opens and when it is destroyed. The first argument is unused.
    Kor_LogFile(int unused, bool banners);
    Kor_LogFile(const Kor_LogFile&) = delete;
    Kor_LogFile& operator=(const Kor_LogFile&) = delete;
    ~Kor_LogFile();

    // Opening. All return 0; on a log whose file or event source is open they do nothing else.

    /// Writes to what the configuration says; no private file.
    int Open(const char* app_name);

    /// Uses the caller's stream as the private file, which the log closes in the end. Null gives -1,
    /// after opening the rest.
    int Open(std::FILE* stream, const char* app_name);

    /// Appends to file_name in the configuration directory. A file that cannot be opened is reported
    /// on standard error and the rest still opens.
    int Open(const char* file_name, const char* app_name);
    int Open(const char* file_name, const char* app_name, bool banners);

    /// Changes the private file of an open log, unless it writes to the event log.
    int ReOpen(const char* file_name, const char* app_name, bool banners);

    /// Does nothing and returns 0: the log closes when it is destroyed.
    int Close();

    /// Instead of falling silent at the size limit of the configuration, the private file, say viewer.log, is renamed to
    /// viewer.1.log, and writing goes on in a new one. files: how many renamed ones are kept, up to 999; older ones
    /// have larger numbers, and the oldest is deleted. 0, which is the default: no file is renamed. Where the environment
    /// variable PRISMATE_LOG_FILES has a number, that counts instead of every call. Holds for files that are opened
    /// later, too; a stream of the caller's is never renamed. Any thread, at any time.
    void SetRotation(int files);

    /// Keeps what is logged from passing for what it is not: control characters in texts and names are written as
    /// "\x1b" and the like, each further line of a message, and each line without a headline, begins with blanks, and a
    /// message that was cut says how much is missing. For servers, whose texts come from others. Off by default. Holds for
    /// the whole process. Where the environment variable PRISMATE_LOG_SAFE is 1 or 0, that counts instead of every
    /// call. Any thread, at any time.
    void SetSafeLines(bool safe);

    // The last lines, in memory.

    /// Keeps the last lines of the process in memory that outlives it, for its crash and for tools that look into the running
    /// process: what is written, whatever the output, and messages up to level that are not written. bytes: of the memory,
    /// 65536 to 64 MB, a line takes some 230; 0, which is the default: nothing is kept any more, what is there stays.
    /// level: 0 to 7, for the packages that have none of their own; 0: what is written and nothing else. Messages that are
    /// only kept do not reach the destinations. Holds for all logs of the process. The first call makes the memory, whose
    /// size is final; further ones change the level. -1 for numbers out of range and without memory, and then all stays as
    /// it was. Where the environment variable PRISMATE_LOG_RECORDER says what to keep ("256K,7"), that counts instead of
    /// every call. Any thread, at any time.
    int SetRecorder(std::size_t bytes, int level);

    /// Sets the level of SetRecorder for one package, to be called after that; -1: the one for all. -1 for numbers out of
    /// range, and before there is anything to keep lines in. Any thread, at any time.
    int SetRecorderLevel(int package, int level);

    // Filtering.

    /// Notes the parameters of the calling thread's next message and returns 1, or returns 0 when
    /// nobody wants it. file (past its last backslash) and function are kept as pointers until the
    /// message is written.
    int StoreParams(const char* file, const char* function, int line, int level, int package, int unused = 1);

    /// 1 when a message of level is to be written, or kept by SetRecorder, for the package that code / 10000 gives, else 0.
    /// A package outside 0 to 749 has the default level 4.
    int CheckMsgLevel(long code, int level);

    /// The level in force for the code's package.
    unsigned char GetLogLevel(int code);

    /// True when a message is certainly not wanted: StoreParams would return 0. False decides
    /// nothing; ask StoreParams. A handful of loads, for use in front of a call.
    bool IsRejected(int level, int package) const noexcept
    {
        if (static_cast<unsigned int>(package) >= static_cast<unsigned int>(PACKAGE_COUNT))
            return false;
        // volatile: another process stores it, so each check must look. The order matters: an entry
        // that is read after its stamp was found to be the latest is no older than that.
        const std::uint64_t stamp = *m_quick_stamp.load(std::memory_order_relaxed);
        const std::uint64_t seen = m_seen_count.load(std::memory_order_acquire);
        const unsigned int known = m_level_cache[package].load(std::memory_order_relaxed);
        // Levels are 1 to 255 where one is known. Compared without a jump in between: there is one way that is nearly
        // always gone.
        const unsigned int below = static_cast<unsigned int>(level) - 1;
        return (static_cast<int>(stamp == seen) & static_cast<int>(below < 256) &
                static_cast<int>(known - 1 < below)) != 0;
    }

    /// True when a message is wanted: StoreParams would return 1. Notes nothing.
    bool IsWanted(int level, int package);

    /// Sets the level of the calling thread's next message.
    void SetOutLogLevel(int level);

    // Writing. Texts are printf formats with their arguments.

    /// A line with a headline; the newline is added where the text has none.
    void Log(const char* format, ...) KOR_PRINTF(2, 3);

    /// StoreParams and Log in one, so that nothing that logs can come between them: the arguments have been
    /// evaluated before. Returns 1, or 0 when nobody wants the message.
    int LogAt(const char* file, const char* function, int line, int level, int package, const char* format, ...)
        KOR_PRINTF(7, 8);

    /// The same with a va_list.
    int
    LogAtArgs(const char* file, const char* function, int line, int level, int package, const char* format, char* args);

    /// The same with a finished text of any length, which goes out as it is.
    int
    LogTextAt(const char* file, const char* function, int line, int level, int package, const char* text, int length);

    /// A bare line with a code of the caller's, or 65534. Returns -1 when the thread's context is not
    /// accepted.
    int LogNoHeadline(unsigned long code, const char* format, ...) KOR_PRINTF(3, 4);
    int LogNoHeadline(const char* format, ...) KOR_PRINTF(2, 3);

    /// Prints the text to standard output and logs it with a headline.
    void PrintAndLog(const char* format, ...) KOR_PRINTF(2, 3);

    /// Prints the text to stream, or logs it bare when stream is null. -1 when that is not accepted.
    int PrintOrLog(std::FILE* stream, const char* format, ...) KOR_PRINTF(3, 4);

    /// Logs the text followed by the system's description of a Windows error code.
    void OSErrLog(unsigned int error, const char* format, ...) KOR_PRINTF(3, 4);

    /// Logs that the system call of that name failed with a Windows error code.
    void OSLog(const char* call, unsigned int error);

    /// Formats and writes a message; args is a va_list. Without add_newline the text goes out as it
    /// is. Code 65535 gives it a headline, others do not; in the event log the code is the event's
    /// number. Returns 0.
    int SendLog(unsigned long code, const char* format, char* args);
    int SendLog(unsigned long code, const char* format, char* args, bool add_newline);

    /// Writes a finished text of any length.
    int SendLogNoLimit(unsigned long code, char* text, int length);

    // Context of the lines.

    /// Names the client that the process serves, null for none, and forgets the session.
    void SetIP(const char* ip);
    void SetIPAndSID(const char* ip, long sid);

    /// Names the calling thread in its headlines, null for no name.
    void SetThreadName(const char* name);

    /// The application name that the log was opened with; the shared text, null before that.
    char* GetApplicationName();

    /// Tells people what this program calls a package, so that tools can name those that the `logger` file does not:
    /// a line in `logger.packages` beside it, which is written once and when the name changes. name: one word of at most
    /// 39 bytes. Returns 0, also when the file cannot be written, which holds up nobody; -1 for a package or a name that
    /// is none. To be called when PRISMATE_LOG_DIR is set, at the start of main.
    static int NamePackage(int package, const char* name);

    // Destinations.

    /// Adds a destination at the end of the list; one that is listed stays where it is. Null is not added.
    /// One for which the list has no memory is left out, with a line in this log.
    void RegisterLogDestination(Kor_LogDestBase* destination);
    void UnregisterLogDestination(Kor_LogDestBase* destination);
    void ClearAllLogDestinations();

    // Configuration.

    /// Sets a package's level and, unless it is -1, the output; publish makes every process of the
    /// machine take it over at its next check. -1 when the configuration in use is not the log's own
    /// or the package number is not legal.
    int SetCustomLogLevel(Kor_LogConf::Output output, int package, int level, bool publish);
    int SetCustomLogLevel(int package, int level, bool publish);

    /// The configuration in use, null when there was no memory for one. Stays readable until the log goes, also when
    /// the log joins the shared block meanwhile and another one comes into use. A process that asks before that
    /// keeps 4.4 MB for it.
    const Kor_LogConf* GetConf();

    /// A further configuration of this process alone, whose rules can raise levels; not owned.
    Kor_LogConf* GetLocalConf();
    void SetLocalConf(Kor_LogConf* conf);

    /// First configuration step: reads the file, applies the environment, attaches the shared block.
    /// Runs once; returns 0.
    int InitConf();

    /// Reads a `logger` file into conf. The path forms return -1, with a warning on standard output,
    /// when it cannot be opened; what cannot be used in it gets a warning and the rest counts.
    static int ReadFile(std::ifstream& file, Kor_LogConf& conf);
    static int ReadFile(const char* path, Kor_LogConf& conf);
    static int ReadFile(const wchar_t* path, Kor_LogConf& conf);

    /// Reads the `logger` file of the configuration directory into the configuration in use.
    int ReadFile();

    /// The comment of each package line: 750 texts, to be freed with CleanComments; null, with a
    /// warning on standard output, when the file cannot be opened.
    static char** ReadCommentsFromFile(const char* path);
    static void CleanComments(char**& comments);

    /// Writes conf as a `logger` file with the comments of ReadCommentsFromFile, which may be null.
    /// False, with a line on standard error, when path cannot be opened.
    static bool DumpToLoggerFile(const Kor_LogConf& conf, const char* path, char** comments);

    /// The directory of PRISMATE_LOG_DIR ('?': the code page lacks it) or, with a warning on standard output, "log".
    static char* GetLogConfigDir();

    // The shared block.

    /// Maps the machine's configuration block, creating it when there is none. 0: created here, 17:
    /// it existed, -1: failed and *view is null. View and mapping stay until the process ends.
    static int AttachSharedMemory(void** view);

    /// The same, and makes the block the log's shared configuration.
    int AttachSharedMemory();

    /// Puts the shared configuration in use; -1 when there is none.
    int ReadSharedMemory();

    /// Publishes the configuration in use into the block and uses it from there. Returns 0.
    int WriteToSharedMemory();

    /// Reads a `logger` file and publishes it to every process of the machine; a missing file
    /// publishes the defaults. -1 when there is no block or no memory.
    static int UpdateSMFromFile(const char* path);

    /// Publishes conf to every process of the machine, as UpdateSMFromFile does with what it has read; conf gets the
    /// stamp that it was published under. 0, or -1 when there is no block and none can be made: the reason stands in
    /// GetLastError.
    static int UpdateSMFromConf(Kor_LogConf& conf);

    /// Copies what the machine's processes share, without joining or making it. name, unless null, is set to the name
    /// of the block that was found ("Global\..." of the machine, "Local\..." of a session), or to null. 17, or -1 when
    /// there is none, or none that can be read: then copy is as it was and the reason stands in GetLastError (2: no
    /// process shares anything). Waits up to two seconds for whoever publishes, so that it has one state whole; where that
    /// process hangs in the middle, it may have parts of two.
    static int CopySharedMemory(Kor_LogConf& copy, const char** name = nullptr);

    /// For a tool (KOR_TOOL_PROGRAM), whose log goes by a copy of what was shared when it was opened: takes what is shared
    /// now in place of that, so that GetConf has it. name and result as for CopySharedMemory; -1 too, and nothing is done,
    /// in a program that is no tool, and without memory.
    int TakeSharedConf(const char** name = nullptr);

    /// The stamp of what the machine's processes share, 0 when there is nothing; a fraction of the cost of a copy, for
    /// who waits for a change.
    static unsigned long long GetSharedChangeCount();

    /// True when the cached levels are those of the configuration as it stands now.
    bool IsCacheTableUpToDate();
    void ClearCacheTable();

    /// Makes sure that the package's cached level is that of the configuration as it stands now.
    void UpdateCacheFromSharedMem(int package);

private:
    friend struct Kor_LogFileForC;
    friend class Kor_PerfmonLogFile; // goes by this log's output
    friend class kor::Clients;

    struct Line;
    struct Round;
    struct Seam;

    int Init(const char* app_name);
    int close();
    bool ValidateFileMaxSizeInaccurately();

    Kor_LogMTVars* context() noexcept;
    bool is_closed() const noexcept;
    void open_private_file(const char* file_name);
    void register_event_source();
    void write_start_banner();
    Kor_LogConf* configuration() noexcept;
    int configured_output() const noexcept;
    bool read_start_configuration(const std::optional<Kor_LogConf::Output>& chosen);
    void write_end_banner();
    void use_own_configuration();
    void override_output(Kor_LogConf::Output output);
    bool fill_block(Kor_LogConf& block);
    void write_block();
    bool attach_configuration();

    int note_params(const char* file, const char* function, int line, int level, int package);
    const Kor_LogMTVarsPtr*
    begin_message(const char* file, const char* function, int line, int level, int package) noexcept;
    int check_level(int package, int level);
    int current_level(int package) noexcept;
    int refresh_level(int package) noexcept;
    int level_of_thread(int package) noexcept;
    int find_level_of_thread(int package, std::uint64_t generation, kor::Client* client) noexcept;
    int effective_level(int package) noexcept;
    int effective_level_for(int package, kor::Client* client) noexcept;
    int highest_level(int package) noexcept;
    bool isolate(const Kor_LogConf* contents) noexcept;
    void keep_level(int package, std::uint64_t generation, int level) noexcept;
    void forget_levels() noexcept;
    const volatile std::uint64_t* set_shared_stamp(const volatile std::uint64_t* stamp) noexcept;
    void choose_quick_stamp() noexcept;
    static void forget_all_levels() noexcept;
    static void ask_by_client() noexcept;
    static void ask_by_recorder() noexcept;
    void leave_list() noexcept;
    void rebuild_cache(int package);
    void note_context_change() noexcept;

    Kor_LogMTVarsPtr* find_context() noexcept;
    Kor_LogMTVarsPtr* find_accepted_context() noexcept;
    void send(const Kor_LogMTVarsPtr& vars, unsigned long code, const char* format, char* args, bool add_newline);
    void send_finished(const Kor_LogMTVarsPtr& vars, const Line& line);
    void log_banner(const char* format, ...) KOR_PRINTF(2, 3);
    void send_text(Kor_LogMTVarsPtr vars, const Line& line);
    void record(Kor_LogMTVars& context, const Line& line) noexcept;
    void write_output(Kor_LogMTVars& context, const Line& line);
    void write_console(Kor_LogMTVars& context, const Line& line);
    bool write_private_file(Kor_LogMTVars& context, const Line& line);
    bool write_rotating_file(Kor_LogMTVars& context, const Line& line);
    void write_event(Kor_LogMTVars& context, const Line& line);
    void write_destinations(const Kor_LogMTVarsPtr& context, const Line& line);
    void report_failed_destination(Kor_LogMTVars& context, const char* what) noexcept;

    std::atomic<std::FILE*> m_file;
    bool m_banners;
    void* m_event_source;
    std::uint32_t m_event_types[Kor_LogMTVars::LEVEL_COUNT];
    void* m_shared_view;
    std::atomic<Kor_LogConf*> m_conf;        // null as long as the log's own one is in use and nobody has looked at it
    std::atomic<Kor_LogConf*> m_shared_conf; // likewise; the log's own until the shared block is attached
    std::atomic<Kor_LogConf*> m_local_conf;
    std::atomic<bool> m_conf_initialised;
    RWTThreadLocal<Kor_LogMTVarsPtr> m_context;
    char m_user_name[255];
    char m_computer_name[255];
    std::atomic<bool> m_context_changed;
    std::atomic<std::uint64_t> m_seen_count;
    std::atomic<std::uint64_t> m_seen_local_count;
    bool m_console_mode;
    std::atomic<bool> m_size_exceeded;
    std::atomic<std::int32_t> m_size_countdown;
    // The level or, where threads have clients of their own or lines are kept in memory, the highest that any message may
    // have, 1 to 255; 0 unknown.
    std::atomic<std::uint16_t> m_level_cache[PACKAGE_COUNT];
    std::vector<Kor_LogDestBase*> m_destinations;
    Kor_LogDestBase* m_debugger_destination; // owned
    std::atomic<std::uint64_t> m_destination_count;
    ThreadAPI_RecursiveMutex* m_lock;

    // Always 0: the checks in programs that were built with earlier headers compare the high bytes of entries with it.
    std::atomic<std::uint16_t> m_cache_generation;
    kor::win::AppendFile* m_append_file;
    kor::OwnConf* m_own_conf;                                  // owned
    std::atomic<const volatile std::uint64_t*> m_shared_stamp; // of the shared configuration; null: there is none
    std::atomic<std::uint64_t> m_generation;                   // of the levels: of no other log and never again
    Kor_LogFile* m_older_log;                                  // of all that there are
    kor::Isolation* m_isolation;                               // owned; null: there never was one
    std::atomic<bool> m_is_isolated;
    // What the quick check compares with the count that was seen: the stamp above or, where more decides or there is none,
    // one that is never seen. Never null.
    std::atomic<const volatile std::uint64_t*> m_quick_stamp;
};

/// The log of the process, there from when the library is loaded until it goes.
extern KOR_API Kor_LogFile KorGLog;

/// To stand once, outside of all functions, in a program that looks after the configuration of others and is not to
/// have one of its own. In its process the library does nothing to the configuration while it is loaded, before main
/// runs; takes over nothing from the environment into what all share; makes no shared block by itself and keeps none
/// alive; opens no console and adjusts no clock. A log that such a program opens goes by a copy of what was shared at
/// that moment or, when nothing was, by the `logger` file.
#define KOR_TOOL_PROGRAM                            \
    extern "C"                                      \
    {                                               \
        KOR_TOOL_EXPORT extern int Kor_ToolProgram; \
        KOR_TOOL_EXPORT int Kor_ToolProgram = 1;    \
    }                                               \
    static_assert(true)

#if defined(_WIN32)
#define KOR_TOOL_EXPORT __declspec(dllexport)
#else
#define KOR_TOOL_EXPORT
#endif

/// Writes a line when it is wanted, and evaluates neither the format nor its arguments when not. They are evaluated
/// before the line begins, so they may log themselves.
/// log: a Kor_LogFile. level, package: as for StoreParams, each evaluated once.
#define KOR_LOG(log, level, package, ...)                                                                  \
    do                                                                                                     \
    {                                                                                                      \
        Kor_LogFile& kor_log_ = (log);                                                                     \
        const int kor_level_ = (level);                                                                    \
        const int kor_package_ = (package);                                                                \
        if (!kor_log_.IsRejected(kor_level_, kor_package_) && kor_log_.IsWanted(kor_level_, kor_package_)) \
            kor_log_.LogAt(KOR_FILE_NAME, __func__, __LINE__, kor_level_, kor_package_, __VA_ARGS__);      \
    } while (false)

#endif // KOR_LOGFILE_H
