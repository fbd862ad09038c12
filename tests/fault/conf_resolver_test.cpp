// conf_resolver_test.cpp - rules with a resolver of the test's own: what it is asked, how many addresses it
// gives, that it fails; and conversions of addresses to text that fail.

#include <gtest/gtest.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Kor_ClientScope.h"
#include "Kor_LogFile.h"
#include "bounded.h"
#include "captured_stream.h"
#include "child.h"
#include "environment.h"
#include "import_hook.h"
#include "log_directory.h"
#include "log_lines.h"
#include "named_event.h"

KOR_IMPORT(getaddrinfo);
KOR_IMPORT(freeaddrinfo);
KOR_IMPORT(GetTickCount64);
KOR_IMPORT(getnameinfo);
KOR_IMPORT(inet_ntoa);

namespace
{
using Octets = std::array<unsigned char, 4>;

/// Stands in for name resolution: every text resolves to the same addresses, or to an error.
class Resolver
{
public:
    explicit Resolver(std::vector<Octets> answer, int error = 0)
        : m_answer(std::move(answer)), m_error(error),
          m_lookup(
              [this](PCSTR node, PCSTR service, const ADDRINFOA* hints, PADDRINFOA* result) -> INT
              { return look_up(node, service, hints, result); }),
          m_release([this](PADDRINFOA list) { release(list); })
    {
    }

    bool installed() const { return m_lookup.installed() && m_release.installed(); }
    int lookups() const { return m_lookup.calls(); }
    int unreleased() const { return m_given - m_released; }
    bool strangers_released() const { return m_strangers; }

    std::vector<std::string> nodes;
    std::vector<std::string> services;
    std::vector<ADDRINFOA> hints_seen;

private:
    INT look_up(PCSTR node, PCSTR service, const ADDRINFOA* hints, PADDRINFOA* result)
    {
        nodes.emplace_back(node == nullptr ? "(null)" : node);
        services.emplace_back(service == nullptr ? "(null)" : service);
        hints_seen.push_back(hints == nullptr ? ADDRINFOA{} : *hints);
        *result = nullptr;
        if (m_error != 0)
            return m_error;
        for (std::size_t i = m_answer.size(); i > 0; --i)
        {
            m_sockets.emplace_back();
            m_sockets.back().sin_family = AF_INET;
            std::memcpy(&m_sockets.back().sin_addr, m_answer[i - 1].data(), 4);
            m_records.emplace_back();
            m_records.back().ai_family = AF_INET;
            m_records.back().ai_addrlen = sizeof(sockaddr_in);
            m_records.back().ai_addr = reinterpret_cast<sockaddr*>(&m_sockets.back());
            m_records.back().ai_next = *result;
            *result = &m_records.back();
        }
        m_heads.push_back(*result);
        ++m_given;
        return 0;
    }

    void release(PADDRINFOA list)
    {
        for (PADDRINFOA& head : m_heads)
        {
            if (head == list && list != nullptr)
            {
                head = nullptr;
                ++m_released;
                return;
            }
        }
        m_strangers = true;
    }

    std::vector<Octets> m_answer;
    int m_error;
    std::deque<sockaddr_in> m_sockets; // addresses stay where they are
    std::deque<ADDRINFOA> m_records;
    std::vector<PADDRINFOA> m_heads;
    int m_given = 0;
    int m_released = 0;
    bool m_strangers = false;
    FoundHook<getaddrinfoImport> m_lookup;
    FoundHook<freeaddrinfoImport> m_release;
};

template <class Call>
std::string printed_by(const Call& call)
{
    CapturedStream captured_out(stdout);
    call();
    captured_out.stop();
    return captured_out.text();
}

const std::vector<Octets> THREE = {{10, 1, 2, 3}, {192, 168, 0, 0}, {172, 16, 0, 9}};
} // namespace

TEST(ConfResolver, ItIsAskedForAnyTcpAddressMappedOnesIncluded)
{
    Resolver resolver(THREE);
    ASSERT_TRUE(resolver.installed());
    Kor_LogLevelRule rule;
    rule.AddIPAddress("host.example/24");
    EXPECT_EQ(resolver.nodes, (std::vector<std::string>{"host.example"}));
    EXPECT_EQ(resolver.services, (std::vector<std::string>{"0"}));
    const ADDRINFOA& hints = resolver.hints_seen.at(0);
    EXPECT_EQ(hints.ai_flags, 0x900);
    EXPECT_EQ(hints.ai_family, 0);   // unspecified
    EXPECT_EQ(hints.ai_socktype, 1); // stream
    EXPECT_EQ(hints.ai_protocol, 6); // TCP
    EXPECT_EQ(hints.ai_addrlen, 0u);
    EXPECT_EQ(hints.ai_canonname, nullptr);
    EXPECT_EQ(hints.ai_addr, nullptr);
    EXPECT_EQ(hints.ai_next, nullptr);
}

