#include "win/guarded_call.h"

#include <windows.h>

namespace
{
/// Only what a wrong argument brings about. Breakpoints and illegal instructions (which is how
/// checked builds stop) are for others; a stack overflow would need its guard page set up again.
bool comes_from_bad_argument(unsigned long code) noexcept
{
    return code == EXCEPTION_ACCESS_VIOLATION || code == EXCEPTION_IN_PAGE_ERROR || code == EXCEPTION_GUARD_PAGE ||
           code == EXCEPTION_DATATYPE_MISALIGNMENT;
}
} // namespace

#if defined(_MSC_VER)

namespace
{
/// The code is taken here: under Wine, the handler's own question for it gets 0.
LONG judge(const EXCEPTION_POINTERS* fault, unsigned long& code) noexcept
{
    code = fault->ExceptionRecord->ExceptionCode;
    return comes_from_bad_argument(code) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
}
} // namespace

extern "C" unsigned long kor_guarded_call(kor_guarded_function function, void* argument)
{
    unsigned long code = 0;
    __try
    {
        function(argument);
        code = 0;
    }
    __except (judge(GetExceptionInformation(), code))
    {
    }
    return code;
}

#elif defined(__x86_64__)

// These compilers have no __try, but their assembler writes the same tables that __try compiles to:
// a scope from "begin" to "end", a filter, and where to go on when the filter accepts.

extern "C"
{
    /// frame: the guarded function's stack pointer, whose one local at +32 takes the code along.
    LONG kor_guarded_filter(EXCEPTION_POINTERS* fault, void* frame);

    LONG kor_guarded_filter(EXCEPTION_POINTERS* fault, void* frame)
    {
        const unsigned long code = fault->ExceptionRecord->ExceptionCode;
        if (!comes_from_bad_argument(code))
            return EXCEPTION_CONTINUE_SEARCH;
        *reinterpret_cast<unsigned long*>(static_cast<char*>(frame) + 32) = code;
        return EXCEPTION_EXECUTE_HANDLER;
    }
}

__asm__("    .text\n"
        "    .p2align 4\n"
        "    .globl kor_guarded_call\n"
        "    .def kor_guarded_call; .scl 2; .type 32; .endef\n"
        "    .seh_proc kor_guarded_call\n"
        "kor_guarded_call:\n"
        "    subq $40, %rsp\n" // 32 bytes for the callee, 8 for the local
        "    .seh_stackalloc 40\n"
        "    .seh_endprologue\n"
        "    movq %rcx, %rax\n"
        "    movq %rdx, %rcx\n"
        ".Lkor_guarded_begin:\n"
        "    callq *%rax\n"
        "    nop\n" // keeps the return address inside the scope
        ".Lkor_guarded_end:\n"
        "    xorl %eax, %eax\n"
        "    addq $40, %rsp\n"
        "    retq\n"
        ".Lkor_guarded_fault:\n"
        "    movl 32(%rsp), %eax\n"
        "    addq $40, %rsp\n"
        "    retq\n"
        "    .seh_handler __C_specific_handler, @except\n"
        "    .seh_handlerdata\n"
        "    .long 1\n"
        "    .rva .Lkor_guarded_begin, .Lkor_guarded_end, kor_guarded_filter, .Lkor_guarded_fault\n"
        "    .text\n"
        "    .seh_endproc\n");

#else
#error "this processor's form of kor_guarded_call is missing"
#endif
