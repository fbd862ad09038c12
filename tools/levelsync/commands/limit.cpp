// limit: how large the processes' files may grow.

#include "change.h"
#include "command.h"

namespace levelsync
{
namespace
{
class Limit final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("MB", m_megabytes, "Megabytes of each file, 0 for no limit")->required();
        add_change_options(options, m_options);
    }

    ExitCode run(Tool& tool) override
    {
        change_and_report(
            tool,
            [this](Editor& editor, const History&)
            { editor.apply(kor::core::set_size_limit(editor.file(), m_megabytes), kor::core::LineChange::SIZE_LIMIT); },
            m_options);
        return DONE;
    }

private:
    std::uint32_t m_megabytes = 0;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_limit{
    "limit", "Says how large the processes' files may grow", "LevelSync limit 50", &make_command<Limit>};
} // namespace levelsync
