// client_scope_test.cpp - threads that work for clients of their own: in headlines, and for the rules of the levels.

#include "Kor_ClientScope.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "bounded.h"
#include "log_directory.h"
#include "lumlog.hpp"
#include "recording_destination.h"
#include "rounds.h"

namespace
{
using Lines = std::vector<std::string>;

constexpr int READER = 310;

/// A log of this test's own configuration, and what it writes.
class ClientScope : public ::testing::Test
{
protected:
    explicit ClientScope(const std::string& packages = "Reader 310 4 [(7;192.0.2.7)]\n")
        : m_develop("KORAL_LOG_DEVELOP", "1"), m_directory(TO_FILE + packages),
          m_log(std::make_unique<Kor_LogFile>(777, false))
    {
        m_log->Open("test.log", "archive");
    }
    ~ClientScope() override { m_log->SetIP(nullptr); }

    void write(const char* text) { m_log->LogAt(nullptr, nullptr, 0, 4, READER, "%s", text); }
    int level() { return m_log->GetLogLevel(READER * PACKAGE_RANGE); }
    bool takes(int level) { return !m_log->IsRejected(level, READER) && m_log->IsWanted(level, READER); }

    /// The lines as "client|text".
    Lines lines() const
    {
        Lines found;
        for (const std::string& line : m_directory.lines())
        {
            const std::size_t arrow = line.find("-> ");
            const std::size_t client = line.find("ClientIP(");
            const std::size_t session = line.find("SessionId(");
            const std::size_t begin = std::min(client, session);
            std::string whom = begin >= arrow ? std::string() : line.substr(begin, arrow - begin);
            whom.resize(whom.find_last_not_of(' ') + 1);
            found.push_back(whom + '|' + line.substr(arrow + 3));
        }
        return found;
    }

    const EnvironmentVariable m_develop;
    const LogDirectory m_directory;
    const std::unique_ptr<Kor_LogFile> m_log;
};

void on_a_thread(const std::function<void()>& work) { std::thread(work).join(); }
} // namespace

// Headlines -------------------------------------------------------------------------------------------
TEST_F(ClientScope, LinesNameWhomTheThreadWorksFor)
{
    m_log->SetIPAndSID("10.0.0.1", 1);
    write("process");
    {
        const Kor_ClientScope scope("192.0.2.7", 42);
        write("scope");
        on_a_thread([this] { write("another thread"); });
    }
    write("after");
    EXPECT_EQ(
        lines(), (Lines{
                     "ClientIP(10.0.0.1) SessionId(1)|process", "ClientIP(192.0.2.7) SessionId(42)|scope",
                     "ClientIP(10.0.0.1) SessionId(1)|another thread", "ClientIP(10.0.0.1) SessionId(1)|after"}));
}

TEST_F(ClientScope, TheLatestOfSeveralCounts)
{
    const Kor_ClientScope outer("192.0.2.1", 1);
    write("outer");
    {
        const Kor_ClientScope inner("192.0.2.2");
        write("inner");
        const Kor_ClientScope same("192.0.2.2");
        write("same");
    }
    write("outer again");
    EXPECT_EQ(
        lines(), (Lines{
                     "ClientIP(192.0.2.1) SessionId(1)|outer", "ClientIP(192.0.2.2)|inner", "ClientIP(192.0.2.2)|same",
                     "ClientIP(192.0.2.1) SessionId(1)|outer again"}));
}

TEST_F(ClientScope, WithoutAnAddressThereIsNoClientAlsoWhereTheProcessHasOne)
{
    m_log->SetIPAndSID("10.0.0.1", 1);
    {
        const Kor_ClientScope nobody(nullptr);
        write("nobody");
    }
    {
        const Kor_ClientScope session(nullptr, 5);
        write("session");
    }
    {
        const Kor_ClientScope negative("192.0.2.7", -5);
        write("no session");
    }
    EXPECT_EQ(lines(), (Lines{"|nobody", "SessionId(5)|session", "ClientIP(192.0.2.7)|no session"}));
}

