// Log destinations: the list of them, and the three that the library has.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <stdexcept>
#include <utility>

#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"
#include "win/guarded_call.cpp" // as this compiler has no __try

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(OutputDebugStringA);
KOR_IMPORT(malloc);

/// Notes its name for each message in a list that several share.
class NamedDestination : public Kor_LogDestBase
{
public:
    NamedDestination(std::string name, Lines& calls) : m_name(std::move(name)), m_calls(calls) {}

    int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
    {
        m_calls.push_back(m_name);
        return 0;
    }

private:
    std::string m_name;
    Lines& m_calls;
};

class LogDestinations : public ::testing::Test
{
protected:
    LogDestinations() : m_log(777, false) { m_log.Open("test.log", "viewer"); }
    ~LogDestinations() override { m_log.ClearAllLogDestinations(); }

    /// The names of the destinations that a message reaches now.
    Lines reached()
    {
        m_calls.clear();
        m_log.LogNoHeadline("x");
        return m_calls;
    }

    const LogDirectory m_directory;
    Lines m_calls;
    NamedDestination m_a{"a", m_calls};
    NamedDestination m_b{"b", m_calls};
    NamedDestination m_c{"c", m_calls};
    NamedDestination m_d{"d", m_calls};
    Kor_LogFile m_log;
};

// The list -----------------------------------------------------------------------
TEST_F(LogDestinations, DestinationsAreCalledInTheOrderOfTheirRegistration)
{
    EXPECT_EQ(reached(), Lines{});
    m_log.RegisterLogDestination(&m_c);
    m_log.RegisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&m_b);

    EXPECT_EQ(reached(), (Lines{"c", "a", "b"}));
}

TEST_F(LogDestinations, RegisteringTwiceKeepsOneEntryInItsPlace)
{
    m_log.RegisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&m_b);
    m_log.RegisterLogDestination(&m_a);
    EXPECT_EQ(reached(), (Lines{"a", "b"}));

    m_log.UnregisterLogDestination(&m_a);
    EXPECT_EQ(reached(), Lines{"b"});
}

TEST_F(LogDestinations, UnregisteringKeepsTheOrderOfTheOthers)
{
    for (Kor_LogDestBase* const destination : {&m_a, &m_b, &m_c, &m_d})
        m_log.RegisterLogDestination(destination);
    m_log.UnregisterLogDestination(&m_b);
    EXPECT_EQ(reached(), (Lines{"a", "c", "d"}));
    m_log.UnregisterLogDestination(&m_a);
    EXPECT_EQ(reached(), (Lines{"c", "d"}));
    m_log.RegisterLogDestination(&m_b);
    EXPECT_EQ(reached(), (Lines{"c", "d", "b"}));
}

TEST_F(LogDestinations, UnregisteringAnUnknownObjectChangesNothing)
{
    m_log.UnregisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&m_a);
    m_log.UnregisterLogDestination(&m_b);
    m_log.UnregisterLogDestination(nullptr);

    EXPECT_EQ(reached(), Lines{"a"});
}

TEST_F(LogDestinations, NullIsNotRegistered)
{
    m_log.RegisterLogDestination(nullptr);
    m_log.RegisterLogDestination(&m_a);
    EXPECT_EQ(reached(), Lines{"a"});
}

TEST_F(LogDestinations, WithoutMemoryForTheListADestinationIsLeftOutWithALine)
{
    m_log.RegisterLogDestination(&m_a);
    {
        bool failed = false;
        Hook<mallocImport>* mallocs = nullptr;
        Hook<mallocImport> hook(
            [&](std::size_t size) -> void*
            {
                const bool is_list = size == 2 * sizeof(void*); // of two pointers: what it grows to
                return is_list && !std::exchange(failed, true) ? nullptr : mallocs->original(size);
            });
        mallocs = &hook;
        ASSERT_TRUE(hook.installed());
        EXPECT_NO_THROW(m_log.RegisterLogDestination(&m_b));
        EXPECT_TRUE(failed);
    }
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(lines[0].find(" -> ")), " -> No memory to register a log destination");
    EXPECT_EQ(reached(), Lines{"a"});
    m_log.RegisterLogDestination(&m_b);
    EXPECT_EQ(reached(), (Lines{"a", "b"}));
}

