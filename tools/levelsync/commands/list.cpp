#include "command.h"

namespace levelsync
{
namespace
{
class List final : public Command
{
public:
    void declare(CLI::App& app) override
    {
        app.add_option("WORDS", m_words, "Numbers, names, patterns, or words of the comments");
        app.add_flag("--all", m_all, "Also packages that nobody has named");
    }
    ExitCode run(Tool& tool) override
    {
        tool.console.line("list");
        return DONE;
    }

private:
    std::vector<std::string> m_words;
    bool m_all = false;
};
} // namespace

extern const CommandEntry command_list{
    "list", "Packages by number, name or comment", "LevelSync list replay", &make_command<List>};
} // namespace levelsync
