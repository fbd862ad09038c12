// crash_texts.h - texts of a crash, made without the heap and without the C runtime, of which a crash may have left
// anything locked.

#ifndef KOR_CORE_CRASH_TEXTS_H
#define KOR_CORE_CRASH_TEXTS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/headline.h"

namespace kor::core
{
/// What the crash log tells of a crash. The year is not told.
struct CrashLine
{
    LocalTime time;
    std::string_view program; ///< its full path
    std::uint32_t process;
    std::uint32_t thread;
    std::uint32_t code; ///< of the exception
};

/// Bytes that a line takes at most whose program has no more than 255.
constexpr std::size_t CRASH_LINE_SIZE = 400;

/// "05/03 14:07:09.042 Crashed Process Details: C:\app\viewer.exe[1200,3344] Exception Code: 0xc0000005" with the line
/// break of a text file: day before month, the code in lower case. Cut when the program's path is too long.
std::string_view write_crash_line(char (&to)[CRASH_LINE_SIZE], const CrashLine& from) noexcept;

/// What the log of hangs tells.
struct HangLine
{
    LocalTime time;
    std::string_view program; ///< its full path
    std::uint32_t process;
    std::string_view heartbeat; ///< its name
    std::uint64_t silence_ms;   ///< since the last one
    bool is_back;
};

/// "05/03 14:07:09.042 Hanging Process Details: C:\app\viewer.exe[1200] Heartbeat: gui, silent for 10012 ms", or "back after
/// 25012 ms", with the line break of a text file. Cut when the program's path is too long.
std::string_view write_hang_line(char (&to)[CRASH_LINE_SIZE], const HangLine& from) noexcept;

/// What the general log tells of a crash.
struct CrashMessage
{
    const wchar_t* name; ///< of the exception
    std::uint32_t code;
    const wchar_t* module; ///< where it was, its full path; null: nobody knows
    std::uint64_t address; ///< in the module or, without one, in the process
};

/// Bytes that a message takes at most.
constexpr std::size_t CRASH_MESSAGE_SIZE = 512;

/// "The process has crashed: EXCEPTION_ACCESS_VIOLATION (0xc0000005) in viewer.exe+0x18332", or "... at 0x18332". The
/// module's name is in UTF-8, and cut where it is too long.
std::string_view write_crash_message(char (&to)[CRASH_MESSAGE_SIZE], const CrashMessage& from) noexcept;

/// Characters of a stamp, of years up to 9999.
constexpr std::size_t FILE_STAMP_LENGTH = 18;

/// "-2024-01-31-235959": when a file was named. No end is set.
void write_file_stamp(wchar_t (&to)[FILE_STAMP_LENGTH], const LocalTime& time) noexcept;
} // namespace kor::core

#endif // KOR_CORE_CRASH_TEXTS_H
