// kit_children.h - what kit_runner does in processes of its own.

#ifndef KOR_TESTS_KIT_CHILDREN_H
#define KOR_TESTS_KIT_CHILDREN_H

#include <windows.h>

#include <string>

namespace kit
{
constexpr unsigned APPENDED_LINES = 20'000; ///< of each of two processes
constexpr DWORD STACK_WAS_KEPT = 77;

/// How many whole lines two processes have brought into one file.
unsigned append_with_two_processes(const std::wstring& path);

/// The body of one of them.
int append_lines(const std::wstring& path);

/// Overflows its stack, with a handler that needs 32 KB of it. Ends the process, with STACK_WAS_KEPT where it had them.
int overflow_stack();
} // namespace kit

#endif // KOR_TESTS_KIT_CHILDREN_H