TEST_F(LogDestinations, ClearingForgetsAll)
{
    m_log.RegisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&m_b);
    m_log.ClearAllLogDestinations();
    EXPECT_EQ(reached(), Lines{});
    m_log.ClearAllLogDestinations();
    m_log.RegisterLogDestination(&m_b);
    EXPECT_EQ(reached(), Lines{"b"});
}

TEST_F(LogDestinations, EachLogHasAListOfItsOwn)
{
    Kor_LogFile other(777, false);
    other.Open("other.log", "viewer");
    other.RegisterLogDestination(&m_a);

    EXPECT_EQ(reached(), Lines{});
    other.ClearAllLogDestinations();
}

// What they are given ------------------------------------------------------------
TEST_F(LogDestinations, ADestinationGetsContextFormTextAndLength)
{
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    m_log.StoreParams("C:\\src\\Kor_Image.cpp", "Load", 210, 3, 17);
    m_log.Log("one %d", 1);
    m_log.LogNoHeadline(4711ul, "two");

    ASSERT_EQ(seen.messages.size(), 2u);
    EXPECT_FALSE(seen.messages[0].bare);
    EXPECT_EQ(seen.messages[0].text, "one 1\n");
    EXPECT_EQ(seen.messages[0].length, 6u);
    EXPECT_EQ(seen.messages[0].file_name, "Kor_Image.cpp");
    EXPECT_EQ(seen.messages[0].function, "Load");
    EXPECT_EQ(seen.messages[0].line, 210);
    EXPECT_EQ(seen.messages[0].level, 3);
    EXPECT_EQ(seen.messages[0].package, 17);
    EXPECT_TRUE(seen.messages[1].bare);
    EXPECT_EQ(seen.messages[1].text, "two\n");
    EXPECT_EQ(seen.messages[1].length, 4u);
    EXPECT_EQ(seen.messages[1].line, 0); // the parameters were reset after the first
    m_log.UnregisterLogDestination(&seen);
}

TEST_F(LogDestinations, ADestinationIsCalledAfterTheOutputWhateverThatIs)
{
    Lines order;
    RecordingDestination seen([&](Kor_LogMTVars&) { order.push_back(m_directory.text()); });
    m_log.RegisterLogDestination(&seen);
    m_log.LogNoHeadline("x");
    EXPECT_EQ(order, Lines{"x\n"});

    m_log.SetCustomLogLevel(Kor_LogConf::OUTPUT_SYSLOG_FILE, 3, 4, false);
    m_log.LogNoHeadline("y");
    EXPECT_EQ(seen.messages.size(), 2u);
    m_log.SetCustomLogLevel(Kor_LogConf::OUTPUT_STDERR, 3, 4, false);
    CapturedStream err(stderr);
    m_log.LogNoHeadline("z");
    EXPECT_EQ(seen.messages.size(), 3u);
    m_log.UnregisterLogDestination(&seen);
}

TEST_F(LogDestinations, ADestinationMayBuildTheHeadlineItself)
{
    Lines headlines;
    RecordingDestination seen(
        [&](Kor_LogMTVars& context)
        {
            headlines.push_back(masked_line(context.AsStringFull(false)));
            headlines.push_back(masked_line(context.AsStringPartialWS(false)));
            headlines.push_back(masked_line(context.AsStringPartialUnix(false)));
        });
    m_log.RegisterLogDestination(&seen);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.Log("x");
    m_log.UnregisterLogDestination(&seen);

    EXPECT_EQ(
        headlines, (Lines{
                       "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load ->",
                       "<time> [<pid>,<tid>]3 Kor_Image(210) Load:",
                       "[<ms>][<tid>] 3 Kor_Image(210) Load:",
                   }));
}

