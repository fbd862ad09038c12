#include "override.h"

#include <windows.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "failure.h"
#include "owned.h"
#include "stop.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::int64_t LOOK_EVERY_MS = 1'000; // whether somebody else has taken it back
constexpr DWORD TIME_TO_BEGIN_MS = 20'000;    // of the background process

bool is_due(const Folder& folder, const Change& change)
{
    return *change.until <= now() || Keeping::is_over(folder, change.id);
}

/// The options of a taking back that nobody has typed.
ChangeOptions options_for(const Change& change, const std::string& why)
{
    ChangeOptions options;
    options.takes_back = change.id;
    options.command = "taking back change " + std::to_string(change.id) + " (" + change.command + "): " + why;
    return options;
}

/// Takes the lines of a change back, the last one first.
void edit_back(Editor& editor, const Change& change)
{
    for (auto line = change.lines.rbegin(); line != change.lines.rend(); ++line)
        editor.apply(kor::core::take_back(editor.file(), *line), line->what);
}

/// The same for one that has to come to an end: what somebody else made of a line since stays.
void edit_back_as_far_as_possible(Editor& editor, const Change& change, std::vector<std::string>& kept)
{
    for (auto line = change.lines.rbegin(); line != change.lines.rend(); ++line)
    {
        const kor::core::LevelEdit edit = kor::core::take_back(editor.file(), *line);
        if (edit || edit.problem == kor::core::EditProblem::NO_CHANGE)
            editor.apply(edit, line->what);
        else
            kept.push_back(line->what >= 0 ? editor.names().text(line->what) : "the first lines");
    }
}

/// Waits for the end of an override; why it is over, nothing when somebody else has taken it back.
std::string wait_for_end(Tool& tool, long long id, Time until, const StopSignal& stop)
{
    OverrideWatch watch(tool.folder, id);
    for (;;)
    {
        const std::int64_t left = until - now();
        if (left <= 0)
            return "its time is over";
        tool.console.progress(duration_text(left) + " left; Ctrl-C takes it back now");
        if (stop.wait(std::min(left, LOOK_EVERY_MS)))
            return "LevelSync was told to stop";
        if (watch.is_taken_back())
            return {};
    }
}

/// The command line of a process that keeps the override, with the name of an event.
std::wstring keeper_command(const Tool& tool, long long id, const std::wstring& ready)
{
    std::wstring program(32'768, L'\0');
    program.resize(::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    // No path of a folder has a quote in it, nor does it end in a backslash (but for a drive's root, which doubles it).
    std::wstring folder = tool.folder.path;
    if (!folder.empty() && folder.back() == L'\\')
        folder += L'\\';
    return L'"' + program + L"\" keep " + std::to_wstring(id) + L" --dir \"" + folder + L"\" --ready " + ready;
}
} // namespace

std::string until_text(Time until)
{
    return "until " + local_text(until) + ", in " + duration_text(std::max<std::int64_t>(until - now(), 0));
}

OverrideWatch::OverrideWatch(const Folder& folder, long long id)
    : m_folder(folder), m_id(id), m_path(folder.name(L"logger.history"))
{
}

bool OverrideWatch::is_taken_back()
{
    if (!has_grown())
        return false;
    try
    {
        const History history(m_folder);
        const Change* const change = history.find(m_id);
        return change == nullptr || !history.is_in_force(*change);
    }
    catch (const Failure&)
    {
        m_size = 0; // to be looked at again
        return false;
    }
}

bool OverrideWatch::has_grown()
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ::GetFileAttributesExW(m_path.c_str(), GetFileExInfoStandard, &data);
    const std::uint64_t size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    return std::exchange(m_size, size) != size;
}

std::string end_override(Tool& tool, long long id, const std::string& why, bool has_to_be_due)
{
    std::vector<std::string> kept;
    std::string what;
    const auto editing = [&](Editor& editor, const History& history)
    {
        const Change* const change = history.find(id);
        kept.clear();
        if (change == nullptr || !history.is_in_force(*change) || (has_to_be_due && !is_due(tool.folder, *change)))
            throw Failure("", ""); // caught below: nothing is left to be done
        what = "Override " + std::to_string(id) + " of " + change->user + " (" + change->command + ")";
        edit_back_as_far_as_possible(editor, *change, kept);
    };
    ChangeOptions options;
    options.takes_back = id;
    {
        const History history(tool.folder);
        if (const Change* const change = history.find(id))
            options = options_for(*change, why);
    }
    Outcome outcome;
    try
    {
        outcome = change(tool, editing, options);
    }
    catch (const Failure& failure)
    {
        if (*failure.what() == '\0')
            return {};
        throw;
    }
    std::string text = what + " is taken back, as " + why + '.';
    if (!outcome.effects.empty())
        text += " Changed: " + joined(outcome.effects, ", ") + '.';
    if (!kept.empty())
        text += " Left as somebody has set it since: " + joined(kept) + '.';
    return text;
}

