#include "site/site_change.h"

#include <algorithm>
#include <set>
#include <utility>

#include "failure.h"
#include "file.h"
#include "override.h"
#include "site/refusal.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::SiteOverride;
using kor::core::SiteWish;

constexpr int MOST_TRIES = 10; // while others change the site

/// What the machines without a group come to; throws where it comes to nothing.
std::string merged_or_throw(const SiteWish& wish)
{
    kor::core::MergedSite merged = kor::core::merge_site(wish, now());
    if (!merged.problem.empty())
        throw Failure(shown(merged.problem), "Nothing was changed: every machine would refuse that.");
    return std::move(merged.bytes);
}

/// All groups at once have more than any machine: each is tried by itself.
void require_mergeable(const SiteWish& wish)
{
    SiteWish alone = wish;
    alone.groups.clear();
    static_cast<void>(merged_or_throw(alone));
    for (const kor::core::SiteSection& section : wish.groups)
    {
        alone.groups = {section};
        static_cast<void>(merged_or_throw(alone));
    }
}

std::string version_in(const SiteRead& read, const std::string& key)
{
    for (const SiteValue& value : read.values)
        if (value.key == key)
            return value.version;
    return {};
}

/// One more than any before, also where the history is gone and overrides are left.
long long next_id(SiteStore& store, const SiteWish& wish)
{
    long long id = 1;
    for (const SiteValue& value : store.history(1))
        if (const auto change = read_site_change(value.bytes))
            id = std::max(id, change->id + 1);
    for (const SiteOverride& over : wish.overrides)
    {
        const bool is_numbered = over.id.find_first_not_of("0123456789-") == std::string::npos;
        if (is_numbered && over.id.size() < 16)
            id = std::max(id, std::strtoll(over.id.c_str(), nullptr, 10) + 1);
    }
    return id;
}

std::vector<std::string> effects_of(const SiteWish& before, const SiteWish& after)
{
    const auto merged = [](SiteWish wish)
    {
        wish.groups.clear();
        return kor::core::merge_site(wish, now());
    };
    const kor::core::MergedSite old_one = merged(before);
    if (!old_one.problem.empty())
        return {"the site can be taken again"};
    return texts_of(differences(*conf_of(old_one.bytes), *conf_of(merged(after).bytes)));
}

