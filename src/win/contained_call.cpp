#include "win/contained_call.h"

#include <windows.h>

namespace
{
/// Windows keeps one bit of an exception's code for those that are not its own. GCC's run time uses such codes too, for
/// throwing and for unwinding, and must not be held up.
bool is_raised_by_a_program(unsigned long code) noexcept
{
    constexpr unsigned long OWN_BIT = 0x20000000;
    constexpr unsigned long GCC_CODE = 0x00474343;
    constexpr unsigned long GCC_MASK = 0x00FFFFFF;
    return (code & OWN_BIT) != 0 && (code & GCC_MASK) != GCC_CODE;
}
} // namespace

#if defined(_MSC_VER)

namespace
{
LONG contain(const EXCEPTION_POINTERS* exception, unsigned long& code) noexcept
{
    code = exception->ExceptionRecord->ExceptionCode;
    return is_raised_by_a_program(code) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
}

unsigned long call(kor_contained_function function, void* argument)
{
    unsigned long code = 0;
    __try
    {
        function(argument);
        code = 0;
    }
    __except (contain(GetExceptionInformation(), code))
    {
    }
    return code;
}
} // namespace

extern "C" unsigned long
kor_contained_call(kor_contained_function function, kor_contained_function passed, void* argument)
{
    unsigned long code = 0;
    __try
    {
        code = call(function, argument);
    }
    __finally
    {
        if (AbnormalTermination())
            passed(argument);
    }
    return code;
}

#elif defined(__x86_64__)

// As in guarded_call.cpp, with a second scope around the first: the one that __finally compiles to, told by its
// missing place to go on at. It includes the place where the first goes on, as otherwise it would run then too.

extern "C"
{
    /// frame: the contained function's stack pointer, with locals at +32 (code), +40 (argument), +48 (passed).
    LONG kor_contained_filter(EXCEPTION_POINTERS* exception, void* frame);
    void kor_contained_passed(int abnormal, void* frame);

    LONG kor_contained_filter(EXCEPTION_POINTERS* exception, void* frame)
    {
        const unsigned long code = exception->ExceptionRecord->ExceptionCode;
        if (!is_raised_by_a_program(code))
            return EXCEPTION_CONTINUE_SEARCH;
        *reinterpret_cast<unsigned long*>(static_cast<char*>(frame) + 32) = code;
        return EXCEPTION_EXECUTE_HANDLER;
    }

    void kor_contained_passed(int, void* frame)
    {
        auto* const locals = static_cast<char*>(frame);
        const auto passed = *reinterpret_cast<kor_contained_function*>(locals + 48);
        passed(*reinterpret_cast<void**>(locals + 40));
    }
}

__asm__("    .text\n"
        "    .p2align 4\n"
        "    .globl kor_contained_call\n"
        "    .def kor_contained_call; .scl 2; .type 32; .endef\n"
        "    .seh_proc kor_contained_call\n"
        "kor_contained_call:\n"
        "    subq $56, %rsp\n" // 32 bytes for the callee, 24 for the locals
        "    .seh_stackalloc 56\n"
        "    .seh_endprologue\n"
        "    movq %r8, 40(%rsp)\n"
        "    movq %rdx, 48(%rsp)\n"
        "    movq %rcx, %rax\n"
        "    movq %r8, %rcx\n"
        ".Lkor_contained_begin:\n"
        "    callq *%rax\n"
        "    nop\n" // keeps the return address inside the scope
        ".Lkor_contained_end:\n"
        "    xorl %eax, %eax\n"
        "    addq $56, %rsp\n"
        "    retq\n"
        ".Lkor_contained_raised:\n"
        "    movl 32(%rsp), %eax\n"
        ".Lkor_contained_outer_end:\n"
        "    addq $56, %rsp\n"
        "    retq\n"
        "    .seh_handler __C_specific_handler, @except, @unwind\n"
        "    .seh_handlerdata\n"
        "    .long 2\n"
        "    .rva .Lkor_contained_begin, .Lkor_contained_end, kor_contained_filter, .Lkor_contained_raised\n"
        "    .rva .Lkor_contained_begin, .Lkor_contained_outer_end, kor_contained_passed\n"
        "    .long 0\n"
        "    .text\n"
        "    .seh_endproc\n");

#else
#error "this processor's form of kor_contained_call is missing"
#endif