TEST_F(ClientScope, AChangeOfTheProcessesClientDoesNotReachIt)
{
    const Kor_ClientScope scope("192.0.2.7", 42);
    write("before");
    m_log->SetIPAndSID("10.0.0.9", 9);
    write("after");
    EXPECT_EQ(lines(), (Lines{"ClientIP(192.0.2.7) SessionId(42)|before", "ClientIP(192.0.2.7) SessionId(42)|after"}));
}

TEST_F(ClientScope, TheEventLogsHeadlineHasIt)
{
    std::string partial;
    const Kor_ClientScope scope("192.0.2.7", 42);
    with_context(*m_log, [&](Kor_LogMTVars& vars) { partial = vars.AsStringPartialWS(true); });
    EXPECT_NE(partial.find("ClientIP(192.0.2.7) SessionId(42)"), std::string::npos) << partial;
}

TEST_F(ClientScope, ALongNameIsCutAsInEveryHeadline)
{
    const std::string name(500, 'n');
    const Kor_ClientScope scope(name.c_str());
    EXPECT_EQ(Kor_ClientScope::Current().Address(), name);
    write("line"); // and the headline's own end is what gets lost
    EXPECT_EQ(m_directory.lines().size(), 1U);
}

// The monitor log -------------------------------------------------------------------------------------
TEST_F(ClientScope, LinesOfTheMonitorLogNameItBehindTheContext)
{
    const LogDirectory directory(TO_FILE + "Perfmon 109 5\n");
    KorGLog.Open("general.log", "archive");
    KorPLog.Open("monitor.log", "archive");
    const auto measure = [](const char* title)
    {
        if (KorPLog.StoreParams("f", 1, 5, 1) != 0)
            KorPLog.FLog(title, "");
    };
    measure("outside");
    {
        const Kor_ClientScope scope("192.0.2.7", 42);
        measure("within");
        KorPLog.SetContext(" shelf 3");
        measure("with a context");
    }
    measure("after");
    KorPLog.SetContext(nullptr);
    Lines contexts;
    for (const std::string& line : lines_of(directory.text("monitor.log")))
        if (line.find("T=") != std::string::npos)
            contexts.push_back(line.substr(line.find(']') + 1));
    EXPECT_EQ(
        contexts, (Lines{
                      ": =T=outside", " ClientIP(192.0.2.7) SessionId(42): =T=within",
                      " shelf 3 ClientIP(192.0.2.7) SessionId(42): =T=with a context", " shelf 3: =T=after"}));
}

// Levels ----------------------------------------------------------------------------------------------
TEST_F(ClientScope, ARuleReachesTheThreadsThatWorkForItsClientAndNoOther)
{
    EXPECT_EQ(level(), 4);
    {
        const Kor_ClientScope scope("192.0.2.7");
        EXPECT_EQ(level(), 7);
        EXPECT_TRUE(takes(7));
        EXPECT_EQ(m_log->StoreParams("f", "g", 1, 7, READER), 1);
        on_a_thread(
            [this]
            {
                EXPECT_EQ(level(), 4);
                EXPECT_FALSE(takes(5));
                const Kor_ClientScope other("192.0.2.8");
                EXPECT_EQ(level(), 4);
                EXPECT_EQ(m_log->CheckMsgLevel(READER * PACKAGE_RANGE, 5), 0);
            });
        const Kor_ClientScope other("192.0.2.8");
        EXPECT_EQ(level(), 4);
        EXPECT_EQ(m_log->StoreParams("f", "g", 1, 5, READER), 0);
    }
    EXPECT_EQ(level(), 4);
    EXPECT_FALSE(takes(5));
}

TEST_F(ClientScope, TheProcessesClientCountsInThreadsWithoutOne)
{
    m_log->SetIP("192.0.2.7");
    const Kor_ClientScope other("192.0.2.8");
    EXPECT_EQ(level(), 4);
    on_a_thread([this] { EXPECT_EQ(level(), 7); });
    m_log->SetIP("192.0.2.9");
    on_a_thread([this] { EXPECT_EQ(level(), 4); });
}

