// explain_test.cpp - what LevelSync explains beside what the library does: for random rules and processes both say the
// same level. A file has a rule table for each of 750 packages, and one call explains all of them for one process, so
// that each of the answers below is of the built program and of a real process.

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "level_sync.h"

namespace
{
constexpr int PACKAGES = 750;
constexpr std::size_t LONGEST_LINE = 199;

using Random = std::mt19937;

std::size_t below(Random& random, std::size_t count)
{
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
}

// Pools so small that rules fit often. Among the addresses are networks, both families, one as the other, and names.
const std::vector<std::string> ADDRESSES{"192.0.2.7",        "192.0.2.8", "192.0.2.0",      "10.0.0.0",
                                         "10.1.0.0",         "10.1.2.0",  "10.1.2.3",       "2001:db8::/32",
                                         "2001:db8::1",      "::/0",      "2001:db8::/127", "2001:db8::2/64",
                                         "::ffff:192.0.2.7", "localhost", "10.1.2.3/8"};
const std::vector<std::string> APPLICATIONS{"viewer", "archive", "Viewer", "a_name_longer_than_19", "view"};
const std::vector<std::string> CLIENTS{"",           "192.0.2.7",   "192.0.2.8",   "10.1.2.3",         "10.1.9.9",
                                       "10.9.9.9",   "2001:db8::1", "2001:db9::1", "::ffff:192.0.2.7", "127.0.0.1",
                                       "2001:db8::3"};

std::string list_of(Random& random, const std::vector<std::string>& pool)
{
    std::string list;
    for (std::size_t count = below(random, 2) == 0 ? 0 : 1 + below(random, 2); count > 0; --count)
        list += (list.empty() ? "" : ",") + pool[below(random, pool.size())];
    return list;
}

std::string rule_of(Random& random, const std::vector<std::string>& processes)
{
    static const std::vector<std::string> sessions{"1", "2", "3", "8", "4294967295"};
    const std::array<std::string, 4> lists{
        list_of(random, ADDRESSES), list_of(random, APPLICATIONS), list_of(random, processes),
        list_of(random, sessions)};
    std::string text = '(' + std::to_string(1 + below(random, 8)); // 8 is none
    std::string separators;
    for (const std::string& list : lists)
    {
        separators += ';';
        if (!list.empty())
            text += std::exchange(separators, "") + list;
    }
    return text + ')';
}

std::string random_logger(Random& random, const std::vector<std::string>& processes)
{
    std::string logger = "2\nfile_size_limit_in_mb=0\n";
    for (int package = 0; package < PACKAGES; ++package)
    {
        std::string line = "P" + std::to_string(package) + ' ' + std::to_string(package) + ' ' +
                           std::to_string(below(random, 8)) + " [";
        for (std::size_t count = below(random, 7); count > 0; --count)
        {
            const std::string rule = rule_of(random, processes);
            if (line.size() + rule.size() + 1 <= LONGEST_LINE)
                line += rule;
        }
        logger += line.back() == '[' ? line.substr(0, line.size() - 2) : line + ']';
        logger += '\n';
    }
    return logger;
}

std::vector<int> levels_in(const Ran& ran)
{
    std::vector<int> levels;
    const auto json = nlohmann::json::parse(ran.out, nullptr, false);
    if (!json.is_discarded() && json.contains("packages"))
        for (const auto& answer : json.at("packages"))
            levels.push_back(answer.at("level").get<int>());
    return levels;
}

TEST(LevelSyncExplained, SaysThatClientsOfThreadsCanBeAskedForWhereARuleIsForOne)
{
    constexpr char HINT[] = "name one with --client.";
    const Site site("2\nfile_size_limit_in_mb=0\nReplay 320 4 [(7;192.0.2.7)]\nReader 310 5 [(6;;viewer)]\n");
    EXPECT_TRUE(site.run("explain replay").says(HINT));
    EXPECT_FALSE(site.run("explain replay --client 192.0.2.8").says(HINT));
    EXPECT_FALSE(site.run("explain reader").says(HINT));
}

TEST(LevelSyncExplained, TenThousandRandomRuleTablesAreWhatAProcessMakesOfThem)
{
    Random random(7);
    const Site site;
    std::vector<std::unique_ptr<Host>> hosts;
    hosts.push_back(site.host("viewer"));
    hosts.push_back(site.host("archive"));
    hosts.push_back(site.host("a_name_longer_than_19"));
    std::vector<std::string> processes{"1", "4294967295"};
    for (const auto& host : hosts)
        processes.push_back(std::to_string(host->pid()));

    int compared = 0;
    int by_rules = 0;
    for (int file = 0; file < 5; ++file)
    {
        site.configure(random_logger(random, processes));
        ASSERT_EQ(site.run("publish --force").exit_code, 0);
        for (const auto& host : hosts)
        {
            const std::string client = CLIENTS[below(random, CLIENTS.size())];
            const long session = static_cast<long>(below(random, 2) * (1 + below(random, 8)));
            host->serve(client, session);
            std::string call = "explain * --json --pid " + std::to_string(host->pid());
            call += client.empty() ? "" : " --client " + client;
            call += session == 0 ? "" : " --session " + std::to_string(session);
            const std::vector<int> explained = levels_in(site.run(call));
            const std::vector<int> real = host->levels();
            ASSERT_EQ(explained.size(), static_cast<std::size_t>(PACKAGES)) << call;
            ASSERT_EQ(real.size(), static_cast<std::size_t>(PACKAGES));
            for (std::size_t package = 0; package < PACKAGES; ++package)
            {
                EXPECT_EQ(explained[package], real[package])
                    << call << ", package " << package << '\n'
                    << site.run("explain " + std::to_string(package) + call.substr(16)).out;
                ++compared;
            }
            const std::vector<int> alone = levels_in(site.run("explain * --json --app nobody"));
            for (std::size_t package = 0; package < PACKAGES; ++package)
                by_rules += alone[package] != explained[package] ? 1 : 0;
        }
    }
    EXPECT_GE(compared, 10'000);
    EXPECT_GT(by_rules, compared / 20) << "rules that fit are what this is about";
}
} // namespace
