// turns_test.cpp - several LevelSyncs at once, and one that is killed at any moment: no change is lost, and the file is
// the old one or the new one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "level_sync.h"
#include "log_lines.h"
#include "rounds.h"

using ::testing::HasSubstr;

namespace
{
constexpr unsigned PATIENCE_MS = 60000;

/// The level file of Site::LOGGER with these of Reader, Replay and the limit.
std::string logger_with(int reader, int replay, int limit)
{
    std::string text = Site::LOGGER;
    const auto put = [&text](const std::string& before, const std::string& after)
    { text.replace(text.find(before), before.size(), after); };
    put("=10", "=" + std::to_string(limit));
    put("310       5", "310       " + std::to_string(reader));
    put("320       6", "320       " + std::to_string(replay));
    return text;
}

/// The changes of the history that came to be; -1 where a line other than a half one is no JSON.
int changes_in(const std::string& history)
{
    int done = 0;
    for (const std::string& line : lines_of(history))
    {
        const auto json = nlohmann::json::parse(line, nullptr, false);
        if (json.is_discarded() && line.find('}') != std::string::npos && line.back() == '}')
            return -1;
        done += !json.is_discarded() && json.contains("done") ? 1 : 0;
    }
    return done;
}

TEST(LevelSyncTurns, OfSeveralAtOnceNoneLosesItsChange)
{
    const Site site;
    const auto viewer = site.host("viewer");
    std::vector<std::unique_ptr<Child>> calls;
    for (int i = 0; i < 6; ++i)
        calls.push_back(site.start("set control 7 --pid " + std::to_string(i + 1)));
    calls.push_back(site.start("set reader 7"));
    calls.push_back(site.start("limit 33"));
    for (const auto& call : calls)
    {
        const Ran ended = ran(*call, PATIENCE_MS);
        EXPECT_EQ(ended.exit_code, 0) << ended;
    }
    for (int i = 0; i < 6; ++i)
        EXPECT_THAT(site.logger(), HasSubstr("(7;;;" + std::to_string(i + 1) + ")"));
    EXPECT_EQ(viewer->level(310), 7);
    EXPECT_EQ(viewer->size_limit(), 33);
    EXPECT_EQ(site.run("diff").exit_code, 0);
    const Ran history = site.run("history --json");
    EXPECT_EQ(history.size("/changes"), 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(history.at("/changes/" + std::to_string(i) + "/id"), std::to_string(i + 1));
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(site.run("undo").exit_code, 0);
    EXPECT_EQ(site.logger(), Site::LOGGER);
}

TEST(LevelSyncTurns, WhoWaitsInVainIsToldWhoHasTheTurn)
{
    const Site site;
    ASSERT_EQ(site.run("limit 11").exit_code, 0); // so that there is a file to lock
    const HANDLE file = ::CreateFileA(
        site.path("logger.lock").c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_EXISTING, 0, nullptr);
    OVERLAPPED turn{};
    turn.OffsetHigh = 1;
    ASSERT_NE(::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &turn), FALSE);
    const Ran ran = site.run_with("hurry", "limit 12"); // half a minute passes at once
    ::CloseHandle(file);
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(ran.err, HasSubstr("Somebody else has been changing the file for half a minute: "));
    EXPECT_THAT(ran.err, HasSubstr(": LevelSync limit 11.\nNothing was changed. Wait until that is done"));
    EXPECT_THAT(site.logger(), HasSubstr("=11\n"));
}

/// Two change the file round by round while a third is killed at a random moment.
class Soak
{
public:
    explicit Soak(unsigned seed) : m_random(seed), m_viewer(m_site.host("viewer")) {}

    void round()
    {
        const int old_replay = m_replay;
        const int new_replay = m_replay == 7 ? 1 : m_replay + 1;
        m_reader = m_reader == 7 ? 1 : m_reader + 1;
        m_limit = m_limit == 99 ? 10 : m_limit + 1;
        const auto second = m_site.start("set reader " + std::to_string(m_reader));
        const auto third = m_site.start("limit " + std::to_string(m_limit));
        // The last, as starting a process takes so long that it would be through before the others are there.
        const ULONGLONG began = ::GetTickCount64();
        const auto victim = m_site.start("set replay " + std::to_string(new_replay));
        const auto moment = std::uniform_int_distribution<unsigned>(0, m_span_ms)(m_random);
        const ChildResult before = victim->wait(moment);
        // As long as a call takes that is not killed, on this machine and beside what else it does.
        m_span_ms = before.finished ? static_cast<unsigned>(::GetTickCount64() - began) : m_span_ms + m_span_ms / 8 + 1;
        victim->kill();
        victim->wait(PATIENCE_MS);
        for (const Child* const call : {second.get(), third.get()})
        {
            const Ran ended = ran(*call, PATIENCE_MS);
            EXPECT_EQ(ended.exit_code, 0) << ended;
        }
        m_killed += before.finished ? 0 : 1;
        const std::string logger = m_site.logger();
        const bool is_new = logger == logger_with(m_reader, new_replay, m_limit);
        const bool is_old = logger == logger_with(m_reader, old_replay, m_limit);
        EXPECT_TRUE(is_new || is_old) << logger;
        EXPECT_TRUE(is_new || !before.finished) << "it ended and its change is not there";
        m_replay = is_new ? new_replay : old_replay;
        m_changed += is_new && !before.finished ? 1 : 0;
    }

    /// What the next LevelSync makes of all that was left.
    void finish()
    {
        const Ran last = m_site.run("limit 5");
        EXPECT_EQ(last.exit_code, 0) << last;
        EXPECT_EQ(m_site.logger(), logger_with(m_reader, m_replay, 5));
        EXPECT_EQ(m_site.run("diff").exit_code, 0) << "what a kill kept from being published";
        EXPECT_EQ(m_viewer->level(320), m_replay);
        EXPECT_EQ(m_viewer->level(310), m_reader);
        EXPECT_GT(changes_in(m_site.file("logger.history")), 0);
        const Ran history = m_site.run("history --json -n 1000000");
        EXPECT_EQ(history.out.find("in the making"), std::string::npos);
        std::vector<std::string> files = m_site.files();
        EXPECT_THAT(
            files, ::testing::IsSubsetOf(
                       {"LevelSync.log", "logger", "logger.history", "logger.lock", "logger.new", "viewer.log"}));
    }

    int killed() const { return m_killed; }
    int changed() const { return m_changed; }

private:
    std::mt19937 m_random;
    Site m_site;
    std::unique_ptr<Host> m_viewer;
    int m_reader = 5;
    int m_replay = 6;
    int m_limit = 10;
    unsigned m_span_ms = 300; // in which the moment is
    int m_killed = 0;
    int m_changed = 0;
};

TEST(LevelSyncTurns, AKillAtAnyMomentLeavesTheOldFileOrTheNewOne)
{
    constexpr int USUAL = 30;
    const int kills = rounds_wanted("LUMLOG_TEST_KILLS", USUAL);
    const unsigned seed = kills == USUAL ? 1 : std::random_device()();
    Soak soak(seed);
    int rounds = 0;
    while (soak.killed() < kills && rounds < 10 * kills && !::testing::Test::HasFailure())
    {
        soak.round();
        ++rounds;
    }
    soak.finish();
    EXPECT_EQ(soak.killed(), kills);
    std::printf(
        "%d kills in %d rounds, of which %d left the new file; seed %u\n", soak.killed(), rounds, soak.changed(), seed);
}
} // namespace
