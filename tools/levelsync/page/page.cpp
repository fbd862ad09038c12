// page: what LevelSync does, for this machine or a site, on one page in a browser of this machine.

#include <windows.h>

#include <algorithm>

#include "api.h"
#include "command.h"
#include "failure.h"
#include "machine.h"
#include "override.h"
#include "server.h"
#include "site_source.h"
#include "stop.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::int64_t LOOK_EVERY_MS = 1'000;
constexpr char DEFAULT_LENGTH[] = "8h";

/// Whatever opens addresses for who is logged on. False where there is nothing.
bool open_in_browser(const std::string& address)
{
    // Loaded when needed: no other command has a window.
    const HMODULE shell = ::LoadLibraryW(L"shell32.dll");
    using Execute = INT_PTR(WINAPI*)(HWND, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, INT);
    const auto execute =
        shell == nullptr ? nullptr
                         : reinterpret_cast<Execute>(reinterpret_cast<void*>(::GetProcAddress(shell, "ShellExecuteW")));
    constexpr INT_PTR LAST_ERROR = 32; // above it is a success
    return execute != nullptr &&
           execute(nullptr, L"open", wide(address).c_str(), nullptr, nullptr, SW_SHOWNORMAL) > LAST_ERROR;
}

class Page final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("--port", m_port, "On that port; one that is free where it is missing")->type_name("NUMBER");
        options.add_flag("--no-browser", m_has_no_browser, "Only say the address");
        options.add_option("--for", m_for, "End after so long: 30m, 8h")->type_name("TIME")->capture_default_str();
    }

    ExitCode run(Tool& tool) override
    {
        return serve<MachineSource>(
            tool, "Ctrl-C, or closing this window, ends it and takes back what was raised on it.");
    }

    ExitCode run_on_site(Tool& tool) override
    {
        return serve<SiteSource>(
            tool, "Ctrl-C, or closing this window, ends it. What was raised on it stays until its end.");
    }

private:
    static constexpr std::uint32_t LAST_PORT = 65'535;

    template <class Source>
    ExitCode serve(Tool& tool, const char* ending) const
    {
        const auto length = read_duration(m_for);
        if (!length)
            throw Failure('"' + m_for + "\" is no such time.", "Say it as in --for 30m or 8h.", WRONG_CALL);
        if (m_port > LAST_PORT)
            throw Failure("There is no port " + std::to_string(m_port) + ".", "Ports are 1 to 65535.", WRONG_CALL);
        const Time until = now() + *length;

        const StopSignal stop; // from here on nothing ends the process before what was raised is taken back
        Source source(tool);
        PageApi api(source);
        const PageServer server(api, static_cast<int>(m_port));
        say_beginning(tool, server.address(), until, ending);
        if (!m_has_no_browser && !open_in_browser(server.address()))
            tool.console.error("No browser could be opened: open the address in one.", Style::CAREFUL);
        const std::string why = wait(tool, api, stop, until);
        api.end(why);
        return DONE;
    }

    static void say_beginning(Tool& tool, const std::string& address, Time until, const char* ending)
    {
        if (tool.json)
        {
            tool.console.line(Json{{"address", address}, {"until", utc_text(until)}}.dump());
        }
        else
        {
            tool.console.line(address, Style::STRONG);
            tool.console.line(
                "The page is there " + until_text(until) +
                ". Whoever has this address can use it, on this machine alone.");
            tool.console.line(ending);
        }
        tool.console.flush();
    }

    /// Why it is over.
    static std::string wait(Tool& tool, PageApi& api, const StopSignal& stop, Time until)
    {
        for (;;)
        {
            const std::int64_t left = until - now();
            if (left <= 0)
                return "the time of LevelSync page is over";
            say_time(tool, api, left);
            if (stop.wait(std::min(left, LOOK_EVERY_MS)))
                return "LevelSync was told to stop";
            look_after(tool, api);
        }
    }

    static void say_time(Tool& tool, PageApi& api, std::int64_t left)
    {
        const auto turn = api.take_turn();
        tool.console.progress(duration_text(left) + " left");
    }

    /// Whatever goes wrong, the page stays, and what was raised on it is looked after.
    static void look_after(Tool& tool, PageApi& api)
    {
        try
        {
            api.tick();
        }
        catch (const std::exception& error)
        {
            const auto turn = api.take_turn();
            tool.console.error(error.what(), Style::BAD);
        }
    }

    std::uint32_t m_port = 0;
    bool m_has_no_browser = false;
    std::string m_for = DEFAULT_LENGTH;
};
} // namespace

extern const CommandEntry command_page{
    "page", "All of this on a page in the browser, for this machine or a site",
    "LevelSync page\n  LevelSync --site etcd:http://store:2379/lumlog page", &make_command<Page>};
} // namespace levelsync
