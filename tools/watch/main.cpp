// LUMlogWatch: watches the processes that have asked for it, and writes what they can no longer write.

#include <windows.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLogWatcher.h"
#include "commands.h"
#include "text.h"

KOR_TOOL_PROGRAM;

#if defined(__MINGW32__)
extern "C"
{
    int _dowildcard = 0; // a path is what it says
}
#endif

using namespace lumlogwatch;

namespace
{
constexpr char PURPOSE[] =
    "Watches the programs that have asked for it, and writes what they cannot write themselves when they end.\n"
    "It is started by them, and ends with the last of them.";
constexpr char FOOTER[] = "Examples:\n"
                          "  LUMlogWatch --dump 4312 --out C:\\dumps\\viewer.dmp\n"
                          "  LUMlogWatch --register viewer.exe --folder C:\\dumps\n"
                          "Exit codes: 0 done, 1 not done, 2 wrong call.";

struct Wanted
{
    bool watch = false;
    bool stand_by = false;
    bool status = false;
    unsigned long dump = 0;
    std::string out;
    std::string program; // to be registered
    std::string unregistered;
    std::string folder;
};

int watch(bool stand_by)
{
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX); // nobody would see a dialog of its own
    const auto ended = Kor_SessionLogWatcher::Run(stand_by);
    return ended == Kor_SessionLogWatcher::Ended::FAILED ? NOT_DONE : DONE;
}

constexpr unsigned int LONGEST_PATH = 32'768;

std::string why_there_is_none(unsigned long error, const std::wstring& path)
{
    if (!path.empty())
        return system_text(error) + ": " + utf8(path);
    if (error == ERROR_INVALID_PARAMETER)
        return "there is no such process";
    if (error == ERROR_ACCESS_DENIED)
        return system_text(error) + ". It is another account's, or the system's: it takes an administrator";
    return system_text(error);
}

int dump(unsigned long process, const std::string& out)
{
    std::wstring path(LONGEST_PATH, L'\0');
    unsigned long error = 0;
    const std::wstring wanted = wide(out);
    const bool is_written = Kor_SessionLogWatcher::WriteMinidump(
        process, out.empty() ? nullptr : wanted.c_str(), path.data(), LONGEST_PATH, error);
    path.resize(path.find(L'\0'));
    if (is_written)
        print(stdout, utf8(path) + '\n');
    else
        print(
            stderr, "No minidump of process " + std::to_string(process) +
                        " could be written: " + why_there_is_none(error, path) + ".\n");
    return is_written ? DONE : NOT_DONE;
}

std::string line_of(unsigned long process, const wchar_t* program)
{
    char id[16] = {};
    std::snprintf(id, sizeof id, "%8lu  ", process);
    return id + utf8(program) + '\n';
}

/// Empty where nobody may know.
std::wstring program_of(unsigned long process)
{
    std::wstring path(LONGEST_PATH, L'\0');
    DWORD size = LONGEST_PATH;
    const HANDLE handle = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
    if (handle == nullptr || !::QueryFullProcessImageNameW(handle, 0, path.data(), &size))
        size = 0;
    if (handle != nullptr)
        ::CloseHandle(handle);
    path.resize(size);
    return path;
}

int show_status()
{
    const unsigned long watcher = Kor_SessionLogWatcher::FindWatcher();
    if (watcher == 0)
        print(stdout, "Nobody watches.\n");
    else
        print(stdout, "Process " + std::to_string(watcher) + " watches: " + utf8(program_of(watcher)) + '\n');
    const auto tell = [](void*, unsigned long process, const wchar_t* program)
    { print(stdout, line_of(process, program)); };
    Kor_SessionLogWatcher::ForEachWatched(tell, nullptr);
    return DONE;
}

std::string default_folder()
{
    std::wstring folder(LONGEST_PATH, L'\0');
    folder.resize(::GetEnvironmentVariableW(L"PRISMATE_LOG_DIR", folder.data(), LONGEST_PATH));
    return folder.empty() ? "%LOCALAPPDATA%\\CrashDumps" : utf8(folder);
}

int run(const Wanted& wanted)
{
    if (wanted.watch || wanted.stand_by)
        return watch(wanted.stand_by);
    if (wanted.dump != 0)
        return dump(wanted.dump, wanted.out);
    if (!wanted.program.empty())
        return have_registered(wanted.program, wanted.folder.empty() ? default_folder() : wanted.folder);
    if (!wanted.unregistered.empty())
        return have_unregistered(wanted.unregistered);
    return show_status();
}

bool is_process_id(const std::string& text)
{
    constexpr std::size_t MOST_DIGITS = 10;
    const bool is_number =
        !text.empty() && text.size() <= MOST_DIGITS && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long long number = is_number ? std::stoull(text) : 0;
    return number != 0 && number <= std::numeric_limits<unsigned long>::max();
}

/// A check of a value, of which the help says nothing.
CLI::Validator valid(bool (*is_valid)(const std::string&), std::string wrong)
{
    return CLI::Validator(
        [is_valid, wrong = std::move(wrong)](std::string& text)
        { return is_valid(text) ? std::string() : '\'' + text + '\'' + wrong; },
        "");
}

constexpr char NO_PROGRAM[] = " is no file of a program, such as viewer.exe";

void declare(CLI::App& app, Wanted& wanted)
{
    app.footer(FOOTER);
    app.set_version_flag("--version", std::string("LUMlogWatch ") + LUMLOG_VERSION);
    auto* const what = app.add_option_group("what", "One of these");
    what->add_flag("--watch", wanted.watch)->group("");
    what->add_flag("--stand-by", wanted.stand_by)->group("");
    what->add_flag("--status", wanted.status, "Who watches, and who is watched");
    auto* const dump = what->add_option("--dump", wanted.dump, "Write a minidump of a process, which goes on");
    dump->type_name("PROCESS")->check(valid(&is_process_id, " is no number of a process"));
    auto* const program = what->add_option(
        "--register", wanted.program, "Have Windows itself write a minidump when this program ends unseen");
    program->type_name("PROGRAM.exe")->check(valid(&is_program, NO_PROGRAM));
    auto* const unregistered = what->add_option("--unregister", wanted.unregistered, "Take that back");
    unregistered->type_name("PROGRAM.exe")->check(valid(&is_program, NO_PROGRAM));
    what->require_option(1);
    app.add_option("--out", wanted.out, "File of the minidump; without it, one of its own name in the log's folder")
        ->type_name("FILE")
        ->needs(dump);
    app.add_option("--folder", wanted.folder, "Folder of the minidumps; without it, the log's")
        ->type_name("FOLDER")
        ->needs(program);
}
} // namespace

int wmain(int count, wchar_t** values)
{
    std::vector<std::string> words;
    for (int i = count - 1; i > 0; --i) // as the parser takes them
        words.push_back(utf8(values[i]));
    CLI::App app(PURPOSE, "LUMlogWatch");
    Wanted wanted;
    declare(app, wanted);
    try
    {
        app.parse(std::move(words));
    }
    catch (const CLI::Success& success) // --help and --version
    {
        return app.exit(success);
    }
    catch (const CLI::ParseError& error)
    {
        print(stderr, std::string(error.what()) + "\nLUMlogWatch --help shows how it is called.\n");
        return WRONG_CALL;
    }
    return run(wanted);
}