void take_back_due(Tool& tool)
{
    try
    {
        std::vector<std::pair<long long, std::string>> due;
        {
            const History history(tool.folder);
            // Also those of which nobody knows yet whether they came to be: their maker may have been killed.
            for (const Change& change : history.changes())
                if (change.until && (change.is_open() || history.is_in_force(change)) && is_due(tool.folder, change))
                    due.emplace_back(
                        change.id, *change.until <= now() ? "its time is over since " + local_text(*change.until)
                                                          : std::string("whoever looked after it has ended"));
        }
        for (const auto& [id, why] : due)
        {
            const std::string text = end_override(tool, id, why, true);
            if (!text.empty())
                tool.console.error(text, Style::CAREFUL);
        }
    }
    catch (const Failure& failure)
    {
        tool.console.error(
            std::string("An override that is over could not be taken back: ") + failure.what() + ' ' + failure.next(),
            Style::BAD);
    }
}

Outcome take_back(Tool& tool, long long id, const ChangeOptions& options)
{
    const auto editing = [id](Editor& editor, const History& history)
    {
        const Change* const change = history.find(id);
        if (change == nullptr)
            throw Failure("There is no change " + std::to_string(id) + ".", "LevelSync history shows the changes.");
        if (!history.is_in_force(*change))
        {
            const Change* const by = history.taken_back_by(*change);
            throw Failure(
                "Change " + std::to_string(id) +
                    (by == nullptr ? " did not come to be: " + change->failure + '.'
                                   : " was taken back by change " + std::to_string(by->id) + " already."),
                "LevelSync history shows the changes.");
        }
        if (change->lines.empty())
            throw Failure(
                "Change " + std::to_string(id) + " changed nothing in the file (" + change->command + ").",
                "There is nothing to take back. LevelSync history shows the changes.");
        edit_back(editor, *change);
    };
    ChangeOptions with_id = options;
    with_id.takes_back = id;
    return change(tool, editing, with_id);
}

void keep_here(Tool& tool, Outcome outcome, Time until)
{
    const StopSignal stop;
    tool.console.line("It stays " + until_text(until) + "; Ctrl-C, or closing this window, takes it back now.");
    tool.console.flush();
    const std::string why = wait_for_end(tool, outcome.id, until, stop);
    const std::string text = why.empty() ? std::string() : end_override(tool, outcome.id, why);
    tool.console.line(text.empty() ? "Somebody else has taken it back." : text, Style::GOOD);
    tool.console.flush();
}

void keep_in_background(Tool& tool, Outcome outcome, Time until)
{
    // By name: a process that inherits one handle inherits all, and who reads this one's output would wait for its end.
    const std::wstring name =
        L"LevelSync-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(outcome.id);
    const OwnedHandle ready(::CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
    std::wstring command = keeper_command(tool, outcome.id, name);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const bool is_started =
        ::CreateProcessW(
            nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP, nullptr,
            nullptr, &startup, &process) != FALSE;
    const DWORD error = is_started ? ERROR_SUCCESS : ::GetLastError();
    const OwnedHandle process_handle(process.hProcess);
    const OwnedHandle thread_handle(process.hThread);
    if (is_started)
    {
        const HANDLE either[] = {ready.get(), process_handle.get()};
        if (::WaitForMultipleObjects(2, either, FALSE, TIME_TO_BEGIN_MS) == WAIT_OBJECT_0)
            return tool.console.line(
                "It stays " + until_text(until) + "; process " + std::to_string(process.dwProcessId) +
                " takes it back then. LevelSync undo " + std::to_string(outcome.id) + " does so now.");
        ::TerminateProcess(process_handle.get(), NOT_DONE);
    }
    end_override(tool, outcome.id, "no process could be started to look after it");
    throw Failure(
        "No process could be started that looks after the override: " +
            (is_started ? std::string("it did not begin") : system_text(error)) + ".",
        "The change was taken back. Leave --detach out, and keep this window open.");
}

void keep_silently(Tool& tool, long long id, const std::string& ready)
{
    const StopSignal stop;
    const Keeping keeping(tool.folder, id);
    Time until = 0;
    {
        const History history(tool.folder);
        const Change* const change = history.find(id);
        if (change == nullptr || !change->until || !history.is_in_force(*change))
            throw Failure("There is no override " + std::to_string(id) + ".", "LevelSync history shows the changes.");
        until = *change->until;
    }
    const OwnedHandle event(::OpenEventW(EVENT_MODIFY_STATE, FALSE, wide(ready).c_str()));
    if (is_valid(event))
        ::SetEvent(event.get());
    const std::string why = wait_for_end(tool, id, until, stop);
    if (!why.empty())
        end_override(tool, id, why);
}
} // namespace levelsync
