// startup.cpp - what Microsoft's tools link into a program beside the DLLs of the C run time: the entry point,
// constructors of static objects, storage of threads, statics that are made when first used, and the table of
// type_info. No more than libc++ and the programs here need: constructors of thread_local objects are not run.

#include <limits.h>
#include <stdlib.h>

#include <corecrt_startup.h>
#include <windows.h>

#pragma section(".CRT$XCA", read)
#pragma section(".CRT$XCZ", read)
#pragma section(".rdata$T", read)
#pragma section(".tls")
#pragma section(".tls$ZZZ")

/// Whose table the compiler's record of each type begins with. It is made where a constructor is.
class type_info
{
public:
    type_info();
    virtual ~type_info();
};

type_info::type_info() {}
type_info::~type_info() {}

int main(int argc, char** argv);

extern "C"
{
    // Asked for by the compiler where there are floating-point numbers.
    int _fltused = 0x9875;

    // Between the first two the linker puts what each thread gets a copy of; the loader reads of it in the directory.
    __declspec(allocate(".tls")) char _tls_start = 0;
    __declspec(allocate(".tls$ZZZ")) char _tls_end = 0;
    ULONG _tls_index = 0;
    extern const IMAGE_TLS_DIRECTORY64 _tls_used;
    __declspec(allocate(".rdata$T")) const IMAGE_TLS_DIRECTORY64 _tls_used = {
        reinterpret_cast<ULONG_PTR>(&_tls_start),
        reinterpret_cast<ULONG_PTR>(&_tls_end),
        reinterpret_cast<ULONG_PTR>(&_tls_index),
        0,
        0,
        0};

    // Between these it puts the constructors.
    __declspec(allocate(".CRT$XCA")) _PVFV before_constructors[] = {nullptr};
    __declspec(allocate(".CRT$XCZ")) _PVFV after_constructors[] = {nullptr};

    // A static of a function has a number: 0 before its constructor, BEING_MADE, then the epoch in which it was made. The
    // compiler asks for the functions where that is later than the thread's own.
    constexpr int BEING_MADE = -1;
    static int last_epoch = INT_MIN;
    static SRWLOCK statics_lock = SRWLOCK_INIT;
    static CONDITION_VARIABLE static_made = CONDITION_VARIABLE_INIT;
    __declspec(thread) int _Init_thread_epoch = INT_MIN;

    void __cdecl _Init_thread_header(int* number)
    {
        AcquireSRWLockExclusive(&statics_lock);
        while (*number == BEING_MADE)
            SleepConditionVariableSRW(&static_made, &statics_lock, INFINITE, 0);
        if (*number == 0)
            *number = BEING_MADE;
        else
            _Init_thread_epoch = last_epoch;
        ReleaseSRWLockExclusive(&statics_lock);
    }

    static void leave(int* number, bool made)
    {
        AcquireSRWLockExclusive(&statics_lock);
        *number = made ? ++last_epoch : 0;
        _Init_thread_epoch = last_epoch;
        ReleaseSRWLockExclusive(&statics_lock);
        WakeAllConditionVariable(&static_made);
    }

    void __cdecl _Init_thread_footer(int* number) { leave(number, true); }

    void __cdecl _Init_thread_abort(int* number) { leave(number, false); }

    // As destructors of static objects are registered.
    int __cdecl atexit(_PVFV function) { return _crt_atexit(function); }

    void mainCRTStartup(void)
    {
        _set_app_type(_crt_console_app);
        _configure_narrow_argv(_crt_argv_unexpanded_arguments);
        for (_PVFV* constructor = before_constructors; constructor != after_constructors; ++constructor)
            if (*constructor != nullptr)
                (*constructor)();
        exit(main(*__p___argc(), *__p___argv()));
    }
}