TEST(ConfResolver, EveryAddressOfANameBecomesAnEntry)
{
    Resolver resolver(THREE);
    const Kor_LogLevelRule rule("7;host.example;app.exe");
    EXPECT_STREQ(rule.ToString(), "(7;10.1.2.3,192.168.0.0,172.16.0.9;app.exe)");
    EXPECT_EQ(resolver.lookups(), 1);
    EXPECT_EQ(resolver.unreleased(), 0);
    EXPECT_FALSE(resolver.strangers_released());
}

TEST(ConfResolver, OfMoreAddressesThanARuleHoldsTheFirstTenAreKept)
{
    std::vector<Octets> many;
    for (unsigned char i = 1; i <= 12; ++i)
        many.push_back({10, 0, 0, i});
    Resolver resolver(many);
    Kor_LogLevelRule rule;
    printed_by([&] { rule.SetRule("7;host.example;app.exe;12;3"); });
    EXPECT_EQ(rule.ipCount, 10);
    EXPECT_STREQ(
        rule.ToString(), "(7;10.0.0.1,10.0.0.2,10.0.0.3,10.0.0.4,10.0.0.5,10.0.0.6,10.0.0.7,10.0.0.8,10.0.0.9,10.0.0.10"
                         ";app.exe;12:3)");
    EXPECT_EQ(resolver.unreleased(), 0);
}

TEST(ConfResolver, ANameThatDoesNotResolveAddsNothingAndIsReported)
{
    Resolver resolver({}, 11001);
    ASSERT_TRUE(resolver.installed());
    Kor_LogLevelRule rule;
    EXPECT_EQ(
        printed_by([&] { rule.AddIPAddress("nohost/24"); }), "getaddrinfo for ip nohost, failed with error: 11001\n");
    EXPECT_EQ(rule.ipCount, 0);
    EXPECT_EQ(resolver.unreleased(), 0);
    EXPECT_FALSE(resolver.strangers_released());
}

TEST(ConfResolver, AFailedLookupGivesNoListAndALineOnStandardOutput)
{
    Resolver resolver({}, 10093);
    CapturedStream captured_out(stdout);
    CapturedStream captured_err(stderr);
    EXPECT_EQ(Kor_LogLevelRule().get_address_information("100%s"), nullptr);
    captured_err.stop();
    EXPECT_EQ(captured_err.text(), "");
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "getaddrinfo for ip 100%s, failed with error: 10093\n");
}

TEST(ConfResolver, ALookupThatSucceedsHandsItsListToTheCaller)
{
    Resolver resolver(THREE);
    const addrinfo* const list = Kor_LogLevelRule().get_address_information("host.example");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(resolver.nodes, (std::vector<std::string>{"host.example"}));
    EXPECT_EQ(resolver.unreleased(), 1); // the caller's to free
}

TEST(ConfResolver, ARuleWhoseOnlyNameDoesNotResolveIsNotValid)
{
    Resolver resolver({}, 11001);
    printed_by(
        [&]
        {
            Kor_LogLevelRuleTable table;
            EXPECT_FALSE(table.ParseRules("(7;nohost)"));
            EXPECT_EQ(table.ruleCount, 0);
            EXPECT_TRUE(table.ParseRules("(7;nohost;app.exe)"));
            EXPECT_STREQ(table.ToString(), "[(7;;app.exe)]");
        });
}

TEST(ConfResolver, OnlyTheFirstResolvedAddressOfTheClientIsCompared)
{
    struct Row
    {
        std::vector<Octets> addresses;
        bool complies;
    };
    const Octets inside = {10, 1, 2, 3}, outside = {11, 1, 2, 3};
    const Row rows[] = {
        {{inside}, true},
        {{outside}, false},
        {{inside, outside}, true},
        {{outside, inside}, false},
        {{outside, inside, inside, inside}, false},
    };
    Kor_LogLevelRule rule;
    rule.logLevel = 7;
    rule.ipCount = 1;
    rule.ipAddresses[0].family = 2;
    const Octets network = {10, 0, 0, 0};
    unsigned int address = 0;
    std::memcpy(&address, network.data(), 4);
    rule.ipAddresses[0].SetIPv4BinaryForm(address);
    for (const Row& row : rows)
    {
        Resolver resolver(row.addresses);
        EXPECT_EQ(rule.DoesComply(RWCString("client.example"), "", 1, 1), row.complies) << row.addresses.size();
        EXPECT_EQ(resolver.lookups(), 1);
        EXPECT_EQ(resolver.unreleased(), 0);
        EXPECT_FALSE(resolver.strangers_released());
    }
}

