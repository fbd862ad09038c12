// A program for the ABI of Microsoft's compiler, without any run time or standard library: all that it knows of LUMlog is
// lumlog.h and the import library. Ends with the number of the first check that failed, or 0.

#include "lumlog.h"

extern "C"
{
    __declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
    __declspec(dllimport) unsigned long __stdcall GetLastError(void);
    __declspec(dllimport) void __stdcall SetLastError(unsigned long error);
    __declspec(dllimport) void __stdcall RaiseException(unsigned long, unsigned long, unsigned long, void*);
    __declspec(dllimport) void* __stdcall CreateThread(
        void*, size_t, unsigned long(__stdcall*)(void*), void*, unsigned long, unsigned long*);
    __declspec(dllimport) unsigned long __stdcall WaitForSingleObject(void*, unsigned long);
    int _fltused = 0; // which the compiler asks for where there are floating-point numbers
}

namespace
{
constexpr int PACKAGE = 310;
unsigned int failed = 0;

void check(bool holds, unsigned int number)
{
    if (!holds && failed == 0)
        failed = number;
}

class Scope
{
public:
    explicit Scope(const char* name) noexcept : m_name(name) { LUM_LOG(LUM_WARNING, PACKAGE, "%s begins", m_name); }
    ~Scope() { LUM_LOG(LUM_WARNING, PACKAGE, "%s ends", m_name); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    const char* m_name;
};

int received = 0;
unsigned long to_raise = 0;

int LUM_CALL receive(void*, const lum_message* message)
{
    check(message->size == sizeof(lum_message) && message->package == PACKAGE, 1);
    ++received;
    if (to_raise == 0xC0000005)
        *reinterpret_cast<volatile int*>(8) = 1;
    if (to_raise != 0)
        RaiseException(to_raise, 0, 0, nullptr);
    return LUM_OK;
}

/// 1 when what happens inside of the log comes as far as the program's own handler.
int write_guarded(const lum_site* site, const char* text)
{
    __try
    {
        lum_write(site, LUM_WARNING, PACKAGE, text, LUM_ZT);
    }
    __except (1)
    {
        return 1;
    }
    return 0;
}

int finally_ran = 0;

int raise_over_a_finally_block()
{
    __try
    {
        __try
        {
            RaiseException(0xE0001234, 0, 0, nullptr);
        }
        __finally
        {
            finally_ran = 1;
            LUM_LOG(LUM_WARNING, PACKAGE, "from a __finally block");
        }
    }
    __except (1)
    {
        return 1;
    }
    return 0;
}

unsigned long __stdcall log_on_a_thread(void*)
{
    lum_set_thread_name("Other");
    LUM_LOG(LUM_WARNING, PACKAGE, "from another thread");
    return 0;
}

/// False when a lock was left behind.
bool another_thread_can_log()
{
    void* const thread = CreateThread(nullptr, 0, &log_on_a_thread, nullptr, 0, nullptr);
    return WaitForSingleObject(thread, 20000) == 0;
}

void check_lines()
{
    const Scope scope("scope");
    LUM_LOG(LUM_WARNING, PACKAGE, "%d %lld %.3f %s %ls", 42, 1LL << 40, 2.5, "abc", L"wide");
    LUM_LOG(LUM_DEBUG, PACKAGE, "not wanted");
    static const lum_site here = LUM_SITE;
    lum_write(&here, LUM_WARNING, PACKAGE, "a finished text with 100% and more", 29);
    lum_write_wide(&here, LUM_WARNING, PACKAGE, L"wide \u65e5", LUM_ZT);
    lum_writef(&here, LUM_WARNING, PACKAGE, "%s", reinterpret_cast<const char*>(8));
    SetLastError(1234);
    LUM_LOG(LUM_WARNING, PACKAGE, "error kept");
    check(GetLastError() == 1234, 2);
}

void check_levels()
{
    check(lum_level(PACKAGE) == 4 && lum_wants(LUM_INFO, PACKAGE) == 0, 3);
    check(lum_rejected(&lum_process_gate, LUM_INFO, PACKAGE) == 1, 4);
    check(lum_set_level(PACKAGE, LUM_INFO, 1) == LUM_OK && lum_wants(LUM_INFO, PACKAGE) == 1, 5);
    LUM_LOG(LUM_INFO, PACKAGE, "wanted now");
}

void check_destinations()
{
    lum_destination* const destination = lum_add_destination(&receive, nullptr);
    static const lum_site here = LUM_SITE;
    const unsigned long codes[] = {0, 0xE0001234, 0xE06D7363};
    for (const unsigned long code : codes)
    {
        to_raise = code;
        check(write_guarded(&here, "to a destination") == 0, 6);
    }
    check(received == 3, 7);
    check(another_thread_can_log(), 8);
    to_raise = 0xC0000005;
    check(write_guarded(&here, "to a destination that crashes") == 1, 9);
    to_raise = 0;
    check(another_thread_can_log(), 10);
    lum_remove_destination(destination);
    const int before = received;
    LUM_LOG(LUM_WARNING, PACKAGE, "without a destination");
    check(received == before, 11);
}

void check_faults()
{
    const lum_site wild = {sizeof(lum_site), 1, reinterpret_cast<const char*>(8), nullptr};
    check(write_guarded(&wild, "never") == 1, 12);
    check(raise_over_a_finally_block() == 1 && finally_ran == 1, 13);
    check(another_thread_can_log(), 14);
}
} // namespace

extern "C" void start()
{
    check(lum_version() >> 16 == LUM_VERSION >> 16, 20);
    check(lum_open("msvc.log", "msvc") == LUM_OK, 21);
    check_lines();
    check_levels();
    check_destinations();
    check_faults();
    ExitProcess(failed);
}
