// agent.h - keeps a machine's level file, and what its processes share, as its site wants them.

#ifndef LEVELSYNC_SITE_AGENT_H
#define LEVELSYNC_SITE_AGENT_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "change.h"
#include "options.h"
#include "site/agent_state.h"
#include "site/local_changes.h"
#include "site/store.h"
#include "tool.h"
#include "turn.h"

namespace levelsync
{
struct AgentOptions
{
    std::string machine; ///< as the site calls it; empty: the computer's name
    std::vector<std::string> groups;
    std::uint32_t every_s = 2;
    bool takes_back_local = false;

    void declare(Options& options);

    /// Throws Failure for names that can be none, and times that make no sense.
    void check() const;
};

class Agent
{
public:
    /// Throws Failure where another agent looks after the folder.
    Agent(Tool& tool, SiteStore& store, const AgentOptions& options);

    /// One round: has a look at the store, does what it wants, and says so. Throws nothing but for lack of memory.
    void look();

    /// Says that the machine's agent ends its work.
    void leave();

private:
    void look_at_store();
    void take(const SiteRead& read);
    void look_at_machine();
    void merge_when_due();
    void look_at_local(const std::string& file, const LocalOverrides& overrides);
    void put(const LocalOverrides& overrides, const std::string& why);
    void keep_replaced(const std::optional<std::string>& file, const LocalOverrides& overrides);
    void look_at_running();
    void say();
    void tell(const std::string& event, const std::string& text, Style style = Style::PLAIN);

    Tool& m_tool;
    SiteStore& m_store;
    AgentOptions m_options;
    AgentDuty m_duty;
    AgentState m_state;
    HistoryReader m_history;

    std::string m_merged; // what the site wants now
    std::optional<Time> m_next_end;
    bool m_is_merged = false;

    std::string m_refused; // why the store's state is not taken
    SiteMark m_refused_mark;
    std::uint64_t m_refused_at = 0;
    bool m_is_away = false;
    std::string m_failure; // why the file could not be put in place
    std::uint64_t m_failed_at = 0;

    std::string m_looked_at; // the file of the last verdict
    std::string m_verdict;   // what is different here; empty: nothing
    std::uint64_t m_running_count = 0;
    std::string m_running_file;
    std::string m_running_verdict;

    MachineReport m_report;
    std::string m_told;
    std::string m_said;
};

/// Looks every so often until wait, which is given milliseconds, says that it is over.
ExitCode run_agent(Tool& tool, const AgentOptions& options, const std::function<bool(std::int64_t)>& wait);
} // namespace levelsync

#endif // LEVELSYNC_SITE_AGENT_H