TEST(ConfResolver, AClientThatDoesNotResolveCompliesWithNoRule)
{
    Resolver resolver({}, 11001);
    EXPECT_EQ(
        printed_by([&] { EXPECT_FALSE(Kor_LogLevelRule("7;;app").DoesComply(RWCString("nohost"), "app", 1, 1)); }),
        "getaddrinfo for ip nohost, failed with error: 11001\n");
    Kor_LogLevelRuleTable table;
    table.ParseRules("(7;;app)(6;;;12)");
    char client[] = "nohost";
    EXPECT_EQ(
        printed_by([&] { EXPECT_EQ(table.GetLogLevel(client, "app", 12, 1), 0); }),
        "getaddrinfo for ip nohost, failed with error: 11001\n"
        "getaddrinfo for ip nohost, failed with error: 11001\n");
}

TEST(ConfResolver, NothingIsResolvedForAnEmptyClientOrAnEmptyTable)
{
    Resolver resolver(THREE);
    ASSERT_TRUE(resolver.installed());
    Kor_LogLevelRuleTable table;
    char client[] = "client.example", none[] = "";
    EXPECT_EQ(table.GetLogLevel(client, "app", 1, 1), 0);
    table.ParseRules("(7;;app)");
    EXPECT_EQ(table.GetLogLevel(nullptr, "app", 1, 1), 7);
    EXPECT_EQ(table.GetLogLevel(none, "app", 1, 1), 7);
    EXPECT_EQ(resolver.lookups(), 0);
    EXPECT_EQ(table.GetLogLevel(client, "app", 1, 1), 7);
    EXPECT_GT(resolver.lookups(), 0);
    EXPECT_EQ(resolver.unreleased(), 0);
}

TEST(ConfResolver, AnAnswerWithoutAddressesCompliesWithNothingAndAddsNothing)
{
    Resolver resolver(std::vector<Octets>{});
    printed_by(
        [&]
        {
            const Kor_LogLevelRule rule("7;host.example;app");
            EXPECT_EQ(rule.ipCount, 0);
            EXPECT_FALSE(rule.DoesComply(RWCString("client.example"), "app", 1, 1));
        });
}

TEST(ConfResolver, WithoutASocketLibraryNoAddressIsKnownAndThatIsTold)
{
    ASSERT_TRUE(FoundFunctions::put("getaddrinfo", nullptr));
    Kor_LogLevelRule rule;
    EXPECT_EQ(
        printed_by([&] { rule.AddIPAddress("10.1.2.3"); }), "getaddrinfo for ip 10.1.2.3, failed with error: 10091\n");
    EXPECT_EQ(rule.ipCount, 0);
    IP_Structure address;
    address.family = 2;
    address.SetIPv4BinaryForm(0x0301010A);
    EXPECT_STREQ(address.ToString(), "");
    address.family = 23;
    EXPECT_STREQ(address.ToString(), "");
}

// The process's client ------------------------------------------------------------------------------

namespace
{
/// A log with a configuration of its own, with these lines of packages, whose addresses are read as they stand.
class LogOfAClient
{
public:
    explicit LogOfAClient(const std::string& packages)
        : m_directory(TO_FILE + packages), m_develop("KORAL_LOG_DEVELOP", "1"), m_log(777, false)
    {
    }
    ~LogOfAClient() { m_log.SetIP(nullptr); }

    Kor_LogFile& log() { return m_log; }
    int level(int package) { return m_log.GetLogLevel(package * PACKAGE_RANGE); }

private:
    /// One has to have been there when the library finds the resolver; without one it is the system's.
    struct Found
    {
        Found() { const Resolver resolver({}); }
    };

    const Found m_found;
    const LogDirectory m_directory;
    const EnvironmentVariable m_develop;
    Kor_LogFile m_log;
};

/// Ten rules for the process, for ten addresses, that grant these levels.
std::string ten_rules(int level)
{
    std::string rules;
    for (int i = 0; i < 10; ++i)
        rules += "(" + std::to_string(level) + ";10.1.2." + std::to_string(i + 1) + ")";
    return "[" + rules + "]";
}
} // namespace

