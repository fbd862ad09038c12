// What a written line costs. Each contender writes the same message, with a headline that says the same,
// into a file of its own, and every line is with the system before the call returns. After each
// measurement the file is read back: a line that is missing or torn fails the run.

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kor_LogDestJsonLines.h"
#include "Kor_LogFile.h"
#include "bench_log.h"
#include "import_hook.h"
#include "lumlog.hpp"

namespace
{
constexpr int MAX_THREADS = 16;
constexpr std::size_t SHORTEST_LINE = 160;
constexpr std::size_t LONGEST_LINE = 220; // both with the newline

const LogDirectory* directory = nullptr;

/// The name of each thread's client, which pads the line to its length.
const std::array<std::string, MAX_THREADS> CLIENTS = []
{
    std::array<std::string, MAX_THREADS> names;
    for (std::size_t i = 0; i < names.size(); ++i)
        names.at(i) = "client-" + std::to_string(i) + " at the workstation in archive hall number 12";
    return names;
}();

/// Lines that each thread has written since the file was made.
std::array<int, MAX_THREADS> written;

/// The number that stands at the beginning of a text and what follows it.
int take_number(std::string_view& text)
{
    int number = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9')
    {
        number = 10 * number + (text.front() - '0');
        text.remove_prefix(1);
    }
    return number;
}

bool take(std::string_view& text, std::string_view expected)
{
    if (text.substr(0, expected.size()) != expected)
        return false;
    text.remove_prefix(expected.size());
    return true;
}

/// Fails unless the file holds each written line once, whole, with this at its end, and nothing else.
void check_file(const std::string& name, std::string_view expected_end)
{
    const std::string bytes = read_file(directory->file(name));
    std::string_view rest(bytes);
    std::array<std::vector<bool>, MAX_THREADS> seen;
    for (int i = 0; i < MAX_THREADS; ++i)
        seen.at(static_cast<std::size_t>(i)).resize(static_cast<std::size_t>(written.at(static_cast<std::size_t>(i))));

    while (!rest.empty())
    {
        const std::size_t end = rest.find("\r\n");
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
        const std::string whole(line);
        const std::size_t message = line.find(" -> request ");
        if (end == std::string_view::npos || end + 2 < SHORTEST_LINE || end + 2 > LONGEST_LINE ||
            line.substr(0, 2) != "20" || message == std::string_view::npos)
            fail(name + " has a line of another form: " + whole);
        line.remove_prefix(message + 12);
        const auto number = static_cast<std::size_t>(take_number(line));
        take(line, " of client-");
        const std::string_view client = line;
        const auto thread = static_cast<std::size_t>(take_number(line));
        line = client;
        if (thread >= MAX_THREADS || number >= seen.at(thread).size() || seen.at(thread)[number] ||
            !take(line, std::string_view(CLIENTS.at(thread)).substr(7)) || line != expected_end)
            fail(name + " has a line that is torn or double: " + whole);
        seen.at(thread)[number] = true;
    }
    for (const std::vector<bool>& of_thread : seen)
    {
        const auto lost = std::count(of_thread.begin(), of_thread.end(), false);
        if (lost != 0)
            fail(name + " lacks " + std::to_string(lost) + " lines");
    }
}

/// Runs the measured loop of one thread: write(number, client) writes its line of that number.
template <class Write>
void measure_lines(benchmark::State& state, Write write)
{
    const auto thread = static_cast<std::size_t>(state.thread_index());
    const char* const client = CLIENTS.at(thread).c_str();
    int number = 0;
    for (auto _ : state)
        write(number++, client);
    written.at(thread) = number;
}

// Forms of the message --------------------------------------------------------------------------------
struct Plain
{
    static constexpr char END[] = " took 250 us";
    static void lumlog(int number, const char* client);
    static void spdlog(int number, const char* client);
};
struct Float
{
    static constexpr char END[] = " took 250.125000 us";
    static void lumlog(int number, const char* client);
    static void spdlog(int number, const char* client);
};
struct Hexadecimal
{
    static constexpr char END[] = " took 000000fa us";
    static void lumlog(int number, const char* client);
    static void spdlog(int number, const char* client);
};
struct Padded
{
    static constexpr char END[] = " took 250 us              .";
    static void lumlog(int number, const char* client);
    static void spdlog(int number, const char* client);
};

// LUMlog ----------------------------------------------------------------------------------------------
void Plain::lumlog(int number, const char* client)
{
    KOR_LOG(KorGLog, WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", number, client, 250);
}

void Float::lumlog(int number, const char* client)
{
    KOR_LOG(KorGLog, WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %f us", number, client, 250.125);
}

void Hexadecimal::lumlog(int number, const char* client)
{
    KOR_LOG(KorGLog, WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %08x us", number, client, 250u);
}

void Padded::lumlog(int number, const char* client)
{
    KOR_LOG(KorGLog, WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %-20s.", number, client, "250 us");
}

void begin_lumlog(const benchmark::State&)
{
    written.fill(0);
    KorGLog.ReOpen("lumlog.log", "bench", false);
}

template <class Form>
void end_lumlog(const benchmark::State&)
{
    KorGLog.ReOpen("idle.log", "bench", false);
    check_file("lumlog.log", Form::END);
    ::DeleteFileA(directory->file("lumlog.log").c_str());
}

template <class Form>
void lumlog_line(benchmark::State& state)
{
    measure_lines(state, &Form::lumlog);
}

// By the interface for every compiler.
void modern_line(benchmark::State& state)
{
    measure_lines(
        state, [](int number, const char* client)
        { LUM_LOG(WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", number, client, 250); });
}

// What somebody can ask for. The text has nothing to escape, and the file no limit that it reaches.
void begin_safe(const benchmark::State& state)
{
    KorGLog.SetSafeLines(true);
    begin_lumlog(state);
}

void end_safe(const benchmark::State& state)
{
    KorGLog.SetSafeLines(false);
    end_lumlog<Plain>(state);
}

void begin_rotating(const benchmark::State& state)
{
    KorGLog.SetRotation(5);
    begin_lumlog(state);
}

void end_rotating(const benchmark::State& state)
{
    KorGLog.SetRotation(0);
    end_lumlog<Plain>(state);
}

// What a destination that writes JSON does on top, without the lock that the log takes for its destinations.
std::unique_ptr<Kor_LogDestJsonLines> json;

void begin_json(const benchmark::State&)
{
    written.fill(0);
    json = std::make_unique<Kor_LogDestJsonLines>(directory->file("lines.jsonl").c_str());
}

/// Each line has a number of its own, and they stand in their order.
void end_json(const benchmark::State&)
{
    json.reset();
    const std::string bytes = read_file(directory->file("lines.jsonl"));
    std::string_view rest(bytes);
    int count = 0;
    while (!rest.empty())
    {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        const std::string end = "\"sequence\":" + std::to_string(++count) + ",\"text\":\"request of " +
                                CLIENTS.front() + Plain::END + "\"}";
        if (line.size() < end.size() || line.substr(line.size() - end.size()) != end)
            fail("lines.jsonl has a line of another form: " + std::string(line));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    if (count != written.front())
        fail("lines.jsonl lacks lines");
    ::DeleteFileA(directory->file("lines.jsonl").c_str());
}

void json_line(benchmark::State& state)
{
    const Kor_LogMTVarsPtr context;
    context->m_file = "lines.cpp";
    context->m_function = "lumlog";
    context->m_line = 100;
    context->m_level = WANTED_LEVEL;
    context->m_package = BENCH_PACKAGE;
    const std::string text = "request of " + CLIENTS.front() + Plain::END + '\n';
    measure_lines(
        state,
        [&](int, const char*)
        {
            context->UpdateTime();
            json->LogMessage(context, false, text.c_str(), static_cast<unsigned int>(text.size()));
        });
}

// Lines that are kept in memory: beside the file, and in place of it.
void begin_recorded(const benchmark::State& state)
{
    if (KorGLog.SetRecorder(256 * 1024, 0) != 0)
        fail("there is no memory to keep lines in");
    begin_lumlog(state);
}

void end_recorded(const benchmark::State& state)
{
    KorGLog.SetRecorder(0, 0);
    end_lumlog<Plain>(state);
}

void begin_only_recorded(const benchmark::State& state)
{
    begin_recorded(state);
    KorGLog.SetRecorderLevel(BENCH_PACKAGE, REJECTED_LEVEL);
}

void end_only_recorded(const benchmark::State&)
{
    KorGLog.SetRecorder(0, 0);
    KorGLog.ReOpen("idle.log", "bench", false);
    if (!read_file(directory->file("lumlog.log")).empty())
        fail("a line that was to be kept only was written");
}

void only_recorded_line(benchmark::State& state)
{
    measure_lines(
        state, [](int number, const char* client)
        { KOR_LOG(KorGLog, REJECTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", number, client, 250); });
}

/// With lines of the package kept up to a level that this one is above.
void rejected_line(benchmark::State& state)
{
    constexpr int LEVEL = REJECTED_LEVEL + 1;
    measure_lines(
        state, [](int number, const char* client)
        { KOR_LOG(KorGLog, LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", number, client, 250); });
}

// spdlog ----------------------------------------------------------------------------------------------
std::shared_ptr<spdlog::logger> peer;

void open_peer(const std::string& name)
{
    peer = std::make_shared<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(directory->file(name)));
    peer->set_pattern("%Y-%m-%d %H:%M:%S.%e%z %-8l(017) %n (%P,%t)  %s(%#) %! -> %v");
    peer->flush_on(spdlog::level::trace);
}

void Plain::spdlog(int number, const char* client)
{
    SPDLOG_LOGGER_CALL(peer.get(), spdlog::level::warn, "request {} of {} took {} us", number, client, 250);
}

void Float::spdlog(int number, const char* client)
{
    SPDLOG_LOGGER_CALL(peer.get(), spdlog::level::warn, "request {} of {} took {:f} us", number, client, 250.125);
}

void Hexadecimal::spdlog(int number, const char* client)
{
    SPDLOG_LOGGER_CALL(peer.get(), spdlog::level::warn, "request {} of {} took {:08x} us", number, client, 250u);
}

void Padded::spdlog(int number, const char* client)
{
    SPDLOG_LOGGER_CALL(peer.get(), spdlog::level::warn, "request {} of {} took {:<20}.", number, client, "250 us");
}

void begin_spdlog(const benchmark::State&)
{
    written.fill(0);
    open_peer("spdlog.log");
}

template <class Form>
void end_spdlog(const benchmark::State&)
{
    peer.reset();
    check_file("spdlog.log", Form::END);
    ::DeleteFileA(directory->file("spdlog.log").c_str());
}

template <class Form>
void spdlog_line(benchmark::State& state)
{
    measure_lines(state, &Form::spdlog);
}

// The bare call ---------------------------------------------------------------------------------------
HANDLE bare_file = INVALID_HANDLE_VALUE;
std::size_t bare_length = 0; // of a line of LUMlog's, with its newline

void begin_bare(const benchmark::State&)
{
    written.fill(0);
    bare_file = ::CreateFileA(
        directory->file("bare.log").c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// The lines are all the same, so only their bytes are counted.
void end_bare(const benchmark::State&)
{
    LARGE_INTEGER size{};
    ::GetFileSizeEx(bare_file, &size);
    ::CloseHandle(bare_file);
    if (size.QuadPart != static_cast<LONGLONG>(written.front()) * static_cast<LONGLONG>(bare_length))
        fail("bare.log does not have the size that was written");
    ::DeleteFileA(directory->file("bare.log").c_str());
}

void bare_line(benchmark::State& state)
{
    const std::string line(bare_length, 'x');
    measure_lines(
        state,
        [&line](int, const char*)
        {
            DWORD count = 0;
            ::WriteFile(bare_file, line.data(), static_cast<DWORD>(line.size()), &count, nullptr);
        });
}

// Allocations -----------------------------------------------------------------------------------------
std::atomic<int> allocations;

/// The system's function of that name: one that is imported would lead back to the hook.
template <class Function>
Function* system_function(const char* module, const char* name)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA(module), name)));
}

void* counting_malloc(std::size_t size)
{
    static auto* const original = system_function<void*(std::size_t)>("msvcrt.dll", "malloc");
    ++allocations;
    return original(size);
}

void* counting_calloc(std::size_t count, std::size_t size)
{
    static auto* const original = system_function<void*(std::size_t, std::size_t)>("msvcrt.dll", "calloc");
    ++allocations;
    return original(count, size);
}

void* counting_realloc(void* memory, std::size_t size)
{
    static auto* const original = system_function<void*(void*, std::size_t)>("msvcrt.dll", "realloc");
    ++allocations;
    return original(memory, size);
}

void* WINAPI counting_heap_alloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    static auto* const original = system_function<void * WINAPI(HANDLE, DWORD, SIZE_T)>("kernel32.dll", "HeapAlloc");
    ++allocations;
    return original(heap, flags, size);
}

/// The allocations of a module's code, C++'s included, per call of write.
template <class Write>
double allocations_of(HMODULE module, Write write)
{
    constexpr int WARM_UP = 100;
    constexpr int LINES = 1000;
    int number = 0;
    while (number < WARM_UP)
        write(number++, CLIENTS.front().c_str());
    const ImportHook malloc_hook(module, "malloc", reinterpret_cast<void*>(&counting_malloc));
    const ImportHook calloc_hook(module, "calloc", reinterpret_cast<void*>(&counting_calloc));
    const ImportHook realloc_hook(module, "realloc", reinterpret_cast<void*>(&counting_realloc));
    const ImportHook heap_hook(module, "HeapAlloc", reinterpret_cast<void*>(&counting_heap_alloc));
    if (!malloc_hook.installed())
        fail("the allocations cannot be counted");
    allocations = 0;
    while (number < WARM_UP + LINES)
        write(number++, CLIENTS.front().c_str());
    return static_cast<double>(allocations) / LINES;
}

void count_allocations()
{
    KorGLog.ReOpen("counted.log", "bench", false);
    const double lumlog = allocations_of(library_module(), &Plain::lumlog);
    KorGLog.ReOpen("idle.log", "bench", false);
    open_peer("counted.log");
    const double spdlog = allocations_of(::GetModuleHandleA(nullptr), &Plain::spdlog);
    peer.reset();
    benchmark::AddCustomContext("allocations_lumlog", std::to_string(lumlog));
    benchmark::AddCustomContext("allocations_spdlog", std::to_string(spdlog));
}

std::size_t length_of_a_line()
{
    KorGLog.ReOpen("one.log", "bench", false);
    Plain::lumlog(12345, CLIENTS.front().c_str());
    KorGLog.ReOpen("idle.log", "bench", false);
    return read_file(directory->file("one.log")).size();
}
void add(
    const std::string& name, int threads, void (*run)(benchmark::State&), void (*begin)(const benchmark::State&),
    void (*end)(const benchmark::State&))
{
    constexpr int LINES = 4000;
    benchmark::RegisterBenchmark(name.c_str(), run)
        ->Setup(begin)
        ->Teardown(end)
        ->Iterations(LINES / threads)
        ->Threads(threads)
        ->UseRealTime();
}

template <class Form>
void add_forms(const std::string& name, int threads)
{
    add(name + "/lumlog", threads, &lumlog_line<Form>, &begin_lumlog, &end_lumlog<Form>);
    add(name + "/spdlog", threads, &spdlog_line<Form>, &begin_spdlog, &end_spdlog<Form>);
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory fresh(full_configuration());
    directory = &fresh;
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    KorGLog.Open("idle.log", "bench", false);
    count_allocations();
    bare_length = length_of_a_line();
    benchmark::AddCustomContext("line_bytes", std::to_string(bare_length));

    for (const int threads : {1, 2, 4, 8, 16})
        add_forms<Plain>("line", threads);
    add("line/bare", 1, &bare_line, &begin_bare, &end_bare);
    add("line/modern", 1, &modern_line, &begin_lumlog, &end_lumlog<Plain>);
    add("line/safe", 1, &lumlog_line<Plain>, &begin_safe, &end_safe);
    add("line/rotating", 1, &lumlog_line<Plain>, &begin_rotating, &end_rotating);
    add("line/json", 1, &json_line, &begin_json, &end_json);
    add("line/recorded", 1, &lumlog_line<Plain>, &begin_recorded, &end_recorded);
    for (const int threads : {1, 8})
        add("line/only_recorded", threads, &only_recorded_line, &begin_only_recorded, &end_only_recorded);
    add("line/rejected_recording", 1, &rejected_line, &begin_only_recorded, &end_only_recorded);
    add_forms<Float>("line/float", 1);
    add_forms<Hexadecimal>("line/hexadecimal", 1);
    add_forms<Padded>("line/padded", 1);
    run_benchmarks(argc, argv);
    return 0;
}
