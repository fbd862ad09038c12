// The functions for C: destinations.

#include "lumlog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

/// What a callback was given.
struct Received
{
    lum_message message;
    std::string file, function, headline, text;
};

/// A destination over a callback, which notes what comes and then runs `then`.
class Receiver
{
public:
    explicit Receiver(std::function<void()> then = nullptr)
        : m_then(std::move(then)), m_handle(lum_add_destination(&receive, this))
    {
        EXPECT_NE(m_handle, nullptr);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() { end(); }

    void end() { lum_remove_destination(m_handle); }

    std::vector<Received> received;

private:
    static int LUM_CALL receive(void* user, const lum_message* message)
    {
        auto& self = *static_cast<Receiver*>(user);
        self.received.push_back({*message, message->file, message->function, message->headline, message->text});
        if (self.m_then)
            self.m_then();
        return 0;
    }

    std::function<void()> m_then;
    lum_destination* m_handle;
};

class CDestinations : public ::testing::Test
{
protected:
    CDestinations() { lum_open_with("test.log", "tool", LUM_NO_BANNERS); }

    void write(const char* text) { lum_write(&m_site, LUM_ERROR, 310, text, LUM_ZT); }

    const LogDirectory m_directory;
    const lum_site m_site = {sizeof(lum_site), 77, "tool.c", "load"};
};

std::string failure(const std::string& line) { return line.substr(line.find(" -> ")); }
} // namespace

TEST_F(CDestinations, AMessageIsHandedOverWhole)
{
    lum_set_client("192.0.2.7", 3);
    SYSTEMTIME before{};
    ::GetLocalTime(&before);
    Receiver seen;
    write("cannot read front.png");
    lum_write_bare(LUM_WARNING, 311, 4711, "bare", LUM_ZT);

    ASSERT_EQ(seen.received.size(), 2u);
    const Received& first = seen.received[0];
    EXPECT_EQ(first.message.size, sizeof(lum_message));
    EXPECT_EQ(first.message.level, LUM_ERROR);
    EXPECT_EQ(first.message.package, 310);
    EXPECT_EQ(first.message.line, 77);
    EXPECT_EQ(first.message.bare, 0);
    EXPECT_EQ(first.message.thread, ::GetCurrentThreadId());
    EXPECT_EQ(first.file, "tool.c");
    EXPECT_EQ(first.function, "load");
    EXPECT_EQ(first.text, "cannot read front.png\n");
    EXPECT_EQ(first.message.length, first.text.size());
    EXPECT_EQ(first.message.headline_length, first.headline.size());
    EXPECT_EQ(
        masked_line(first.headline),
        "<time> ERROR   (310) tool (<pid>,<tid>) ClientIP(192.0.2.7) SessionId(3) tool.c(77) load ->");
    const lum_message& m = first.message;
    EXPECT_GE(m.year, before.wYear);
    EXPECT_TRUE(m.month >= 1 && m.month <= 12 && m.day >= 1 && m.day <= 31 && m.hour < 24 && m.minute < 60);
    char time[64];
    std::snprintf(
        time, sizeof time, "%04d-%02d-%02d %02d:%02d:%02d.%03d%c%02d:%02d", m.year, m.month, m.day, m.hour, m.minute,
        m.second, m.millisecond, m.zone_minutes < 0 ? '-' : '+', std::abs(m.zone_minutes) / 60,
        std::abs(m.zone_minutes) % 60);
    EXPECT_EQ(first.headline.substr(0, 29), time);

    const Received& second = seen.received[1];
    EXPECT_EQ(second.message.bare, 1);
    EXPECT_EQ(second.headline, "");
    EXPECT_EQ(second.message.headline_length, 0u);
    EXPECT_EQ(second.text, "bare\n");
    EXPECT_EQ(second.message.line, 0);
    lum_set_client(nullptr, 0);
}

TEST_F(CDestinations, AMessageThatWasCutHasItsLengthToo)
{
    Receiver seen;
    lum_writef(&m_site, LUM_ERROR, 310, "%s", std::string(3000, 'x').c_str());
    KorGLog.StoreParams("tool.c", "load", 1, 3, 310);
    KorGLog.PrintOrLog(nullptr, "%s", std::string(3000, 'y').c_str()); // has no end, as it was cut

    ASSERT_EQ(seen.received.size(), 2u);
    EXPECT_EQ(seen.received[0].message.length, 2047u);
    EXPECT_EQ(seen.received[1].message.length, 2047u);
}

TEST_F(CDestinations, AnEndedDestinationGetsNothingMore)
{
    Receiver seen;
    write("one");
    seen.end();
    write("two");
    seen.end();
    lum_remove_destination(nullptr);
    lum_remove_destination(reinterpret_cast<lum_destination*>(this)); // which never was one
    EXPECT_EQ(seen.received.size(), 1u);
    EXPECT_EQ(lum_add_destination(nullptr, nullptr), nullptr);
}