TEST(ConfClient, ANameThatDoesNotResolveIsLookedUpOnceUntilTheClientChanges)
{
    std::string packages;
    for (int package = 0; package < 20; ++package)
        packages +=
            "Album" + std::to_string(package) + ' ' + std::to_string(package) + " 4 [(7;10.1.2.1)(7;10.1.2.2)]\n";
    LogOfAClient host(packages);
    Resolver resolver({}, 11001);
    ASSERT_TRUE(resolver.installed());
    host.log().SetIP("nohost");
    const auto check_all = [&host]
    {
        for (int package = 0; package < 20; ++package)
        {
            EXPECT_EQ(host.level(package), 4) << package;
            EXPECT_EQ(host.log().CheckMsgLevel(package * PACKAGE_RANGE, 5), 0) << package;
        }
    };
    const std::string line = "getaddrinfo for ip nohost, failed with error: 11001\n";
    EXPECT_EQ(printed_by(check_all), line);
    EXPECT_EQ(resolver.lookups(), 1);
    host.log().SetThreadName("loader"); // for which all levels are computed again
    EXPECT_EQ(host.log().SetCustomLogLevel(21, 6, true), 0);
    host.log().ClearCacheTable();
    EXPECT_EQ(printed_by(check_all), "");
    EXPECT_EQ(resolver.lookups(), 1);
    host.log().SetIP("nohost"); // it may have got a name by now
    EXPECT_EQ(printed_by(check_all), line);
    EXPECT_EQ(resolver.lookups(), 2);
    host.log().SetIPAndSID("nohost", 3);
    EXPECT_EQ(printed_by(check_all), line);
    EXPECT_EQ(resolver.lookups(), 3);
}

TEST(ConfClient, ANameThatResolvesIsLookedUpOnceForTenRulesAndForALocalConfiguration)
{
    LogOfAClient host("Album 3 4 " + ten_rules(6) + "\nPage 4 4 " + ten_rules(7) + "\n");
    const auto local = std::make_unique<Kor_LogConf>();
    local->GetRuleTable(5).ParseRules("(5;10.1.2.3)");
    host.log().SetLocalConf(local.get());
    Resolver resolver(THREE);
    host.log().SetIP("reader.example");
    EXPECT_EQ(host.level(3), 6);
    EXPECT_EQ(host.level(4), 7);
    EXPECT_EQ(host.level(5), 5);
    EXPECT_EQ(host.level(6), 4);
    EXPECT_EQ(resolver.nodes, (std::vector<std::string>{"reader.example"}));
    EXPECT_EQ(resolver.unreleased(), 0);
    host.log().SetIP("10.1.2.9"); // whose rule the first address of the three fits again
    EXPECT_EQ(host.level(3), 6);
    EXPECT_EQ(resolver.nodes, (std::vector<std::string>{"reader.example", "10.1.2.9"}));
    host.log().SetLocalConf(nullptr);
}

TEST(ConfClient, NothingIsLookedUpWhereItCannotChangeTheLevel)
{
    struct Row
    {
        const char* name;
        std::string rules;
        const char* client;
        int level;
    };
    const std::string own = std::to_string(::GetCurrentProcessId());
    const Row rows[] = {
        {"no rules", "", "nohost", 4},
        {"another process, with addresses", "[(7;10.0.0.0;;1)]", "nohost", 4},
        {"another application, with addresses", "[(7;10.0.0.0;viewer)]", "nohost", 4},
        {"another session, with addresses", "[(7;10.0.0.0;;;99)]", "nohost", 4},
        {"another process", "[(7;;;1)]", "nohost", 4},
        {"this process, the client's address", "[(7;;;" + own + ")]", "192.0.2.7", 7},
        {"this process, no client", "[(7;;;" + own + ")]", nullptr, 7},
        {"addresses, no client", "[(7;10.0.0.0)]", nullptr, 4},
    };
    for (const Row& row : rows)
    {
        LogOfAClient host("Album 3 4 " + row.rules + "\n");
        host.log().SetIP(row.client);
        Resolver resolver({}, 11001);
        ASSERT_TRUE(resolver.installed());
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(host.level(3), row.level) << row.name; }), "") << row.name;
        EXPECT_EQ(resolver.lookups(), 0) << row.name;
    }
}