TEST_F(ClientScope, WhatNoClientCouldWantIsRejectedWithoutACall)
{
    const Kor_ClientScope scope("192.0.2.7");
    constexpr int OTHER = 311; // of the default level, without a rule
    EXPECT_EQ(m_log->GetLogLevel(OTHER * PACKAGE_RANGE), 4);
    EXPECT_TRUE(m_log->IsRejected(5, OTHER));
    EXPECT_EQ(level(), 7);
    const Kor_ClientScope nobody("192.0.2.8");
    EXPECT_FALSE(m_log->IsRejected(7, READER)); // for there is one who wants it
    EXPECT_TRUE(m_log->IsRejected(8, READER));
}

class ClientScopeRules : public ClientScope
{
protected:
    ClientScopeRules()
        : ClientScope("Reader 310 4 [(7;192.0.2.7;other)(7;192.0.2.8;archive;1)(6;192.0.2.9;archive)(5;;;;42)]\n"
                      "Page 311 0 [(7;192.0.2.7)]\nNet 312 4 [(7;10.0.0.0)]\n")
    {
    }
};

TEST_F(ClientScopeRules, AreAskedAboutApplicationProcessAndSessionToo)
{
    const auto level_for = [this](const char* address, long session)
    {
        const Kor_ClientScope scope(address, session);
        return level();
    };
    EXPECT_EQ(level_for("192.0.2.7", 1), 4);
    EXPECT_EQ(level_for("192.0.2.8", 1), 4);
    EXPECT_EQ(level_for("192.0.2.9", 1), 6);
    EXPECT_EQ(level_for("192.0.2.7", 42), 5);
    EXPECT_EQ(level_for(nullptr, 42), 5);
    const Kor_ClientScope scope("192.0.2.7");
    EXPECT_TRUE(m_log->IsRejected(7, READER)); // the rules of 7 are another application's and another process's
    EXPECT_FALSE(m_log->IsRejected(6, READER));
}

TEST_F(ClientScopeRules, RaiseAPackageThatIsOff)
{
    constexpr int PAGE = 311;
    const Kor_ClientScope other("192.0.2.8");
    EXPECT_EQ(m_log->GetLogLevel(PAGE * PACKAGE_RANGE), 0);
    const Kor_ClientScope scope("192.0.2.7");
    EXPECT_EQ(m_log->GetLogLevel(PAGE * PACKAGE_RANGE), 7);
}

TEST_F(ClientScopeRules, KnowNetworksAndIpv6)
{
    constexpr int NET = 312;
    const Kor_ClientScope scope("10.9.8.7");
    EXPECT_EQ(m_log->GetLogLevel(NET * PACKAGE_RANGE), 7);
    const Kor_ClientScope mapped("::ffff:10.9.8.7");
    EXPECT_EQ(m_log->GetLogLevel(NET * PACKAGE_RANGE), 7);
    const Kor_ClientScope other("2001:db8::7");
    EXPECT_EQ(m_log->GetLogLevel(NET * PACKAGE_RANGE), 4);
}

TEST_F(ClientScope, APublishedChangeCountsAtTheNextCheckOfEveryThread)
{
    auto& conf = const_cast<Kor_LogConf&>(*m_log->GetConf()); // as another process would
    const Kor_ClientScope scope("192.0.2.8");
    EXPECT_EQ(level(), 4);
    on_a_thread(
        [&]
        {
            const Kor_ClientScope own("192.0.2.7");
            EXPECT_EQ(level(), 7);
        });
    conf.GetRuleTable(READER).ParseRules("[(6;192.0.2.8)]");
    conf.GenerateChangeCount();
    EXPECT_EQ(level(), 6);
    on_a_thread(
        [&]
        {
            EXPECT_EQ(level(), 4);
            const Kor_ClientScope own("192.0.2.7");
            EXPECT_EQ(level(), 4);
            const Kor_ClientScope raised("192.0.2.8");
            EXPECT_EQ(level(), 6);
        });
}

