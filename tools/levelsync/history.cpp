#include "history.h"

#include <algorithm>

#include "failure.h"
#include "file.h"
#include "owned.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr wchar_t FILE_NAME[] = L"logger.history";

/// A line of the level file. Bytes that are no UTF-8 are kept one by one.
Json json_of_bytes(const std::string& bytes)
{
    if (is_utf8(bytes))
        return bytes;
    std::string characters;
    for (const char byte : bytes)
    {
        const auto value = static_cast<unsigned char>(byte);
        if (value >= 0x80)
            characters += static_cast<char>(0xC0 | (value >> 6));
        characters += static_cast<char>(value >= 0x80 ? 0x80 | (value & 0x3F) : value);
    }
    return Json{{"latin1", characters}};
}

std::string bytes_of(const Json& json)
{
    if (json.is_string())
        return json.get<std::string>();
    const auto characters = json.at("latin1").get<std::string>();
    std::string bytes;
    for (std::size_t i = 0; i < characters.size(); ++i)
    {
        const auto value = static_cast<unsigned char>(characters[i]);
        const bool is_pair = value >= 0xC0 && i + 1 < characters.size();
        bytes += is_pair ? static_cast<char>(((value & 0x03) << 6) | (characters[i + 1] & 0x3F)) : characters[i];
        i += is_pair ? 1 : 0;
    }
    return bytes;
}

Change change_of(const Json& json)
{
    Change change;
    change.id = json.at("id").get<long long>();
    change.time = read_utc(json.at("time").get<std::string>()).value_or(0);
    change.user = json.at("user").get<std::string>();
    change.machine = json.at("machine").get<std::string>();
    change.process = json.at("process").get<unsigned long>();
    change.command = json.at("command").get<std::string>();
    if (json.contains("until"))
        change.until = read_utc(json.at("until").get<std::string>()).value_or(0);
    if (json.contains("takes_back"))
        change.takes_back = json.at("takes_back").get<long long>();
    for (const Json& line : json.at("lines"))
        change.lines.push_back(read_line_change(line));
    change.effects = json.at("effects").get<std::vector<std::string>>();
    change.file_after = json.at("file").get<std::uint64_t>();
    return change;
}
} // namespace

std::string machine_name()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    return ::GetComputerNameW(name, &size) != FALSE ? shown(utf8(name)) : std::string();
}

kor::core::LineChange read_line_change(const Json& json)
{
    kor::core::LineChange line;
    if (json.contains("package"))
        line.what = json.at("package").get<int>();
    else
        line.what =
            json.at("first_line") == "limit" ? kor::core::LineChange::SIZE_LIMIT : kor::core::LineChange::OUTPUT;
    line.line = std::max<std::size_t>(json.at("line").get<std::size_t>(), 1) - 1;
    if (!json.at("before").is_null())
        line.before = bytes_of(json.at("before"));
    if (!json.at("after").is_null())
        line.after = bytes_of(json.at("after"));
    return line;
}

Json json_of(const kor::core::LineChange& line)
{
    Json json;
    if (line.what >= 0)
        json["package"] = line.what;
    else
        json["first_line"] = line.what == kor::core::LineChange::OUTPUT ? "output" : "limit";
    json["line"] = line.line + 1;
    json["before"] = line.before ? json_of_bytes(*line.before) : Json();
    json["after"] = line.after ? json_of_bytes(*line.after) : Json();
    return json;
}

Json json_of(const Change& change)
{
    Json json;
    json["id"] = change.id;
    json["time"] = utc_text(change.time);
    json["user"] = change.user;
    json["machine"] = change.machine;
    json["process"] = change.process;
    json["command"] = change.command;
    if (change.until)
        json["until"] = utc_text(*change.until);
    if (change.takes_back)
        json["takes_back"] = *change.takes_back;
    json["lines"] = Json::array();
    for (const auto& line : change.lines)
        json["lines"].push_back(json_of(line));
    json["effects"] = change.effects;
    json["file"] = change.file_after;
    return json;
}

std::uint64_t fingerprint(std::string_view bytes) noexcept
{
    std::uint64_t hash = 14'695'981'039'346'656'037u; // FNV-1a of 64 bits
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1'099'511'628'211u;
    return hash;
}

History::History(const Folder& folder) : m_path(folder.name(FILE_NAME))
{
    const std::string bytes = read_whole(m_path).value_or(std::string());
    m_ends_in_half = !bytes.empty() && bytes.back() != '\n';
    std::string_view rest = bytes;
    while (!rest.empty())
    {
        const std::size_t end = rest.find('\n');
        read(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
}

void History::read(std::string_view line)
{
    try
    {
        const Json json = Json::parse(line);
        if (json.contains("command"))
        {
            Change change = change_of(json);
            if (m_changes.empty() || change.id > m_changes.back().id || find(change.id) == nullptr)
                m_changes.push_back(std::move(change));
            return;
        }
        const auto id = json.at("id").get<long long>();
        const auto change =
            std::find_if(m_changes.rbegin(), m_changes.rend(), [id](const Change& other) { return other.id == id; });
        if (change == m_changes.rend() || !change->is_open())
            return;
        change->is_done = json.contains("done");
        change->failure = json.value("failed", std::string());
    }
    catch (const Json::exception&) // a half line, or somebody's own
    {
    }
}

const Change* History::find(long long id) const noexcept
{
    const auto found =
        std::find_if(m_changes.begin(), m_changes.end(), [id](const Change& change) { return change.id == id; });
    return found == m_changes.end() ? nullptr : &*found;
}

const Change* History::taken_back_by(const Change& change) const
{
    for (const Change& later : m_changes)
        if (later.takes_back == change.id && later.id > change.id && is_in_force(later))
            return &later;
    return nullptr;
}

bool History::is_in_force(const Change& change) const { return change.is_done && taken_back_by(change) == nullptr; }

std::vector<const Change*> History::overrides() const
{
    std::vector<const Change*> found;
    for (const Change& change : m_changes)
        if (change.until && is_in_force(change))
            found.push_back(&change);
    return found;
}

long long History::begin(Change change)
{
    change.id = 1;
    for (const Change& other : m_changes)
        change.id = std::max(change.id, other.id + 1);
    change.time = now();
    change.user = own_account();
    change.machine = machine_name();
    change.process = ::GetCurrentProcessId();
    append(json_of(change), !change.lines.empty()); // before the level file is touched
    m_changes.push_back(change);
    return change.id;
}

void History::finish(long long id)
{
    // Where this gets lost, the bytes of the level file tell it again.
    append({{"id", id}, {"done", utc_text(now())}}, false);
    for (Change& change : m_changes)
        change.is_done = change.is_done || change.id == id;
}

void History::fail(long long id, const std::string& why)
{
    append({{"id", id}, {"failed", why}}, false);
    for (Change& change : m_changes)
        if (change.id == id)
            change.failure = why;
}

void History::append(const Json& line, bool is_flushed)
{
    const std::string text =
        (m_ends_in_half ? "\n" : "") + line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    const OwnedHandle file(::CreateFileW(
        m_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!is_valid(file) ||
        ::WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == FALSE ||
        (is_flushed && ::FlushFileBuffers(file.get()) == FALSE))
    {
        const DWORD error = ::GetLastError();
        throw Failure(
            error == ERROR_ACCESS_DENIED ? own_account() + " has no right to write " + shown(utf8(m_path)) + "."
                                         : shown(utf8(m_path)) + " cannot be written: " + system_text(error) + ".",
            "Nothing was changed, for nothing is changed that is not noted there.");
    }
    m_ends_in_half = false;
}
} // namespace levelsync