TEST(ConfClient, ANameThatDoesNotResolveCompliesWithNoRuleAndOneThatResolvesWithThoseWithoutAddresses)
{
    const std::string own = std::to_string(::GetCurrentProcessId());
    LogOfAClient host("Album 3 4 [(7;;;" + own + ")]\nPage 4 4 [(6;;;" + own + ")]\n");
    {
        Resolver resolver({}, 11001);
        host.log().SetIP("nohost");
        printed_by(
            [&host]
            {
                EXPECT_EQ(host.level(3), 4);
                EXPECT_EQ(host.level(4), 4);
            });
        EXPECT_EQ(resolver.lookups(), 1);
    }
    Resolver resolver(THREE);
    host.log().SetIP("reader.example");
    EXPECT_EQ(host.level(3), 7);
    EXPECT_EQ(host.level(4), 6);
    EXPECT_EQ(resolver.lookups(), 1);
}

namespace
{
KOR_CHILD(conf_client_trace)
{
    LogOfAClient host("Album 3 4 [(7;10.1.2.3;other)(6;10.1.2.3)]\nPage 4 4 [(6;10.1.2.4)]\n");
    const Resolver resolver(THREE);
    host.log().SetIP("reader.example");
    std::printf("<match>\n");
    host.level(3);
    host.level(4);
    return 0;
}
} // namespace

TEST(ConfClient, TheTraceOfACheckIsTheSameWithAKnownAddress)
{
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DEBUG", "1"}};
    const std::string out = text_of(run_child("conf_client_trace", options).out);
    ASSERT_NE(out.find("<match>\n"), std::string::npos) << out;
    const std::size_t process = out.find("[reader.example, , ");
    ASSERT_NE(process, std::string::npos) << out;
    const std::string who = out.substr(process, out.find(']', process) + 1 - process);
    const std::string checking = "Checking log level to [IP, Application name, Process ID, Session ID]: " + who + "\n";
    EXPECT_EQ(
        out.substr(out.find("<match>\n")), "<match>\n"
                                           "Cache table is not up-to-date. clearing table and getting configuration "
                                           "for package 3\n" +
                                               checking +
                                               "Checking rule #1\n"
                                               "Application name did not fit\n"
                                               "Application name did not fit\n"
                                               "Application name did not fit\n"
                                               "Checking rule #2\n"
                                               "Rule fits with level 6\n"
                                               "Package 3 Log level set to 6\n" +
                                               checking +
                                               "Checking rule #1\n"
                                               "Package 4 Log level set to 4\n"
                                               "SetIP: Log Context changed to [(null) [0]]\n");
}

// A thread's client ---------------------------------------------------------------------------------

namespace
{
constexpr ULONGLONG MINUTE_MS = 60'000;

/// The level of package 3 for a client, in a scope of its own.
int level_for(LogOfAClient& host, const char* client)
{
    const Kor_ClientScope scope(client);
    return host.level(3);
}
} // namespace

TEST(ConfThreadClient, ANameIsLookedUpOnceForAllScopesOfAMinute)
{
    LogOfAClient host("Album 3 4 " + ten_rules(7) + "\n");
    ULONGLONG now = 1'000'000;
    const Hook<GetTickCount64Import> clock([&now]() -> ULONGLONG { return now; });
    Resolver resolver(THREE);
    ASSERT_TRUE(clock.installed() && resolver.installed());
    EXPECT_EQ(level_for(host, "reader.example"), 7);
    now += MINUTE_MS;
    host.log().ClearCacheTable();
    EXPECT_EQ(level_for(host, "reader.example"), 7);
    EXPECT_EQ(resolver.nodes, (std::vector<std::string>{"reader.example"}));
    now += 1;
    {
        const Kor_ClientScope scope("reader.example"); // nobody was in one: it may have another address by now
        EXPECT_EQ(level_for(host, "reader.example"), 7);
        EXPECT_EQ(resolver.lookups(), 2);
        now += MINUTE_MS + 1;
        EXPECT_EQ(level_for(host, "reader.example"), 7);
        EXPECT_EQ(resolver.lookups(), 2);
    }
    EXPECT_EQ(resolver.unreleased(), 0);
}

