// watch: each change of what runs, as it comes.

#include "Kor_LogFile.h"

#include "command.h"
#include "conf.h"
#include "failure.h"
#include "stop.h"
#include "times.h"

namespace levelsync
{
namespace
{
constexpr std::int64_t LOOK_EVERY_MS = 200;

class Watch final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("--for", m_for, "End after so long: 10m")->type_name("TIME");
    }

    ExitCode run(Tool& tool) override
    {
        const Time end = m_for.empty() ? 0 : now() + duration();
        const StopSignal stop;
        Running known = read_running();
        require_readable(known);
        say(tool, known.conf ? "Watching what the processes share; Ctrl-C ends it."
                             : "No process shares a configuration yet; Ctrl-C ends this.");
        while ((end == 0 || now() < end) && !stop.wait(LOOK_EVERY_MS))
        {
            const unsigned long long stamp = Kor_LogFile::GetSharedChangeCount();
            if (stamp == (known.conf ? known.conf->GetChangeCount() : 0))
                continue;
            Running next = read_running();
            tell(tool, known, next);
            known = std::move(next);
        }
        return DONE;
    }

private:
    std::int64_t duration() const
    {
        const auto length = read_duration(m_for);
        if (!length)
            throw Failure('"' + m_for + "\" is no such time.", "Say it as in --for 10m, 90s or 2h.", WRONG_CALL);
        return *length;
    }

    static void say(const Tool& tool, const std::string& text)
    {
        if (!tool.json)
            tool.console.line(text);
        tool.console.flush();
    }

    /// One line, or one object, for each change.
    static void tell(const Tool& tool, const Running& known, const Running& next)
    {
        std::vector<std::string> texts;
        std::string what = "changed";
        if (!next.conf)
            what = "ended: the last process that shared it has gone";
        else if (!known.conf)
            what = "began: a process shares its configuration";
        else
            texts = texts_of(differences(*known.conf, *next.conf));
        if (known.conf && next.conf && texts.empty())
            what = "published again, with nothing changed";
        if (tool.json)
        {
            tool.console.line(Json{{"time", utc_text(now())}, {"what", what}, {"effects", texts}}.dump());
        }
        else
        {
            const std::string time = local_text(now()) + "  ";
            if (texts.empty())
                tool.console.line(time + what);
            for (const std::string& text : texts)
                tool.console.line(time + text);
        }
        tool.console.flush();
    }

    std::string m_for;
};
} // namespace

extern const CommandEntry command_watch{
    "watch", "Follows what runs, and prints each change as it comes", "LevelSync watch", &make_command<Watch>};
} // namespace levelsync
