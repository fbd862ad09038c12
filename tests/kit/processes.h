// processes.h - programs of a kit, run to their end with what they print.

#ifndef KOR_TESTS_KIT_PROCESSES_H
#define KOR_TESTS_KIT_PROCESSES_H

#include <windows.h>

#include <string>

namespace kit
{
struct Ended
{
    bool is_over = false; ///< false: it could not be started, or was ended when its time was up
    DWORD code = 0xFFFFFFFF;
    std::string output;
};

std::wstring wide(const std::string& utf8);
std::string utf8(const std::wstring& text);

/// The folder above that of this program.
std::wstring own_kit();

/// A program with all that it starts, which end with it. Its output goes through a file, so that none can fill a pipe.
Ended run(const std::wstring& program, const std::wstring& arguments, const std::wstring& folder, DWORD timeout_ms);
} // namespace kit

#endif // KOR_TESTS_KIT_PROCESSES_H