TEST(ConfThreadClient, AnotherAddressOfANameCountsWhenItIsLookedUpAgain)
{
    LogOfAClient host("Album 3 4 [(7;10.1.2.3)]\n");
    ULONGLONG now = 1'000'000;
    const Hook<GetTickCount64Import> clock([&now]() -> ULONGLONG { return now; });
    {
        const Resolver resolver(THREE);
        EXPECT_EQ(level_for(host, "reader.example"), 7);
    }
    const Resolver resolver({{10, 1, 2, 4}});
    EXPECT_EQ(level_for(host, "reader.example"), 7);
    now += MINUTE_MS + 1;
    EXPECT_EQ(level_for(host, "reader.example"), 4);
}

TEST(ConfThreadClient, ANameThatDoesNotResolveIsNotAskedForAgainAtEachScope)
{
    LogOfAClient host("Album 3 4 " + ten_rules(7) + "\n");
    Resolver resolver({}, 11001);
    EXPECT_EQ(
        printed_by(
            [&]
            {
                for (int i = 0; i < 100; ++i)
                    EXPECT_EQ(level_for(host, "nohost"), 4);
            }),
        "getaddrinfo for ip nohost, failed with error: 11001\n");
    EXPECT_EQ(resolver.lookups(), 1);
}

TEST(ConfThreadClient, AnAddressIsLookedUpOnceForGood)
{
    LogOfAClient host("Album 3 4 " + ten_rules(7) + "\n");
    ULONGLONG now = 1'000'000;
    const Hook<GetTickCount64Import> clock([&now]() -> ULONGLONG { return now; });
    Resolver resolver(THREE);
    EXPECT_EQ(level_for(host, "10.1.2.3"), 7);
    now += 100 * MINUTE_MS;
    EXPECT_EQ(level_for(host, "10.1.2.3"), 7);
    EXPECT_EQ(resolver.lookups(), 1);
}

TEST(ConfThreadClient, NothingIsLookedUpForARuleWithoutAddresses)
{
    LogOfAClient host("Album 3 4 [(7;;;" + std::to_string(::GetCurrentProcessId()) + ")]\n");
    Resolver resolver({}, 11001);
    EXPECT_EQ(level_for(host, "192.0.2.7"), 7);
    EXPECT_EQ(level_for(host, nullptr), 7);
    EXPECT_EQ(resolver.lookups(), 0);
}

// A change while a level is being computed ----------------------------------------------------------

namespace
{
/// A log with rules for clients whose names resolve to 10.1.2.3, and a second thread that asks for the
/// level of package 3 and stops in the middle of resolving.
class InterruptedCheck
{
public:
    explicit InterruptedCheck(const char* package_line)
        : m_lookup(
              [this](PCSTR, PCSTR, const ADDRINFOA*, PADDRINFOA* result) -> INT
              {
                  if (::GetCurrentThreadId() != m_test_thread)
                  {
                      m_inside.set();
                      m_go_on.wait();
                  }
                  *result = &m_record;
                  return 0;
              }),
          m_release([](PADDRINFOA) {})
    {
        EXPECT_TRUE(m_lookup.installed() && m_release.installed());
        m_socket.sin_family = AF_INET;
        const Octets address = {10, 1, 2, 3};
        std::memcpy(&m_socket.sin_addr, address.data(), 4);
        m_record.ai_family = AF_INET;
        m_record.ai_addrlen = sizeof m_socket;
        m_record.ai_addr = reinterpret_cast<sockaddr*>(&m_socket);

        const LogDirectory directory(TO_FILE + package_line);
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
        m_log = std::make_unique<Kor_LogFile>(777, false);
        m_log->SetIP("client.example");
        m_thread = std::make_unique<BoundedThread>([this] { m_log->GetLogLevel(30000); });
        EXPECT_TRUE(m_inside.wait());
    }
    ~InterruptedCheck() { m_log->SetIP(nullptr); }

    Kor_LogFile& log() { return *m_log; }
    int lookups() const { return m_lookup.calls(); }
    Kor_LogConf& conf() { return const_cast<Kor_LogConf&>(*m_log->GetConf()); } // as another process would

    /// Lets the other thread finish.
    void finish()
    {
        m_go_on.set();
        m_thread->join();
    }

private:
    const DWORD m_test_thread = ::GetCurrentThreadId();
    NamedEvent m_inside{unique_name("inside")};
    NamedEvent m_go_on{unique_name("go-on")};
    sockaddr_in m_socket{};
    ADDRINFOA m_record{};
    FoundHook<getaddrinfoImport> m_lookup;
    FoundHook<freeaddrinfoImport> m_release;
    std::unique_ptr<Kor_LogFile> m_log;
    std::unique_ptr<BoundedThread> m_thread;
};
} // namespace

