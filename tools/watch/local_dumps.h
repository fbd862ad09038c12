// local_dumps.h - whether Windows itself writes a minidump of a program whose end no handler sees.

#ifndef LUMLOGWATCH_LOCAL_DUMPS_H
#define LUMLOGWATCH_LOCAL_DUMPS_H

#include <string>

namespace lumlogwatch
{
constexpr unsigned long DUMPS_KEPT = 10; // of each program

/// Where the program's settings are, in HKEY_LOCAL_MACHINE.
std::wstring local_dumps_key(const std::wstring& program);

/// Has Windows write minidumps of a program, by its file name, into a folder, the newest of them. Returns an error of
/// Windows, 0: done.
unsigned long register_program(const std::wstring& program, const std::wstring& folder);

/// Takes that back. Returns ERROR_FILE_NOT_FOUND for a program that was not registered.
unsigned long unregister_program(const std::wstring& program);
} // namespace lumlogwatch

#endif // LUMLOGWATCH_LOCAL_DUMPS_H
