#include "change.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "Kor_LogFile.h"
#include "failure.h"
#include "file.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::EditProblem;
using kor::core::LevelEdit;
using kor::core::LevelFile;
using kor::core::LineChange;

constexpr int MOST_READINGS = 10; // of a file that an editor keeps writing to
constexpr int MOST_PUBLISHINGS = 10;
constexpr int AUDIT_LEVEL = 4; // what packages write by default

std::string line_text(std::size_t line) { return "line " + std::to_string(line + 1); }

[[noreturn]] void fail(const LevelEdit& edit, const std::string& name)
{
    const std::string where = line_text(edit.line);
    switch (edit.problem)
    {
    case EditProblem::NO_FIRST_LINES:
        throw Failure(
            "The file lacks its first lines, output and size limit.",
            "Nothing was changed. Add them with LevelSync output files and LevelSync limit 10.");
    case EditProblem::LINE_IS_LOST:
        throw Failure(
            "The line behind the output, " + where + ", is taken for the size limit and lost as what it says.",
            "Nothing was changed. Write file_size_limit_in_mb=0 in front of it, then try again.");
    case EditProblem::LINE_TOO_LONG:
        throw Failure(
            "The line of " + name + ", " + where +
                ", would have more than 199 characters, and the reading of the file would end there.",
            "Nothing was changed. Take rules out that are no longer needed (LevelSync clear " + name +
                " ...), shorten the line's comment, or give networks in place of many addresses.");
    case EditProblem::TOO_MANY_RULES:
        throw Failure(
            name + " has ten rules, and an 11th would be left out.",
            "Nothing was changed. Take one out that is no longer needed: LevelSync explain " + name +
                " shows them, LevelSync clear " + name + " --client ... takes one out.");
    case EditProblem::TOO_MANY_ENTRIES:
        throw Failure(
            "A rule holds ten of each kind.", "Nothing was changed. Call LevelSync again for the others.", WRONG_CALL);
    case EditProblem::NOT_WRITABLE:
        throw Failure("That cannot be written in a rule.", "Nothing was changed.", WRONG_CALL);
    case EditProblem::NO_SUCH_RULE:
        throw Failure(
            name + " has no rule for exactly that.", "Nothing was changed. LevelSync explain " + name +
                                                         " shows its rules; LevelSync clear " + name +
                                                         " without more takes all of them out.");
    case EditProblem::NO_SUCH_PACKAGE:
        throw Failure("No line of the file is about " + name + ".", "Nothing was changed: there is nothing to clear.");
    case EditProblem::NO_OTHER_WAY:
        throw Failure(
            "What other lines say depends on " + where + ", so it cannot be changed by itself.",
            "Nothing was changed. LevelSync check shows the lines that have no number or level of their own, or that "
            "are "
            "about the same package; mend those first.");
    case EditProblem::CHANGED_SINCE:
        throw Failure(
            name + " was changed again since then, so that change cannot be taken back by itself.",
            "Nothing was changed. LevelSync history shows what came after; take that back first.");
    case EditProblem::NONE:
    case EditProblem::NO_CHANGE:
        break;
    }
    throw Failure("The file could not be changed.", "Nothing was changed.");
}

std::string name_of(const PackageNames& names, int what)
{
    if (what >= 0)
        return names.text(what);
    return what == LineChange::OUTPUT ? "the output" : "the size limit";
}

/// What the processes share, with what a command is about as the file has it.
Conf merged(const Kor_LogConf& running, const Kor_LogConf& file, const std::vector<int>& wanted)
{
    auto conf = std::make_unique<Kor_LogConf>(running);
    for (const int what : wanted)
    {
        if (what >= 0)
        {
            copy_package(*conf, file, what);
        }
        else if (what == LineChange::OUTPUT)
        {
            conf->output = file.output;
            conf->printToDebugger = file.printToDebugger;
        }
        else
        {
            conf->sizeLimitInMb = file.sizeLimitInMb;
        }
    }
    return conf;
}

/// Publishes what the file says of the wanted ones into whatever is shared at that moment.
void publish_wanted(const Kor_LogConf& file, const std::vector<int>& wanted)
{
    for (int tries = 1;; ++tries)
    {
        const Running running = read_running();
        if (!running.conf)
            return require_readable(running);
        const Conf conf = merged(*running.conf, file, wanted);
        const bool is_latest = Kor_LogFile::GetSharedChangeCount() == running.conf->GetChangeCount();
        if (is_latest || tries == MOST_PUBLISHINGS)
            return publish(*conf);
    }
}