TEST(ConfCacheRace, ALevelFromBeforeAPublishedChangeIsNotKept)
{
    InterruptedCheck check("Net 3 7 [(1;10.0.0.0)]\n");
    check.conf().packageLevels[3] = 2;
    check.conf().changeCount += 1;
    EXPECT_EQ(check.log().GetLogLevel(30000), 2);
    check.finish();
    EXPECT_EQ(check.log().GetLogLevel(30000), 2);
    EXPECT_EQ(check.log().CheckMsgLevel(30000, 3), 0);
}

TEST(ConfCacheRace, ALevelFromBeforeAChangeThatNobodyHasSeenYetIsNotKept)
{
    InterruptedCheck check("Net 3 7 [(1;10.0.0.0)]\n");
    check.conf().packageLevels[3] = 2;
    check.conf().changeCount += 1;
    check.finish();
    EXPECT_EQ(check.log().GetLogLevel(30000), 2);
}

TEST(ConfCacheRace, ALevelOfTheClientBeforeIsNotKept)
{
    InterruptedCheck check("Net 3 4 [(7;10.0.0.0)]\n");
    check.log().SetIP(nullptr);
    EXPECT_EQ(check.log().GetLogLevel(30000), 4);
    check.finish();
    EXPECT_EQ(check.log().GetLogLevel(30000), 4);
    EXPECT_EQ(check.log().CheckMsgLevel(30000, 5), 0);
}

TEST(ConfCacheRace, TheAddressOfTheClientBeforeIsNotKept)
{
    InterruptedCheck check("Net 3 4 [(7;10.0.0.0)]\n");
    const int first = check.lookups();
    check.log().SetIP("another.example");
    check.finish();
    EXPECT_EQ(check.lookups(), first);
    for (int again = 0; again < 3; ++again)
    {
        EXPECT_EQ(check.log().GetLogLevel(30000), 7);
        EXPECT_EQ(check.lookups(), first + 1);
        check.log().ClearCacheTable();
    }
}

TEST(ConfCacheRace, ALevelFromBeforeTheCacheWasClearedIsNotKept)
{
    InterruptedCheck check("Net 3 7 [(1;10.0.0.0)]\n");
    check.conf().packageLevels[3] = 2; // without a stamp
    check.log().ClearCacheTable();
    check.finish();
    EXPECT_EQ(check.log().GetLogLevel(30000), 2);
}

// Programs of earlier headers compare a generation of eight bits, which would come back.
TEST(ConfCacheRace, ALevelFromBefore256ChangesIsNotKept)
{
    InterruptedCheck check("Net 3 7 [(1;10.0.0.0)]\n");
    check.conf().packageLevels[3] = 2; // without a stamp
    for (int changes = 0; changes < 256; ++changes)
        check.log().ClearCacheTable();
    check.finish();
    EXPECT_EQ(check.log().GetLogLevel(30000), 2);
}

TEST(ConfCacheRace, ALevelFromBeforeTheFirstScopeIsNotKept)
{
    InterruptedCheck check("Net 3 4 [(7;192.0.2.7)]\n");
    const Kor_ClientScope scope(nullptr); // from here on levels are the client's
    check.finish();
    EXPECT_FALSE(check.log().IsRejected(7, 3)); // as there is one who wants it
}

TEST(ConfCacheRace, ALevelRaisedByALocalConfigurationThatIsGoneIsNotKept)
{
    InterruptedCheck check("Net 3 4 [(7;10.0.0.0)]\n");
    check.finish();
    const auto local = std::make_unique<Kor_LogConf>();
    check.log().SetLocalConf(local.get());
    check.log().SetIP(nullptr);
    EXPECT_EQ(check.log().GetLogLevel(30000), 4);
    local->GetRuleTable(3).ParseRules(("(6;;;" + std::to_string(::GetCurrentProcessId()) + ')').c_str());
    local->GenerateChangeCount();
    EXPECT_EQ(check.log().GetLogLevel(30000), 6);
    check.log().SetLocalConf(nullptr);
    EXPECT_EQ(check.log().GetLogLevel(30000), 4);
}

namespace
{
KOR_CHILD(conf_resolver_trace)
{
    Resolver resolver(THREE);
    Kor_LogLevelRuleTable table;
    table.ParseRules("(7;;other)(6;;app)");
    std::printf("<match>\n");
    char client[] = "client.example";
    table.GetLogLevel(client, "app", 12, 3);
    return 0;
}
} // namespace

