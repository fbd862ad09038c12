// What the other ways into the log cost beside the C++ one, and what a destination adds to a line. All lines
// go to a private file; the way through Java is called with a table of functions that do next to nothing.

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Kor/jni_types.h"
#include "Kor_JLogJNIInterface.h"
#include "Kor_LogFile.h"
#include "bench_log.h"

struct JavaString
{
    std::string bytes;
};

namespace
{
constexpr int MANY = 1000;
constexpr char MESSAGE[] = "12 of 17 images of the album fit into memory";

/// Adds nothing but the call.
class IdleDestination : public Kor_LogDestBase
{
public:
    int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
    {
        ++m_calls;
        return 0;
    }
    int calls() const { return m_calls; }

private:
    int m_calls = 0;
};

// The ways ----------------------------------------------------------------------------------------------
void cpp_line(benchmark::State& state)
{
    for (auto _ : state)
    {
        if (KorGLog.StoreParams("Viewer", "load", 77, WANTED_LEVEL, BENCH_PACKAGE) == 0)
            fail("the line was rejected");
        KorGLog.Log(MESSAGE);
    }
}

void c_line(benchmark::State& state)
{
    for (auto _ : state)
        WriteLog(WANTED_LEVEL, BENCH_PACKAGE * 10000, 77, "Viewer", "load", MESSAGE);
}

void c_rejected(benchmark::State& state)
{
    for (auto _ : state)
        WriteLog(REJECTED_LEVEL, BENCH_PACKAGE * 10000, 77, "Viewer", "load", MESSAGE);
}

jsize length_of(JNIEnv*, jstring text) { return static_cast<jsize>(text->bytes.size()); }
const char* characters_of(JNIEnv*, jstring text, jboolean*) { return text->bytes.c_str(); }
void release(JNIEnv*, jstring, const char*) {}

using Tlogln = jint(JNIEnv*, jclass, jint, jint, jstring);

Tlogln* find_tlogln()
{
    const FARPROC found = ::GetProcAddress(::GetModuleHandleA("LUMlog.dll"), "Java_lumaris_infra_log_KoralLog_tlogln");
    if (found == nullptr)
        fail("there is no tlogln");
    return reinterpret_cast<Tlogln*>(reinterpret_cast<void*>(found));
}

void java_line(benchmark::State& state, int level)
{
    static Tlogln* const tlogln = find_tlogln();
    static const JavaFunctionTable table{{}, &length_of, &characters_of, &release};
    JNIEnv env{&table};
    JavaString text{std::string("<main,Viewer.load:77>") + MESSAGE};
    for (auto _ : state)
        tlogln(&env, nullptr, BENCH_PACKAGE, level, &text);
}

// Destinations ------------------------------------------------------------------------------------------
void destinations(benchmark::State& state, int count)
{
    std::vector<IdleDestination> all(static_cast<std::size_t>(count));
    for (IdleDestination& destination : all)
        KorGLog.RegisterLogDestination(&destination);
    for (auto _ : state)
        KorGLog.LogNoHeadline(MESSAGE);
    KorGLog.ClearAllLogDestinations();
    if (!all.empty() && all.back().calls() != static_cast<int>(state.iterations()))
        fail("a destination was not called for each message");
}

/// The peer's destination; each has a lock of its own.
class IdleSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    int calls() const { return m_calls; }

private:
    void sink_it_(const spdlog::details::log_msg&) override { ++m_calls; }
    void flush_() override {}

    int m_calls = 0;
};

void peer_sinks(benchmark::State& state, int count)
{
    std::vector<std::shared_ptr<IdleSink>> sinks;
    for (int i = 0; i < count; ++i)
        sinks.push_back(std::make_shared<IdleSink>());
    spdlog::logger logger("bench", sinks.begin(), sinks.end());
    for (auto _ : state)
        logger.warn(MESSAGE);
    if (sinks.back()->calls() != static_cast<int>(state.iterations()))
        fail("a sink was not called for each message");
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory fresh(full_configuration());
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    KorGLog.Open("bench.log", "bench", false);
    KorGLog.SetThreadName("main");

    constexpr int LINES = 500;
    const auto add = [](const char* name, auto run, auto... argument)
    { return benchmark::RegisterBenchmark(name, run, argument...)->Iterations(LINES)->UseRealTime(); };
    add("way/c++", &cpp_line);
    add("way/c", &c_line);
    add("way/java", &java_line, WANTED_LEVEL);
    benchmark::RegisterBenchmark("way/rejected-c", &c_rejected);
    benchmark::RegisterBenchmark("way/rejected-java", &java_line, REJECTED_LEVEL);
    add("destinations/0", &destinations, 0);
    add("destinations/1", &destinations, 1);
    add("destinations/many", &destinations, MANY);
    add("sinks/1", &peer_sinks, 1);
    add("sinks/many", &peer_sinks, MANY);
    benchmark::AddCustomContext("many", std::to_string(MANY));
    run_benchmarks(argc, argv);
    return 0;
}
