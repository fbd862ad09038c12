// LUMlogWatch: watches the processes that have asked for it, and writes what they can no longer write.

#include <windows.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <string>
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

int dump(unsigned long process, const std::string& out)
{
    constexpr unsigned int LONGEST_PATH = 32'768;
    std::wstring path(LONGEST_PATH, L'\0');
    unsigned long error = 0;
    const std::wstring wanted = wide(out);
    if (!Kor_SessionLogWatcher::WriteMinidump(
            process, out.empty() ? nullptr : wanted.c_str(), path.data(), LONGEST_PATH, error))
    {
        std::fprintf(stderr, "No minidump of process %lu could be written: %s.\n", process, system_text(error).c_str());
        return NOT_DONE;
    }
    std::printf("%s\n", utf8(path.c_str()).c_str());
    return DONE;
}

int show_status()
{
    const unsigned long watcher = Kor_SessionLogWatcher::FindWatcher();
    if (watcher == 0)
        std::puts("Nobody watches.");
    else
        std::printf("Process %lu watches.\n", watcher);
    const auto tell = [](void*, unsigned long process, const wchar_t* program)
    { std::printf("%8lu  %s\n", process, utf8(program).c_str()); };
    Kor_SessionLogWatcher::ForEachWatched(tell, nullptr);
    return DONE;
}

std::string default_folder()
{
    wchar_t folder[MAX_PATH] = {};
    const DWORD size = ::GetEnvironmentVariableW(L"PRISMATE_LOG_DIR", folder, MAX_PATH);
    return size == 0 || size >= MAX_PATH ? "%LOCALAPPDATA%\\CrashDumps" : utf8({folder, size});
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

void declare(CLI::App& app, Wanted& wanted)
{
    app.footer(FOOTER);
    app.set_version_flag("--version", std::string("LUMlogWatch ") + LUMLOG_VERSION);
    auto* const what = app.add_option_group("what", "One of these");
    what->add_flag("--watch", wanted.watch)->group("");
    what->add_flag("--stand-by", wanted.stand_by)->group("");
    what->add_flag("--status", wanted.status, "Who watches, and who is watched");
    auto* const dump = what->add_option("--dump", wanted.dump, "Write a minidump of a process, which goes on");
    dump->type_name("PROCESS")->check(CLI::PositiveNumber);
    auto* const program = what->add_option(
        "--register", wanted.program, "Have Windows itself write a minidump when this program ends unseen");
    program->type_name("PROGRAM.exe");
    what->add_option("--unregister", wanted.unregistered, "Take that back")->type_name("PROGRAM.exe");
    what->require_option(1);
    app.add_option("--out", wanted.out, "File of the minidump")->type_name("FILE")->needs(dump);
    app.add_option("--folder", wanted.folder, "Folder of the minidumps")->type_name("FOLDER")->needs(program);
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
        std::fprintf(stderr, "%s\nLUMlogWatch --help shows how it is called.\n", error.what());
        return WRONG_CALL;
    }
    return run(wanted);
}
