#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "failure.h"

namespace levelsync
{
Option* Option::required()
{
    m_option.required();
    return this;
}

Option* Option::type_name(const std::string& name)
{
    m_option.type_name(name);
    return this;
}

Option* Option::take_all()
{
    m_option.allow_extra_args(false)->take_all();
    return this;
}

Option* Option::positive()
{
    m_option.check(CLI::PositiveNumber);
    return this;
}

Option* Option::capture_default_str()
{
    m_option.capture_default_str();
    return this;
}

template <class Value>
Option* Options::add_option(const std::string& names, Value& value, const std::string& what)
{
    return add(*m_app.add_option(names, value, what));
}

template Option* Options::add_option(const std::string&, std::string&, const std::string&);
template Option* Options::add_option(const std::string&, std::optional<std::string>&, const std::string&);
template Option* Options::add_option(const std::string&, std::vector<std::string>&, const std::string&);
template Option* Options::add_option(const std::string&, std::int32_t&, const std::string&);
template Option* Options::add_option(const std::string&, std::uint32_t&, const std::string&);
template Option* Options::add_option(const std::string&, std::int64_t&, const std::string&);
template Option* Options::add_option(const std::string&, std::uint64_t&, const std::string&);
template Option* Options::add_option(const std::string&, std::optional<std::uint32_t>&, const std::string&);
template Option* Options::add_option(const std::string&, std::vector<std::uint32_t>&, const std::string&);

Option* Options::add_flag(const std::string& names, bool& value, const std::string& what)
{
    return add(*m_app.add_flag(names, value, what));
}

Option* Options::add(CLI::Option& option) { return &m_options.emplace_back(option); }

void take_words(const std::function<void(Options&)>& declare, std::vector<std::string> words)
{
    CLI::App app;
    Options options(app);
    declare(options);
    try
    {
        std::reverse(words.begin(), words.end());
        app.parse(std::move(words));
    }
    catch (const CLI::ParseError& error)
    {
        throw Failure(error.what(), "LevelSync --help shows how its commands are called.", WRONG_CALL);
    }
}
} // namespace levelsync
