// lumlog-admin: tells Windows where the texts of this machine's logs are, so that the event viewer shows them.

#include <CLI/CLI.hpp>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "categories.h"
#include "console.h"
#include "failure.h"
#include "sources.h"
#include "text.h"
#include "tool.h"

#if defined(__MINGW32__)
extern "C"
{
    int _dowildcard = 0; // what stands for a source is taken as it is
}
#endif

using namespace levelsync;
using namespace lumlog_admin;

namespace
{
constexpr char PURPOSE[] =
    "Registers the programs of this machine with the Windows event log, so that the event viewer "
    "shows\nthe texts of their events. For administrators: it is done once for the machine.";
constexpr char FOOTER[] = "A source is the name that a program opens its log with.\n"
                          "Exit codes: 0 done, 1 not done or not in order, 2 wrong call.";
constexpr wchar_t EVENTS_FILE[] = L"LUMlogEvents.dll";
constexpr wchar_t OWN_SOURCE[] = L"LUMlog";
constexpr DWORD CODE_WITH_HEADLINE = 65535;
constexpr std::size_t LONGEST_NAME = 255; // of a key

struct Options
{
    std::vector<std::string> sources;
    std::string folder;
    std::vector<std::string> messages;
    bool json = false;
    bool all = false;
    bool replace = false;
};

std::wstring own_folder()
{
    std::wstring path(32'768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring events_file() { return own_folder() + L'\\' + EVENTS_FILE; }

std::string text_of(const std::wstring& text) { return shown(utf8(text)); }

/// True for a source that shows the texts of the file beside this program.
bool is_own(const Source& source)
{
    const std::vector<std::wstring> files = files_of(source.messages);
    return !files.empty() && same_name(files.front(), events_file());
}

/// True for a source that shows the texts of a file of that name, of whatever installation.
bool is_of_library(const Source& source)
{
    const std::vector<std::wstring> files = files_of(source.messages);
    return !files.empty() && same_name(file_name_of(files.front()), EVENTS_FILE);
}

std::vector<Source> own_sources()
{
    std::vector<Source> sources = sources_with(EVENTS_FILE);
    sources.erase(
        std::remove_if(sources.begin(), sources.end(), [](const Source& source) { return !is_own(source); }),
        sources.end());
    return sources;
}

std::wstring without_blanks_around(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos
               ? std::wstring()
               : wide(std::string_view(text).substr(begin, text.find_last_not_of(' ') + 1 - begin));
}

// Registering -------------------------------------------------------------------------------------------------
std::wstring absolute(const std::wstring& path)
{
    std::wstring result(32'768, L'\0');
    result.resize(::GetFullPathNameW(path.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    return result;
}

void require_name(const std::wstring& name)
{
    if (name.empty() || name.size() > LONGEST_NAME || name.find(L'\\') != std::wstring::npos)
        throw Failure(
            "\"" + text_of(name) + "\" cannot be a source.",
            "A source is the name that a program opens its log with: up to 255 characters, without a backslash.",
            WRONG_CALL);
}

/// What is to be registered under a name: what is there already, if it is ours, with what this call says.
Source wanted_source(const std::wstring& name, const Options& options)
{
    require_name(name);
    const std::optional<Source> found = find_source(name);
    if (!found)
        return {LOG, name, {}, {}, 0, 0, {}};
    if (is_of_library(*found))
        return *found;
    if (!options.replace || !same_name(found->log, LOG))
        throw Failure(
            "The source " + text_of(found->name) + " of the log " + text_of(found->log) +
                " belongs to another product: its texts are in " + text_of(found->messages) + ".",
            same_name(found->log, LOG)
                ? "With --replace it is taken over. Nothing was changed."
                : "Nothing was changed. Programs reach a source by its name alone: choose another.");
    return {LOG, found->name, {}, {}, 0, 0, {}};
}

std::vector<std::wstring> message_files(const Options& options)
{
    std::vector<std::wstring> files;
    for (const std::string& named : options.messages)
    {
        const std::wstring path = absolute(wide(named));
        if (!is_there(path) || path.find(L';') != std::wstring::npos)
            throw Failure("There is no file " + text_of(path) + ".", "Nothing was changed.");
        files.push_back(path);
    }
    return files;
}

/// The file beside this program first, then those that are given, or else that are registered already.
std::wstring message_list(const Source& source, const std::vector<std::wstring>& given)
{
    std::wstring list = events_file();
    std::vector<std::wstring> others = given;
    if (given.empty() && !source.messages.empty())
    {
        others = files_of(source.messages);
        others.erase(others.begin()); // the same, of this or of another installation
    }
    for (const std::wstring& file : others)
        list += L';' + file;
    return list;
}

/// Where the level file is: as the call says, or the environment; else as it was for a source of this machine.
std::wstring folder_for_all(const std::vector<Source>& sources, const std::wstring& named)
{
    const Folder folder = find_folder(utf8(named));
    if (folder.is_given)
        return folder.path;
    const auto known =
        std::find_if(sources.begin(), sources.end(), [](const Source& source) { return !source.folder.empty(); });
    return known == sources.end() ? std::wstring() : known->folder;
}

void complete(
    Source& source, const std::wstring& folder, const std::wstring& categories,
    const std::vector<std::wstring>& messages)
{
    source.messages = message_list(source, messages);
    source.types = TYPES;
    source.category_count = CATEGORY_COUNT;
    source.folder = folder;
    source.categories = categories;
}

void tell_of_left_files(Console& console, int left)
{
    if (left > 0)
        console.line(
            counted(static_cast<std::size_t>(left), "file", "files") +
            " that Windows has open will go when the machine starts next.");
}

int register_sources(const Options& options, Console& console)
{
    if (!is_there(events_file()))
        throw Failure(
            text_of(events_file()) + " is not there.", "It belongs beside lumlog-admin.exe. Nothing was changed.");
    std::vector<Source> sources = own_sources(); // those that are there are made anew
    for (const std::string& given : options.sources)
    {
        Source source = wanted_source(without_blanks_around(given), options);
        const auto is_same = [&](const Source& other) { return same_name(other.name, source.name); };
        if (std::none_of(sources.begin(), sources.end(), is_same))
            sources.push_back(std::move(source));
    }
    if (sources.empty())
        sources.push_back(wanted_source(OWN_SOURCE, options));
    const std::vector<std::wstring> messages = message_files(options);
    const std::wstring folder = folder_for_all(sources, without_blanks_around(options.folder));
    const PackageNames names = folder.empty() ? PackageNames() : read_names(folder);
    const std::wstring categories = make_category_file(events_file(), names);
    for (Source& source : sources)
        complete(source, folder, categories, messages);
    for (const Source& source : sources)
    {
        write_source(source);
        console.line(
            text_of(source.name) + " is registered; " +
            (source.folder.empty() ? "its categories are the packages' numbers"
                                   : "its categories are named as in " + text_of(source.folder) + "\\logger") +
            ".");
    }
    tell_of_left_files(console, remove_unused_category_files(own_folder(), sources_with(EVENTS_FILE)));
    return DONE;
}

int unregister_sources(const Options& options, Console& console)
{
    if (options.all == !options.sources.empty())
        throw Failure("Which sources?", "Name them, or take --all for those of this installation.", WRONG_CALL);
    std::vector<Source> sources = options.all ? own_sources() : std::vector<Source>();
    for (const std::string& given : options.sources)
    {
        const std::wstring name = without_blanks_around(given);
        const std::optional<Source> found = find_source(name);
        if (!found)
            console.line(text_of(name) + " is not registered.");
        else if (!is_of_library(*found))
            throw Failure(
                "The source " + text_of(found->name) + " belongs to another product: its texts are in " +
                    text_of(found->messages) + ".",
                "Nothing was changed.");
        else
            sources.push_back(*found);
    }
    for (const Source& source : sources)
    {
        remove_source(source);
        console.line(text_of(source.name) + " is not registered any more.");
    }
    tell_of_left_files(console, remove_unused_category_files(own_folder(), sources_with(EVENTS_FILE)));
    return DONE;
}

// Looking -----------------------------------------------------------------------------------------------------
/// What is wrong with a source; empty: nothing.
std::string fault_of(const Source& source)
{
    const std::vector<std::wstring> files = files_of(source.messages);
    for (const std::wstring& file : files)
        if (!is_there(file))
            return "the file with its texts is not there: " + text_of(file);
    if (text_in(files.front(), CODE_WITH_HEADLINE).empty())
        return "there are no texts in " + text_of(files.front());
    if (text_in(source.categories, 1).empty())
        return "the file with its categories is not there: " + text_of(source.categories);
    if (source.category_count != CATEGORY_COUNT || source.types != TYPES)
        return "its number of categories or its types of events were changed";
    if (!same_name(source.log, LOG))
        return "it is a source of the log " + text_of(source.log);
    return {};
}

Json json_of(const Source& source, const std::string& fault)
{
    Json categories = Json::object();
    for (DWORD number = 1; number <= CATEGORY_COUNT; ++number)
    {
        const std::wstring name = text_in(source.categories, number);
        if (!name.empty() && name != L"package " + std::to_wstring(number))
            categories[std::to_string(number)] = text_of(name);
    }
    return {
        {"name", text_of(source.name)},
        {"in_order", fault.empty()},
        {"fault", fault},
        {"messages", text_of(source.messages)},
        {"categories_file", text_of(source.categories)},
        {"folder", text_of(source.folder)},
        {"categories", categories}};
}

/// All there are, or those that are asked for; second: names that are not registered.
std::pair<std::vector<Source>, std::vector<std::string>> asked_for(const Options& options)
{
    std::vector<Source> sources = sources_with(EVENTS_FILE);
    std::vector<std::string> missing;
    if (options.sources.empty())
        return {sources, missing};
    std::vector<Source> chosen;
    for (const std::string& given : options.sources)
    {
        const std::wstring name = without_blanks_around(given);
        const auto found = std::find_if(
            sources.begin(), sources.end(), [&](const Source& source) { return same_name(source.name, name); });
        if (found == sources.end())
            missing.push_back(text_of(name));
        else
            chosen.push_back(*found);
    }
    return {chosen, missing};
}

int show_status(const Options& options, Console& console)
{
    const auto [sources, missing] = asked_for(options);
    bool is_in_order = missing.empty();
    Json report = {{"sources", Json::array()}, {"missing", missing}};
    for (const Source& source : sources)
    {
        const std::string fault = fault_of(source);
        is_in_order = is_in_order && fault.empty();
        report["sources"].push_back(json_of(source, fault));
        if (options.json)
            continue;
        console.line(
            text_of(source.name) + (fault.empty() ? ": in order" : ": " + fault),
            fault.empty() ? Style::GOOD : Style::BAD);
        console.line("    texts       " + text_of(source.messages));
        console.line("    categories  " + text_of(source.categories));
        console.line(
            "    named as    " +
            (source.folder.empty() ? "nothing: their numbers alone" : "in " + text_of(source.folder) + "\\logger"));
    }
    if (options.json)
        console.print(report.dump(2) + '\n');
    for (const std::string& name : missing)
        console.error(name + " is not registered.", Style::BAD);
    if (sources.empty() && options.sources.empty())
        console.error("No source is registered. Next: lumlog-admin register SOURCE...");
    if (!is_in_order)
        console.error(
            "Next: lumlog-admin register, which makes those that are there anew and adds those that are named.");
    return is_in_order ? DONE : NOT_DONE;
}

int write_test_event(const Options& options, Console& console)
{
    const std::wstring name =
        options.sources.empty() ? std::wstring(OWN_SOURCE) : without_blanks_around(options.sources.front());
    require_name(name);
    const HANDLE source = ::RegisterEventSourceW(nullptr, name.c_str());
    if (source == nullptr)
        throw Failure(
            text_of(name) + " cannot be opened: " + system_text(::GetLastError()) + ".", "Nothing was written.");
    LPCWSTR strings[] = {L"lumlog-admin:", L"this is how an event looks."};
    const BOOL is_written =
        ::ReportEventW(source, EVENTLOG_INFORMATION_TYPE, 1, CODE_WITH_HEADLINE, nullptr, 2, 0, strings, nullptr);
    const DWORD error = ::GetLastError();
    ::DeregisterEventSource(source);
    if (is_written == FALSE)
        throw Failure("The event was not written: " + system_text(error) + ".", "");
    console.line("An event of " + text_of(name) + " was written: look in the event viewer, Windows Logs, Application.");
    return DONE;
}

// The call ----------------------------------------------------------------------------------------------------
int run(std::vector<std::string> words, Console& console)
{
    Options options;
    CLI::App app(PURPOSE, "lumlog-admin");
    app.footer(FOOTER);
    app.set_version_flag("--version", std::string("lumlog-admin ") + LUMLOG_VERSION);
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* summary, const char* example)
    {
        CLI::App* const sub = app.add_subcommand(name, summary);
        sub->footer(std::string("Example:\n  lumlog-admin ") + example);
        sub->add_option("source", options.sources, "Names that programs open their logs with");
        return sub;
    };
    CLI::App* const add_sources =
        add("register", "Registers sources, and those anew that are registered already",
            "register viewer archive --dir D:\\logs");
    add_sources->add_option("--dir", options.folder, "Folder of the level file, which names the packages")
        ->type_name("FOLDER");
    add_sources
        ->add_option(
            "--messages", options.messages, "DLL with texts for a suite's own codes; may be given several times")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
    add_sources->add_flag("--replace", options.replace, "Takes over a source that belongs to another product");
    CLI::App* const remove = add("unregister", "Takes sources away", "unregister viewer");
    remove->add_flag("--all", options.all, "All that show the texts of this installation");
    CLI::App* const status = add("status", "Shows what is registered and whether its files are there", "status viewer");
    status->add_flag("--json", options.json, "Report for programs, as JSON");
    CLI::App* const test = add("test", "Writes one event, to look at in the event viewer", "test viewer");
    try
    {
        std::reverse(words.begin(), words.end());
        app.parse(std::move(words));
    }
    catch (const CLI::CallForHelp&)
    {
        const auto chosen = app.get_subcommands();
        console.print(chosen.empty() ? app.help() : chosen.front()->help("lumlog-admin"));
        return DONE;
    }
    catch (const CLI::CallForVersion& version)
    {
        console.line(version.what());
        return DONE;
    }
    catch (const CLI::ParseError& error)
    {
        throw Failure(error.what(), "lumlog-admin --help shows how it is called.", WRONG_CALL);
    }
    if (add_sources->parsed())
        return register_sources(options, console);
    if (remove->parsed())
        return unregister_sources(options, console);
    return test->parsed() ? write_test_event(options, console) : show_status(options, console);
}
} // namespace

int wmain(int count, wchar_t** values)
{
    std::vector<std::string> words;
    for (int i = 1; i < count; ++i)
        words.push_back(utf8(values[i]));
    Console console;
    try
    {
        return run(std::move(words), console);
    }
    catch (const Failure& failure)
    {
        console.error(failure.what(), Style::BAD);
        if (!failure.next().empty())
            console.error(failure.next());
        return failure.code();
    }
    catch (const std::exception& error)
    {
        console.error(std::string("lumlog-admin ran into ") + error.what() + ". Please tell its makers.");
        return NOT_DONE;
    }
}
