// agent: keeps this machine as its site wants it.

#include "site/agent.h"

#include "command.h"
#include "failure.h"
#include "site/site_change.h"
#include "stop.h"
#include "text.h"

namespace levelsync
{
namespace
{
class RunAgent final : public Command
{
public:
    void declare(Options& options) override { m_options.declare(options); }

    ExitCode run(Tool& tool) override
    {
        static_cast<void>(open_site(tool)); // says what is missing
        return WRONG_CALL;
    }

    ExitCode run_on_site(Tool& tool) override
    {
        m_options.check();
        const StopSignal stop;
        if (!tool.json)
            tool.console.line(
                "Keeping " + shown(utf8(tool.folder.file)) + " as " + shown(tool.site) +
                " wants it; Ctrl-C ends this.");
        tool.console.flush();
        return run_agent(tool, m_options, [&stop](std::int64_t milliseconds) { return stop.wait(milliseconds); });
    }

private:
    AgentOptions m_options;
};
} // namespace

extern const CommandEntry command_agent{
    "agent", "Keeps this machine's level file as a site wants it",
    "LevelSync agent --site etcd:http://store:2379/lumlog --group servers", &make_command<RunAgent>};
} // namespace levelsync
