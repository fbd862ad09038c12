// A crash of a process that has used up its address space. Run by address_space.sh, which makes the space small enough
// for that.

#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"

#include <windows.h>

#include <cstdlib>

#include "child.h"

namespace
{
constexpr DWORD CRASH = 0xE0000001;

/// Takes all address space that is left, in ever smaller pieces.
void reserve_everything() noexcept
{
    constexpr SIZE_T LARGEST = SIZE_T{1} << 36;
    constexpr SIZE_T SMALLEST = 64 * 1024;
    for (SIZE_T size = LARGEST; size >= SMALLEST; size /= 2)
        while (::VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS) != nullptr)
        {
        }
}

/// Takes all that the heap still has.
void allocate_everything() noexcept
{
    // A compiler may leave out an allocation that nobody looks at, and take it for one that went well.
    void* volatile last = nullptr;
    for (std::size_t size = std::size_t{1} << 20; size >= 16; size /= 2)
        do
            last = std::malloc(size);
        while (last != nullptr);
}

LONG WINAPI report(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != CRASH)
        return EXCEPTION_CONTINUE_SEARCH;
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    reporter->produceMinidump(exception);
    reporter->createReport(exception);
    Kor_SessionLogHost::reportToCrashLogFile(exception);
    Kor_SessionLogHost::saveState();
    ::TerminateProcess(::GetCurrentProcess(), 7);
    return EXCEPTION_CONTINUE_SEARCH;
}

KOR_CHILD(crashes_without_address_space)
{
    ::_putenv("KORAL_LOG_DEVELOP=1"); // stays off the block of the machine
    ::_putenv("PRISMATE_LOG_DIR=.");
    Kor_SessionLogGatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    Kor_SessionLogGatherer::GetInstance()->reportError(L"before", L"the end");
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    if (args[0] == "without")
        reporter->disable();
    reporter->produceMinidump(nullptr); // so that the report has modules to tell of
    ::AddVectoredExceptionHandler(1, &report);
    reserve_everything();
    allocate_everything();
    ::RaiseException(CRASH, 0, 0, nullptr);
    return 1;
}
} // namespace