std::vector<SiteWrite> writes_for(const SiteRead& read, const SiteEditor& editor, const SiteChange& change)
{
    std::vector<SiteWrite> writes;
    const Json document = json_of(change);
    writes.push_back(
        {history_key(change.id), document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n', {}, {}});
    if (change.id > static_cast<long long>(MOST_CHANGES_KEPT))
        writes.push_back({history_key(change.id - static_cast<long long>(MOST_CHANGES_KEPT)), {}, ANY_VERSION, {}});
    const SiteWish wish = editor.wish();
    const std::string base_version = version_in(read, "base");
    const bool has_new_base =
        wish.base && std::none_of(
                         read.values.begin(), read.values.end(),
                         [&wish](const SiteValue& value) { return value.key == "base" && value.bytes == wish.base; });
    if (has_new_base)
        writes.push_back({"base", wish.base, base_version, {}});
    for (const auto& section : editor.sections())
        writes.push_back({"groups/" + section.name, section.text, version_in(read, "groups/" + section.name), {}});
    for (const SiteOverride& over : editor.begun())
        writes.push_back({"overrides/" + over.id, document_of(over), {}, over.until});
    std::set<std::string> gone;
    for (const SiteOverride& over : editor.ended())
        gone.insert(over.id);
    // A share takes nothing away by itself.
    for (const SiteOverride& over : wish.overrides)
        if (over.until + OVERRIDE_GRACE_MS < now())
            gone.insert(over.id);
    for (const std::string& id : gone)
        writes.push_back({"overrides/" + id, {}, version_in(read, "overrides/" + id), {}});
    return writes;
}

/// One try; nothing where somebody else was faster.
std::optional<SiteOutcome>
try_to_change(const Tool& tool, SiteStore& store, const SiteEditing& editing, const SiteChangeOptions& options)
{
    const SiteRead read = store.read(std::nullopt);
    const SiteWish before = wish_of(read, groups_of(read));
    SiteOutcome outcome;
    SiteChange& change = outcome.change;
    change.id = next_id(store, before);
    SiteEditor editor(tool.folder, before, change.id);
    editing(editor);
    if (!editor.is_changed())
        return outcome;
    const SiteWish after = editor.wish();
    require_mergeable(after);
    change.time = now();
    change.user = own_account();
    change.machine = machine_name();
    change.command = tool.command_line;
    change.reason = options.reason;
    change.lines = editor.base().lines();
    change.begun = editor.begun();
    change.ended = editor.ended();
    change.until = options.until;
    change.takes_back = options.takes_back;
    if (before.base)
        change.effects = effects_of(before, after);
    if (options.is_dry_run)
        return outcome;
    if (!store.write(writes_for(read, editor, change)))
        return std::nullopt;
    outcome.id = change.id;
    return outcome;
}
} // namespace

// SiteHistory ---------------------------------------------------------------------------------------------
SiteHistory::SiteHistory(SiteStore& store, std::size_t most)
{
    for (const SiteValue& value : store.history(most))
        if (auto change = read_site_change(value.bytes))
            m_changes.push_back(std::move(*change));
}

const SiteChange& SiteHistory::find(long long id) const
{
    for (const SiteChange& change : m_changes)
        if (change.id == id)
            return change;
    throw Failure(
        "There is no change " + std::to_string(id) + " of the site.",
        "LevelSync --site ... history shows the changes.");
}

const SiteChange* SiteHistory::taken_back_by(const SiteChange& change) const
{
    for (const SiteChange& later : m_changes)
        if (later.takes_back == change.id && later.id > change.id && is_in_force(later))
            return &later;
    return nullptr;
}

// SiteEditor ----------------------------------------------------------------------------------------------
SiteEditor::SiteEditor(const Folder& folder, SiteWish wish, long long id)
    : m_wish(std::move(wish)), m_base(folder, m_wish.base.value_or(std::string()), nullptr), m_id(id)
{
}

void SiteEditor::begin(SiteOverride over)
{
    if (over.id.empty())
        over.id = std::to_string(m_id) + (m_begun.empty() ? "" : "-" + std::to_string(m_begun.size() + 1));
    m_begun.push_back(std::move(over));
}

void SiteEditor::end(const std::string& id)
{
    const auto found = std::find_if(
        m_wish.overrides.begin(), m_wish.overrides.end(), [&id](const SiteOverride& over) { return over.id == id; });
    if (found == m_wish.overrides.end())
        return;
    m_ended.push_back(std::move(*found));
    m_wish.overrides.erase(found);
}

void SiteEditor::replace_base(std::string text) { m_new_base = std::move(text); }

void SiteEditor::replace_section(const std::string& group, std::string text)
{
    m_sections.push_back({group, std::move(text)});
}

SiteWish SiteEditor::wish() const
{
    SiteWish wish = m_wish;
    wish.base = m_new_base                                      ? m_new_base
                : m_wish.base || !m_base.file().bytes().empty() ? std::optional<std::string>(m_base.file().bytes())
                                                                : std::nullopt;
    for (const auto& section : m_sections)
    {
        const auto same = std::find_if(
            wish.groups.begin(), wish.groups.end(),
            [&section](const kor::core::SiteSection& other) { return other.name == section.name; });
        if (same != wish.groups.end())
            same->text = section.text;
        else
            wish.groups.push_back(section);
    }
    wish.overrides.insert(wish.overrides.end(), m_begun.begin(), m_begun.end());
    return wish;
}

bool SiteEditor::is_changed() const noexcept
{
    return !m_base.lines().empty() || (m_new_base && m_new_base != m_wish.base) || !m_begun.empty() ||
           !m_ended.empty() || !m_sections.empty();
}

// Changes -------------------------------------------------------------------------------------------------
SiteOutcome
change_site(const Tool& tool, SiteStore& store, const SiteEditing& editing, const SiteChangeOptions& options)
{
    for (int tries = 0; tries < MOST_TRIES; ++tries)
        if (auto outcome = try_to_change(tool, store, editing, options))
            return std::move(*outcome);
    throw Failure("Others keep changing the site.", "Nothing was changed. Try again in a moment.");
}

namespace
{
long long last_change(const SiteHistory& history)
{
    const auto& changes = history.changes();
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
    {
        const bool is_over = change->lines.empty() && change->ended.empty() && change->until && *change->until <= now();
        const bool has_any = !change->lines.empty() || !change->begun.empty() || !change->ended.empty();
        if (!change->takes_back && has_any && !is_over && history.is_in_force(*change))
            return change->id;
    }
    throw Failure("There is no change to take back.", "LevelSync --site ... history shows the changes.");
}

void edit_back(SiteEditor& editor, const SiteChange& change)
{
    for (auto line = change.lines.rbegin(); line != change.lines.rend(); ++line)
        editor.base().apply(kor::core::take_back(editor.base().file(), *line), line->what);
    for (const SiteOverride& over : change.begun)
        editor.end(over.id);
    for (SiteOverride over : change.ended)
        if (over.until > now())
        {
            over.id.clear(); // the old one may be in the store for a while still
            editor.begin(std::move(over));
        }
    if (!editor.is_changed())
        throw Failure(
            "What change " + std::to_string(change.id) + " has begun is over already.",
            "There is nothing to take back. LevelSync --site ... history shows the changes.");
}
} // namespace

SiteOutcome take_back_on_site(const Tool& tool, SiteStore& store, long long id, SiteChangeOptions options)
{
    const SiteHistory history(store);
    const SiteChange& change = history.find(id != 0 ? id : last_change(history));
    if (const SiteChange* const by = history.taken_back_by(change))
        throw Failure(
            "Change " + std::to_string(change.id) + " was taken back by change " + std::to_string(by->id) + " already.",
            "LevelSync --site ... history shows the changes.");
    if (change.lines.empty() && change.begun.empty() && change.ended.empty())
        throw Failure(
            "Change " + std::to_string(change.id) + " replaced a whole text (" + change.command + ").",
            "Nothing was changed. Publish the text as it is to be.");
    options.takes_back = change.id;
    return change_site(
        tool, store, [&change](SiteEditor& editor) { edit_back(editor, change); }, options);
}

// Words ---------------------------------------------------------------------------------------------------
namespace
{
Json report_of(const Tool& tool, const SiteOutcome& outcome, const SiteChangeOptions& options)
{
    Json json = json_of(outcome.change);
    json["site"] = tool.site;
    json["changed"] = outcome.id != 0;
    json["dry_run"] = options.is_dry_run;
    json["id"] = outcome.id != 0 ? Json(outcome.id) : Json();
    return json;
}
} // namespace

void report(const Tool& tool, const SiteOutcome& outcome, const SiteChangeOptions& options)
{
    if (tool.json)
        return tool.print(report_of(tool, outcome, options));
    Console& console = tool.console;
    const SiteChange& change = outcome.change;
    if (outcome.id == 0 && !options.is_dry_run)
        return console.line("That is so already; nothing had to be changed.");
    const std::string verb = options.is_dry_run ? "Would change on the site: " : "Changed on the site: ";
    for (const std::string& effect : change.effects)
        console.line(verb + effect, Style::STRONG);
    if (change.effects.empty())
        console.line(options.is_dry_run ? "Nothing would change for anybody." : "The site's texts are changed.");
    for (const kor::core::LineChange& line : change.lines)
    {
        if (line.before)
            console.line("  - " + shown(*line.before), Style::FAINT);
        if (line.after)
            console.line("  + " + shown(*line.after), Style::FAINT);
    }
    if (options.is_dry_run)
        return;
    if (change.until)
        console.line("It stays " + until_text(*change.until) + ", whoever goes; nobody has to wait here.");
    console.line("LevelSync --site ... status shows which machines have it.");
    if (!change.lines.empty() || !change.begun.empty() || !change.ended.empty())
        console.line("LevelSync --site ... undo " + std::to_string(outcome.id) + " takes it back.");
}

std::unique_ptr<SiteStore> open_site(const Tool& tool)
{
    if (tool.site.empty())
        throw Failure(
            "That is for a site.",
            "Name it, as in --site file:\\\\server\\share\\lumlog or --site etcd:http://server:2379/lumlog.",
            WRONG_CALL);
    return tool.open_store ? tool.open_store() : open_store(tool.site, tool.credentials);
}

void add_reason_option(Options& options, std::string& reason)
{
    options.add_option("--reason", reason, "Why, for whoever looks at the history")->type_name("TEXT");
}
} // namespace levelsync
