// diff: the file beside what runs.

#include "change.h"
#include "command.h"
#include "failure.h"

namespace levelsync
{
namespace
{
class Diff final : public Command
{
public:
    void declare(Options&) override {}

    ExitCode run(Tool& tool) override
    {
        static_cast<void>(require_level_file(tool.folder));
        const Running running = read_running();
        require_readable(running);
        const Conf file = read_conf(tool.folder.file);
        std::vector<std::string> texts;
        if (running.conf)
            texts = texts_of(differences(*running.conf, *file));
        if (tool.json)
            tool.print({{"running", running.conf != nullptr}, {"agrees", texts.empty()}, {"differences", texts}});
        else
            print(tool.console, running.conf != nullptr, texts);
        return texts.empty() ? DONE : NOT_DONE;
    }

private:
    static void print(Console& console, bool is_running, const std::vector<std::string>& texts)
    {
        if (!is_running)
            return console.line("No process shares a configuration now; those that start read the file.");
        if (texts.empty())
            return console.line("The file and what runs agree.", Style::GOOD);
        console.line("If the file were published:", Style::STRONG);
        for (const std::string& text : texts)
            console.line("  " + text);
        console.line("LevelSync -u publishes it.");
    }
};
} // namespace

extern const CommandEntry command_diff{
    "diff", "The file beside what runs; exit code 1 where they differ", "LevelSync diff", &make_command<Diff>};
} // namespace levelsync
