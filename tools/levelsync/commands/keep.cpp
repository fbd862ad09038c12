// keep: the background process of set --detach. Nobody types this.

#include "command.h"
#include "override.h"

namespace levelsync
{
namespace
{
class Keep final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("N", m_id)->required();
        options.add_option("--ready", m_ready)->required();
    }

    ExitCode run(Tool& tool) override
    {
        keep_silently(tool, m_id, m_ready);
        return DONE;
    }

private:
    long long m_id = 0;
    std::string m_ready;
};
} // namespace

extern const CommandEntry command_keep{"keep", nullptr, "", &make_command<Keep>};
} // namespace levelsync