/// Who changed what, for those who read the logs. Goes where the processes' lines go.
void leave_line(const Folder& folder, const Change& change)
{
    ::SetEnvironmentVariableW(L"PRISMATE_LOG_DIR", folder.path.c_str());
    KorGLog.TakeSharedConf(); // where that is not possible, opening finds what the line goes by
    KorGLog.Open("LevelSync.log", "LevelSync", false);
    KOR_LOG(
        KorGLog, AUDIT_LEVEL, KOR_PACKAGE_LIBRARY, "%s on %s, change %lld, %s: %s", change.user.c_str(),
        change.machine.c_str(), change.id, change.command.c_str(),
        change.effects.empty() ? "nothing changes for anybody" : joined(change.effects, ", ").c_str());
}

std::vector<int> whats_of(const std::vector<LineChange>& lines)
{
    std::vector<int> whats;
    for (const LineChange& line : lines)
        whats.push_back(line.what);
    return whats;
}

/// Finishes in the history, or gives up, what a LevelSync left half done that was killed under its turn.
void settle(const Folder& folder, History& history)
{
    const std::vector<Change> changes = history.changes();
    for (const Change& change : changes)
    {
        if (!change.is_open())
            continue;
        const std::string bytes = read_whole(folder.file).value_or(std::string());
        if (change.lines.empty() || fingerprint(bytes) != change.file_after)
        {
            history.fail(
                change.id,
                change.lines.empty() ? "interrupted while it published" : "interrupted before the file was changed");
            continue;
        }
        publish_wanted(*read_conf(folder.file), whats_of(change.lines));
        history.finish(change.id);
    }
}

/// One change on its way.
class Work
{
public:
    Work(Tool& tool, const ChangeOptions& options) : m_tool(tool), m_options(options) {}

    /// Nothing when the file changed meanwhile: then it has to be read again.
    std::optional<Outcome> try_with(const std::string& bytes, const Editing& editing, History& history)
    {
        Running running = read_running();
        if (m_options.is_published)
            require_readable(running);
        const LevelFile file(bytes);
        require_readable(file);
        Editor editor(m_tool.folder, bytes, running.conf.get());
        editing(editor, history);
        Outcome outcome;
        outcome.lines = editor.lines();
        outcome.is_running = running.conf != nullptr;
        if (m_options.is_dry_run)
        {
            look_ahead(outcome, editor, running, bytes, *conf_of(editor.file().bytes()));
            return outcome;
        }
        if (editor.lines().empty())
        {
            look_ahead(outcome, editor, running, bytes, *read_conf(m_tool.folder.file));
            if (!outcome.effects.empty() || m_options.takes_back)
                commit(outcome, editor, nullptr, bytes, history);
            return outcome;
        }
        Replacement replacement(m_tool.folder.file, editor.file().bytes());
        look_ahead(outcome, editor, running, bytes, *read_conf(replacement.path_beside()));
        if (read_whole(m_tool.folder.file) != bytes)
            return std::nullopt;
        commit(outcome, editor, &replacement, bytes, history);
        return outcome;
    }

private:
    /// What will change for whom.
    void look_ahead(
        Outcome& outcome, const Editor& editor, const Running& running, const std::string& bytes,
        const Kor_LogConf& after)
    {
        if (running.conf)
        {
            const Conf shared = merged(*running.conf, after, editor.wanted());
            if (m_options.is_published)
                outcome.effects = texts_of(differences(*running.conf, *shared));
            outcome.agrees = differences(*shared, after).empty();
        }
        if (running.conf && m_options.is_published)
            return;
        if (!editor.lines().empty())
            outcome.effects = texts_of(differences(*conf_of(bytes), after));
    }

    void
    commit(Outcome& outcome, const Editor& editor, Replacement* replacement, const std::string& bytes, History& history)
    {
        Change noted;
        noted.command = m_options.command.empty() ? m_tool.command_line : m_options.command;
        noted.lines = editor.lines();
        noted.effects = outcome.effects;
        noted.until = m_options.until;
        noted.takes_back = m_options.takes_back;
        noted.file_after = fingerprint(editor.file().bytes());
        outcome.id = history.begin(noted);
        try
        {
            if (m_options.until)
                outcome.keeping = Keeping(m_tool.folder, outcome.id);
            if (replacement != nullptr)
                replacement->put_in_place();
        }
        catch (const Failure& failure)
        {
            history.fail(outcome.id, failure.what());
            throw;
        }
        if (m_options.is_published)
            publish_or_restore(outcome, editor, bytes, history);
        history.finish(outcome.id);
        leave_line(m_tool.folder, *history.find(outcome.id));
    }

