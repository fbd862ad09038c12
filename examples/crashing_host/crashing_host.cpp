// crashing_host.cpp - a host that reports its session, and crashes in the way that it is told to.

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <thread>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"

#include <psapi.h> // behind windows.h

// Known outside of this file, as else a compiler knows all classes that there are, and that no object which is
// finished has a pure virtual function.
class Unfinished
{
public:
    Unfinished() { call(); }
    virtual ~Unfinished() = default;

protected:
    virtual void work() = 0;

private:
    void call()
    {
        Unfinished* volatile self = this;
        self->work(); // not there yet while the object is being made
    }
};

class Finished : public Unfinished
{
    void work() override {}
};

namespace
{
constexpr int PACKAGE_HOST = 310;
constexpr int NOT_CRASHED = 4; // exit code

// Before the crash ---------------------------------------------------------------------------------------------------
void open_session()
{
    KorGLog.Open("crashing_host.log", "crashing_host");
    Kor_CrashHandlers::Install(); // reads the state that the last process has left
    Kor_SessionLogGatherer::GetInstance()->gatherSystemInfo();
}

void be_watched()
{
    KorGLog.SetRecorder(256 * 1024, 0);
    Kor_SessionLogHost::startWatcher(); // looks after what this process cannot write itself
}

void report_work()
{
    using Gatherer = Kor_SessionLogGatherer;
    Gatherer* const session = Gatherer::GetInstance();

    session->reportEvent(L"Login", L"user1", Gatherer::COUNTED, 1, L"from %ls", L"192.0.2.7");
    session->reportEvent(L"Reader", nullptr, Gatherer::STATE_OF_TYPE, 1, L"album %d & 13", 12);
    session->reportEvent(L"Load", L"album 12", Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED, 17, nullptr);
    session->reportError(L"Loader", L"cannot read %ls", L"front.png");
    session->reportWarning(L"Loader", L"only %d of %d images fit into memory", 12, 17);
}

int end_session()
{
    Kor_SessionLogGatherer::GetInstance()->reportEvent(
        L"Load", L"album 12", Kor_SessionLogGatherer::END_OF_SPAN, 0, nullptr);
    Kor_SessionLog::GetInstance()->createSessionReport();
    Kor_SessionLogHost::destroy(); // saves the state
    return 0;
}

bool earlier_filter_crashes = false;

int divide(int dividend, volatile int divisor) { return dividend / divisor; }

// An earlier filter, as the host or one of its libraries may have installed.
LONG WINAPI earlier_filter(EXCEPTION_POINTERS* exception)
{
    KOR_LOG(
        KorGLog, 4, PACKAGE_HOST, "the earlier filter sees exception 0x%08lx",
        static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode));
    return earlier_filter_crashes ? divide(1000, 0) : EXCEPTION_CONTINUE_SEARCH;
}