// Logging, failing and throwing from inside --------------------------------------
TEST_F(LogDestinations, ADestinationMayLogFromInsideLogMessage)
{
    int depth = 0;
    RecordingDestination seen(
        [&](Kor_LogMTVars&)
        {
            if (depth < 3)
            {
                ++depth;
                m_log.LogNoHeadline("from inside, %d", depth);
            }
        });
    m_log.RegisterLogDestination(&seen);
    m_log.RegisterLogDestination(&m_a);
    m_log.LogNoHeadline("from outside");

    EXPECT_EQ(m_directory.lines(), (Lines{"from outside", "from inside, 1", "from inside, 2", "from inside, 3"}));
    EXPECT_EQ(seen.messages.size(), 4u);
    EXPECT_EQ(m_calls, (Lines{"a", "a", "a", "a"}));
    on_another_thread([&] { m_log.LogNoHeadline("another thread"); }); // the lock is free again
    EXPECT_EQ(seen.messages.size(), 5u);
    m_log.UnregisterLogDestination(&seen);
}

TEST_F(LogDestinations, WhatADestinationLogsItselfDoesNotChangeTheMessageForTheNext)
{
    bool nested = false;
    RecordingDestination logging(
        [&](Kor_LogMTVars&)
        {
            if (std::exchange(nested, true))
                return;
            m_log.StoreParams("Inside", "Inner", 5, 2, 33);
            m_log.Log("from inside");
        });
    Lines headlines;
    RecordingDestination next([&](Kor_LogMTVars& context)
                              { headlines.push_back(masked_line(context.AsStringFull(false))); });
    m_log.RegisterLogDestination(&logging);
    m_log.RegisterLogDestination(&next);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 217);
    m_log.Log("from outside");
    m_log.ClearAllLogDestinations();

    ASSERT_EQ(next.messages.size(), 2u);
    EXPECT_EQ(next.messages[0].text, "from inside\n");
    EXPECT_EQ(next.messages[0].package, 33);
    EXPECT_EQ(next.messages[1].text, "from outside\n");
    EXPECT_EQ(next.messages[1].package, 217);
    EXPECT_EQ(next.messages[1].level, 3);
    EXPECT_EQ(next.messages[1].file_name, "Kor_Image");
    EXPECT_EQ(next.messages[1].function, "Load");
    EXPECT_EQ(next.messages[1].line, 210);
    EXPECT_EQ(
        headlines, (Lines{
                       "<time> CRITICAL(033) viewer (<pid>,<tid>)  Inside(5) Inner ->",
                       "<time> ERROR   (217) viewer (<pid>,<tid>)  Kor_Image(210) Load ->",
                   }));
}

TEST_F(LogDestinations, ADestinationMayRegisterAnotherFromInside)
{
    RecordingDestination seen([&](Kor_LogMTVars&) { m_log.RegisterLogDestination(&m_a); });
    m_log.RegisterLogDestination(&seen);
    EXPECT_EQ(reached(), Lines{"a"}); // called in the same round: the size is read anew
    EXPECT_EQ(reached(), Lines{"a"});
    m_log.UnregisterLogDestination(&seen);
}

/// What the log writes of a destination that failed, behind the place.
std::string failure(const std::string& what) { return " -> A log destination has thrown an exception: " + what; }

TEST_F(LogDestinations, ADestinationsExceptionEndsInTheLogWithALineAndFreesTheLock)
{
    RecordingDestination thrower([](Kor_LogMTVars&) { throw std::runtime_error("from the destination"); });
    m_log.RegisterLogDestination(&thrower);
    EXPECT_NO_THROW(m_log.LogNoHeadline("x"));
    on_another_thread([&] { m_log.UnregisterLogDestination(&thrower); });

    EXPECT_EQ(m_log.LogNoHeadline("y"), 0);
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "x");
    EXPECT_EQ(lines[1].find("<time> ERROR   (106) viewer (<pid>,<tid>)  Kor_LogFile("), 0u);
    EXPECT_EQ(
        lines[1].substr(lines[1].find(") Kor_LogFile::")),
        ") Kor_LogFile::SendLogNoLimit" + failure("from the destination"));
    EXPECT_EQ(lines[2], "y");
    EXPECT_EQ(thrower.messages.size(), 1u); // it does not get the line about itself
}

TEST_F(LogDestinations, TheLineAboutAnExceptionNeedsLevelThreeInTheLibrarysPackage)
{
    m_directory.configure(TO_FILE + "Library 106 2\n");
    Kor_LogFile log(777, false);
    log.Open("quiet.log", "viewer");
    RecordingDestination thrower([](Kor_LogMTVars&) { throw std::runtime_error("from the destination"); });
    log.RegisterLogDestination(&thrower);
    log.LogNoHeadline("x");
    log.ClearAllLogDestinations();
    EXPECT_EQ(m_directory.lines("quiet.log"), Lines{"x"});
}