TEST_F(CDestinations, ADestinationMayLog)
{
    int depth = 0;
    Receiver seen(
        [&]
        {
            if (depth++ == 0)
                write("from inside");
        });
    write("from outside");
    EXPECT_EQ(seen.received.size(), 2u);
    EXPECT_EQ(m_directory.lines().size(), 2u);
}

TEST_F(CDestinations, ADestinationMayEndItselfAndOthersGetTheMessageAllTheSame)
{
    Receiver* itself = nullptr;
    Receiver first([&] { itself->end(); });
    itself = &first;
    Receiver second;
    write("one");
    write("two");
    EXPECT_EQ(first.received.size(), 1u);
    EXPECT_EQ(second.received.size(), 2u);
    Receiver third; // what ended inside is forgotten by now
    write("three");
    EXPECT_EQ(first.received.size(), 1u);
    EXPECT_EQ(second.received.size(), 3u);
    EXPECT_EQ(third.received.size(), 1u);
}

TEST_F(CDestinations, ADestinationMayAddAndEndOthers)
{
    lum_destination* other = nullptr;
    int calls = 0;
    const lum_receive count = [](void* user, const lum_message*) { return ++*static_cast<int*>(user); };
    Receiver seen(
        [&]
        {
            if (other == nullptr)
                other = lum_add_destination(count, &calls);
            else
                lum_remove_destination(std::exchange(other, nullptr));
        });
    write("one"); // reaches the new one as well
    EXPECT_EQ(calls, 1);
    write("two");
    EXPECT_EQ(calls, 1);
    lum_remove_destination(other);
}

TEST_F(CDestinations, WhatACallbackThrowsEndsInTheLogWithALine)
{
    Receiver seen([] { throw std::runtime_error("from the callback"); });
    EXPECT_NO_THROW(write("one"));
    on_another_thread([&] { seen.end(); });
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(failure(lines[1]), " -> A log destination has thrown an exception: from the callback");
}

TEST_F(CDestinations, WhatACallbackRaisesEndsInTheLogWithALine)
{
    Receiver seen([] { ::RaiseException(0xE0001234, 0, 0, nullptr); });
    EXPECT_NO_THROW(write("one"));
    on_another_thread([&] { write("two"); });
    seen.end();
    seen.end();
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(failure(lines[1]), " -> A log destination has thrown an exception: 0xe0001234");
}

TEST_F(CDestinations, AfterAFailureADestinationCanBeEndedOnTheSameThread)
{
    Receiver seen([] { throw 7; });
    write("one");
    seen.end();
    bool called = false;
    Receiver other([&] { called = true; });
    write("two");
    EXPECT_TRUE(called);
    EXPECT_EQ(seen.received.size(), 1u);
}

TEST_F(CDestinations, ACallbackThatCannotThrowMaySayThatItFailed)
{
    Receiver seen([] { lum_destination_failed("the queue is full"); });
    write("one");
    seen.end();
    lum_destination_failed("nobody asked");
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(failure(lines[1]), " -> A log destination has thrown an exception: the queue is full");
}

TEST_F(CDestinations, EndingWaitsForACallOnAnotherThread)
{
    NamedEvent inside(unique_name("inside"));
    NamedEvent go_on(unique_name("go-on"));
    bool left = false;
    Receiver seen(
        [&]
        {
            inside.set();
            go_on.wait(30000);
            left = true;
        });
    BoundedThread writer([&] { write("one"); });
    ASSERT_TRUE(inside.wait(30000));
    BoundedThread opener([&] { go_on.set(); });
    seen.end();
    EXPECT_TRUE(left);
    writer.join();
}

TEST_F(CDestinations, AFileGetsEachLineToo)
{
    EXPECT_EQ(lum_add_file_destination(m_directory.file("missing\\copy.log").c_str()), nullptr);
    EXPECT_EQ(lum_add_file_destination(nullptr), nullptr);
    lum_destination* const file = lum_add_file_destination(m_directory.file("copy.log").c_str());
    ASSERT_NE(file, nullptr);
    write("one");
    lum_remove_destination(file);
    write("two");
    EXPECT_EQ(m_directory.lines("copy.log"), Lines{"<time> ERROR   (310) tool (<pid>,<tid>)  tool.c(77) load -> one"});
}

TEST_F(CDestinations, ADebuggerCanBeADestination)
{
    lum_destination* const debugger = lum_add_debugger_destination();
    EXPECT_NE(debugger, nullptr);
    write("one");
    lum_remove_destination(debugger);
}
