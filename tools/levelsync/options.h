// options.h - the words that a command takes.

#ifndef LEVELSYNC_OPTIONS_H
#define LEVELSYNC_OPTIONS_H

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace levelsync
{
/// One of them, as its command declares it; each function returns the object itself, for the next.
class Option
{
public:
    explicit Option(CLI::Option& option) noexcept : m_option(option) {}

    Option* required();
    Option* type_name(const std::string& name); ///< what --help calls the value
    Option* take_all();                         ///< may be given as often as needed, with one value each
    Option* positive();                         ///< refuses numbers below 1
    Option* capture_default_str();              ///< --help shows the value that the variable has now

private:
    CLI::Option& m_option;
};

/// The parser's own headers are seen by two sources alone: with them each takes three times as long to compile.
class Options
{
public:
    explicit Options(CLI::App& app) noexcept : m_app(app) {}
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    /// names: as in "-n,--last"; without dashes, the value stands by itself. value gets what is given, and has to
    /// live until the words are parsed. For texts, signed and unsigned numbers of 32 and 64 bits, vectors of texts and
    /// of std::uint32_t, and std::optional of either.
    template <class Value>
    Option* add_option(const std::string& names, Value& value, const std::string& what = std::string());

    /// "!--name" makes value false.
    Option* add_flag(const std::string& names, bool& value, const std::string& what = std::string());

private:
    Option* add(CLI::Option& option);

    CLI::App& m_app;
    std::deque<Option> m_options;
};

/// Gives declared options their values of words, as they could be typed behind a command's name. Throws Failure for words
/// that they do not take.
void take_words(const std::function<void(Options&)>& declare, std::vector<std::string> words);
} // namespace levelsync

#endif // LEVELSYNC_OPTIONS_H
