// What it costs to report an event, to write a report and a state file, to read one, and to crash.

#include <windows.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <xercesc/framework/LocalFileFormatTarget.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "bench_log.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;

constexpr unsigned MANY_EVENTS = 100'000;
constexpr unsigned MANY_ENTRIES = 10'000;
constexpr unsigned WARNING = Gatherer::level(4);

Gatherer& gatherer() { return *Gatherer::GetInstance(); }

std::wstring wide(const std::string& text) { return {text.begin(), text.end()}; }

// Events ------------------------------------------------------------------------------------------------
void instant(benchmark::State& state)
{
    for (auto _ : state)
        gatherer().reportEvent(L"Image", L"loaded", WARNING, 1, nullptr);
}

void counted(benchmark::State& state)
{
    for (auto _ : state)
        gatherer().reportEvent(L"Image", L"loaded", WARNING | Gatherer::COUNTED, 1, nullptr);
}

void counted_with_text(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        gatherer().reportEvent(
            L"Image", L"loaded", WARNING | Gatherer::COUNTED, 1, L"album %d, image %ls", ++number, L"cover");
}

void state_replaced(benchmark::State& state)
{
    for (auto _ : state)
        gatherer().reportEvent(L"Layout", L"active", Gatherer::STATE | Gatherer::COUNTED, 1, nullptr);
}

void span(benchmark::State& state)
{
    // One for each thread: a span belongs to whoever opened it.
    const std::wstring subject = std::to_wstring(::GetCurrentThreadId());
    for (auto _ : state)
    {
        gatherer().reportEvent(L"Load", subject.c_str(), Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED, 1, nullptr);
        gatherer().reportEvent(L"Load", subject.c_str(), Gatherer::END_OF_SPAN | Gatherer::COUNTED, 0, nullptr);
    }
}

void clock_alone(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Gatherer::getCurrentTime());
}

// Reports -----------------------------------------------------------------------------------------------
void fill_history()
{
    gatherer().setHistorySize(MANY_EVENTS);
    for (unsigned i = 0; i < MANY_EVENTS; ++i)
        gatherer().reportEvent(L"Image", L"loaded & shown", WARNING, 1, L"album %u, <image> %u", i / 100, i);
}

void report(benchmark::State& state, const std::wstring& path)
{
    for (auto _ : state)
        gatherer().generateReport(path.c_str(), true);
}

/// The same bytes, by the XML library from one string to its own file.
void transcoding(benchmark::State& state, const std::wstring& text, const std::wstring& path)
{
    for (auto _ : state)
    {
        xercesc::LocalFileFormatTarget target(path.c_str());
        xercesc::XMLFormatter formatter("utf-16", &target);
        formatter.formatBuf(text.data(), text.size());
        target.flush();
    }
}

void bare_write(benchmark::State& state, const std::wstring& text, const std::wstring& path)
{
    constexpr std::size_t PIECE = 16 * 1024;
    const auto* const bytes = reinterpret_cast<const char*>(text.data());
    const std::size_t size = text.size() * sizeof(wchar_t);
    for (auto _ : state)
    {
        const HANDLE file =
            ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
        for (std::size_t at = 0; at < size; at += PIECE)
        {
            DWORD written = 0;
            ::WriteFile(file, bytes + at, static_cast<DWORD>(std::min(PIECE, size - at)), &written, nullptr);
        }
        ::CloseHandle(file);
    }
}

// The state file ----------------------------------------------------------------------------------------
void fill_statistics()
{
    for (unsigned i = 0; i < MANY_ENTRIES; ++i)
        gatherer().reportEvent(
            L"Album", std::to_wstring(i).c_str(), Gatherer::COUNTED | Gatherer::BEGIN_OF_SPAN, 1, nullptr);
    gatherer().removeFromContext(L"Album", nullptr, true);
}

void load(benchmark::State& state, const std::wstring& path)
{
    for (auto _ : state)
    {
        Kor_SessionLogGatherer_Loader loader(&gatherer());
        gatherer().loadFromFile(path.c_str(), loader);
    }
}

void save(benchmark::State& state, const std::wstring& path)
{
    for (auto _ : state)
        gatherer().generateReport(path.c_str(), false);
}

// The crash ---------------------------------------------------------------------------------------------
enum class Part
{
    Dump,
    Rest,
    All
};

