// Kor_PerformanceLog.h - the performance record log: timed records, kept in memory until it is closed.

#ifndef KOR_PERFORMANCELOG_H
#define KOR_PERFORMANCELOG_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "Kor_Package.h"

namespace kor::core
{
class RecordStreams;
}

/// Timed records of the process, one line of text each, which cost the code that is measured next to
/// nothing:
///
///     Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance(); // before there are threads
///     ...
///     log->WriteRecord("scan", "load", 0.5f, "album 12", "image 3");
///     ...
///     Kor_PerformanceLog::CloseInstance(); // when the threads have finished
///
/// A record goes to the memory of its thread. CloseInstance writes them all to a file of their own, thread
/// after thread, in the folder that PRISMATE_LOG_DIR names, or in the folder "log"; its name is
/// <process id>_P<month><day><hour><minute>_<number>, with the local time of the start and a number that
/// grows with each file of the process. A process that ends without CloseInstance leaves an empty file.
///
/// Nothing here fails: records of a log whose folder or file cannot be made, and those for which there is
/// no memory, are left out. All members leave the thread's last Windows error and errno as they were and
/// throw nothing.
///
/// Threads: records may be written from any thread at any time between GetInstance and CloseInstance, and
/// nobody waits for anybody. Everything else is for one thread at a time.
class KOR_API Kor_PerformanceLog
{
public:
    /// The log of the process. The first call, and the first one after CloseInstance, makes it and its
    /// file. Null when there is no memory for it. May be called from any thread at any time.
    static Kor_PerformanceLog* GetInstance();

    /// Writes the records of all threads to the file and ends the log; without one, does nothing. No
    /// thread may use the log any more; records that come later belong to a new one, from GetInstance.
    static void CloseInstance();

    /// A log that has no file yet.
    Kor_PerformanceLog() noexcept;
    /// The copy has records of its own, equal to those that the other one has now, and shares its file.
    Kor_PerformanceLog(const Kor_PerformanceLog& other) noexcept;
    Kor_PerformanceLog& operator=(const Kor_PerformanceLog& other) noexcept;
    /// Closes the file, when no copy has it open. Records that close has not written are discarded.
    ~Kor_PerformanceLog();

    /// Makes the folder where there is none, opens a new file for appending, and notes its path in the
    /// general log. Called again, it goes on in another file.
    void Init();

    /// Appends a record to those of the calling thread:
    ///
    ///     <milliseconds>,<first>,<second>,<value>,<third>,<fourth>
    ///
    /// The time is that of the system's high-resolution counter, which does not start with the process and
    /// is no wall clock. The value has up to six significant digits: 0.5, 1.23457e+06. The texts are written
    /// as they are, of any length, commas included; a null pointer as "(null)".
    void WriteRecord(const char* first, const char* second, float value, const char* third, const char* fourth);

    /// Writes text to the file, in front of the records; runs Init first where it has not run.
    void write(const char* text);

    /// Hands to the system what write has left in the file's buffer.
    void flush();

    /// Writes the records of all threads to the file, each thread's in their order and together, and
    /// forgets them. No thread may be writing a record.
    void close();

private:
    static constexpr std::size_t START_TEXT_SIZE = 256;
    static constexpr std::size_t STAMP_SIZE = 16;
    static constexpr std::size_t PATH_SIZE = 260;

    bool start_file();

    std::unique_ptr<kor::core::RecordStreams> m_streams; // null: there was no memory
    int m_initialised;
    int m_file_open;
    unsigned long m_process_id;
    char m_start_text[START_TEXT_SIZE];
    char m_stamp[STAMP_SIZE];
    char m_path[PATH_SIZE];
    std::shared_ptr<std::FILE> m_file; // of this log and its copies

    static int use_performance_log; // 0: nothing does anything
    static std::atomic<Kor_PerformanceLog*> my_instance;
    static std::atomic<int> file_counter;
};

#endif // KOR_PERFORMANCELOG_H
