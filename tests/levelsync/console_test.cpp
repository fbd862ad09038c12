// console_test.cpp - what LevelSync does on a terminal and nowhere else: colours, and a line that counts down.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "level_sync.h"
#include "log_lines.h"
#include "process_creation.h"

using ::testing::HasSubstr;

namespace
{
constexpr DWORD PATIENCE_MS = 30000;

/// What stands on the console of this process: each row's text, and behind it the colours that its characters have.
void print_screen(HANDLE screen)
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    ::GetConsoleScreenBufferInfo(screen, &info);
    const auto columns = static_cast<std::size_t>(info.dwSize.X);
    for (SHORT row = 0; row < info.dwSize.Y; ++row)
    {
        std::string line(columns, '\0');
        std::vector<WORD> colours(columns);
        DWORD count = 0;
        ::ReadConsoleOutputCharacterA(screen, line.data(), static_cast<DWORD>(columns), {0, row}, &count);
        ::ReadConsoleOutputAttribute(screen, colours.data(), static_cast<DWORD>(columns), {0, row}, &count);
        line.resize(line.find_last_not_of(' ') + 1);
        if (line.empty())
            continue;
        std::string used;
        for (std::size_t i = 0; i < line.size(); ++i)
            if (line[i] != ' ' && (i == 0 || line[i - 1] == ' '))
                used += ' ' + std::to_string(colours[i]);
        std::printf("%s|%s\n", line.c_str(), used.c_str());
    }
}

/// The exit code of a program; 0xFFFF where it did not start or end.
DWORD call(std::string line, DWORD flags, HANDLE out, HANDLE err)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = out;
    startup.hStdError = err;
    PROCESS_INFORMATION process{};
    DWORD exit_code = 0xFFFF;
    const auto create = [&] {
        return ::CreateProcessA(
            nullptr, line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr, &startup, &process);
    };
    if (!created_at_last(create))
        return exit_code;
    if (::WaitForSingleObject(process.hProcess, PATIENCE_MS) == WAIT_OBJECT_0)
        ::GetExitCodeProcess(process.hProcess, &exit_code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return exit_code;
}

// args: a command line. Calls it on the console of this process, and tells what that shows.
KOR_CHILD(shows_its_console)
{
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE screen = ::CreateFileA(
        "CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0,
        nullptr);
    const DWORD exit_code = call(args.at(0), 0, screen, screen);
    print_screen(screen);
    return static_cast<int>(exit_code);
}

// args: a command line. A console without a window is what a machine without a display has.
KOR_CHILD(caller_on_a_console)
{
    char own[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(nullptr, own, MAX_PATH);
    std::string quoted;
    for (const char c : args.at(0))
        quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
    return static_cast<int>(call(
        '"' + std::string(own) + "\" --child=shows_its_console \"" + quoted + '"', CREATE_NO_WINDOW,
        ::GetStdHandle(STD_OUTPUT_HANDLE), ::GetStdHandle(STD_ERROR_HANDLE)));
}

/// The screen after a call, a line each as print_screen has them.
std::vector<std::string>
screen_of(const Site& site, const std::string& words, std::vector<std::pair<std::string, std::string>> environment = {})
{
    ChildOptions options = site.options({});
    options.program.clear();
    options.arguments = {'"' + level_sync_program() + "\" " + words};
    for (auto& variable : environment)
        options.environment.push_back(std::move(variable));
    const ChildResult result = run_child("caller_on_a_console", options);
    EXPECT_EQ(result.exit_code, 0u) << result.err;
    return lines_of(text_of(result.out));
}

/// The colours of the words of the line that begins so.
std::string colours_of(const std::vector<std::string>& screen, const std::string& begin)
{
    for (const std::string& line : screen)
        if (line.compare(0, begin.size(), begin) == 0)
            return line.substr(line.find('|') + 1);
    std::string all;
    for (const std::string& line : screen)
        all += line + '\n';
    return "no such line in:\n" + all;
}

TEST(LevelSyncConsole, HasColoursOnATerminal)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto screen = screen_of(site, "status");
    // 7 is plain, 15 bright, 10 green.
    EXPECT_EQ(colours_of(screen, "Agreement"), " 15 10 10 10 10 10 10");
    EXPECT_EQ(colours_of(screen, "  320  Replay"), " 7 7 7 7");
}

TEST(LevelSyncConsole, HasNoneWhereNobodyWantsThem)
{
    const Site site;
    const auto viewer = site.host("viewer");
    EXPECT_EQ(colours_of(screen_of(site, "status", {{"NO_COLOR", "1"}}), "Agreement"), " 7 7 7 7 7 7 7");
}

TEST(LevelSyncConsole, CountsDownOnATerminalAndLeavesNothingOfThat)
{
    const Site site;
    const auto screen = screen_of(site, "set replay 7 --for 2s");
    EXPECT_THAT(colours_of(screen, "It stays until"), ::testing::Not(HasSubstr("no such line")));
    EXPECT_THAT(colours_of(screen, "Override 1 of"), HasSubstr(" 10 10"));
    for (const std::string& line : screen)
        EXPECT_THAT(line, ::testing::Not(HasSubstr("left; Ctrl-C")));
    EXPECT_EQ(site.logger(), Site::LOGGER);
}

TEST(LevelSyncConsole, ElsewhereItPrintsPlainText)
{
    const Site site;
    const Ran ran = site.run("set replay 7 --for 1s");
    EXPECT_EQ(ran.out.find('\x1B'), std::string::npos);
    EXPECT_EQ(ran.out.find('\r'), std::string::npos);
    EXPECT_EQ(ran.out.find("left; Ctrl-C"), std::string::npos);
    EXPECT_EQ(site.run("set replay loud").err.find('\x1B'), std::string::npos);
}
} // namespace