TEST(ConfResolver, AFailingRuleIsCheckedOnceForEachResolvedAddress)
{
    ChildOptions options;
    options.environment = {{"PRISMATE_LOG_DEBUG", "1"}};
    const std::string out = text_of(run_child("conf_resolver_trace", options).out);
    ASSERT_NE(out.find("<match>\n"), std::string::npos);
    EXPECT_EQ(
        out.substr(out.find("<match>\n")),
        "<match>\n"
        "Checking log level to [IP, Application name, Process ID, Session ID]: [client.example, app, 12, 3]\n"
        "Checking rule #1\n"
        "Application name did not fit\n"
        "Application name did not fit\n"
        "Application name did not fit\n"
        "Checking rule #2\n"
        "application name fits with app\n"
        "Rule fits with level 6\n");
}

TEST(ConfAddressText, AnIpv4AddressThatWindowsCannotConvertReadsAsNothing)
{
    IP_Structure address;
    address.family = 2;
    address.SetIPv4BinaryForm(0x0301010A);
    const FoundHook<inet_ntoaImport> fails([](IN_ADDR) -> char* { return nullptr; });
    ASSERT_TRUE(fails.installed());
    EXPECT_STREQ(address.ToString(), "");
    EXPECT_EQ(fails.calls(), 1);
}

TEST(ConfAddressText, AnIpv6AddressThatWindowsCannotConvertReadsAsNothing)
{
    IP_Structure address;
    address.family = 23;
    address.address[15] = 1;
    address.SetNetmask(64);
    const FoundHook<getnameinfoImport> fails(
        [](const SOCKADDR*, socklen_t, PCHAR host, DWORD size, PCHAR, DWORD, INT) -> INT
        {
            std::memset(host, 'x', size < 20 ? size : 20); // what a failure leaves behind
            return 11001;
        });
    ASSERT_TRUE(fails.installed());
    EXPECT_STREQ(address.ToString(), "");
    EXPECT_EQ(fails.calls(), 1);
    char buffer[70];
    std::memset(buffer, 'y', sizeof buffer);
    address.convert_v6_to_string(buffer, 66);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(66, '\0') + "yyyy");
}

TEST(ConfAddressText, AnIpv6AddressIsConvertedAsANumericHostIn65Bytes)
{
    IP_Structure address;
    address.family = 23;
    address.address[0] = 0xfe;
    address.address[1] = 0x80;
    sockaddr_in6 seen{};
    socklen_t length = 0;
    DWORD size = 0;
    DWORD service_size = 1;
    INT flags = 0;
    const FoundHook<getnameinfoImport> records(
        [&](const SOCKADDR* from, socklen_t from_length, PCHAR host, DWORD host_size, PCHAR, DWORD services,
            INT asked) -> INT
        {
            std::memcpy(&seen, from, sizeof seen);
            length = from_length;
            size = host_size;
            service_size = services;
            flags = asked;
            std::strcpy(host, "converted");
            return 0;
        });
    EXPECT_STREQ(address.ToString(), "converted");
    EXPECT_EQ(seen.sin6_family, 23);
    EXPECT_EQ(std::memcmp(&seen.sin6_addr, address.address, 16), 0);
    EXPECT_EQ(seen.sin6_port, 0);
    EXPECT_EQ(seen.sin6_scope_id, 0u);
    EXPECT_EQ(length, static_cast<socklen_t>(sizeof(sockaddr_in6)));
    EXPECT_EQ(size, 65u);
    EXPECT_EQ(service_size, 0u);
    EXPECT_EQ(flags, NI_NUMERICHOST);
}

TEST(ConfAddressText, TheLongestConversionLeavesRoomForNoMoreThanTheBuffer)
{
    IP_Structure address;
    address.family = 23;
    address.address[0] = 1;
    address.SetNetmask(64);
    const FoundHook<getnameinfoImport> fills(
        [](const SOCKADDR*, socklen_t, PCHAR host, DWORD size, PCHAR, DWORD, INT) -> INT
        {
            std::memset(host, 'h', size - 1);
            host[size - 1] = '\0';
            return 0;
        });
    char buffer[80];
    std::memset(buffer, 'y', sizeof buffer);
    address.convert_v6_to_string(buffer, 65);
    EXPECT_LT(std::strlen(buffer), 65u);
    EXPECT_EQ(std::string(buffer + 65, 15), std::string(15, 'y'));
    EXPECT_LT(address.ToString().length(), 80u);
}
