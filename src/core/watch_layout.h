// watch_layout.h - what a process tells its watcher, in memory that both map: for who writes it and who reads it.

#ifndef KOR_CORE_WATCH_LAYOUT_H
#define KOR_CORE_WATCH_LAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/bounded_text.h"

namespace kor::core
{
constexpr std::uint64_t WATCH_MAGIC = 0x48435441574D554C; // "LUMWATCH"
constexpr std::uint32_t WATCH_VERSION = 1;

// Numbers of one word, which processes change while others read them.
using SharedWord = std::atomic<std::uint32_t>;
using SharedLongWord = std::atomic<std::uint64_t>;
static_assert(SharedWord::is_always_lock_free && sizeof(SharedWord) == 4, "shared with other processes");
static_assert(SharedLongWord::is_always_lock_free && sizeof(SharedLongWord) == 8, "shared with other processes");

/// Which process it is: Windows gives the id of one that has ended to another one.
struct ProcessIdentity
{
    std::uint32_t process;
    std::uint64_t created; ///< a FILETIME
};

inline bool operator==(const ProcessIdentity& a, const ProcessIdentity& b) noexcept
{
    return a.process == b.process && a.created == b.created;
}

// The table of all processes of a session of Windows that are watched -------------------------------------------------

/// All zeros: free. A process takes one by its word `process`, and fills in the rest before the word `is_ready`.
struct WatchedEntry
{
    SharedWord process;
    SharedWord is_ready;
    SharedLongWord created;
    // Handles that the watcher of that id has already: of the process, and of its WatchedProcess.
    SharedWord handles_are_for;
    SharedWord process_handle;
    SharedWord section_handle;
    std::uint32_t unused;
};
static_assert(sizeof(WatchedEntry) == 32);

constexpr std::size_t MOST_WATCHED = 1024;

/// All zeros: nobody is watched, and nobody watches.
struct WatchTable
{
    SharedWord watcher;  ///< the id of the process that watches, 0: none does
    SharedWord stand_by; ///< and of the one that takes over from it
    SharedLongWord watcher_created;
    WatchedEntry entries[MOST_WATCHED];
};
static_assert(sizeof(WatchTable) == 16 + MOST_WATCHED * sizeof(WatchedEntry));

// What one process tells ---------------------------------------------------------------------------------------------

/// Where a crash got with what it writes. A crash that got to the end has the last three.
enum WatchSteps : std::uint32_t
{
    WATCH_ENDED_ORDERLY = 1, ///< the process has come to the end of its DLLs
    WATCH_LINE = 2,          ///< the line in crashes.log
    WATCH_LAST_LINES = 4,
    WATCH_DUMP = 8,
    WATCH_REPORT = 16
};

/// What becomes of a minidump that the watcher is to write. Whoever changes it has found it as it was.
enum class DumpRequest : std::uint32_t
{
    NONE,
    FILLING,
    REQUESTED,
    CLAIMED,  ///< by the watcher
    DONE,     ///< the file is there, and the modules are noted
    FAILED,   ///< it is not, and the process is to write it
    WITHDRAWN ///< the process writes it, and the watcher is not to
};

constexpr std::size_t WATCH_NAME_SIZE = 512;      // of a file without its folder
constexpr std::size_t WATCH_PROGRAM_SIZE = 256;   // of a program's path
constexpr std::size_t WATCH_FOLDER_SIZE = 32'768; // as long as a path can be

struct WatchedModule
{
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t checksum;
    std::uint32_t time_stamp;
    std::uint32_t file_version[2]; ///< the more significant half first
    std::uint32_t product_version[2];
    char16_t path[260];
};

/// An event, an error or a warning that was reported. One is whole when its sequence was the same before and after.
struct WatchedEvent
{
    static constexpr std::uint64_t CHANGING = 0;

