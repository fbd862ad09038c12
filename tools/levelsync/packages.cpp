#include "packages.h"

#include <algorithm>
#include <optional>

#include "core/address.h"
#include "core/fixed_text.h"
#include "core/numbers.h"
#include "core/package_names.h"
#include "failure.h"
#include "file.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t MOST_HINTS = 6;

bool is_number(const std::string& word)
{
    return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string with_number(const std::string& name, int package) { return name + " (" + std::to_string(package) + ")"; }
} // namespace

PackageNames::PackageNames(const Folder& folder, const kor::core::LevelFile* file, const Kor_LogConf* running)
{
    add_from_programs(folder.name(kor::core::PACKAGE_NAMES_FILE));
    for (int package = 0; running != nullptr && package < PACKAGE_COUNT; ++package)
    {
        const std::string_view name = kor::core::bounded(running->packageNames[package]);
        if (name.empty())
            continue;
        m_names[package] = shown(name);
        m_programs.erase(package);
    }
    if (file == nullptr)
        return;
    for (const auto& [number, package] : file->packages())
    {
        m_names[number] = shown(package.name.substr(0, Kor_LogConf::PACKAGE_NAME_SIZE - 1));
        m_programs.erase(number);
    }
}

void PackageNames::add_from_programs(const std::wstring& path)
{
    std::optional<std::string> bytes;
    try
    {
        bytes = read_whole(path);
    }
    catch (const Failure&) // the names are a help: without them everything can be done by number
    {
    }
    const kor::core::NamedPackages named(bytes.value_or(std::string()), PACKAGE_COUNT);
    for (const auto& [key, name] : named.all())
    {
        std::string& known = m_names[key.first];
        if (known.empty())
            known = shown(name);
        if (known == shown(name)) // of two that call it different things, the first
            m_programs[key.first].push_back(shown(key.second));
    }
}

std::string PackageNames::programs(int package) const
{
    const auto found = m_programs.find(package);
    return found == m_programs.end() ? std::string() : joined(found->second);
}

const std::string& PackageNames::of(int package) const
{
    static const std::string none;
    const auto found = m_names.find(package);
    return found == m_names.end() ? none : found->second;
}

std::string PackageNames::text(int package) const
{
    const std::string& name = of(package);
    return name.empty() ? "package " + std::to_string(package) : name;
}

std::vector<int> PackageNames::find(const std::string& word) const
{
    if (is_number(word))
    {
        const std::int64_t number = kor::core::number_at_front(word);
        if (number >= PACKAGE_COUNT)
            throw Failure(
                "There is no package " + word + ".", "The numbers are 0 to " + std::to_string(PACKAGE_COUNT - 1) + ".",
                WRONG_CALL);
        return {static_cast<int>(number)};
    }
    std::vector<int> found;
    std::vector<std::string> texts;
    std::vector<std::string> hints;
    const std::string part = '*' + word + '*';
    for (const auto& [number, name] : m_names)
    {
        if (matches(word, name))
        {
            found.push_back(number);
            texts.push_back(with_number(name, number));
        }
        else if (matches(part, name) && hints.size() < MOST_HINTS)
        {
            hints.push_back(with_number(name, number));
        }
    }
    if (found.empty())
        throw Failure(
            "No package is called \"" + word + "\".",
            (kor::core::is_ipv4_text(word) ? "A client is named with --client " + word + ". "
             : hints.empty()               ? std::string()
                                           : "Did you mean " + joined(hints, " or ") + "? ") +
                "LevelSync list shows the packages, with their numbers. A number works for one without a name too: 330 "
                "for "
                "lines with WARNING (330).",
            NOT_DONE);
    if (found.size() > 1 && !is_pattern(word))
        throw Failure(
            "Several packages are called \"" + word + "\": " + joined(texts) + ".",
            "Give the number of the one you mean.", NOT_DONE);
    return found;
}
} // namespace levelsync