int write_what_is_left_behind(EXCEPTION_POINTERS* exception, Part part)
{
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    if (part != Part::Rest)
        reporter->produceMinidump(exception);
    if (part != Part::Dump)
    {
        reporter->createReport(exception);
        Kor_SessionLogHost::reportToCrashLogFile(exception);
        Kor_SessionLogHost::saveState();
    }
    return EXCEPTION_CONTINUE_EXECUTION;
}

Part wanted_part = Part::All;

LONG CALLBACK handle_fault(EXCEPTION_POINTERS* exception)
{
    constexpr DWORD BENCH_CRASH = 0xE0000001;
    if (exception->ExceptionRecord->ExceptionCode != BENCH_CRASH)
        return EXCEPTION_CONTINUE_SEARCH;
    return write_what_is_left_behind(exception, wanted_part);
}

/// From the fault to the last file closed, without the end of the process.
void crash(benchmark::State& state, Part part)
{
    wanted_part = part;
    for (auto _ : state)
        ::RaiseException(0xE0000001, 0, 0, nullptr);
}

std::wstring text_of_file(const std::string& path)
{
    const std::string bytes = read_file(path);
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(text.data()));
    return text;
}

void register_events()
{
    for (const int threads : {1, 4})
    {
        const std::string suffix = "/threads_" + std::to_string(threads);
        const auto add = [&](const char* name, void (*run)(benchmark::State&))
        { benchmark::RegisterBenchmark((name + suffix).c_str(), run)->Threads(threads)->UseRealTime(); };
        add("event/instant", &instant);
        add("event/counted", &counted);
        add("event/text", &counted_with_text);
        add("event/state", &state_replaced);
        add("event/span", &span);
    }
    benchmark::RegisterBenchmark("clock", &clock_alone);
}

void register_reports(const LogDirectory& directory)
{
    const std::wstring folder = wide(directory.path()) + L"\\";
    const std::wstring path = folder + L"report.xml";
    fill_history();
    gatherer().generateReport(path.c_str(), true);
    const std::wstring text = text_of_file(directory.file("report.xml"));
    if (text.size() < MANY_EVENTS * 100)
        fail("the report is too short");
    benchmark::RegisterBenchmark("report", [=](benchmark::State& state) { report(state, path); });
    benchmark::RegisterBenchmark(
        "transcoding", [=](benchmark::State& state) { transcoding(state, text, folder + L"transcoded.xml"); });
    benchmark::RegisterBenchmark(
        "write", [=](benchmark::State& state) { bare_write(state, text, folder + L"written.xml"); });
    benchmark::AddCustomContext("report_bytes", std::to_string(text.size() * sizeof(wchar_t)));
}

void register_states(const LogDirectory& directory)
{
    const std::wstring path = wide(directory.path()) + L"\\state.mp";
    fill_statistics();
    gatherer().generateReport(path.c_str(), false);
    benchmark::RegisterBenchmark("load", [=](benchmark::State& state) { load(state, path); });
    benchmark::RegisterBenchmark("save", [=](benchmark::State& state) { save(state, path); });
    benchmark::AddCustomContext("state_bytes", std::to_string(read_file(directory.file("state.mp")).size()));
}

void register_crashes()
{
    gatherer().gatherSystemInfo();
    benchmark::RegisterBenchmark("crash/all", [](benchmark::State& state) { crash(state, Part::All); });
    benchmark::RegisterBenchmark("crash/dump", [](benchmark::State& state) { crash(state, Part::Dump); });
    benchmark::RegisterBenchmark("crash/rest", [](benchmark::State& state) { crash(state, Part::Rest); });
}
} // namespace

/// The first argument says what to measure, as each leaves a gatherer that would be no fair one for the others.
int main(int argc, char** argv)
{
    const LogDirectory directory;
    KorGLog.Open("bench.log", "bench", false);
    xercesc::XMLPlatformUtils::Initialize();
    Gatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    if (Gatherer::GetInstance() == nullptr || Kor_SessionLog::GetInstance() == nullptr)
        fail("there is no session log");
    ::AddVectoredExceptionHandler(1, &handle_fault);

    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "events")
        register_events();
    else if (what == "reports")
        register_reports(directory);
    else if (what == "states")
        register_states(directory);
    else if (what == "crashes")
        register_crashes();
    else
        fail("the first argument is events, reports, states or crashes");
    run_benchmarks(argc - 1, argv + 1);
    return 0;
}
