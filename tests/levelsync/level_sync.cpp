#include "level_sync.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

#include "Kor_LogFile.h"
#include "log_lines.h"

namespace
{
constexpr unsigned STEP_LIMIT_MS = 20000;
constexpr unsigned CALL_LIMIT_MS = 60000;
constexpr DWORD BOARD_SIZE = 1 << 16;
constexpr std::size_t REPLY_AT = BOARD_SIZE / 2;

HANDLE board_mapping(const std::string& channel)
{
    return ::CreateFileMappingA(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, BOARD_SIZE, (channel + "-board").c_str());
}

ChildOptions host_options(
    const std::string& folder, const std::string& name, const std::string& channel,
    std::vector<std::pair<std::string, std::string>> environment)
{
    ChildOptions options;
    options.arguments = {channel, name};
    options.environment = std::move(environment);
    options.environment.emplace_back("KORAL_LOG_DEVELOP", "");
    options.environment.emplace_back("PRISMATE_LOG_DIR", folder);
    return options;
}

void put(char* board, const std::string& text)
{
    const std::size_t size = std::min(text.size(), REPLY_AT - 1);
    std::memcpy(board, text.data(), size);
    board[size] = '\0';
}
} // namespace

// The test's side -----------------------------------------------------------------------------------------
std::ostream& operator<<(std::ostream& to, const Ran& ran)
{
    return to << (ran.finished ? "exit code " + std::to_string(ran.exit_code) : "still running") << "\n--- output\n"
              << ran.out << "--- errors\n"
              << ran.err << "---";
}

namespace
{
const nlohmann::json* find(const nlohmann::json& report, const std::string& pointer)
{
    const nlohmann::json::json_pointer place(pointer);
    return report.is_discarded() || !report.contains(place) ? nullptr : &report.at(place);
}
} // namespace

std::string Ran::at(const std::string& pointer) const
{
    const nlohmann::json report = nlohmann::json::parse(out, nullptr, false);
    const nlohmann::json* const found = find(report, pointer);
    if (found != nullptr)
        return found->dump();
    return report.is_discarded() ? "(no JSON)" : "(none)";
}

int Ran::size(const std::string& pointer) const
{
    const nlohmann::json report = nlohmann::json::parse(out, nullptr, false);
    const nlohmann::json* const found = find(report, pointer);
    return found == nullptr || !found->is_structured() ? -1 : static_cast<int>(found->size());
}

Host::Host(
    const std::string& folder, const std::string& name, std::vector<std::pair<std::string, std::string>> environment)
    : m_name(name), m_channel(unique_name("level-sync-host")), m_request(m_channel + "-request"),
      m_done(m_channel + "-done"), m_mapping(board_mapping(m_channel)),
      m_board(static_cast<char*>(::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0))),
      m_child("level_sync_host", host_options(folder, name, m_channel, std::move(environment)))
{
    m_child.ensure_begun();
    ask("ready");
}

Host::~Host()
{
    ::UnmapViewOfFile(m_board);
    ::CloseHandle(m_mapping);
}

std::string Host::ask(const std::string& request)
{
    put(m_board, request);
    m_done.reset();
    m_request.set();
    for (unsigned waited = 0; waited < STEP_LIMIT_MS; waited += 100)
    {
        if (m_done.wait(100))
            return m_board + REPLY_AT;
        if (m_child.wait(0).finished)
            break;
    }
    return std::to_string(LOST);
}

int Host::level(int package) { return std::stoi(ask("level " + std::to_string(package))); }

std::vector<int> Host::levels()
{
    std::istringstream reply(ask("levels"));
    std::vector<int> levels;
    for (int level = 0; reply >> level;)
        levels.push_back(level);
    return levels;
}

int Host::output() { return std::stoi(ask("output")); }
int Host::size_limit() { return std::stoi(ask("limit")); }

void Host::serve(const std::string& client, long session) { ask("serve " + std::to_string(session) + ' ' + client); }

bool Host::write(int package, int level, const std::string& text)
{
    return ask("write " + std::to_string(package) + ' ' + std::to_string(level) + ' ' + text) == "1";
}

void Host::stop()
{
    put(m_board, "stop");
    m_request.set();
    m_child.wait(STEP_LIMIT_MS);
}

const std::string Site::LOGGER = "# Where messages go.\n"
                                 "2\n"
                                 "file_size_limit_in_mb=10\n"
                                 "# Package, number, level, [rules], comment.\n"
                                 "Reader       310       5                    // reads the text\n"
                                 "Replay       320       6                    // replays its lines\n"
                                 "Client       330       5  [(6;;archive)]    // serves the client\n"
                                 "Control      340       4                    // is told what to do\n";