TEST_F(ClientScope, RulesOfTheLocalConfigurationAreAskedAboutIt)
{
    const auto local = std::make_unique<Kor_LogConf>();
    local->GetRuleTable(READER).ParseRules("[(6;192.0.2.8)]");
    m_log->SetLocalConf(local.get());
    {
        const Kor_ClientScope scope("192.0.2.8");
        EXPECT_EQ(level(), 6);
    }
    const Kor_ClientScope other("192.0.2.9");
    EXPECT_EQ(level(), 4);
    m_log->SetLocalConf(nullptr);
}

TEST_F(ClientScope, ALogThatIsMadeLaterGoesByItToo)
{
    const Kor_ClientScope scope("192.0.2.7");
    Kor_LogFile later(777, false);
    EXPECT_EQ(later.GetLogLevel(READER * PACKAGE_RANGE), 7);
    const Kor_ClientScope other("192.0.2.8");
    EXPECT_EQ(later.GetLogLevel(READER * PACKAGE_RANGE), 4);
    EXPECT_EQ(level(), 4);
}

TEST_F(ClientScope, MorePackagesThanAreKeptAreAnsweredRightAllTheSame)
{
    std::string packages;
    for (int package = 0; package < 750; ++package)
        packages += "P " + std::to_string(package) + ' ' + std::to_string(package % 5) + " [(" +
                    std::to_string(1 + package % 7) + ";192.0.2.7)]\n";
    const LogDirectory directory(TO_FILE + packages);
    Kor_LogFile log(777, false);
    for (int round = 0; round < 2; ++round)
    {
        for (int package = 0; package < 750; ++package)
        {
            const Kor_ClientScope scope("192.0.2.7");
            ASSERT_EQ(log.GetLogLevel(package * PACKAGE_RANGE), std::max(package % 5, 1 + package % 7));
            const Kor_ClientScope other("192.0.2.8");
            ASSERT_EQ(log.GetLogLevel(package * PACKAGE_RANGE), package % 5);
        }
    }
}

// Tasks -----------------------------------------------------------------------------------------------
TEST_F(ClientScope, ATaskTakesItsClientAlong)
{
    Kor_ClientScope::Client client;
    EXPECT_TRUE(client.IsOfProcess());
    {
        const Kor_ClientScope scope("192.0.2.7", 42);
        client = Kor_ClientScope::Current();
    }
    EXPECT_TRUE(Kor_ClientScope::Current().IsOfProcess());
    EXPECT_STREQ(client.Address(), "192.0.2.7");
    EXPECT_EQ(client.Session(), 42);
    on_a_thread(
        [this, client]
        {
            const Kor_ClientScope scope(client);
            EXPECT_EQ(level(), 7);
            write("task");
        });
    EXPECT_EQ(lines(), Lines{"ClientIP(192.0.2.7) SessionId(42)|task"});
}

TEST_F(ClientScope, ATaskOfTheProcessesClientIsItsAlsoWithinAScope)
{
    m_log->SetIP("10.0.0.1");
    const Kor_ClientScope::Client process = Kor_ClientScope::Current();
    const Kor_ClientScope scope("192.0.2.7");
    const Kor_ClientScope task(process);
    EXPECT_TRUE(Kor_ClientScope::Current().IsOfProcess());
    EXPECT_EQ(process.Address(), nullptr);
    EXPECT_EQ(level(), 4);
    write("process");
    EXPECT_EQ(lines(), Lines{"ClientIP(10.0.0.1)|process"});
}

