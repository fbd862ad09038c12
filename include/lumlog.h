/* lumlog.h - the log for programs of any compiler and any language: C from C89 to C23, C++, and whatever can call a
 * function of a DLL.
 *
 *     lum_open("viewer.log", "viewer");
 *     LUM_LOG(LUM_WARNING, 310, "only %d of %d images fit into memory", 12, 17);
 *
 * C++ programs get more of it from lumlog.hpp. Only what this header declares passes the edge of the DLL: integers of
 * fixed size, pointers, and structures that begin with their size and only ever grow at their end. A program that was
 * built with this header goes on working with later DLLs.
 *
 * Texts are UTF-8. Messages have a length, or LUM_ZT for a text that ends at its terminator; names end at theirs. They
 * are borrowed: nobody keeps them after the call, except for the texts of a lum_site. Nothing is to be freed that
 * has no function here which does that, and nobody frees what the other has made. Invalid UTF-8 is written as it is.
 *
 * Functions that give a text write it into a buffer of the caller's, with a terminator, cut where it does not fit, and
 * return its whole length in bytes. The buffer may be null when its size is 0.
 *
 * Functions that can fail return LUM_OK or LUM_FAILED. All leave the thread's last error as it was, and nothing is thrown
 * or raised out of the DLL.
 *
 * Threads: everything may be called from any thread at any time, but for what says otherwise; opening is best done
 * before there are threads. Not from DllMain. */

#ifndef LUMLOG_H
#define LUMLOG_H

#include <stdarg.h>
#include <stddef.h>

#if defined(LUM_API) /* the program's own */
#elif defined(KOR_STATIC) || !defined(_WIN32)
#define LUM_API
#elif defined(KOR_BUILDING_DLL)
#define LUM_API __declspec(dllexport)
#else
#define LUM_API __declspec(dllimport)
#endif

#if defined(_WIN32)
#define LUM_CALL __cdecl
#else
#define LUM_CALL
#endif

#if defined(__GNUC__) || defined(__clang__)
#define LUM_PRINTF(text, arguments) __attribute__((__format__(__printf__, text, arguments)))
#else
#define LUM_PRINTF(text, arguments)
#endif

#if defined(__GNUC__) || defined(__clang__)
__extension__ typedef long long lum_int64;
__extension__ typedef unsigned long long lum_uint64;
#elif defined(_MSC_VER)
typedef __int64 lum_int64;
typedef unsigned __int64 lum_uint64;
#else
typedef long long lum_int64;
typedef unsigned long long lum_uint64;
#endif

/** As windows.h has it. */
struct _EXCEPTION_POINTERS;

