// What a record of the performance record log costs the code that is measured, beside the same line written
// with fprintf to a file that is open and not flushed.

#include <windows.h>

#include <algorithm>
#include <string>

#include "Kor_LogFile.h"
#include "Kor_PerformanceLog.h"
#include "bench_log.h"

namespace
{
constexpr int YOUNG = 1000; // records of a thread that had none
constexpr int MANY = 20000;

std::size_t records_written = 0;

float next_value() noexcept
{
    static const float values[] = {0.5f, 12, 1234567, 0.1f, 3.14159f, 1e-10f, 250.75f, 0};
    return values[records_written++ % std::size(values)];
}

void write_record(Kor_PerformanceLog* log) { log->WriteRecord("scan", "load", next_value(), "album 12", "image 3"); }

/// Goes on with records that are there already. Their memory is part of the time.
void record(benchmark::State& state)
{
    Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance();
    for (auto _ : state)
        write_record(log);
}

std::int64_t counter() noexcept
{
    LARGE_INTEGER ticks{};
    ::QueryPerformanceCounter(&ticks);
    return ticks.QuadPart;
}

void counter_alone(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(counter());
}

double seconds_since(std::int64_t start) noexcept
{
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    return static_cast<double>(counter() - start) / static_cast<double>(frequency.QuadPart);
}

/// The first records after a close: everything that grows begins anew. The time that an iteration takes
/// is taken here, as the framework's way of stopping its clock takes longer than what it leaves out.
void young_records(benchmark::State& state)
{
    Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance();
    for (auto _ : state)
    {
        log->close();
        const std::int64_t start = counter();
        for (int i = 0; i < YOUNG; ++i)
            write_record(log);
        state.SetIterationTime(seconds_since(start));
    }
}

void written_records(benchmark::State& state)
{
    Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance();
    for (auto _ : state)
    {
        log->close();
        for (int i = 0; i < MANY; ++i)
            write_record(log);
        const std::int64_t start = counter();
        log->close();
        state.SetIterationTime(seconds_since(start));
    }
}

using Print = int(FILE*, const char*, ...);

/// The C runtime's own: what the compiler calls by that name takes four times as long.
Print* find_fprintf()
{
    const FARPROC found = ::GetProcAddress(::GetModuleHandleA("msvcrt.dll"), "fprintf");
    if (found == nullptr)
        fail("there is no fprintf");
    return reinterpret_cast<Print*>(reinterpret_cast<void*>(found));
}

void printed_record(benchmark::State& state, FILE* file)
{
    static Print* const print = find_fprintf();
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    for (auto _ : state)
    {
        const auto value = static_cast<double>(next_value());
        --records_written;
        print(
            file, "%I64d,%s,%s,%g,%s,%s\n", counter() * 1000 / frequency.QuadPart, "scan", "load", value, "album 12",
            "image 3");
    }
}

/// The one file of the folder whose name begins with the process id.
std::string record_file(const LogDirectory& directory)
{
    WIN32_FIND_DATAA found{};
    const std::string pattern = directory.file(std::to_string(::GetCurrentProcessId()) + "_P*");
    const HANDLE search = ::FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        fail("there is no record file");
    ::FindClose(search);
    return found.cFileName;
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory directory;
    KorGLog.Open("bench.log", "bench", false);
    FILE* const file = std::fopen(directory.file("printed").c_str(), "a");
    if (file == nullptr)
        fail("no file to print to");
    benchmark::RegisterBenchmark("record/append", &record);
    benchmark::RegisterBenchmark("record/young", &young_records)->UseManualTime();
    benchmark::RegisterBenchmark("record/written", &written_records)->UseManualTime();
    benchmark::RegisterBenchmark("fprintf", [file](benchmark::State& state) { printed_record(state, file); });
    benchmark::RegisterBenchmark("counter", &counter_alone);
    benchmark::AddCustomContext("young", std::to_string(YOUNG));
    benchmark::AddCustomContext("many", std::to_string(MANY));
    run_benchmarks(argc, argv);
    std::fclose(file);

    Kor_PerformanceLog::CloseInstance();
    const std::string text = read_file(directory.file(record_file(directory)));
    if (static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) != records_written)
        fail("records are missing");
    return 0;
}
