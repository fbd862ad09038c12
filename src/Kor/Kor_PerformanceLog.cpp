#include "Kor_PerformanceLog.h"

#include <windows.h>

#include <direct.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <new>
#include <string>
#include <utility>

#include "Kor_LogFile.h"
#include "core/fixed_text.h"
#include "core/record.h"
#include "win/clock.h"
#include "win/kept_errors.h"
#include "win/path.h"

using kor::core::RecordStreams;
using kor::core::RecordText;
using kor::win::KeptErrors;

namespace
{
constexpr int LEVEL_WARNING = 4;
constexpr int LEVEL_DEBUG = 7;

bool is_wanted(int level, int line)
{
    return KorGLog.StoreParams("Kor_PerformanceLog", "Kor_PerformanceLog::Init", line, level, KOR_PACKAGE_LIBRARY) != 0;
}

std::wstring find_directory()
{
    if (auto directory = kor::win::configured_folder())
        return *std::move(directory);
    if (is_wanted(LEVEL_WARNING, __LINE__))
        KorGLog.Log("Kor_PrformanceLog - Warning - No configuration file\n");
    return L"log";
}

bool make_directory(const std::wstring& directory)
{
    return ::_wmkdir(kor::win::system_path(directory).c_str()) == 0 || errno == EEXIST;
}

/// Ticks a second of the high-resolution counter; at least 1.
std::int64_t counter_frequency() noexcept
{
    // No static that initialises itself, as that costs a thread-local slot for each load of the DLL. Two
    // threads that ask at once get the same answer.
    static std::atomic<std::int64_t> known{0};
    std::int64_t frequency = known.load(std::memory_order_relaxed);
    if (frequency == 0)
    {
        LARGE_INTEGER ticks{};
        ::QueryPerformanceFrequency(&ticks);
        frequency = std::max<std::int64_t>(ticks.QuadPart, 1);
        known.store(frequency, std::memory_order_relaxed);
    }
    return frequency;
}

std::int64_t counter_now() noexcept
{
    LARGE_INTEGER ticks{};
    ::QueryPerformanceCounter(&ticks);
    return ticks.QuadPart;
}
} // namespace

int Kor_PerformanceLog::use_performance_log = 1;
// Nobody destroys what stands here at the end of the process: static objects of hosts and of other DLLs may
// still be using it, in whatever order they go.
std::atomic<Kor_PerformanceLog*> Kor_PerformanceLog::my_instance{nullptr};
std::atomic<int> Kor_PerformanceLog::file_counter{0};

// Life of a log ---------------------------------------------------------------------------------------
Kor_PerformanceLog* Kor_PerformanceLog::GetInstance()
{
    if (Kor_PerformanceLog* const known = my_instance.load(std::memory_order_acquire))
        return known;
    const KeptErrors kept;
    std::unique_ptr<Kor_PerformanceLog> made(new (std::nothrow) Kor_PerformanceLog);
    Kor_PerformanceLog* other = nullptr;
    if (made == nullptr || !my_instance.compare_exchange_strong(other, made.get(), std::memory_order_acq_rel))
        return other;
    // Known to all by now: a destination of the general log may come here from within.
    Kor_PerformanceLog* const log = made.release();
    log->Init();
    return log;
}

void Kor_PerformanceLog::CloseInstance()
{
    if (use_performance_log == 0)
        return;
    const KeptErrors kept;
    const std::unique_ptr<Kor_PerformanceLog> log(my_instance.exchange(nullptr, std::memory_order_acq_rel));
    if (log != nullptr)
        log->close();
}

Kor_PerformanceLog::Kor_PerformanceLog() noexcept
    : m_streams(new (std::nothrow) RecordStreams), m_initialised(0), m_file_open(0),
      m_process_id(0), m_start_text{}, m_stamp{}, m_path{}
{
}

Kor_PerformanceLog::Kor_PerformanceLog(const Kor_PerformanceLog& other) noexcept : Kor_PerformanceLog()
{
    *this = other;
}

