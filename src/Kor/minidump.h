// minidump.h - minidumps, of this process and of others, and the modules that they find.

#ifndef KOR_MINIDUMP_H
#define KOR_MINIDUMP_H

#include <windows.h>

#include <cstddef>
#include <list>
#include <memory>
#include <string_view>
#include <vector>

#include "win/library.h"

#include <dbghelp.h> // behind windows.h

namespace kor
{
/// Modules with paths of their own. Room for them is taken beforehand: they come while all other threads are
/// suspended, one of which may be inside the heap.
class ModuleList
{
public:
    /// Throws when there is no memory.
    void make_room(std::size_t count);

    /// Sees to it that there is room for as many as came last time. The first dump takes no memory here.
    void begin_dump() noexcept;

    /// Takes no memory and no lock. One that there is no room for is left out.
    void add(const MINIDUMP_MODULE_CALLBACK& module) noexcept;

    const std::list<MINIDUMP_MODULE_CALLBACK>& list() const noexcept { return m_modules; }

private:
    wchar_t* copy_of(const wchar_t* path) noexcept;

    std::list<MINIDUMP_MODULE_CALLBACK> m_modules;
    std::list<MINIDUMP_MODULE_CALLBACK> m_spare;
    std::size_t m_in_front = 0;                          // modules in front of those of the last dump
    std::vector<std::unique_ptr<wchar_t[]>> m_path_room; // the last one is in use
    wchar_t* m_path_at = nullptr;
    wchar_t* m_path_end = nullptr;
};

/// What a minidump is of.
struct DumpSubject
{
    HANDLE process;
    DWORD process_id;
    MINIDUMP_EXCEPTION_INFORMATION* crash; ///< null: none
    std::string_view comment;              ///< with a nul behind it; empty: none
    MINIDUMP_CALLBACK_INFORMATION* callback;
};

/// The system's code that writes minidumps. Loaded when this is made and not when it is needed: to load a DLL in a crash
/// could wait for a lock that the crash left behind.
class DumpWriter
{
public:
    DumpWriter() noexcept;

    /// Writes one to a file that is made anew, whose path is of any form. False when there is none of it; a crash may have
    /// damaged what it needs, which brings it to its end and not the process.
    bool write(const wchar_t* path, const DumpSubject& subject) const noexcept;

private:
    using WriteDump = BOOL WINAPI(
        HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION, PMINIDUMP_USER_STREAM_INFORMATION,
        PMINIDUMP_CALLBACK_INFORMATION);
    struct Job;

    static void run(void* job);

    win::OwnedLibrary m_library;
    WriteDump* m_write;
};
} // namespace kor

#endif // KOR_MINIDUMP_H