    SharedLongWord sequence; ///< from 1
    std::uint64_t begin_time;
    std::uint64_t end_time;
    std::uint32_t list; ///< a ReportList
    std::uint32_t flags;
    std::uint32_t weight;
    std::uint32_t unused;
    char16_t type[64];
    char16_t subject[128];
    char16_t info[320];
};

/// A promise to come back.
struct WatchedHeartbeat
{
    SharedWord is_named;
    SharedWord period_ms; ///< 0: nothing is promised
    SharedLongWord beat;  ///< the last one, as core::WatchTime
    char name[48];
};

constexpr std::uint32_t MOST_HEARTBEATS = 16;
constexpr std::uint32_t WATCHED_EVENTS = 64;
constexpr std::uint32_t MOST_WATCHED_MODULES = 768;

struct WatchedProcess
{
    SharedLongWord magic; ///< stored last
    std::uint32_t version;
    std::uint32_t size;
    ProcessIdentity identity;

    SharedWord steps;         ///< WatchSteps
    SharedWord line_only;     ///< 1: no reports are wanted
    SharedLongWord step_time; ///< of the last one but the orderly end, as WatchTime

    SharedWord request; ///< a DumpRequest
    std::uint32_t crashed_thread;
    std::uint64_t exception; ///< EXCEPTION_POINTERS in the process's memory, 0: none

    SharedWord recorder_is_for; ///< the watcher that has a handle of the recorded lines already
    SharedWord recorder_handle;

    WatchedHeartbeat heartbeats[MOST_HEARTBEATS];

    char program_text[WATCH_PROGRAM_SIZE];     // as in crashes.log
    char16_t program_path[WATCH_PROGRAM_SIZE]; // as in reports
    char16_t program[WATCH_PROGRAM_SIZE];      // as in the names of files
    char16_t folder[WATCH_FOLDER_SIZE];        // of all files, with a backslash at its end
    char16_t dump_name[WATCH_NAME_SIZE];
    char16_t report_name[WATCH_NAME_SIZE]; // once it has one

    SharedLongWord events; ///< how many there have been
    WatchedEvent event_ring[WATCHED_EVENTS];

    SharedWord module_count;
    SharedWord late_heartbeats; ///< a bit for each whose silence has been told, for the watcher that takes over
    WatchedModule modules[MOST_WATCHED_MODULES];
};

// Another version lays them elsewhere, under another name.
static_assert(sizeof(WatchedModule) == 560 && sizeof(WatchedEvent) == 1064 && sizeof(WatchedHeartbeat) == 64);
static_assert(offsetof(WatchedProcess, steps) == 32 && offsetof(WatchedProcess, request) == 48);
static_assert(offsetof(WatchedProcess, heartbeats) == 72 && offsetof(WatchedProcess, folder) == 2376);

// Names ---------------------------------------------------------------------------------------------------------------
constexpr std::string_view WATCH_TABLE_NAME = "Local\\LUMLOG_WATCHERS_1";
constexpr std::string_view WATCH_TURN_NAME = "Local\\LUMLOG_WATCHERS_1_TURN"; ///< a mutex: its owner watches
constexpr std::string_view WATCH_WAKE_NAME = "Local\\LUMLOG_WATCHERS_1_WAKE"; ///< an event: the table has changed

// Behind the name of a process's section: events.
constexpr std::string_view WATCH_NEWS = "_NEWS"; ///< for the watcher: look at the section
constexpr std::string_view WATCH_ANSWER = "_ANSWER";

/// "Local\LUMLOG_WATCH_1_4312_133773984000000000": under which name a process has what it tells.
class WatchName
{
public:
    explicit WatchName(const ProcessIdentity& identity, std::string_view what = {}) noexcept
    {
        BoundedText(m_text, sizeof m_text)
            .add("Local\\LUMLOG_WATCH_")
            .add_unsigned(WATCH_VERSION)
            .add('_')
            .add_unsigned(identity.process)
            .add('_')
            .add_unsigned(identity.created)
            .add(what)
            .finish();
    }

    const char* text() const noexcept { return m_text; }

private:
    char m_text[80];
};
} // namespace kor::core

#endif // KOR_CORE_WATCH_LAYOUT_H
