#include "api.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string_view>

#include "conf.h"
#include "core/site.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t LONGEST_FIELD = 300; // characters of a name, an address or a reason
constexpr std::size_t MOST_DIGITS = 18;

/// The fields of an address or a body, each as a text.
class Fields
{
public:
    explicit Fields(const std::map<std::string, std::string>& fields) : m_fields(fields) {}

    explicit Fields(const std::string& body)
    {
        const Json json = Json::parse(body, nullptr, false);
        if (!json.is_object())
            throw Failure("The request is no JSON object.", "Load the page again.", WRONG_CALL);
        for (const auto& [name, value] : json.items())
            m_fields[name] = value.is_string() ? value.get<std::string>() : value.dump();
    }

    std::string text(const std::string& name) const
    {
        const auto found = m_fields.find(name);
        if (found == m_fields.end())
            return {};
        if (found->second.size() > LONGEST_FIELD)
            throw Failure(
                "The " + name + " has more than " + std::to_string(LONGEST_FIELD) + " bytes.", "Give a shorter one.",
                WRONG_CALL);
        return found->second;
    }

    std::uint64_t number(const std::string& name, std::uint64_t least, std::uint64_t most) const
    {
        const std::string digits = text(name);
        const bool is_number = !digits.empty() && digits.size() <= MOST_DIGITS &&
                               std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
        const std::uint64_t value = is_number ? std::stoull(digits) : 0;
        if (!is_number || value < least || value > most)
            throw Failure(
                '"' + digits + "\" is no number for " + name + ".",
                "It is one from " + std::to_string(least) + " to " + std::to_string(most) + '.', WRONG_CALL);
        return value;
    }

    int package() const { return static_cast<int>(number("package", 0, PACKAGE_COUNT - 1)); }
    int level() const { return static_cast<int>(number("level", 1, 7)); }

    PageSubject subject() const
    {
        PageSubject whom;
        whom.client = text("client");
        whom.application = text("application");
        if (!text("session").empty())
            whom.session = static_cast<std::uint32_t>(number("session", 0, std::numeric_limits<std::uint32_t>::max()));
        whom.groups = groups();
        return whom;
    }

private:
    /// "servers,night"; empty: none.
    std::vector<std::string> groups() const
    {
        std::vector<std::string> groups;
        std::istringstream names(text("groups"));
        for (std::string name; std::getline(names, name, ',');)
        {
            if (!kor::core::is_site_name(name))
                throw Failure('"' + shown(name) + "\" is no name of a group.", "Choose one of the page's.", WRONG_CALL);
            groups.push_back(name);
        }
        return groups;
    }

    std::map<std::string, std::string> m_fields;
};

Json report_of(const std::string& what, const std::string& next) { return {{"error", what}, {"next", next}}; }
} // namespace

PageAnswer PageApi::answer(const PageRequest& request) noexcept
{
    PageTurn turn(m_turn);
    try
    {
        return {200, request.changes_something ? change(request, turn) : ask(request)};
    }
    catch (const Failure& failure)
    {
        return {failure.code() == WRONG_CALL ? 400 : 409, report_of(failure.what(), failure.next())};
    }
    catch (const std::exception& error)
    {
        return {500, report_of(std::string("LevelSync ran into ") + error.what() + ".", "Please tell its makers.")};
    }
}

void PageApi::tick()
{
    const std::lock_guard<std::mutex> turn(m_turn);
    m_source.tick();
}

void PageApi::end(const std::string& why)
{
    const std::lock_guard<std::mutex> turn(m_turn);
    m_source.end(why);
}

Json PageApi::ask(const PageRequest& request)
{
    const Fields fields(request.fields);
    if (request.name == "stamp")
        return {{"stamp", m_source.stamp()}};
    if (request.name == "state")
        return m_source.state(fields.subject());
    if (request.name == "explain")
        return m_source.explain(fields.package(), fields.subject());
    if (request.name == "processes")
        return m_source.processes();
    if (request.name == "lines")
        return m_source.lines(
            {fields.package(), fields.level(), fields.text("client"),
             fields.number("after", 0, std::numeric_limits<std::int64_t>::max())});
    throw Failure("There is no \"" + request.name + "\".", "Load the page again.", WRONG_CALL);
}

Json PageApi::change(const PageRequest& request, PageTurn& turn)
{
    const Fields fields(request.body);
    if (request.name == "raise")
        return m_source.raise(
            {fields.package(), fields.level(), fields.subject(), fields.text("for"), fields.text("reason")}, turn);
    if (request.name == "undo")
        return m_source.undo(
            static_cast<long long>(fields.number("change", 1, std::numeric_limits<std::int64_t>::max())), turn);
    throw Failure("There is no \"" + request.name + "\".", "Load the page again.", WRONG_CALL);
}
} // namespace levelsync