TEST_F(LogDestinations, AnExceptionOfAnyTypeEndsInTheLog)
{
    RecordingDestination thrower([](Kor_LogMTVars&) { throw 7; });
    m_log.RegisterLogDestination(&thrower);
    EXPECT_NO_THROW(m_log.LogNoHeadline("x"));
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].substr(lines[1].find(" -> ")), failure("of a type that is not known"));
}

TEST_F(LogDestinations, WhatADestinationRaisesEndsInTheLog)
{
    RecordingDestination raiser([](Kor_LogMTVars&) { ::RaiseException(0xE0001234, 0, 0, nullptr); });
    m_log.RegisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&raiser);
    m_log.RegisterLogDestination(&m_b);
    EXPECT_EQ(reached(), (Lines{"a", "b"}));
    on_another_thread([&] { m_log.UnregisterLogDestination(&raiser); });

    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].substr(lines[1].find(" -> ")), failure("0xe0001234"));
}

TEST_F(LogDestinations, AnExceptionOfAnotherCompilersRunTimeEndsInTheLog)
{
    RecordingDestination raiser([](Kor_LogMTVars&) { ::RaiseException(0xE06D7363, 0, 0, nullptr); });
    m_log.RegisterLogDestination(&raiser);
    EXPECT_EQ(m_log.LogNoHeadline("x"), 0);
    EXPECT_EQ(m_directory.lines().size(), 2u);
}

TEST_F(LogDestinations, AFailingDestinationTakesNothingFromTheNextOnes)
{
    RecordingDestination thrower([](Kor_LogMTVars&) { throw std::runtime_error("from the destination"); });
    RecordingDestination raiser([](Kor_LogMTVars&) { ::RaiseException(0xE0001234, 0, 0, nullptr); });
    RecordingDestination last;
    for (Kor_LogDestBase* const destination : {&thrower, &raiser, &last})
        m_log.RegisterLogDestination(destination);
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.Log("x");
    for (const RecordingDestination* const seen : {&thrower, &raiser, &last})
    {
        ASSERT_EQ(seen->messages.size(), 1u);
        EXPECT_EQ(seen->messages[0].text, "x\n");
        EXPECT_EQ(seen->messages[0].package, 17);
        EXPECT_EQ(seen->messages[0].level, 4);
        EXPECT_EQ(seen->messages[0].file_name, "Kor_Image");
    }
    EXPECT_EQ(m_directory.lines().size(), 3u);
}

TEST_F(LogDestinations, ADestinationsExceptionLeavesNoParametersBehind)
{
    RecordingDestination thrower([](Kor_LogMTVars&) { throw std::runtime_error("from the destination"); });
    m_log.RegisterLogDestination(&thrower);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.Log("x");
    m_log.UnregisterLogDestination(&thrower);

    with_context(
        m_log,
        [](Kor_LogMTVars& context)
        {
            EXPECT_STREQ(context.m_file, "unknown file"); // what it pointed at may be gone
            EXPECT_EQ(context.m_line, 0);
        });
}

TEST_F(LogDestinations, AFaultInADestinationReachesWhoeverCatchesFaultsAndFreesTheLock)
{
    RecordingDestination wild([](Kor_LogMTVars&) { *reinterpret_cast<volatile int*>(8) = 1; });
    m_log.RegisterLogDestination(&wild);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    const unsigned long code = kor_guarded_call([](void* log) { static_cast<Kor_LogFile*>(log)->Log("x"); }, &m_log);
    EXPECT_EQ(code, static_cast<unsigned long>(EXCEPTION_ACCESS_VIOLATION));
    on_another_thread([&] { m_log.UnregisterLogDestination(&wild); });

    with_context(
        m_log,
        [](Kor_LogMTVars& context)
        {
            EXPECT_STREQ(context.m_file, "unknown file");
            // Of the thread, of the message on its way, and of the two calls of this look.
            EXPECT_EQ(context.m_references, 3);
        });
    EXPECT_EQ(m_directory.lines().size(), 2u); // no line says that a destination failed: it crashed
}