#ifdef __cplusplus
extern "C"
{
#endif

/** Of this header: major << 16 | minor. A larger minor number has more functions or longer structures. */
#define LUM_VERSION 0x00010001u

#define LUM_OK 0
#define LUM_FAILED (-1)

/** As a length: the text ends at its terminator. */
#define LUM_ZT ((size_t)-1)

/** Levels of messages. */
#define LUM_SEVERE 1
#define LUM_CRITICAL 2
#define LUM_ERROR 3
#define LUM_WARNING 4
#define LUM_NOTICE 5
#define LUM_INFO 6
#define LUM_DEBUG 7

/** Packages are numbered from 0 to one less. */
#define LUM_PACKAGE_COUNT 750

/** Where the stamp of a configuration lies, which any process may change at any time. */
#define LUM_STAMP_OFFSET 4353008

/** Codes of errors and events: of a package are those from its number times this. */
#define LUM_PACKAGE_RANGE 10000

/** Outputs of a configuration. */
#define LUM_TO_STDERR 0
#define LUM_TO_EVENT_LOG 1
#define LUM_TO_FILE 2

    /** Where messages come from. One constant for each place, which must stay while the message is written. */
    typedef struct lum_site
    {
        unsigned int size; /**< sizeof(lum_site) */
        int line;          /**< 0: none of it is written */
        const char* file;  /**< what follows the last backslash is taken; null: unknown */
        const char* function;
    } lum_site;

    /** What decides in a few loads that a message is not wanted; see lum_rejected. Read only. */
    typedef struct lum_gate
    {
        unsigned int size;
        unsigned int package_count;
        const char* const volatile* block;                /**< LUM_STAMP_OFFSET before a stamp; at null: ask */
        const volatile lum_uint64* seen;                  /**< the stamp that the levels are of */
        const void* const volatile* local;                /**< not at null: ask */
        const volatile unsigned short* generation;        /**< always 0; not to be looked at any more */
        const volatile unsigned short* levels;            /**< of each package; 0: ask */
        const volatile lum_uint64* const volatile* stamp; /**< of the configuration; not as seen: ask */
    } lum_gate;

    /** A message on its way to a destination. It and its texts are there during the call only. */
    typedef struct lum_message
    {
        unsigned int size;
        int level;
        int package;
        int line; /**< 0: no place is known */
        const char* file;
        const char* function;
        const char* headline; /**< what stands in front of the text, without a blank behind; empty for a bare line */
        const char* text;     /**< normally ends in a newline; a terminator follows */
        size_t length;        /**< of the text */
        size_t headline_length;
        int bare;              /**< 1: a line without a headline */
        unsigned int thread;   /**< id of the thread that writes */
        unsigned short year;   /**< local time of the message */
        unsigned short month;  /**< 1 to 12 */
        unsigned short day;    /**< 1 to 31 */
        unsigned short hour;   /**< 0 to 23 */
        unsigned short minute; /**< 0 to 59 */
        unsigned short second; /**< 0 to 59 */
        unsigned short millisecond;
        short zone_minutes; /**< local time less UTC */
    } lum_message;

    typedef struct lum_timer lum_timer;
    typedef struct lum_client_ref lum_client_ref;
    typedef struct lum_destination lum_destination;
    typedef struct lum_conf lum_conf;

    /** Takes a message. user: as given to lum_add_destination. The result, 0 for success, is not looked at.
     *
     * Called on the thread that writes, one call at a time. It may log, which comes to it again, and may remove itself.
     * What it throws or raises ends in the DLL, with a line in the log; a fault of the processor is a crash. */
    typedef int(LUM_CALL* lum_receive)(void* user, const lum_message* message);

    /* The library ------------------------------------------------------------------------------------------- */

    /** LUM_VERSION of the DLL. One that serves this program has the same major number and no smaller minor one. */
    LUM_API unsigned int LUM_CALL lum_version(void);

    /* Opening ----------------------------------------------------------------------------------------------- */

/** For lum_open_with: without the lines that tell of the start and the end of the session. */
#define LUM_NO_BANNERS 0x1u

    /** Opens the log of the process.
     *
     * file_name: appended to, in the folder that PRISMATE_LOG_DIR names; null: no private file. app_name: stands in
     * every line. Returns LUM_OK, also when the log is open already, which changes nothing, or when the file could not
     * be opened, which is reported on standard error; LUM_FAILED when there is no memory. */
    LUM_API int LUM_CALL lum_open(const char* file_name, const char* app_name);

    /** The same with flags. */
    LUM_API int LUM_CALL lum_open_with(const char* file_name, const char* app_name, unsigned int flags);

    /** Goes on in another file, unless the configuration says the event log; opens the log where nobody has. */
    LUM_API int LUM_CALL lum_reopen(const char* file_name, const char* app_name, unsigned int flags);

    /** The name that the log was opened with; empty before. */
    LUM_API size_t LUM_CALL lum_app_name(char* buffer, size_t size);

    /** The folder of logs and configuration. */
    LUM_API size_t LUM_CALL lum_folder(char* buffer, size_t size);

    /* Filtering --------------------------------------------------------------------------------------------- */

    /** The process's gate; the same as the address of lum_process_gate. */
    LUM_API const lum_gate* LUM_CALL lum_get_gate(void);

    extern LUM_API const lum_gate lum_process_gate;

    /** 1 when a message of that level is written for that package, else 0. */
    LUM_API int LUM_CALL lum_wants(int level, int package);

    /** The level in force for a package. */
    LUM_API int LUM_CALL lum_level(int package);

    /** 1 when the message is certainly not wanted. 0 decides nothing: ask lum_wants, or just write. */
    static __inline int lum_rejected(const lum_gate* gate, int level, int package)
    {
        lum_uint64 stamp;
        unsigned int known, below;
        if ((unsigned int)package >= LUM_PACKAGE_COUNT)
            return 0;
        /* The stamp first: an entry that is read after the stamp was found to be the latest is no older. */
        stamp = **gate->stamp;
        below = (unsigned int)level - 1u;
        known = (unsigned int)gate->levels[package] - 1u;
        /* Compared without a jump in between: there is one way that is nearly always gone. */
        return (stamp == *gate->seen) & (below < 256u) & (known < below);
    }

    /* Writing. A message that is not wanted costs a few loads. ---------------------------------------------------- */

    /** Writes a line with a headline. site may be null. The text is finished: nothing in it is a format. A newline is
     * added where it has none. Of any length; a zero byte in it is written as a blank. */
    LUM_API void LUM_CALL lum_write(const lum_site* site, int level, int package, const char* text, size_t length);

    /** The same for UTF-16. length: in units of 16 bits. */
    LUM_API void LUM_CALL
    lum_write_wide(const lum_site* site, int level, int package, const wchar_t* text, size_t length);

    /** The same for a printf format with its arguments, which are the system's C runtime's: %lld and %I64d for 64-bit
     * numbers, %s for UTF-8, %ls for UTF-16. Cut at 2046 bytes. Arguments that do not fit cost the line. */
    LUM_API void LUM_CALL lum_writef(const lum_site* site, int level, int package, const char* format, ...)
        LUM_PRINTF(4, 5);
    LUM_API void LUM_CALL
    lum_vwritef(const lum_site* site, int level, int package, const char* format, va_list arguments) LUM_PRINTF(4, 0);

    /** lum_write, with the system's text for a Windows error code behind. */
    LUM_API void LUM_CALL lum_write_error(
        const lum_site* site, int level, int package, unsigned int os_error, const char* text, size_t length);

    /** Writes a line without a headline. code: the event's number in the event log, 0 for none. */
    LUM_API void LUM_CALL lum_write_bare(int level, int package, unsigned int code, const char* text, size_t length);

    /* Whom and what the lines are about ----------------------------------------------------------------------------- */

    /** Names the client that the process serves, and its session; null and 0: none. */
    LUM_API void LUM_CALL lum_set_client(const char* ip, int session);

    /** The client; session may be null. */
    LUM_API size_t LUM_CALL lum_client(char* buffer, size_t size, int* session);

    /** From now on the calling thread works for this client and session, instead of the process's: in its headlines, and
     * in the rules of the levels. ip: as for lum_set_client; null: none. Entries nest. Returns what lum_client_leave
     * wants, 0 when there is no memory, and then nothing changes. A thread that ends leaves what it has entered. Since
     * 1.1. */
    LUM_API lum_uint64 LUM_CALL lum_client_enter(const char* ip, int session);

    /** Ends what an entry of this thread began, and what was entered since. 0, and what is no entry of this thread, are
     * no harm. Since 1.1. */
    LUM_API void LUM_CALL lum_client_leave(lum_uint64 entry);

    /** Whom the calling thread works for, for a task to take along; null: for the process's client. To be freed. Any
     * thread may use it, and several at once. Since 1.1. */
    LUM_API lum_client_ref* LUM_CALL lum_client_current(void);

    /** lum_client_enter for a client that was taken along; null: for the process's. Since 1.1. */
    LUM_API lum_uint64 LUM_CALL lum_client_enter_ref(const lum_client_ref* client);

    /** Null is no harm. Threads that have entered it are not disturbed. Since 1.1. */
    LUM_API void LUM_CALL lum_client_ref_free(lum_client_ref* client);

    /** Names the calling thread; null: no name. */
    LUM_API void LUM_CALL lum_set_thread_name(const char* name);
    LUM_API size_t LUM_CALL lum_thread_name(char* buffer, size_t size);

    /* Files that rotate, lines that cannot lie ------------------------------------------------------------------------ */

    /** Instead of falling silent at the size limit of the configuration, the log's file, say viewer.log, is renamed to
     * viewer.1.log, and writing goes on in a new one. files: how many renamed ones are kept, 0 to 999; 0, the default: none
     * is renamed. LUM_FAILED for another number. The environment variable PRISMATE_LOG_FILES counts instead, where it has a
     * number. */
    LUM_API int LUM_CALL lum_set_rotation(int files);

    /** 1: control characters in texts and names are written as "\x1b" and the like, further lines of a message begin with
     * blanks, and a message that was cut says how much is missing. 0, the default: texts go out as they are. The environment
     * variable PRISMATE_LOG_SAFE counts instead, where it is 0 or 1. */
    LUM_API void LUM_CALL lum_set_safe_lines(int safe);

    /* The last lines, in memory --------------------------------------------------------------------------------------- */

    /** Keeps the last lines of the process in memory that outlives it: what is written, and messages up to level that are
     * not. bytes: of the memory, 65536 to 64 MB; 0, the default: nothing is kept. level: 0 to 7, for the packages that have
     * none of their own. The first call makes the memory, further ones change the level. LUM_FAILED for numbers out of range
     * and without memory, and then all stays as it was. The environment variable PRISMATE_LOG_RECORDER ("256K,7") counts
     * instead, where it is set. */
    LUM_API int LUM_CALL lum_set_recorder(size_t bytes, int level);

    /** Sets that level for one package, after lum_set_recorder; -1: the one for all. LUM_FAILED for numbers out of range and
     * before there is anything to keep lines in. */
    LUM_API int LUM_CALL lum_set_recorder_level(int package, int level);

    /* Levels ---------------------------------------------------------------------------------------------------- */

    /** Sets a package's level. publish: 1: for every process of the machine, from its next message on. LUM_FAILED for a
     * number that is none of a package or of a level. */
    LUM_API int LUM_CALL lum_set_level(int package, int level, int publish);

    /** Sets the output, one of LUM_TO_STDERR, LUM_TO_EVENT_LOG and LUM_TO_FILE. */
    LUM_API int LUM_CALL lum_set_output(int output, int publish);

    /** Publishes a `logger` file to every process of the machine. path: null for the folder's. LUM_FAILED, and nothing
     * changes, when it cannot be read. */
    LUM_API int LUM_CALL lum_publish_file(const char* path);

    /** Reads a `logger` file. path: null for the folder's. Null when it cannot be read or there is no memory. For one
     * thread at a time, and to be freed. */
    LUM_API lum_conf* LUM_CALL lum_conf_read(const char* path);

    /** A copy of the configuration in use. */
    LUM_API lum_conf* LUM_CALL lum_conf_current(void);

    /** Frees a configuration, null too. One that lum_conf_use_locally has put in use is taken out first. */
    LUM_API void LUM_CALL lum_conf_free(lum_conf* conf);

    LUM_API int LUM_CALL lum_conf_output(const lum_conf* conf);
    LUM_API int LUM_CALL lum_conf_set_output(lum_conf* conf, int output);

    /** In megabytes, 0 for no limit. */
    LUM_API unsigned int LUM_CALL lum_conf_size_limit(const lum_conf* conf);
    LUM_API int LUM_CALL lum_conf_set_size_limit(lum_conf* conf, unsigned int megabytes);

    /** A package's level without its rules; LUM_FAILED for a number that is none of a package. */
    LUM_API int LUM_CALL lum_conf_level(const lum_conf* conf, int package);
    LUM_API int LUM_CALL lum_conf_set_level(lum_conf* conf, int package, int level);

    /** A package's name; empty: not used. At most 39 bytes, and none of them a blank. */
    LUM_API size_t LUM_CALL lum_conf_name(const lum_conf* conf, int package, char* buffer, size_t size);
    LUM_API int LUM_CALL lum_conf_set_name(lum_conf* conf, int package, const char* name);

    /** A package's rules as they stand in the file: "[(7;192.0.2.7)]"; empty: none. */
    LUM_API size_t LUM_CALL lum_conf_rules(const lum_conf* conf, int package, char* buffer, size_t size);
    LUM_API int LUM_CALL lum_conf_set_rules(lum_conf* conf, int package, const char* rules);

    /** Writes a `logger` file. comments_of: a file whose comments behind the packages are kept; null: none. */
    LUM_API int LUM_CALL lum_conf_write(const lum_conf* conf, const char* path, const char* comments_of);

    /** Lets the rules of a configuration raise levels of this process alone, from now until it is freed or another, or
     * null, takes its place. To be called again when it was changed. */
    LUM_API int LUM_CALL lum_conf_use_locally(lum_conf* conf);

    /** Tells people what this program calls a package, so that tools can name those that the `logger` file does not: a line
     * in `logger.packages` beside it, written once and when the name changes. name: one word of at most 39 bytes.
     * LUM_FAILED for a package or a name that is none. Since 1.1. */
    LUM_API int LUM_CALL lum_name_package(int package, const char* name);

    /** For tests of programs that log; lumlog_capture.hpp makes use of it. From now on the process goes by this
     * configuration alone, whatever all processes of the machine share: it reads no file and joins nothing when it opens its
     * log, publishes nothing, and hands messages to destinations only. The configuration is copied; again for a change. null:
     * as before. For one thread at a time. LUM_FAILED when there is no memory. Since 1.1. */
    LUM_API int LUM_CALL lum_isolate(const lum_conf* conf);

    /** The defaults: level 4 for all packages. Null when there is no memory; to be freed. Since 1.1. */
    LUM_API lum_conf* LUM_CALL lum_conf_default(void);

    /* Destinations --------------------------------------------------------------------------------------------------- */

    /** Has each written message handed to receive, after the output and the destinations before. Null without memory. */
    LUM_API lum_destination* LUM_CALL lum_add_destination(lum_receive receive, void* user);

    /** A second file, appended to; null when it cannot be opened. */
    LUM_API lum_destination* LUM_CALL lum_add_file_destination(const char* path);

    /** An attached debugger. */
    LUM_API lum_destination* LUM_CALL lum_add_debugger_destination(void);

    /** For a function that receives a message and cannot throw: has the log tell that it failed, and why. Called from
     * anywhere else, it does nothing. */
    LUM_API void LUM_CALL lum_destination_failed(const char* why);

    /** Ends a destination. When it returns no call is under way, but for one on this very thread. Null, and one that has
     * ended, are no harm. */
    LUM_API void LUM_CALL lum_remove_destination(lum_destination* destination);

    /* The thread's last error ------------------------------------------------------------------------------------ */

    /** Sets the calling thread's error, 0 for none, and its text of at most 1023 bytes; null: the text stays. */
    LUM_API void LUM_CALL lum_error_set(unsigned int code, const char* text, size_t length);
    LUM_API unsigned int LUM_CALL lum_error_get(void);
    LUM_API void LUM_CALL lum_error_forget_text(void);

    /** Writes a line about an error and its text. code not 0: it occurred, under that name, and becomes the thread's.
     * 0: the thread's error was detected, and stays. */
    LUM_API void LUM_CALL
    lum_error_log(const lum_site* site, int level, int package, const char* name, unsigned int code);

    /* Timers. Their times are milliseconds. --------------------------------------------------------------------------- */

    /** Begins a measurement. Null, and nothing is measured, unless package 109 writes that level. */
    LUM_API lum_timer* LUM_CALL lum_timer_begin(const char* title, int level);

    /** Ends it and writes "T=title,ms=..." to the performance-monitor log. Returns the time; for null, LUM_FAILED. */
    LUM_API lum_int64 LUM_CALL lum_timer_end(lum_timer* timer);

    /** Starts a timer under a new name; LUM_FAILED when the name is taken. */
    LUM_API int LUM_CALL lum_timer_add(const char* name);

    /** The others give LUM_FAILED, with a line in the log, when there is no timer of that name. */
    LUM_API int LUM_CALL lum_timer_stop(const char* name);
    /** Stops a running timer and gives its time. */
    LUM_API int LUM_CALL lum_timer_read(const char* name, lum_int64* time);
    /** The same, and starts it anew. */
    LUM_API int LUM_CALL lum_timer_restart(const char* name, lum_int64* time);
    /** The same as lum_timer_read, and forgets it; time may be null. */
    LUM_API int LUM_CALL lum_timer_remove(const char* name, lum_int64* time);

    /* The performance-monitor log. Opening and closing are for one thread, and not for when others write. ------------- */

    /** file_name: null: none. LUM_FAILED when the event source could not be registered. */
    LUM_API int LUM_CALL lum_monitor_open(const char* file_name, const char* app_name);
    LUM_API int LUM_CALL lum_monitor_close(void);

    /** 1 when package 109 writes that level. */
    LUM_API int LUM_CALL lum_monitor_wants(int level);

    /** Writes a line if its level is wanted. A newline is added where it has none. Cut at 1023 bytes. */
    LUM_API void LUM_CALL lum_monitor_write(int level, const char* text, size_t length);
    LUM_API void LUM_CALL lum_monitor_writef(int level, const char* format, ...) LUM_PRINTF(2, 3);
    LUM_API void LUM_CALL lum_monitor_vwritef(int level, const char* format, va_list arguments) LUM_PRINTF(2, 0);

    /** A text for every line from now on; null: none. */
    LUM_API void LUM_CALL lum_monitor_context(const char* text);

    /* The performance record log ------------------------------------------------------------------------------------- */

    /** Makes the log and its file; the first record would do that too. Before there are threads. */
    LUM_API int LUM_CALL lum_records_open(void);

    /** Keeps a record of four texts and a value in memory. */
    LUM_API void LUM_CALL
    lum_record(const char* first, const char* second, float value, const char* third, const char* fourth);

    /** Writes the records of all threads to the file. When no thread writes any more. */
    LUM_API void LUM_CALL lum_records_close(void);

    /* Session: what a report tells ------------------------------------------------------------------------------------ */

/** For lum_session_start. */
#define LUM_SESSION_CRASHES 0x1u /**< also what a crash needs; reads the state that the last process has left */
#define LUM_SESSION_SYSTEM 0x2u  /**< also a description of the machine */

/** Flags of events. */
#define LUM_EVENT_STATE 0x1u         /**< stays in the context until replaced or removed */
#define LUM_EVENT_STATE_OF_TYPE 0x2u /**< the same, one for its type whatever the subject */
#define LUM_EVENT_HIDDEN 0x4u        /**< neither in the history nor written */
#define LUM_EVENT_CONFIGURATION 0x8u /**< written as an element `configuration` */
#define LUM_EVENT_COUNTED 0x100u     /**< counted in the statistics */
#define LUM_EVENT_BEGIN 0x200u       /**< opens a span */
#define LUM_EVENT_END 0x400u         /**< closes the span that has its type and subject */
#define LUM_EVENT_LEVEL(level) (((unsigned int)(level) << 12) & 0x7000u)

    /** Switches session events on. Until then the functions below do nothing. LUM_FAILED when that cannot be any more,
     * as something has used them before, or without memory. */
    LUM_API int LUM_CALL lum_session_start(unsigned int flags);

    /** Reports an event. type, subject: null is an empty text. text: 1023 characters of it are kept. */
    LUM_API void LUM_CALL lum_session_event(
        const char* type, const char* subject, unsigned int flags, unsigned int weight, const char* text,
        size_t length);
    LUM_API void LUM_CALL lum_session_error(const char* subject, const char* text, size_t length);
    LUM_API void LUM_CALL lum_session_warning(const char* subject, const char* text, size_t length);

    /** Notes the present time under a type and a subject, and gives it back; 0 when none was noted. Milliseconds since
     * 1 January 1970 UTC, as lum_session_now. */
    LUM_API void LUM_CALL lum_session_mark(const char* type, const char* subject);
    LUM_API lum_uint64 LUM_CALL lum_session_marked(const char* type, const char* subject);
    LUM_API lum_uint64 LUM_CALL lum_session_now(void);

    /** From now on events of type and subject are counted as those of stats_type and stats_subject. */
    LUM_API void LUM_CALL
    lum_session_count_as(const char* type, const char* subject, const char* stats_type, const char* stats_subject);

    /** Finishes what stands in the context. A null subject: all of the type. spans: 1: open spans too. */
    LUM_API void LUM_CALL lum_session_remove(const char* type, const char* subject, int spans);

    /** How many finished events are kept. */
    LUM_API unsigned int LUM_CALL lum_session_history(void);
    LUM_API void LUM_CALL lum_session_set_history(unsigned int size);

    /** Memory use: kept under a name, reported as an event, and by how much it has grown since it was kept. */
    LUM_API void LUM_CALL lum_session_memory_keep(const char* name);
    LUM_API void LUM_CALL lum_session_memory(const char* subject, unsigned int flags);
    LUM_API void LUM_CALL lum_session_memory_growth(const char* subject, const char* name, unsigned int flags);

    /** Writes a report of the session. path: null: under a name of its own in the folder. */
    LUM_API int LUM_CALL lum_session_report(const char* path);

    /* Crashes. */

    /** Installs handlers for all ways to crash, for the process and for the calling thread, and does before what
     * lum_session_start(LUM_SESSION_CRASHES) does: at the start of main, before there are threads. A crash then leaves all
     * that the functions below write, in the right order, and a SEVERE line in the log; a minute later at most the process
     * has ended, with the exception's code. Holds memory back, keeps the library loaded, and has the system show no dialog
     * when something is wrong. LUM_FAILED as there, and without memory; then nothing is installed. A further call is no
     * harm. C++ programs call what lumlog_crash.hpp has instead.
     * Since 1.1.
     *
     * Programs whose C runtime is not the library's (the system's msvcrt.dll) install a handler of SIGABRT that calls
     * lum_crash_abort. */
    LUM_API int LUM_CALL lum_crash_install(void);

    /** For every other thread, first of all: the system keeps stack for the handlers, so that a stack overflow can be told.
     * Since 1.1. */
    LUM_API void LUM_CALL lum_crash_prepare_thread(void);

    /** What a handler of SIGABRT calls: writes everything, and does not come back. Since 1.1. */
    LUM_API void LUM_CALL lum_crash_abort(void);

    /** What a handler of std::terminate calls: the same. what: what the exception says of itself; null: there is none. Since
     * 1.1. */
    LUM_API void LUM_CALL lum_crash_terminate(const char* what);

    /** Gives back the memory that is held back for a crash, before something that needs some. Since 1.1. */
    LUM_API void LUM_CALL lum_crash_release_memory(void);

    /* For handlers of a program's own. They take no lock and are for the one thread that crashes. exception: as the handler
     * got it, or null. */

    /** Has a DLL loaded that is needed in a crash, now. LUM_FAILED for a path of more than 259 bytes. */
    LUM_API int LUM_CALL lum_crash_keep_dll(const char* path);

    /** Writes a minidump, and notes the modules for the report; so it comes before that. */
    LUM_API void LUM_CALL lum_crash_minidump(struct _EXCEPTION_POINTERS* exception);

    /** Writes a crash report. path: null: under a name of its own. event_id: the program's name for it; may be null. */
    LUM_API void LUM_CALL
    lum_crash_report(struct _EXCEPTION_POINTERS* exception, const char* path, const char* event_id);

    /** Appends a line to crashes.log, which all processes share. */
    LUM_API void LUM_CALL lum_crash_line(struct _EXCEPTION_POINTERS* exception);

    /** Writes the statistics for the next process. */
    LUM_API void LUM_CALL lum_crash_state(void);

    /** 1: from now on lum_crash_report writes nothing, for programs that want the line alone. */
    LUM_API void LUM_CALL lum_crash_line_only(int only);

    /** Where files go. */
    LUM_API size_t LUM_CALL lum_crash_minidump_path(char* buffer, size_t size);
    LUM_API size_t LUM_CALL lum_crash_report_path(char* buffer, size_t size);
    LUM_API size_t LUM_CALL lum_crash_state_path(char* buffer, size_t size);

    /** Saves the state and ends what lum_session_start has begun for crashes; at the end of main, from the last thread. */
    LUM_API void LUM_CALL lum_crash_end(void);

    /** Has a process of its own (LUMlogWatch.exe, beside LUMlog.dll or the program) watch this one, behind lum_crash_install
     * or lum_session_start(LUM_SESSION_CRASHES): it writes minidumps from outside, and of an end that no handler sees, such
     * as a kill, the line, the last lines and the report. LUM_FAILED, with a warning in the log, when there is none; all is
     * then as without. Since 1.1. */
    LUM_API int LUM_CALL lum_watch_start(void);

    /** The same, but a thread of the library's own looks for the watcher and starts it, so that the host's start does not wait
     * for another program's; the warning comes from there. LUM_OK when that is under way. Since 1.1. */
    LUM_API int LUM_CALL lum_watch_start_in_background(void);

    /** Promises the watcher a next call within so many milliseconds, from any thread; where it does not come, a minidump and
     * a report are written of the program as it hangs. 0: nothing is promised any more. name: of at most 47 bytes.
     * LUM_FAILED where no watcher was asked for, and with more than 16 names. Since 1.1. */
    LUM_API int LUM_CALL lum_heartbeat(const char* name, unsigned int milliseconds);

#ifdef __cplusplus
}
#endif

