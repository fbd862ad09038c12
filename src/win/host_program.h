// host_program.h - what the program says about itself that has loaded the library.

#ifndef KOR_WIN_HOST_PROGRAM_H
#define KOR_WIN_HOST_PROGRAM_H

namespace kor::win
{
/// True when the program of this process exports that name.
bool program_exports(const char* name) noexcept;
} // namespace kor::win

#endif // KOR_WIN_HOST_PROGRAM_H