Kor_PerformanceLog& Kor_PerformanceLog::operator=(const Kor_PerformanceLog& other) noexcept
{
    if (this == &other)
        return *this;
    const KeptErrors kept;
    m_streams.reset(new (std::nothrow) RecordStreams);
    if (m_streams != nullptr && other.m_streams != nullptr)
        m_streams->append(*other.m_streams);
    m_initialised = other.m_initialised;
    m_file_open = other.m_file_open;
    m_process_id = other.m_process_id;
    kor::core::copy_cut(m_start_text, other.m_start_text);
    kor::core::copy_cut(m_stamp, other.m_stamp);
    kor::core::copy_cut(m_path, other.m_path);
    m_file = other.m_file;
    return *this;
}

Kor_PerformanceLog::~Kor_PerformanceLog()
{
    const KeptErrors kept;
    m_file.reset();
    m_streams.reset();
}

void Kor_PerformanceLog::Init()
{
    const KeptErrors kept;
    if (is_wanted(LEVEL_DEBUG, __LINE__))
        KorGLog.Log("performance log - Init\n");
    if (use_performance_log == 0)
        return;
    m_file_open = 0;
    m_file.reset();
    try
    {
        start_file();
    }
    catch (const std::bad_alloc&)
    {
        m_initialised = 1;
    }
}

/// Opens the file and tells its path. False when it could not be opened.
bool Kor_PerformanceLog::start_file()
{
    const std::wstring directory = find_directory();
    m_initialised = 1;
    if (!make_directory(directory))
        return false;

    constexpr std::size_t STAMP_LIMIT = 10;
    m_process_id = ::GetCurrentProcessId();
    const std::tm now = kor::win::local_time();
    kor::core::copy_cut(m_start_text, std::asctime(&now)); // what ctime gives for now
    std::strftime(m_stamp, STAMP_LIMIT, "P%m%d%H%M", &now);
    const std::string name =
        std::to_string(static_cast<int>(m_process_id)) + "_" + m_stamp + "_" + std::to_string(file_counter++);
    const std::wstring path = directory + L"/" + std::wstring(name.begin(), name.end());
    const std::string text = kor::win::path_text(path);
    kor::core::copy_cut(m_path, text.c_str());

    std::FILE* const file = ::_wfopen(kor::win::system_path(path).c_str(), L"a");
    if (file == nullptr)
        return false;
    m_file.reset(file, &std::fclose);
    m_file_open = 1;
    if (is_wanted(LEVEL_WARNING, __LINE__))
        KorGLog.Log("Kor_PerformanceLog::Init: filename is %s\n", text.c_str());
    return true;
}

// Records ---------------------------------------------------------------------------------------------
void Kor_PerformanceLog::WriteRecord(
    const char* first, const char* second, float value, const char* third, const char* fourth)
{
    if (use_performance_log == 0 || m_streams == nullptr)
        return;
    const KeptErrors kept;
    const std::int64_t now = kor::core::counter_milliseconds(counter_now(), counter_frequency());
    if (RecordText* const own = m_streams->find_or_make(::GetCurrentThreadId()))
        own->append({now, first, second, value, third, fourth});
}

// The file --------------------------------------------------------------------------------------------
void Kor_PerformanceLog::write(const char* text)
{
    if (use_performance_log == 0)
        return;
    const KeptErrors kept;
    if (m_initialised == 0)
        Init();
    if (m_file_open != 0)
        std::fputs(text == nullptr ? "(null)" : text, m_file.get());
}

void Kor_PerformanceLog::flush()
{
    const KeptErrors kept;
    if (use_performance_log != 0 && m_file_open != 0)
        std::fflush(m_file.get());
}

void Kor_PerformanceLog::close()
{
    if (use_performance_log == 0)
        return;
    const KeptErrors kept;
    if (m_streams != nullptr)
    {
        m_streams->for_each([this](const RecordText& records)
                            { records.for_each_piece([this](const char* piece) { write(piece); }); });
        m_streams->clear();
    }
    flush();
}