Site::Site(const std::string& logger) { configure(logger); }

std::vector<std::string> Site::files() const
{
    std::vector<std::string> names;
    WIN32_FIND_DATAA found{};
    const HANDLE search = ::FindFirstFileA(path("*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            names.emplace_back(found.cFileName);
    while (::FindNextFileA(search, &found));
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

ChildOptions Site::options(const std::vector<std::string>& words) const
{
    ChildOptions options;
    options.program = level_sync_program();
    options.arguments = words;
    options.environment = {{"KORAL_LOG_DEVELOP", ""}, {"PRISMATE_LOG_DIR", path()}};
    options.timeout_ms = CALL_LIMIT_MS;
    return options;
}

Ran Site::run(const std::vector<std::string>& words) const
{
    return ran(Child("LevelSync", options(words)), CALL_LIMIT_MS);
}

Ran Site::run(const std::string& line) const { return run(words_of(line)); }

Ran Site::run_with(const std::string& fault, const std::string& line) const
{
    ChildOptions with = options(words_of(line));
    with.program = level_sync_with_faults();
    with.environment.emplace_back("LEVELSYNC_FAULT", fault);
    return ran(Child("LevelSync", with), CALL_LIMIT_MS);
}

std::unique_ptr<Child>
Site::start(const std::string& line, std::vector<std::pair<std::string, std::string>> environment) const
{
    ChildOptions with = options(words_of(line));
    for (auto& variable : environment)
        with.environment.push_back(std::move(variable));
    return std::make_unique<Child>("LevelSync", with);
}

namespace
{
std::string beside_this_program(const std::string& name)
{
    char path[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string program = path;
    program.resize(program.find_last_of('\\') + 1);
    return program + name;
}
} // namespace

std::string level_sync_program() { return beside_this_program("LevelSync.exe"); }
std::string level_sync_with_faults() { return beside_this_program("levelsync_fault.exe"); }

std::string without_columns(const std::string& text)
{
    std::string result;
    for (const char c : text)
        if (c != ' ' || result.empty() || result.back() != ' ')
            result += c;
    return result;
}

Ran ran(const Child& child, unsigned timeout_ms)
{
    const ChildResult result = child.wait(timeout_ms);
    return {result.finished, static_cast<int>(result.exit_code), text_of(result.out), text_of(result.err)};
}

std::vector<std::string> words_of(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// The host's side -----------------------------------------------------------------------------------------
namespace
{
std::string all_levels()
{
    std::string text;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        text += std::to_string(static_cast<int>(KorGLog.GetLogLevel(package * PACKAGE_RANGE))) + ' ';
    return text;
}

std::string rest_of(std::istringstream& words)
{
    std::string rest;
    std::getline(words >> std::ws, rest);
    return rest;
}

std::string answer(const std::string& request)
{
    std::istringstream words(request);
    std::string verb;
    words >> verb;
    if (verb == "level")
    {
        int package = 0;
        words >> package;
        return std::to_string(static_cast<int>(KorGLog.GetLogLevel(package * PACKAGE_RANGE)));
    }
    if (verb == "levels")
        return all_levels();
    if (verb == "output")
        return std::to_string(static_cast<int>(KorGLog.GetConf()->GetOutput()));
    if (verb == "limit")
        return std::to_string(KorGLog.GetConf()->GetSizeLimitInMb());
    if (verb == "serve")
    {
        long session = 0;
        words >> session;
        const std::string client = rest_of(words);
        KorGLog.SetIPAndSID(client.empty() ? nullptr : client.c_str(), session);
        return "0";
    }
    if (verb == "write")
    {
        int package = 0;
        int level = 0;
        words >> package >> level;
        const std::string text = rest_of(words);
        return std::to_string(KorGLog.LogAt("host.cpp", nullptr, 0, level, package, "%s", text.c_str()));
    }
    return "0";
}

KOR_CHILD(level_sync_host)
{
    const std::string channel = args.at(0);
    const NamedEvent request(channel + "-request");
    const NamedEvent done(channel + "-done");
    const HANDLE mapping = board_mapping(channel);
    auto* const board = static_cast<char*>(::MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    const std::string& name = args.at(1);
    KorGLog.Open((name + ".log").c_str(), name.c_str());
    for (;;)
    {
        if (!request.wait(7'200'000)) // longer than any soak
            return 1;
        request.reset();
        const std::string asked = board;
        if (asked == "stop")
            return 0;
        put(board + REPLY_AT, answer(asked));
        done.set();
    }
}
} // namespace
