// process_creation.h - how tests create processes.

#ifndef KOR_TESTS_PROCESS_CREATION_H
#define KOR_TESTS_PROCESS_CREATION_H

#include <windows.h>

#include <cstdio>

/// True when create, which calls one of CreateProcess's forms and returns its result, succeeded. Wine answers
/// ERROR_INTERNAL_ERROR where its server and the new process missed each other, once in some thousand times on a busy
/// machine and before the program began; no program can bring that about, so that the creation is tried again.
template <typename Create>
bool created_at_last(const Create& create)
{
    constexpr int MOST_TRIES = 5;
    constexpr DWORD PAUSE_MS = 200; // nothing tells when Wine's server is well again
    for (int tries = 1;; ++tries, ::Sleep(PAUSE_MS))
    {
        if (create() != FALSE)
            return true;
        if (::GetLastError() != ERROR_INTERNAL_ERROR || tries == MOST_TRIES)
            return false;
        std::fprintf(stderr, "A process could not be created for a reason of Wine's own; it is tried again\n");
    }
}

#endif // KOR_TESTS_PROCESS_CREATION_H