TEST_F(ClientScope, CopiesShareTheClient)
{
    Kor_ClientScope::Client copy;
    {
        const Kor_ClientScope scope("192.0.2.7");
        const Kor_ClientScope::Client first = Kor_ClientScope::Current();
        Kor_ClientScope::Client second;
        copy = first;
        second = std::move(copy);
        EXPECT_TRUE(copy.IsOfProcess()); // NOLINT: what a move leaves behind is the process's
        EXPECT_EQ(first.Address(), second.Address());
        copy = second;
    }
    EXPECT_STREQ(copy.Address(), "192.0.2.7");
}

// Ends that are not in order --------------------------------------------------------------------------
TEST_F(ClientScope, AnOuterScopeThatEndsFirstEndsTheInnerOnesToo)
{
    auto outer = std::make_unique<Kor_ClientScope>("192.0.2.1");
    auto inner = std::make_unique<Kor_ClientScope>("192.0.2.2");
    outer.reset();
    EXPECT_TRUE(Kor_ClientScope::Current().IsOfProcess());
    const Kor_ClientScope next("192.0.2.3");
    inner.reset();
    EXPECT_STREQ(Kor_ClientScope::Current().Address(), "192.0.2.3");
}

TEST_F(ClientScope, AScopeThatEndsOnAnotherThreadDoesNothingThere)
{
    on_a_thread(
        []
        {
            auto scope = std::make_unique<Kor_ClientScope>("192.0.2.1");
            on_a_thread(
                [&scope]
                {
                    const Kor_ClientScope own("192.0.2.2");
                    scope.reset();
                    EXPECT_STREQ(Kor_ClientScope::Current().Address(), "192.0.2.2");
                });
            EXPECT_STREQ(Kor_ClientScope::Current().Address(), "192.0.2.1");
        });
}

TEST_F(ClientScope, AThreadThatEndsWithinScopesEndsThem)
{
    std::unique_ptr<Kor_ClientScope> outer;
    std::unique_ptr<Kor_ClientScope> inner;
    on_a_thread(
        [&]
        {
            outer = std::make_unique<Kor_ClientScope>("192.0.2.7");
            inner = std::make_unique<Kor_ClientScope>("192.0.2.8");
        });
    EXPECT_TRUE(Kor_ClientScope::Current().IsOfProcess());
    const Kor_ClientScope own("192.0.2.9");
    outer.reset();
    inner.reset();
    EXPECT_STREQ(Kor_ClientScope::Current().Address(), "192.0.2.9");
}

TEST_F(ClientScope, TheLastErrorStaysAsItWas)
{
    ::SetLastError(4711);
    {
        const Kor_ClientScope scope("192.0.2.7");
        EXPECT_EQ(::GetLastError(), 4711U);
        m_log->IsWanted(7, READER);
        m_log->IsWanted(7, READER);
        EXPECT_EQ(::GetLastError(), 4711U);
        const Kor_ClientScope task(Kor_ClientScope::Current());
        write("line");
        EXPECT_EQ(::GetLastError(), 4711U);
    }
    EXPECT_EQ(::GetLastError(), 4711U);
}

// Many ------------------------------------------------------------------------------------------------
namespace
{
/// Of all heaps: the C runtime has one of its own.
SIZE_T heap_in_use()
{
    HANDLE heaps[64];
    const DWORD count = std::min<DWORD>(::GetProcessHeaps(64, heaps), 64);
    SIZE_T used = 0;
    for (DWORD i = 0; i < count; ++i)
    {
        PROCESS_HEAP_ENTRY entry{};
        ::HeapLock(heaps[i]);
        while (::HeapWalk(heaps[i], &entry) != FALSE)
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
                used += entry.cbData;
        ::HeapUnlock(heaps[i]);
    }
    return used;
}
} // namespace