    void publish_or_restore(const Outcome& outcome, const Editor& editor, const std::string& bytes, History& history)
    {
        try
        {
            publish_wanted(*read_conf(m_tool.folder.file), editor.wanted());
        }
        catch (const Failure& failure)
        {
            if (!editor.lines().empty())
                Replacement(m_tool.folder.file, bytes).put_in_place();
            history.fail(outcome.id, failure.what());
            throw;
        }
    }

    Tool& m_tool;
    const ChangeOptions& m_options;
};
} // namespace

void add_change_options(Options& options, ChangeOptions& change)
{
    options.add_flag("--dry-run", change.is_dry_run, "Say what would change, and change nothing");
    options.add_flag("!--no-publish", change.is_published, "Change the file alone");
}

Editor::Editor(const Folder& folder, std::string bytes, const Kor_LogConf* running)
    : m_file(std::move(bytes)), m_names(folder, &m_file, running)
{
}

void Editor::apply(const LevelEdit& edit, int what)
{
    if (!edit && edit.problem != EditProblem::NO_CHANGE)
        fail(edit, name_of(m_names, what));
    m_wanted.push_back(what);
    if (!edit)
        return;
    m_file = LevelFile(edit.bytes);
    m_lines.push_back(edit.change);
}

Outcome change(Tool& tool, const Editing& editing, const ChangeOptions& options)
{
    // A dry run leaves nothing behind, not even the file that is locked.
    std::optional<Turn> turn;
    if (!options.is_dry_run)
        turn.emplace(tool);
    History history(tool.folder);
    if (turn)
        settle(tool.folder, history);
    Work work(tool, options);
    for (int readings = 0; readings < MOST_READINGS; ++readings)
        if (auto outcome = work.try_with(require_level_file(tool.folder), editing, history))
            return std::move(*outcome);
    throw Failure(
        "Another program keeps writing to " + shown(utf8(tool.folder.file)) + ".",
        "Nothing was changed. Close the editor that has it open, and try again.");
}

Outcome publish_file(Tool& tool, Kor_LogConf& conf, const std::string& command, const std::string& name)
{
    const Turn turn(tool);
    History history(tool.folder);
    settle(tool.folder, history);
    Outcome outcome;
    const Kor_LogConf* const running = take_running();
    outcome.is_running = running != nullptr;
    if (running == nullptr)
        return outcome;
    outcome.effects = texts_of(differences(*running, conf));
    Change noted;
    noted.command = command;
    noted.effects = outcome.effects;
    noted.file_after = fingerprint(name);
    outcome.id = history.begin(noted);
    try
    {
        publish(conf);
    }
    catch (const Failure& failure)
    {
        history.fail(outcome.id, failure.what());
        throw;
    }
    history.finish(outcome.id);
    leave_line(tool.folder, *history.find(outcome.id));
    return outcome;
}

namespace
{
constexpr std::size_t MOST_EFFECTS_NOTED = 50;

/// For the history, which is read as a whole by each LevelSync.
std::vector<std::string> noted_effects(std::vector<std::string> effects)
{
    if (effects.size() <= MOST_EFFECTS_NOTED)
        return effects;
    const std::size_t more = effects.size() - MOST_EFFECTS_NOTED;
    effects.resize(MOST_EFFECTS_NOTED);
    effects.push_back(counted(more, "further change", "further changes"));
    return effects;
}

/// Nothing when the file changed meanwhile: then it has to be looked at again.
std::optional<Outcome> try_to_replace(
    Tool& tool, const std::optional<std::string>& bytes, const std::string& wanted, History& history,
    const std::string& command)
{
    const Running running = read_running();
    require_readable(running);
    std::optional<Replacement> replacement;
    if (bytes != wanted)
        replacement.emplace(tool.folder.file, wanted);
    const Conf after = read_conf(replacement ? replacement->path_beside() : tool.folder.file);
    const Conf before = running.conf ? nullptr : conf_of(bytes.value_or(std::string()));
    Outcome outcome;
    outcome.is_running = running.conf != nullptr;
    outcome.effects = noted_effects(texts_of(differences(running.conf ? *running.conf : *before, *after)));
    if (replacement && read_whole(tool.folder.file) != bytes)
        return std::nullopt;
    if (!replacement && outcome.effects.empty())
        return outcome;
    Change noted;
    noted.command = command;
    noted.effects = outcome.effects;
    noted.file_after = fingerprint(wanted);
    outcome.id = history.begin(noted);
    try
    {
        if (replacement)
            replacement->put_in_place();
        if (running.conf)
            publish(*after);
    }
    catch (const Failure& failure)
    {
        if (replacement && bytes && read_whole(tool.folder.file) == wanted)
            Replacement(tool.folder.file, *bytes).put_in_place();
        history.fail(outcome.id, failure.what());
        throw;
    }
    history.finish(outcome.id);
    leave_line(tool.folder, *history.find(outcome.id));
    return outcome;
}
} // namespace

