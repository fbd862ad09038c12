// output: where messages go.

#include <map>

#include "change.h"
#include "command.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
int read_output(const std::string& word)
{
    static const std::map<std::string, int> kinds{{"0", 0},      {"stderr", 0},  {"1", 1},     {"eventlog", 1},
                                                  {"events", 1}, {"2", 2},       {"files", 2}, {"file", 2},
                                                  {"3", 3},      {"debugger", 3}};
    const auto found = kinds.find(lower_case(word));
    if (found == kinds.end())
        throw Failure(
            '"' + word + "\" is no output.",
            "The outputs are: files (each process writes its own), eventlog, stderr, debugger (files, and a debugger "
            "in processes that start from then on).",
            WRONG_CALL);
    return found->second;
}

class Output final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("KIND", m_kind, "files, eventlog, stderr or debugger")->required();
        add_change_options(options, m_options);
    }

    ExitCode run(Tool& tool) override
    {
        const int output = read_output(m_kind);
        change_and_report(
            tool,
            [output](Editor& editor, const History&)
            { editor.apply(kor::core::set_output(editor.file(), output), kor::core::LineChange::OUTPUT); },
            m_options);
        return DONE;
    }

private:
    std::string m_kind;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_output{
    "output", "Says where messages go, for all processes", "LevelSync output files", &make_command<Output>};
} // namespace levelsync
