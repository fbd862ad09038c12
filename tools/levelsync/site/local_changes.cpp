#include "site/local_changes.h"

#include <windows.h>

#include <algorithm>

#include "core/level_file.h"
#include "override.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::LevelFile;
using kor::core::LineChange;

/// What a file says of a package, in a form that can be compared.
std::string said_of(const LevelFile& file, int package)
{
    const auto found = file.packages().find(package);
    if (found == file.packages().end())
        return {};
    std::string said = std::to_string(found->second.level);
    for (const std::string_view rule : found->second.rules)
        said.append("(").append(rule).append(")");
    return said;
}
} // namespace

const History& HistoryReader::read()
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ::GetFileAttributesExW(m_folder.name(L"logger.history").c_str(), GetFileExInfoStandard, &data);
    const std::uint64_t size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    if (m_history && size == m_size)
        return *m_history;
    m_history = std::make_unique<History>(m_folder);
    m_size = size;
    return *m_history;
}

LocalOverrides::LocalOverrides(const History& history, const std::vector<long long>& before)
{
    for (const Change* const change : history.overrides())
    {
        if (*change->until <= now())
            continue;
        m_changes.push_back(*change);
        m_ids.push_back(change->id);
    }
    const auto note = [this](const Change& change)
    {
        for (const LineChange& line : change.lines)
            m_whats.insert(line.what);
    };
    for (const Change& change : m_changes)
        note(change);
    for (const long long id : before)
        if (const Change* const change = history.find(id))
            note(*change);
}

std::string LocalOverrides::put_into(const std::string& bytes) const
{
    LevelFile file(bytes);
    for (const Change& change : m_changes)
        for (const LineChange& line : change.lines)
        {
            LineChange back = line; // what is taken back of this is what the change did
            std::swap(back.before, back.after);
            const kor::core::LevelEdit edit = kor::core::take_back(file, back);
            if (edit)
                file = LevelFile(edit.bytes);
        }
    return file.bytes();
}

bool LocalOverrides::is_same_but_for_them(const std::string& one, const std::string& other) const
{
    const LevelFile left(one);
    const LevelFile right(other);
    if (left.output() != right.output() && m_whats.count(LineChange::OUTPUT) == 0)
        return false;
    if (left.size_limit() != right.size_limit() && m_whats.count(LineChange::SIZE_LIMIT) == 0)
        return false;
    for (int package = 0; package < left.package_count(); ++package)
        if (m_whats.count(package) == 0 && said_of(left, package) != said_of(right, package))
            return false;
    return true;
}

std::vector<std::string> LocalOverrides::texts() const
{
    std::vector<std::string> texts;
    for (const Change& change : m_changes)
        texts.push_back(
            "Override " + std::to_string(change.id) + " of " + change.user + " on this machine until " +
            local_text(*change.until) + ": " + joined(change.effects, ", ") + '.');
    return texts;
}

std::string author_of_change(const History& history, Time since)
{
    const auto& changes = history.changes();
    for (auto change = changes.rbegin(); change != changes.rend() && change->time >= since; ++change)
        if (!change->until && !change->takes_back && !change->lines.empty() && history.is_in_force(*change))
            return " by " + change->user + " (" + change->command + ")";
    return {};
}
} // namespace levelsync
