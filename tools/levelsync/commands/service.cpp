// service: the agent as a Windows service.

#include "site/service.h"

#include <windows.h>

#include "command.h"
#include "failure.h"
#include "file.h"
#include "site/agent.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
/// A word of a command line, in quotes; none of ours has a quote in it.
std::wstring quoted(std::wstring word)
{
    if (word.find(L'"') != std::wstring::npos)
        throw Failure("A quote can stand in no word of a service's command line.", "Leave it out.", WRONG_CALL);
    if (!word.empty() && word.back() == L'\\')
        word += L'\\';
    return L" \"" + word + L'"';
}

std::wstring own_path()
{
    std::wstring path(32'768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

class Service final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("ACTION", m_action, "install, remove or status")->required();
        m_options.declare(options);
    }

    ExitCode run(Tool& tool) override
    {
        if (m_action == "install" || m_action == "run")
            static_cast<void>(open_site(tool)); // says what is missing
        if (m_action == "remove")
            return remove(tool);
        if (m_action == "status")
            return show(tool);
        throw Failure(
            '"' + m_action + "\" is nothing that can be done with the service.",
            "LevelSync service install, remove or status.", WRONG_CALL);
    }

    ExitCode run_on_site(Tool& tool) override
    {
        if (m_action == "run")
            return run_as_service([&](const std::function<bool(std::int64_t)>& wait)
                                  { return run_agent(tool, m_options, wait); });
        return m_action == "install" ? install(tool) : run(tool);
    }

private:
    ExitCode install(Tool& tool) const
    {
        m_options.check();
        static_cast<void>(open_site(tool));
        require_folder(tool.folder.path);
        if (m_options.takes_back_local)
            throw Failure(
                "A service would take local changes back at each start.",
                "Call LevelSync agent --take-back-local once instead.", WRONG_CALL);
        std::wstring line = quoted(own_path()).substr(1) + L" service run --site" + quoted(wide(tool.site)) +
                            L" --dir" + quoted(tool.folder.path);
        if (!tool.credentials.empty())
            line += L" --credentials" + quoted(wide(tool.credentials));
        if (!m_options.machine.empty())
            line += L" --machine" + quoted(wide(m_options.machine));
        for (const std::string& group : m_options.groups)
            line += L" --group" + quoted(wide(group));
        line += L" --every " + std::to_wstring(m_options.every_s);
        install_service(line);
        if (tool.json)
            tool.print({{"installed", true}, {"command", utf8(line)}});
        else
            tool.console.line("The service LevelSyncAgent is there and runs; it starts with the machine.", Style::GOOD);
        return DONE;
    }

    static ExitCode remove(Tool& tool)
    {
        const bool was_there = remove_service();
        if (tool.json)
            tool.print({{"removed", was_there}});
        else
            tool.console.line(
                was_there ? "The service is stopped and taken away; the machine goes on with what it has."
                          : "There is no service LevelSyncAgent.");
        return was_there ? DONE : NOT_DONE;
    }

    static ExitCode show(Tool& tool)
    {
        const ServiceState state = service_state();
        if (tool.json)
            tool.print(
                {{"exists", state.exists},
                 {"state", state.exists ? Json(state_text(state.state)) : Json()},
                 {"process", state.process},
                 {"exit_code", state.exit_code},
                 {"command", utf8(state.command_line)}});
        else if (!state.exists)
            tool.console.line("There is no service LevelSyncAgent. LevelSync service install --site ... makes it.");
        else
            print(tool.console, state);
        return state.exists && state.state == SERVICE_RUNNING ? DONE : NOT_DONE;
    }

    static void print(Console& console, const ServiceState& state)
    {
        const bool is_running = state.state == SERVICE_RUNNING;
        std::string text = "LevelSyncAgent is " + state_text(state.state);
        if (state.process != 0)
            text += ", process " + std::to_string(state.process);
        if (!is_running && state.exit_code != 0)
            text += "; it ended with " + std::to_string(state.exit_code);
        console.line(text + '.', is_running ? Style::GOOD : Style::BAD);
        console.line("  " + shown(utf8(state.command_line)), Style::FAINT);
    }

    std::string m_action;
    AgentOptions m_options;
};
} // namespace

extern const CommandEntry command_service{
    "service", "The agent as a Windows service: install, remove, status",
    "LevelSync service install --site etcd:http://store:2379/lumlog --dir C:\\lumlog", &make_command<Service>};
} // namespace levelsync
