// own_memory.h - for minidumps that a process writes of itself.

#ifndef KOR_TESTS_OWN_MEMORY_H
#define KOR_TESTS_OWN_MEMORY_H

/// Wine's DbgHelp reads what tells how to unwind each function of each module, and Wine's server stops the process for each
/// read: a hundred thousand times for one minidump of these programs, which takes seconds. From here on DbgHelp reads the
/// calling process's own memory where it lies. Nothing is changed on Windows.
void read_own_memory_directly();

#endif // KOR_TESTS_OWN_MEMORY_H
