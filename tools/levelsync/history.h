// history.h - who changed what: the file logger.history beside the level file.

#ifndef LEVELSYNC_HISTORY_H
#define LEVELSYNC_HISTORY_H

#include <optional>
#include <string>
#include <vector>

#include "core/level_file.h"
#include "times.h"
#include "tool.h"

namespace levelsync
{
/// One change, or one publishing.
struct Change
{
    long long id = 0; ///< from 1, in the order of the file
    Time time = 0;
    std::string user;
    std::string machine;
    unsigned long process = 0;
    std::string command;                      ///< as it was typed
    std::vector<kor::core::LineChange> lines; ///< of the file; empty for a publishing
    std::vector<std::string> effects;         ///< in words: "Replay 6 to 7 for client 192.0.2.7"
    std::optional<Time> until;                ///< an override: when it is to be taken back
    std::optional<long long> takes_back;      ///< the change that this one takes back
    std::uint64_t file_after = 0;             ///< what the file's bytes come to (fingerprint), to tell what a kill left
    bool is_done = false;
    std::string failure; ///< why it did not come to be; empty: it did, or nobody knows yet

    bool is_open() const noexcept { return !is_done && failure.empty(); }
};

Json json_of(const kor::core::LineChange& line);

/// The other way round; throws Json::exception for what is none.
kor::core::LineChange read_line_change(const Json& json);

/// The name of this machine, as it can be shown.
std::string machine_name();

/// As the file has it, but for what became of it.
Json json_of(const Change& change);

/// A number for a file's bytes.
std::uint64_t fingerprint(std::string_view bytes) noexcept;

/// The file holds a line of JSON for each change, written and flushed before the level file is touched, and another one
/// for what became of it. It only grows. Lines that are none of its own, and halves that a kill left, are passed over.
class History
{
public:
    /// Reads what is there. Throws Failure when it cannot be read.
    explicit History(const Folder& folder);

    const std::vector<Change>& changes() const noexcept { return m_changes; }
    const Change* find(long long id) const noexcept;

    /// True when the change came to be and nobody has taken it back.
    bool is_in_force(const Change& change) const;

    /// Those that took it back and stand.
    const Change* taken_back_by(const Change& change) const;

    /// Overrides that are in force.
    std::vector<const Change*> overrides() const;

    // Under the folder's turn. All throw Failure when the file cannot be written.

    /// Notes what is about to be done; gives it id, time, user, machine and process.
    long long begin(Change change);
    void finish(long long id);
    void fail(long long id, const std::string& why);

private:
    void append(const Json& line, bool is_flushed);
    void read(std::string_view line);

    std::wstring m_path;
    std::vector<Change> m_changes;
    bool m_ends_in_half = false;
};
} // namespace levelsync

#endif // LEVELSYNC_HISTORY_H