Outcome replace_file(Tool& tool, const Making& making, const std::string& command)
{
    const Turn turn(tool);
    History history(tool.folder);
    settle(tool.folder, history);
    for (int readings = 0; readings < MOST_READINGS; ++readings)
    {
        const auto bytes = read_whole(tool.folder.file);
        const auto wanted = making(bytes, history);
        if (!wanted)
            return {};
        if (auto outcome = try_to_replace(tool, bytes, *wanted, history, command))
            return std::move(*outcome);
    }
    throw Failure(
        "Another program keeps writing to " + shown(utf8(tool.folder.file)) + ".",
        "Nothing was changed. Close the editor that has it open.");
}

std::string require_level_file(const Folder& folder)
{
    if (auto bytes = read_whole(folder.file))
        return std::move(*bytes);
    throw Failure(
        "There is no level file " + shown(utf8(folder.file)) + ".",
        folder.is_given
            ? "Look whether --dir or PRISMATE_LOG_DIR names the folder that the servers have."
            : "PRISMATE_LOG_DIR is not set here. Name the folder of the servers' level file with --dir FOLDER.");
}

void require_readable(const LevelFile& file)
{
    if (file.has_byte_order_mark())
        throw Failure(
            "The file begins with a byte-order mark, so its first line is not what it looks like.",
            "Nothing was changed. Save it as UTF-8 without a byte-order mark, then try again.");
    if (file.cut_line())
        throw Failure(
            "The reading of the file ends in " + line_text(*file.cut_line()) + ", before the file does.",
            "Nothing was changed. LevelSync check says what is wrong there; mend it, then try again.");
}

namespace
{
Json report_of(const Outcome& outcome, const ChangeOptions& options)
{
    Json json;
    json["changed"] = outcome.id != 0;
    json["dry_run"] = options.is_dry_run;
    json["id"] = outcome.id != 0 ? Json(outcome.id) : Json();
    json["effects"] = outcome.effects;
    json["lines"] = Json::array();
    for (const LineChange& line : outcome.lines)
        json["lines"].push_back(json_of(line));
    json["published"] = options.is_published && outcome.is_running && !options.is_dry_run;
    json["agrees"] = outcome.is_running ? Json(outcome.agrees) : Json();
    json["until"] = options.until ? Json(utc_text(*options.until)) : Json();
    return json;
}
} // namespace

void report(Tool& tool, const Outcome& outcome, const ChangeOptions& options)
{
    if (tool.json)
        return tool.print(report_of(outcome, options));
    Console& console = tool.console;
    if (outcome.effects.empty() && outcome.lines.empty())
        return console.line("That is so already; nothing had to be changed.");
    const std::string verb = options.is_dry_run ? "Would change: " : "Changed: ";
    for (const std::string& effect : outcome.effects)
        console.line(verb + effect, Style::STRONG);
    if (outcome.effects.empty())
        console.line("The file is changed, and nothing changes for anybody.");
    for (const LineChange& line : outcome.lines)
    {
        if (line.before)
            console.line("  - " + shown(*line.before), Style::FAINT);
        if (line.after)
            console.line("  + " + shown(*line.after), Style::FAINT);
    }
    if (!options.is_published)
        console.line("Only the file: the processes go on as they are until LevelSync -u.");
    else if (!outcome.is_running)
        console.line("No process shares a configuration now; those that start read the file.");
    else if (!outcome.agrees)
        console.line(
            "The file says other things too that were not published; LevelSync diff shows them.", Style::CAREFUL);
    if (outcome.id != 0)
        console.line("LevelSync undo " + std::to_string(outcome.id) + " takes it back.");
}

void edit_level(Editor& editor, int package, int level, const kor::core::RuleFilters& filters)
{
    // A line needs a word for a name.
    std::string name = editor.names().of(package);
    if (name.find_first_of(" \t") != std::string::npos || name.empty())
        name = "Package" + std::to_string(package);
    const kor::core::NewPackage made{name, Kor_LogConf::DEFAULT_LEVEL};
    editor.apply(
        filters.empty() ? kor::core::set_level(editor.file(), package, level, made)
                        : kor::core::set_rule(editor.file(), package, level, filters, made),
        package);
}

void change_and_report(Tool& tool, const Editing& editing, const ChangeOptions& options)
{
    report(tool, change(tool, editing, options), options);
}
} // namespace levelsync