TEST_F(LogDestinations, AFailingDestinationDoesNotStopTheNextOnes)
{
    CapturedStream err(stderr);
    const std::string path = m_directory.file("missing\\copy.log");
    Kor_LogDestFile failing(path.c_str());
    EXPECT_EQ(err.text(), "Kor_LogDestFile: failed to open file <" + path + ">\n");
    m_log.RegisterLogDestination(&m_a);
    m_log.RegisterLogDestination(&failing);
    m_log.RegisterLogDestination(&m_b);

    EXPECT_EQ(reached(), (Lines{"a", "b"}));
    EXPECT_EQ(reached(), (Lines{"a", "b"}));
    EXPECT_EQ(failing.LogMessage(Kor_LogMTVarsPtr(), true, "x\n", 2), -1);
    EXPECT_EQ(failing.LogMessage(Kor_LogMTVarsPtr(), false, "x\n", 2), -1);
    EXPECT_EQ(m_log.LogNoHeadline("the log does not mind"), 0);
}

/// True when a change of the list by another thread waits for the message that a destination is in.
bool waits_for_the_message(Kor_LogFile& log, const std::function<void(Kor_LogDestBase&)>& change)
{
    const NamedEvent entered(unique_name("entered"));
    const NamedEvent about_to(unique_name("about-to"));
    std::atomic<bool> finished{false};
    std::atomic<bool> finished_when_changed{false};
    RecordingDestination slow(
        [&](Kor_LogMTVars&)
        {
            entered.set();
            about_to.wait();
            ::Sleep(30); // time for a thread that does not wait to get ahead
            finished = true;
        });
    log.RegisterLogDestination(&slow);
    BoundedThread writer([&] { log.LogNoHeadline("x"); });
    if (!entered.wait())
        return false;
    about_to.set();
    on_another_thread(
        [&]
        {
            change(slow);
            finished_when_changed = finished.load();
        });
    writer.join();
    log.UnregisterLogDestination(&slow);
    return finished_when_changed;
}

TEST_F(LogDestinations, ChangesFromAnotherThreadWaitForTheMessageInProgress)
{
    EXPECT_TRUE(waits_for_the_message(m_log, [&](Kor_LogDestBase& slow) { m_log.UnregisterLogDestination(&slow); }));
    EXPECT_TRUE(waits_for_the_message(m_log, [&](Kor_LogDestBase&) { m_log.RegisterLogDestination(&m_a); }));
    EXPECT_TRUE(waits_for_the_message(m_log, [&](Kor_LogDestBase&) { m_log.ClearAllLogDestinations(); }));
}

TEST_F(LogDestinations, RegisteringAndLoggingFromManyThreadsKeepsEveryMessage)
{
    struct Counter : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
        {
            ++calls; // no atomic: the lock is held
            return 0;
        }
        int calls = 0;
    } counter, others[4];
    m_log.RegisterLogDestination(&counter);
    std::atomic<bool> stop{false};
    BoundedThread changer(
        [&]
        {
            while (!stop)
            {
                for (Counter& other : others)
                    m_log.RegisterLogDestination(&other);
                for (Counter& other : others)
                    m_log.UnregisterLogDestination(&other);
            }
        });
    run_on_threads(
        4,
        [&](int)
        {
            for (int i = 0; i < 100; ++i)
                m_log.LogNoHeadline("x");
        });
    stop = true;
    changer.join();

    EXPECT_EQ(counter.calls, 400);
    EXPECT_EQ(m_directory.lines().size(), 400u);
}

TEST_F(LogDestinations, AThousandDestinationsAreAllReachedInOrder)
{
    constexpr int COUNT = 1000;
    std::vector<std::unique_ptr<NamedDestination>> destinations;
    Lines expected;
    for (int i = 0; i < COUNT; ++i)
    {
        expected.push_back(std::to_string(i));
        destinations.push_back(std::make_unique<NamedDestination>(expected.back(), m_calls));
        m_log.RegisterLogDestination(destinations.back().get());
    }
    EXPECT_EQ(reached(), expected);
    for (int i = COUNT - 2; i >= 0; i -= 2)
    {
        m_log.UnregisterLogDestination(destinations[static_cast<std::size_t>(i)].get());
        expected.erase(expected.begin() + i);
    }
    EXPECT_EQ(reached(), expected);
}

