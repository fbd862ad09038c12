#include "core/crash_texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using kor::core::CRASH_LINE_SIZE;
using kor::core::CRASH_MESSAGE_SIZE;
using kor::core::CrashLine;
using kor::core::CrashMessage;
using kor::core::FILE_STAMP_LENGTH;
using kor::core::LocalTime;
using kor::core::write_crash_line;
using kor::core::write_crash_message;
using kor::core::write_file_stamp;

namespace
{
std::string line_of(const CrashLine& line)
{
    char text[CRASH_LINE_SIZE];
    return std::string(write_crash_line(text, line));
}

std::string message_of(const CrashMessage& from)
{
    char buffer[CRASH_MESSAGE_SIZE];
    return std::string(write_crash_message(buffer, from));
}

std::wstring stamp_of(const LocalTime& time)
{
    wchar_t text[FILE_STAMP_LENGTH];
    write_file_stamp(text, time);
    return {text, FILE_STAMP_LENGTH};
}

TEST(CrashLine, HasDayMonthTimeProgramProcessThreadAndCode)
{
    EXPECT_EQ(
        line_of({{2024, 3, 5, 14, 7, 9, 42}, "C:\\app\\viewer.exe", 1200, 3344, 0xC0000005}),
        "05/03 14:07:09.042 Crashed Process Details: C:\\app\\viewer.exe[1200,3344] Exception Code: 0xc0000005\r\n");
}

TEST(CrashLine, HasNumbersOfTheirWidthWhateverTheyAre)
{
    EXPECT_EQ(
        line_of({{1601, 12, 31, 23, 59, 59, 999}, "", 0, 0, 0}),
        "31/12 23:59:59.999 Crashed Process Details: [0,0] Exception Code: 0x00000000\r\n");
    EXPECT_EQ(
        line_of({{1601, 1, 1, 0, 0, 0, 0}, "a", 4294967295u, 4294967295u, 0xFFFFFFFF}),
        "01/01 00:00:00.000 Crashed Process Details: a[4294967295,4294967295] Exception Code: 0xffffffff\r\n");
    EXPECT_EQ(
        line_of({{2024, 1, 1, 0, 0, 0, 0}, "Unknown", 1, 2, 0xE06D7363}),
        "01/01 00:00:00.000 Crashed Process Details: Unknown[1,2] Exception Code: 0xe06d7363\r\n");
}

TEST(CrashLine, OfALongProgramHasAllTheRest)
{
    const std::string program(255, 'p');
    const std::string rest = "[4294967295,4294967295] Exception Code: 0xffffffff\r\n";
    const std::string front = "31/12 23:59:59.999 Crashed Process Details: ";
    const LocalTime time{2024, 12, 31, 23, 59, 59, 999};
    EXPECT_EQ(line_of({time, program, 4294967295u, 4294967295u, 0xFFFFFFFF}), front + program + rest);
    const std::string cut = line_of({time, std::string(1000, 'p'), 4294967295u, 4294967295u, 0xFFFFFFFF});
    EXPECT_EQ(cut.substr(0, front.size() + 255), front + program);
    EXPECT_EQ(cut.substr(cut.size() - rest.size()), rest);
}

TEST(CrashMessage, HasExceptionCodeModuleAndOffset)
{
    EXPECT_EQ(
        message_of({L"EXCEPTION_ACCESS_VIOLATION", 0xC0000005, L"C:\\app\\viewer.exe", 0x18332}),
        "The process has crashed: EXCEPTION_ACCESS_VIOLATION (0xc0000005) in viewer.exe+0x18332");
    EXPECT_EQ(
        message_of({L"abort()", 0xE0000001, L"a/b\\c/d.dll", 0}),
        "The process has crashed: abort() (0xe0000001) in d.dll+0x0");
}

TEST(CrashMessage, HasTheAddressWhereNobodyKnowsTheModule)
{
    EXPECT_EQ(
        message_of({L"EXCEPTION_UNKNOWN", 1, nullptr, 0xFEDCBA9876543210}),
        "The process has crashed: EXCEPTION_UNKNOWN (0x00000001) at 0xfedcba9876543210");
}

TEST(CrashMessage, HasNamesInUtf8AndCutsThoseThatAreTooLong)
{
    EXPECT_EQ(
        message_of({L"", 0, L"\u65E5\u672C.exe", 0x10}),
        "The process has crashed:  (0x00000000) in \xE6\x97\xA5\xE6\x9C\xAC.exe+0x10");
    const std::wstring name(1000, L'n');
    const std::string cut = message_of({name.c_str(), 0xFFFFFFFF, name.c_str(), UINT64_MAX});
    EXPECT_EQ(
        cut, "The process has crashed: " + std::string(200, 'n') + " (0xffffffff) in " + std::string(200, 'n') +
                 "+0xffffffffffffffff");
}

// Hangs --------------------------------------------------------------------------------------------------------------
std::string hang_line(const kor::core::HangLine& line)
{
    char text[kor::core::CRASH_LINE_SIZE];
    return std::string(kor::core::write_hang_line(text, line));
}

TEST(HangLine, TellsWhoHangsAndForHowLong)
{
    kor::core::HangLine line{{2024, 3, 5, 14, 7, 9, 42}, "C:\\app\\viewer.exe", 1200, "gui", 10012, false};
    EXPECT_EQ(
        hang_line(line), "05/03 14:07:09.042 Hanging Process Details: C:\\app\\viewer.exe[1200] Heartbeat: gui, silent "
                         "for 10012 ms\r\n");
    line.is_back = true;
    EXPECT_EQ(
        hang_line(line), "05/03 14:07:09.042 Hanging Process Details: C:\\app\\viewer.exe[1200] Heartbeat: gui, back "
                         "after 10012 ms\r\n");
}

TEST(HangLine, IsWholeHoweverLongItsTextsAre)
{
    const std::string text(1000, 'x');
    const std::string line = hang_line({{2024, 3, 5, 14, 7, 9, 42}, text, UINT32_MAX, text, UINT64_MAX, true});
    EXPECT_EQ(
        line, "05/03 14:07:09.042 Hanging Process Details: " + std::string(200, 'x') +
                  "[4294967295] Heartbeat: " + std::string(64, 'x') + ", back after 18446744073709551615 ms\r\n");
}

TEST(FileStamp, HasDateAndTimeInDigits)
{
    EXPECT_EQ(stamp_of({2024, 1, 31, 23, 59, 59, 7}), L"-2024-01-31-235959");
    EXPECT_EQ(stamp_of({2026, 11, 2, 3, 4, 5, 999}), L"-2026-11-02-030405");
    EXPECT_EQ(stamp_of({1601, 1, 1, 0, 0, 0, 0}), L"-1601-01-01-000000");
}
} // namespace
