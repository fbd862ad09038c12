// lumlog_capture.hpp: what a unit test of code that logs sees, and what the machine sees of it.

#include "lumlog_capture.hpp"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "bounded.h"
#include "captured_stream.h"
#include "child.h"
#include "log_directory.h"
#include "lumlog.hpp"

namespace
{
using Texts = std::vector<std::string>;

/// Code under test.
int load(const char* name)
{
    LUM_LOG(LUM_DEBUG, 310, "loading %s", name);
    if (std::string(name).empty())
    {
        LUM_LOG(LUM_ERROR, 310, "cannot read it");
        return -1;
    }
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, 311, "%s is read\n", name);
    return 0;
}
} // namespace

TEST(Capture, HasWhatWasLoggedWithLevelPackageTextAndPlace)
{
    const lum::Capture log;
    load("front.png");
    const std::vector<lum::CapturedMessage> messages = log.messages();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].level, LUM_DEBUG);
    EXPECT_EQ(messages[0].package, 310);
    EXPECT_EQ(messages[0].text, "loading front.png");
    EXPECT_EQ(messages[0].file, "capture_test.cpp");
    EXPECT_EQ(messages[0].function, "load");
    EXPECT_GT(messages[0].line, 0);
    EXPECT_EQ(messages[0].thread, ::GetCurrentThreadId());
    EXPECT_NE(messages[0].headline.find("DEBUG   (310)"), std::string::npos) << messages[0].headline;
    EXPECT_EQ(messages[1].text, "front.png is read");
    EXPECT_EQ(log.texts(), (Texts{"loading front.png", "front.png is read"}));
}

TEST(Capture, CountsAndFinds)
{
    lum::Capture log;
    load("");
    load("back.png");
    EXPECT_EQ(log.count(LUM_ERROR), 1U);
    EXPECT_EQ(log.count(LUM_ERROR, 310), 1U);
    EXPECT_EQ(log.count(LUM_ERROR, 311), 0U);
    EXPECT_TRUE(log.contains("cannot read"));
    EXPECT_FALSE(log.contains("cannot write"));
    log.clear();
    EXPECT_TRUE(log.messages().empty());
}

TEST(Capture, GoesByItsOwnLevels)
{
    lum::Capture log(LUM_WARNING);
    load("front.png");
    EXPECT_EQ(log.texts(), Texts{});
    log.set_level(311, LUM_NOTICE);
    load("front.png");
    EXPECT_EQ(log.texts(), Texts{"front.png is read"});
    log.set_rules(310, "[(7;192.0.2.7)]");
    {
        const lum::ClientScope scope("192.0.2.7");
        load("back.png");
    }
    load("back.png");
    EXPECT_EQ(log.texts(), (Texts{"front.png is read", "loading back.png", "back.png is read", "back.png is read"}));
    EXPECT_THROW(log.set_level(750, LUM_DEBUG), std::invalid_argument);
    EXPECT_THROW(log.set_level(310, 8), std::invalid_argument);
    EXPECT_THROW(log.set_rules(750, ""), std::invalid_argument);
}

TEST(Capture, ThereIsOneAtATimeAndOneAfterTheOther)
{
    {
        const lum::Capture log;
        EXPECT_THROW(lum::Capture second, std::logic_error);
        load("front.png");
        EXPECT_EQ(log.messages().size(), 2U);
    }
    const lum::Capture next(LUM_NOTICE);
    load("front.png");
    EXPECT_EQ(next.texts(), Texts{"front.png is read"});
}

TEST(Capture, TakesMessagesOfAllThreads)
{
    const lum::Capture log;
    run_on_threads(
        8,
        [](int)
        {
            for (int i = 0; i < 100; ++i)
                load("front.png");
        });
    EXPECT_EQ(log.count(LUM_DEBUG, 310), 800U);
    EXPECT_EQ(log.count(LUM_NOTICE, 311), 800U);
}

TEST(Capture, NeedsNoFolderAndWritesNothingAnywhere)
{
    Texts messages;
    CapturedStream errors(stderr);
    CapturedStream output(stdout);
    {
        const lum::Capture log;
        load("front.png");
        KorGLog.LogNoHeadline("bare");
        if (KorPLog.StoreParams("f", 1, 5, 1) != 0)
            KorPLog.FLog("measured", "");
        messages = log.texts();
    }
    errors.stop();
    output.stop();
    EXPECT_EQ(messages, (Texts{"loading front.png", "front.png is read", "bare", "string to plog is T=measured"}));
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(output.text(), "");
}

TEST(Capture, AProgramThatOpensItsLogMeanwhileReadsAndWritesNothing)
{
    const LogDirectory directory(TO_FILE + "Reader 310 1\n");
    {
        const lum::Capture log;
        lum_open_with("test.log", "tool", LUM_NO_BANNERS);
        load("front.png");
        EXPECT_EQ(log.messages().size(), 2U);
    }
    EXPECT_EQ(directory.text(), "");
}

TEST(Capture, AfterItTheLogIsAsItWas)
{
    const LogDirectory directory(TO_FILE + "Reader 310 6\n");
    lum_open_with("test.log", "tool", LUM_NO_BANNERS);
    EXPECT_EQ(lum_level(310), 6);
    {
        const lum::Capture log;
        EXPECT_EQ(lum_level(310), 7);
        EXPECT_EQ(lum_level(311), 7);
        load("front.png");
    }
    EXPECT_EQ(lum_level(310), 6);
    EXPECT_EQ(lum_level(311), 4);
    EXPECT_EQ(directory.text(), "");
    load("");
    EXPECT_NE(directory.text().find("cannot read it"), std::string::npos);
}

// Of the machine ----------------------------------------------------------------------------------------
TEST(SharedBlockCapture, NeitherTakesNorGivesWhatAllProcessesShare)
{
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "");
    const LogDirectory directory(TO_FILE + "Reader 310 6\n");
    lum_open_with("test.log", "tool", LUM_NO_BANNERS);
    lum_set_level(310, 6, 1);
    ASSERT_EQ(lum_level(310), 6);
    {
        lum::Capture log(LUM_WARNING);
        EXPECT_EQ(lum_set_level(310, LUM_NOTICE, 1), LUM_OK); // of the code under test: counts here alone
        EXPECT_EQ(lum_level(310), LUM_NOTICE);
        const auto shared = std::make_unique<Kor_LogConf>();
        ASSERT_EQ(Kor_LogFile::CopySharedMemory(*shared), 17);
        EXPECT_EQ(shared->GetPackageDefaultLogLevel(310), 6);

        shared->SetPackageDefaultLogLevel(311, 7); // by another process
        EXPECT_EQ(Kor_LogFile::UpdateSMFromConf(*shared), 0);
        EXPECT_EQ(lum_level(311), LUM_WARNING);
    }
    EXPECT_EQ(lum_level(310), 6);
    EXPECT_EQ(lum_level(311), 7);
    lum_set_level(311, 4, 1);
}