TEST_F(LogDestinations, ALogThatGoesForgetsItsDestinationsAndDeletesNone)
{
    RecordingDestination seen;
    {
        Kor_LogFile log(777, true);
        log.Open("other.log", "viewer");
        log.RegisterLogDestination(&m_a); // still listed when the log closes
        log.RegisterLogDestination(&seen);
    }
    ASSERT_EQ(seen.messages.size(), 1u); // the banner of the end came before
    EXPECT_NE(seen.messages[0].text.find(" End Session at "), std::string::npos);
    EXPECT_EQ(m_calls, Lines{"a"});
    m_log.RegisterLogDestination(&m_a);
    EXPECT_EQ(reached(), Lines{"a"});
}

// The file destination -----------------------------------------------------------
TEST_F(LogDestinations, AFileDestinationGetsHeadlineAndTextAsTheyAre)
{
    const std::string path = m_directory.file("copy.log");
    write_file(path, "from before\r\n");
    Kor_LogDestFile copy(path.c_str());
    m_log.RegisterLogDestination(&copy);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.Log("one");
    m_log.LogNoHeadline("two");
    m_log.PrintOrLog(nullptr, "no newline,"); // none is added
    m_log.LogNoHeadline("three");

    EXPECT_EQ(
        m_directory.lines("copy.log"), (Lines{
                                           "from before",
                                           "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> one",
                                           "two",
                                           "no newline,three",
                                       }));
    const std::string bytes = read_file(path);
    EXPECT_EQ(bytes.substr(bytes.size() - 7), "three\r\n");
    m_log.UnregisterLogDestination(&copy);
}

TEST_F(LogDestinations, AFileDestinationFlushesEachMessageAndAnswersZero)
{
    Kor_LogDestFile copy(m_directory.file("copy.log").c_str());
    EXPECT_EQ(copy.LogMessage(Kor_LogMTVarsPtr(), true, "100%s\n", 6), 0); // a text, not a format
    EXPECT_EQ(m_directory.text("copy.log"), "100%s\n");
}

TEST_F(LogDestinations, AFileDestinationClosesItsFileWhenItGoes)
{
    const std::string path = m_directory.file("copy.log");
    {
        Kor_LogDestFile copy(path.c_str());
        copy.LogMessage(Kor_LogMTVarsPtr(), true, "x\n", 2);
    }
    EXPECT_TRUE(::DeleteFileA(path.c_str()));
}

TEST_F(LogDestinations, ACopiedFileDestinationSharesTheStream)
{
    const std::string path = m_directory.file("copy.log");
    const std::string other_path = m_directory.file("other.log");
    {
        Kor_LogDestFile other(other_path.c_str());
        {
            Kor_LogDestFile first(path.c_str());
            Kor_LogDestFile second(first);
            first.LogMessage(Kor_LogMTVarsPtr(), true, "one\n", 4);
            second.LogMessage(Kor_LogMTVarsPtr(), true, "two\n", 4);
            other = second;
        }
        other.LogMessage(Kor_LogMTVarsPtr(), true, "three\n", 6); // the last of them keeps it open
    }
    EXPECT_EQ(m_directory.text("copy.log"), "one\ntwo\nthree\n");
    EXPECT_EQ(m_directory.text("other.log"), "");
    EXPECT_TRUE(::DeleteFileA(path.c_str()));
    EXPECT_TRUE(::DeleteFileA(other_path.c_str()));
}

TEST_F(LogDestinations, ADestinationIsDestroyedThroughItsBase)
{
    const std::string path = m_directory.file("copy.log");
    const std::unique_ptr<Kor_LogDestBase> destination = std::make_unique<Kor_TestLogDestFile>(path.c_str());
    EXPECT_FALSE(::DeleteFileA(path.c_str()));
}