// Ways to crash ------------------------------------------------------------------------------------------------------
void write_to_null()
{
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

int fill_stack(int depth)
{
    volatile int kept = depth;
    return depth < 0 ? 0 : fill_stack(depth + 1) + kept;
}

void overflow_stack() { fill_stack(0); }

void call_pure_virtual() { Finished(); }

void throw_uncaught() { throw std::runtime_error("the archive does not answer"); }

void throw_uncaught_on_thread()
{
    std::thread(
        []
        {
            Kor_CrashHandlers::PrepareThread();
            throw_uncaught();
        })
        .join();
}

/// Has the system give this process no more than so much memory.
void limit_memory(SIZE_T bytes)
{
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_PROCESS_MEMORY;
    limits.ProcessMemoryLimit = bytes;
    const HANDLE job = ::CreateJobObjectA(nullptr, nullptr);
    ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    ::AssignProcessToJobObject(job, ::GetCurrentProcess());
}

void exhaust_heap()
{
    constexpr SIZE_T LIMIT = SIZE_T{512} << 20;
    limit_memory(LIMIT);
    // Ever smaller pieces, until not even the smallest is left. Not more than that, as not every system keeps limits:
    // Wine does not.
    SIZE_T taken = 0;
    for (SIZE_T piece = SIZE_T{1} << 20; piece >= 16; piece /= 4)
    {
        for (void* volatile block = std::malloc(piece); block != nullptr && taken < LIMIT; taken += piece)
            block = std::malloc(piece);
    }
    throw std::bad_alloc();
}

void divide_by_zero()
{
    volatile int result = divide(1000, 0);
    static_cast<void>(result);
}

void crash_again_in_filter()
{
    earlier_filter_crashes = true;
    write_to_null();
}

void run_illegal_instruction()
{
    constexpr unsigned char UD2[] = {0x0F, 0x0B}; // for which each compiler has another name
    void* const code = ::VirtualAlloc(nullptr, sizeof UD2, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
    std::memcpy(code, UD2, sizeof UD2);
    volatile int result = reinterpret_cast<int (*)()>(code)(); // or else this function is left for that one
    static_cast<void>(result);
}

void crash_on_second_thread()
{
    std::thread(
        []
        {
            Kor_CrashHandlers::PrepareThread();
            write_to_null();
        })
        .detach();
    // Else these would drive everything else out of the history.
    constexpr unsigned HIDDEN_BUT_COUNTED = Kor_SessionLogGatherer::HIDDEN | Kor_SessionLogGatherer::COUNTED;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(100);
    while (std::chrono::steady_clock::now() < end)
    {
        for (int i = 0; i < 500; ++i)
            Kor_SessionLogGatherer::GetInstance()->reportEvent(L"Poll", nullptr, HIDDEN_BUT_COUNTED, 1, nullptr);
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // leaves the other something of the machine
    }
}

void crash_on_two_threads()
{
    static const HANDLE start = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const auto body = []
    {
        Kor_CrashHandlers::PrepareThread();
        ::WaitForSingleObject(start, 10000);
        write_to_null();
    };
    std::thread first(body);
    std::thread second(body);
    ::SetEvent(start);
    first.join();
    second.join();
}

// What a compiler's check of the stack and a broken heap end in, too: no handler of the process is asked.
void fail_fast() { ::RaiseFailFastException(nullptr, nullptr, 0); }

/// Runs code that each compiler has another name for, or none.
template <std::size_t SIZE>
void run_code(const unsigned char (&code)[SIZE])
{
    void* const memory = ::VirtualAlloc(nullptr, SIZE, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
    std::memcpy(memory, code, SIZE);
    volatile int result = reinterpret_cast<int (*)()>(memory)(); // or else this function is left for that one
    static_cast<void>(result);
}

void interrupt_29h()
{
    constexpr unsigned char INT_29H[] = {0xB9, 7, 0, 0, 0, 0xCD, 0x29, 0xC3}; // mov ecx, 7; int 29h; ret
    run_code(INT_29H);
}

constexpr char KILL[] = "--kill"; // what this program calls itself with

/// As an impatient user does, or a service that stops what does not answer.
void be_killed_from_outside()
{
    char line[MAX_PATH + 32];
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::snprintf(line, sizeof line, "\"%s\" %s %lu", path, KILL, ::GetCurrentProcessId());
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessA(path, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return;
    ::CloseHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, 60'000);
    ::CloseHandle(process.hProcess);
}

int kill(unsigned long process)
{
    const HANDLE handle = ::OpenProcess(PROCESS_TERMINATE, FALSE, process);
    return ::TerminateProcess(handle, 1) ? 0 : 1; // the handle goes with this process
}

int fill_stack_with_large_frames(int depth)
{
    volatile char frame[20 * 1024];        // more than the page that guards the stack
    volatile char* volatile bytes = frame; // or else Clang makes a frame of the bytes that are written to
    for (std::size_t i = 0; i < sizeof frame; i += 1024)
        bytes[i] = static_cast<char>(depth);
    return depth < 0 ? 0 : fill_stack_with_large_frames(depth + 1) + frame[1024];
}

void overflow_stack_of_thread()
{
    std::thread(
        []
        {
            Kor_CrashHandlers::PrepareThread();
            fill_stack_with_large_frames(0);
        })
        .join();
}

/// Another thread has the lock under which DLLs are loaded, and does then(); it is taken when this returns.
void have_the_loader_lock_taken(void (*then)())
{
    using Lock = LONG NTAPI(ULONG, ULONG*, ULONG_PTR*);
    auto* const lock = reinterpret_cast<Lock*>(
        reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "LdrLockLoaderLock")));
    static const HANDLE locked = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread(
        [=]
        {
            ULONG_PTR cookie = 0;
            lock(0, nullptr, &cookie);
            ::SetEvent(locked);
            then();
        })
        .detach();
    ::WaitForSingleObject(locked, 10'000);
}

void crash_with_the_loader_lock_taken()
{
    have_the_loader_lock_taken([] { ::Sleep(60'000); });
    write_to_null();
}

/// The end of a process waits for that lock, until somebody loses patience.
void exit_with_the_loader_lock_taken()
{
    Kor_SessionLogHost::heartbeat("main", 500);
    have_the_loader_lock_taken(
        []
        {
            ::Sleep(8'000);
            ::TerminateProcess(::GetCurrentProcess(), 1);
        });
    std::exit(0);
}

SIZE_T memory_taken()
{
    PROCESS_MEMORY_COUNTERS memory{};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
    return memory.WorkingSetSize;
}

/// Takes all addresses that the system hands out. Wine notes each of their pages, for which no machine has the memory: there,
/// a limit from outside has to make them few.
void exhaust_address_space()
{
    constexpr SIZE_T ENOUGH = SIZE_T{512} << 20;
    for (SIZE_T size = SIZE_T{1} << 36; size >= 0x10000; size /= 2)
        while (::VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS) != nullptr)
            if (memory_taken() > ENOUGH)
                return;
    write_to_null();
}

/// Writes behind the end of blocks, and gives back what is there.
void overrun_heap()
{
    constexpr std::size_t SIZE = 40;
    static void* volatile blocks[256];
    for (void* volatile& block : blocks)
        block = std::malloc(SIZE);
    for (void* volatile& block : blocks) // wherever they lie, another is behind most of them
        std::memset(block, 'A', 2 * SIZE);
    for (void* volatile& block : blocks)
        std::free(block);
}

/// Gives a block back twice, which is so large that the system has it for itself.
void free_twice()
{
    static void* volatile block = std::malloc(std::size_t{8} << 20);
    std::free(block);
    std::free(block);
    block = nullptr; // or else this function is left for free()
}

/// Does not come back in time, does so, and ends as it should.
void hang()
{
    Kor_SessionLogHost::heartbeat("main", 500);
    ::Sleep(8'000);
    Kor_SessionLogHost::heartbeat("main", 0);
    ::Sleep(1'000);
    std::exit(0);
}

struct Way
{
    const char* name;
    void (*crash)();
};

constexpr Way WAYS[] = {
    {"null-write", &write_to_null},
    {"stack-overflow", &overflow_stack},
    {"pure-call", &call_pure_virtual},
    {"abort", &std::abort},
    {"uncaught", &throw_uncaught},
    {"uncaught-on-thread", &throw_uncaught_on_thread},
    {"heap-exhaustion", &exhaust_heap},
    {"divide", &divide_by_zero},
    {"illegal-instruction", &run_illegal_instruction},
    {"second-thread", &crash_on_second_thread},
    {"two-threads", &crash_on_two_threads},
    {"filter", &crash_again_in_filter},
    {"fast-fail", &fail_fast},
    {"int-29h", &interrupt_29h},
    {"killed", &be_killed_from_outside},
    {"large-frames", &overflow_stack_of_thread},
    {"loader-lock", &crash_with_the_loader_lock_taken},
    {"exit-with-loader-lock", &exit_with_the_loader_lock_taken},
    {"address-space", &exhaust_address_space},
    {"heap-overrun", &overrun_heap},
    {"double-free", &free_twice},
    {"hang", &hang},
    {"none", nullptr},
};

int usage()
{
    std::fprintf(
        stderr,
        "example_crashing_host WAY [silently] [watched]\n\n"
        "Reports some work and then crashes, and leaves what it has to say of that in the folder that\n"
        "PRISMATE_LOG_DIR names. With \"silently\" nobody else is asked about the crash; with \"watched\" another\n"
        "process looks after what it cannot write, and its last lines are kept. WAY is one of\n");
    for (const Way& way : WAYS)
        std::fprintf(stderr, "    %s\n", way.name);
    return 2;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], KILL) == 0)
        return kill(std::strtoul(argv[2], nullptr, 10));
    const auto is_given = [&](const char* word)
    {
        return std::any_of(
            argv + std::min(argc, 2), argv + argc, [=](const char* one) { return std::strcmp(one, word) == 0; });
    };
    const bool silently = is_given("silently");
    const bool watched = is_given("watched");
    const Way* const way = std::find_if(
        std::begin(WAYS), std::end(WAYS),
        [&](const Way& known)
        { return argc == 2 + (silently ? 1 : 0) + (watched ? 1 : 0) && std::strcmp(known.name, argv[1]) == 0; });
    if (way == std::end(WAYS))
        return usage();

    ::SetUnhandledExceptionFilter(&earlier_filter);
    open_session();
    if (watched)
        be_watched();
    Kor_SessionLog::bSuppressExceptions = silently;
    report_work();
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_HOST, "and now: %s", way->name);
    if (way->crash == nullptr)
        return end_session();
    way->crash();
    return NOT_CRASHED;
}
