#include "log_query.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "Kor_LogConf.h"
#include "Kor_Package.h"
#include "conf.h"
#include "core/calendar.h"
#include "core/level_check.h"
#include "failure.h"
#include "file.h"
#include "packages.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr char MOMENTS[] = "Give how long ago (15m, 1h, 2d), a time of day (14:05), or a day with or without a time "
                           "(2026-11-21, \"2026-11-21 14:05\").";

/// Numbers with these characters between them, from the largest unit down. False for anything else.
bool take_numbers(std::string_view& text, const char* separators, WORD* values)
{
    for (std::size_t i = 0;; ++i)
    {
        std::size_t digits = 0;
        unsigned value = 0;
        for (; digits < text.size() && digits < 4 && text[digits] >= '0' && text[digits] <= '9'; ++digits)
            value = value * 10 + static_cast<unsigned>(text[digits] - '0');
        if (digits == 0)
            return false;
        values[i] = static_cast<WORD>(value);
        text.remove_prefix(digits);
        if (separators[i] == '\0')
            return true;
        if (text.empty() || text.front() != separators[i])
            return false;
        text.remove_prefix(1);
    }
}

std::optional<Time> utc_of_local(const SYSTEMTIME& local)
{
    SYSTEMTIME utc{};
    FILETIME file_time{};
    if (::TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc) == FALSE ||
        ::SystemTimeToFileTime(&utc, &file_time) == FALSE)
        return std::nullopt;
    return time_of_ticks(file_time.dwLowDateTime, file_time.dwHighDateTime);
}

SYSTEMTIME local_of(Time time)
{
    const std::uint64_t ticks = ticks_of(time);
    const FILETIME file_time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    ::FileTimeToSystemTime(&file_time, &utc);
    return ::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) != FALSE ? local : utc;
}

/// "14:05" or "14:05:30", all of text.
bool read_clock(std::string_view text, SYSTEMTIME& time)
{
    WORD values[3] = {};
    std::string_view rest = text;
    if (!take_numbers(rest, ":", values))
        return false;
    if (!rest.empty())
    {
        const bool has_seconds = rest.front() == ':';
        rest.remove_prefix(1);
        if (!has_seconds || !take_numbers(rest, "", values + 2))
            return false;
    }
    time.wHour = values[0];
    time.wMinute = values[1];
    time.wSecond = values[2];
    time.wMilliseconds = 0;
    return rest.empty();
}

/// "2026-11-21", with a time behind it or not.
std::optional<Time> read_day(std::string_view text)
{
    WORD values[3] = {};
    if (!take_numbers(text, "--", values))
        return std::nullopt;
    SYSTEMTIME time{};
    time.wYear = values[0];
    time.wMonth = values[1];
    time.wDay = values[2];
    if (!text.empty() && ((text.front() != ' ' && text.front() != 'T') || !read_clock(text.substr(1), time)))
        return std::nullopt;
    return utc_of_local(time);
}

std::optional<Time> read_time_of_day(std::string_view text, Time now)
{
    SYSTEMTIME time = local_of(now);
    if (!read_clock(text, time))
        return std::nullopt;
    std::optional<Time> moment = utc_of_local(time);
    if (moment && *moment > now)
    {
        const SYSTEMTIME yesterday = local_of(now - kor::core::MS_PER_DAY);
        time.wYear = yesterday.wYear;
        time.wMonth = yesterday.wMonth;
        time.wDay = yesterday.wDay;
        moment = utc_of_local(time);
    }
    return moment;
}

Time moment_of(const std::string& option, const std::string& text)
{
    const std::optional<Time> moment = read_moment(text, now());
    if (!moment)
        throw Failure("\"" + text + "\" is no time for " + option + ".", MOMENTS, WRONG_CALL);
    return *moment;
}

std::vector<int> packages_of(const Tool& tool, const std::vector<std::string>& words)
{
    std::vector<int> packages;
    if (words.empty())
        return packages;
    std::optional<kor::core::LevelFile> file;
    if (std::optional<std::string> bytes = read_whole(tool.folder.file))
        file.emplace(std::move(*bytes));
    const Running running = read_running();
    const PackageNames names(tool.folder, file ? &*file : nullptr, running.conf.get());
    for (const std::string& word : words)
        for (const int package : names.find(word))
            packages.push_back(package);
    return packages;
}
} // namespace

void LogQuery::declare(Options& options)
{
    whom.declare(options);
    options.add_option("--package", packages, "Lines of a package: number, name or pattern (several: any of them)")
        ->type_name("PACKAGE")
        ->take_all();
    options.add_option("--level", level, "Lines that are at least as bad: number or name")->type_name("LEVEL");
    options.add_option("--since", since, "Lines from then on: how long ago (1h), a time (14:05), a day (2026-11-21)")
        ->type_name("TIME");
    options.add_option("--until", until, "Lines before then")->type_name("TIME");
}

kor::core::LogFilter LogQuery::filter(const Tool& tool) const
{
    kor::core::LogFilter filter;
    if (!since.empty())
        filter.since = moment_of("--since", since);
    if (!until.empty())
        filter.until = moment_of("--until", until);
    if (filter.since >= filter.until)
        throw Failure("--since is not before --until, so no line can fit.", MOMENTS, WRONG_CALL);
    if (!level.empty())
        filter.level = read_level(level);
    filter.packages = packages_of(tool, packages);
    filter.applications = whom.applications;
    filter.processes.assign(whom.processes.begin(), whom.processes.end());
    filter.sessions.assign(whom.sessions.begin(), whom.sessions.end());
    filter.client_fits = client_test(whom.clients);
    filter.text = text;
    return filter;
}

bool LogQuery::empty() const noexcept
{
    return whom.empty() && packages.empty() && level.empty() && since.empty() && until.empty() && text.empty();
}

std::optional<Time> read_moment(std::string_view text, Time now)
{
    if (const std::optional<std::int64_t> ago = read_duration(text))
        return now - *ago;
    if (const std::optional<Time> day = read_day(text))
        return day;
    return read_time_of_day(text, now);
}

std::function<bool(std::string_view)> client_test(const std::vector<std::string>& entries)
{
    if (entries.empty())
        return nullptr;
    auto rule = std::make_shared<Kor_LogLevelRule>();
    std::vector<std::string> texts;
    for (const std::string& entry : entries)
    {
        const kor::core::ClientText client = kor::core::client_entry(entry);
        if (client.entry.empty())
            throw Failure(client.problem, "", WRONG_CALL);
        rule->AddIPAddress(client.entry.c_str());
        texts.push_back(client.entry);
    }
    return [rule, texts](std::string_view client)
    {
        const std::string text(client);
        if (std::find(texts.begin(), texts.end(), text) != texts.end())
            return true; // also where it is no address, or none that resolves here
        return rule->ipCount > 0 && rule->DoesComply(RWCString(text.c_str()), "", 0, 0);
    };
}
} // namespace levelsync