// The test file destination ------------------------------------------------------
TEST_F(LogDestinations, ATestFileDestinationKeepsPackage217Alone)
{
    Kor_TestLogDestFile copy(m_directory.file("copy.log").c_str());
    m_log.RegisterLogDestination(&copy);
    for (const int package : {0, 216, 217, 218, 749})
    {
        m_log.StoreParams("Kor_Image", "Load", 210, 3, package);
        m_log.Log("package %d", package);
    }
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 217);
    m_log.LogNoHeadline("bare");

    EXPECT_EQ(
        m_directory.lines("copy.log"),
        (Lines{"<time> ERROR   (217) viewer (<pid>,<tid>)  Kor_Image(210) Load -> package 217", "bare"}));
    EXPECT_EQ(m_directory.lines().size(), 6u);
    m_log.UnregisterLogDestination(&copy);
}

TEST_F(LogDestinations, ATestFileDestinationAnswersForItsFileOnlyInPackage217)
{
    CapturedStream err(stderr);
    const std::string path = m_directory.file("missing\\copy.log");
    Kor_TestLogDestFile failing(path.c_str());
    EXPECT_EQ(err.text(), "Kor_LogDestFile: failed to open file <" + path + ">\n");
    Kor_LogMTVarsPtr context;
    context->m_package = 216;
    EXPECT_EQ(failing.LogMessage(context, true, "x\n", 2), 0);
    context->m_package = 217;
    EXPECT_EQ(failing.LogMessage(context, true, "x\n", 2), -1);
}

// The debugger -------------------------------------------------------------------
class LogDebugger : public LogDestinations
{
protected:
    LogDebugger() : m_hook([this](const char* text) { m_strings.push_back(text); }) { EXPECT_TRUE(m_hook.installed()); }

    Lines m_strings;
    Hook<OutputDebugStringAImport> m_hook;
};

TEST_F(LogDebugger, AHeadlineMessageIsOneStringOfHeadlineBlankAndText)
{
    Kor_LogDestDebug debugger;
    m_log.RegisterLogDestination(&debugger);
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.Log("one");
    m_log.UnregisterLogDestination(&debugger);

    ASSERT_EQ(m_strings.size(), 1u);
    EXPECT_EQ(masked_line(m_strings[0]), "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> one\n");
}

TEST_F(LogDebugger, ABareMessageIsTheTextItself)
{
    Kor_LogDestDebug debugger;
    m_log.RegisterLogDestination(&debugger);
    m_log.LogNoHeadline("two %s", "%s");
    std::string text(5000, 'x');
    m_log.SendLogNoLimit(65534, text.data(), 5000);
    m_log.UnregisterLogDestination(&debugger);

    EXPECT_EQ(m_strings, (Lines{"two %s\n", text}));
    EXPECT_EQ(debugger.LogMessage(Kor_LogMTVarsPtr(), true, "x", 1), 0);
    EXPECT_EQ(debugger.LogMessage(Kor_LogMTVarsPtr(), false, "x", 1), 0);
}

TEST_F(LogDebugger, HeadlineAndTextAreCutAt2047Characters)
{
    Kor_LogDestDebug debugger;
    m_log.RegisterLogDestination(&debugger);
    const std::string text(3000, 'x');
    m_log.Log("%s", text.c_str());
    m_log.UnregisterLogDestination(&debugger);

    ASSERT_EQ(m_strings.size(), 1u);
    EXPECT_EQ(m_strings[0].size(), 2047u);
    const std::size_t arrow = m_strings[0].find(" -> ");
    ASSERT_NE(arrow, std::string::npos);
    EXPECT_EQ(m_strings[0].substr(arrow + 4), std::string(2047 - arrow - 4, 'x'));
}

TEST_F(LogDebugger, OutputThreeOfTheConfigurationRegistersTheDebugger)
{
    const LogDirectory directory("3\nfile_size_limit_in_mb=0\n");
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        log.LogNoHeadline("one");
    }
    ASSERT_EQ(m_strings.size(), 3u); // with both banners
    EXPECT_EQ(m_strings[1], "one\n");
    EXPECT_EQ(directory.lines().size(), 3u);
}

TEST_F(LogDebugger, OtherOutputsDoNotRegisterTheDebugger)
{
    m_log.LogNoHeadline("one");
    EXPECT_EQ(m_hook.calls(), 0);
}
} // namespace