TEST_F(ClientScope, NothingGrowsWithTheClientsThatComeAndGo)
{
    const auto work = [this](int from)
    {
        for (int i = 0; i < 2000; ++i)
        {
            const std::string address =
                "10.1." + std::to_string((from + i) / 250 % 250) + '.' + std::to_string(i % 250);
            const Kor_ClientScope scope(address.c_str(), from + i);
            const Kor_ClientScope::Client client = Kor_ClientScope::Current();
            const Kor_ClientScope again(client);
            EXPECT_EQ(level(), 4);
        }
        for (int i = 0; i < 20; ++i) // threads that end within scopes
            on_a_thread([=] { lum_client_enter("192.0.2.7", from + i + 1); });
    };
    for (int round = 0; round < 3; ++round)
        work(round * 2000);
    const SIZE_T before = heap_in_use();
    for (int round = 3; round < 20; ++round)
        work(round * 2000);
    EXPECT_LT(heap_in_use(), before + 20'000); // one client has 700 bytes
}

namespace
{
constexpr int THREADS = 32;
constexpr int CLIENTS = 200;
constexpr int RAISED = 5;
constexpr int CHANGES_OF_LEVELS = 40;

std::string address_of(int client)
{
    return "10.20." + std::to_string(client / 250) + '.' + std::to_string(client % 250 + 1);
}

/// Counts lines, and those that name another client than they were written for.
class Counting : public Kor_LogDestBase
{
public:
    int LogMessage(Kor_LogMTVarsPtr context, bool, const char* text, unsigned int) override
    {
        int client = 0;
        std::sscanf(text, "for %d", &client);
        const std::string wanted =
            "ClientIP(" + address_of(client) + ") SessionId(" + std::to_string(client + 1) + ") ";
        if (std::string(context->AsStringFull(true)).find(wanted) == std::string::npos)
            ++wrong_clients;
        ++lines;
        return 0;
    }

    std::atomic<std::int64_t> lines{0};
    std::atomic<std::int64_t> wrong_clients{0};
};

/// The clients that are raised: a window of five that moves on with each change. What is between two states may be either.
class Raised
{
public:
    explicit Raised(Kor_LogConf& conf) : m_conf(conf) { publish(0); }

    void publish(int first)
    {
        m_next = first;
        std::string rules = "[";
        for (int i = 0; i < RAISED; ++i)
            rules += "(7;" + address_of((first + i) % CLIENTS) + ")";
        m_conf.GetRuleTable(READER).ParseRules((rules + "]").c_str());
        m_conf.GenerateChangeCount();
        m_now = first;
    }

    static bool has(int first, int client) { return (client - first + CLIENTS) % CLIENTS < RAISED; }
    int now() const { return m_now; }
    int next() const { return m_next; }

private:
    Kor_LogConf& m_conf;
    std::atomic<int> m_now{0};
    std::atomic<int> m_next{0};
};
} // namespace

// A task is begun by one thread and finished by the next one. For each message the answer is known where no change came
// between.
TEST_F(ClientScope, OfManyClientsOnManyThreadsJustTheRaisedOnesAreWritten)
{
    const int messages = rounds_wanted("LUMLOG_TEST_CLIENT_MESSAGES", 100'000);
    Raised raised(const_cast<Kor_LogConf&>(*m_log->GetConf()));
    Counting counting;
    m_log->RegisterLogDestination(&counting);
    std::mutex handing_over;
    std::vector<std::pair<int, Kor_ClientScope::Client>> tasks;
    std::atomic<std::int64_t> asked{0};
    std::atomic<std::int64_t> missing{0};
    std::atomic<std::int64_t> too_many{0};

    const auto work_for = [&](int client)
    {
        for (int i = 0; i < 10; ++i)
        {
            const int before = raised.now();
            const bool wanted = m_log->IsWanted(7, READER);
            const int after = raised.next();
            if (before == after && wanted != Raised::has(before, client))
                ++(wanted ? too_many : missing);
            if (wanted)
                m_log->LogAt("f", "g", 1, 7, READER, "for %d", client);
            ++asked;
        }
    };
    run_on_threads(
        THREADS,
        [&](int thread)
        {
            for (int task = thread; asked < messages; task += 7)
            {
                const int client = task % CLIENTS;
                {
                    const Kor_ClientScope scope(address_of(client).c_str(), client + 1);
                    work_for(client);
                    const std::lock_guard<std::mutex> lock(handing_over);
                    tasks.emplace_back(client, Kor_ClientScope::Current());
                }
                std::pair<int, Kor_ClientScope::Client> taken;
                {
                    const std::lock_guard<std::mutex> lock(handing_over);
                    std::swap(taken, tasks[static_cast<std::size_t>(task) % tasks.size()]);
                    std::swap(tasks[static_cast<std::size_t>(task) % tasks.size()], tasks.back());
                    tasks.pop_back();
                }
                {
                    const Kor_ClientScope scope(taken.second);
                    work_for(taken.first);
                }
                if (thread == 0 && asked * CHANGES_OF_LEVELS > std::int64_t{messages} * raised.now())
                    raised.publish(raised.now() + 1);
            }
        });
    m_log->UnregisterLogDestination(&counting);
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(too_many, 0);
    EXPECT_EQ(counting.wrong_clients, 0);
    EXPECT_GT(counting.lines, 0);
    std::printf(
        "%lld messages, %lld lines, %d changes\n", static_cast<long long>(asked.load()),
        static_cast<long long>(counting.lines.load()), raised.now());
}

// The other interfaces --------------------------------------------------------------------------------
TEST_F(ClientScope, TheFunctionsForCDoTheSame)
{
    const lum_uint64 outer = lum_client_enter("192.0.2.7", 42);
    write("outer");
    lum_client_ref* const taken = lum_client_current();
    const lum_uint64 inner = lum_client_enter(nullptr, 0);
    write("inner");
    const lum_uint64 again = lum_client_enter_ref(taken);
    lum_client_ref_free(taken);
    write("again");
    lum_client_leave(inner); // with what is within it
    write("outer again");
    lum_client_leave(again);
    lum_client_leave(0);
    lum_client_leave(outer);
    EXPECT_EQ(lum_client_current(), nullptr);
    lum_client_ref_free(nullptr);
    const lum_uint64 process = lum_client_enter_ref(nullptr);
    write("process");
    lum_client_leave(process);
    EXPECT_EQ(
        lines(), (Lines{
                     "ClientIP(192.0.2.7) SessionId(42)|outer", "|inner", "ClientIP(192.0.2.7) SessionId(42)|again",
                     "ClientIP(192.0.2.7) SessionId(42)|outer again", "|process"}));
}

TEST_F(ClientScope, ArgumentsOfWhatOnlyAnotherClientWantsAreNotEvaluated)
{
    KorGLog.Open("general.log", "archive");
    int evaluated = 0;
    const Kor_ClientScope other("192.0.2.8");
    for (int round = 0; round < 3; ++round)
    {
        KOR_LOG(KorGLog, 7, READER, "%d", ++evaluated);
        LUM_LOG(7, READER, "%d", ++evaluated);
        LUM_LOG_TEXT(7, READER, std::to_string(++evaluated));
        EXPECT_EQ(lum_wants(7, READER), 0);
    }
    EXPECT_EQ(evaluated, 0);
    const Kor_ClientScope raised("192.0.2.7");
    KOR_LOG(KorGLog, 7, READER, "%d", ++evaluated);
    LUM_LOG(7, READER, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 2);
}

TEST_F(ClientScope, TheHeaderForCppDoesTheSame)
{
    lum::Client client;
    {
        const lum::ClientScope scope(std::string("192.0.2.7"), 42);
        write("scope");
        client = lum::Client::current();
    }
    on_a_thread(
        [this, client]
        {
            const lum::ClientScope scope(client);
            write("task");
        });
    const lum::ClientScope none(nullptr);
    const lum::ClientScope process{lum::Client()};
    write("process");
    EXPECT_EQ(
        lines(),
        (Lines{"ClientIP(192.0.2.7) SessionId(42)|scope", "ClientIP(192.0.2.7) SessionId(42)|task", "|process"}));
}