/* For programs ---------------------------------------------------------------------------------------------------- */

/** The name of the source file, without its path where the compiler tells that. */
#if defined(__FILE_NAME__)
#define LUM_FILE __FILE_NAME__
#else
#define LUM_FILE __FILE__
#endif

#if defined(_MSC_VER)
#define LUM_FUNCTION __FUNCTION__
#elif defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L)
#define LUM_FUNCTION __func__
#else
#define LUM_FUNCTION ""
#endif

/** A constant for the place where it stands: static const lum_site here = LUM_SITE; */
/* clang-format off */
#define LUM_SITE {(unsigned int)sizeof(lum_site), __LINE__, LUM_FILE, LUM_FUNCTION}
/* clang-format on */

/** Messages of a level above this are left out by the compiler. To be defined before this header is included. */
#if !defined(LUM_LOG_FLOOR)
#define LUM_LOG_FLOOR LUM_DEBUG
#endif

/* Microsoft's compiler has variadic macros for C89 as well. */
#if defined(__cplusplus) || (defined(_MSC_VER) && !defined(__clang__)) || \
    (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L)

/** Calls function(site, level, package, ...) when a message is wanted, and evaluates the rest only then. */
#define LUM_LOG_WITH(function, level, package, ...)                                                      \
    do                                                                                                   \
    {                                                                                                    \
        const int lum_level_ = (level);                                                                  \
        const int lum_package_ = (package);                                                              \
        if (lum_level_ <= LUM_LOG_FLOOR && !lum_rejected(&lum_process_gate, lum_level_, lum_package_) && \
            lum_wants(lum_level_, lum_package_) != 0)                                                    \
        {                                                                                                \
            static const lum_site lum_site_ = LUM_SITE;                                                  \
            function(&lum_site_, lum_level_, lum_package_, __VA_ARGS__);                                 \
        }                                                                                                \
    } while (0)

/** Writes a line when it is wanted: LUM_LOG(LUM_WARNING, 310, "%d of %d", 12, 17). level, package: evaluated once. */
#define LUM_LOG(level, package, ...) LUM_LOG_WITH(lum_writef, level, package, __VA_ARGS__)

#endif

#endif /* LUMLOG_H */
