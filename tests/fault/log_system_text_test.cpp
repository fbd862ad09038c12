// The system's error texts that OSErrLog and OSLog write, and what happens when there are none.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>

#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
KOR_IMPORT(FormatMessageA);
KOR_IMPORT(LocalFree);

class LogSystemText : public ::testing::Test
{
protected:
    LogSystemText() : m_log(777, false)
    {
        EXPECT_TRUE(m_format.installed() && m_free.installed());
        m_log.Open("test.log", "viewer");
        m_log.RegisterLogDestination(&m_seen);
    }
    ~LogSystemText() override { m_log.UnregisterLogDestination(&m_seen); }

    const std::string& last() const { return m_seen.messages.back().text; }

    const LogDirectory m_directory;
    RecordingDestination m_seen;
    const char* m_text = "The disk is full."; ///< the system's; null: the call fails
    int m_given = 0;
    int m_freed = 0;

    Hook<FormatMessageAImport> m_format{
        [this](DWORD flags, const void* source, DWORD error, DWORD language, char* buffer, DWORD size, va_list* args)
            -> DWORD
        {
            EXPECT_EQ(flags, 0x13FFu);
            EXPECT_EQ(source, nullptr);
            EXPECT_EQ(error, 112u);
            EXPECT_EQ(language, 0x0400u); // neutral language, the user's default dialect
            EXPECT_EQ(size, 0u);
            EXPECT_EQ(args, nullptr);
            if (m_text == nullptr)
            {
                ::SetLastError(ERROR_MR_MID_NOT_FOUND);
                return 0;
            }
            const std::size_t length = std::strlen(m_text);
            auto* const copy = static_cast<char*>(::LocalAlloc(LMEM_FIXED, length + 1));
            std::memcpy(copy, m_text, length + 1);
            std::memcpy(buffer, &copy, sizeof copy);
            ++m_given;
            return static_cast<DWORD>(length);
        }};
    Hook<LocalFreeImport> m_free{
        [this](HLOCAL memory) -> HLOCAL
        {
            if (memory != nullptr)
                ++m_freed;
            return ::LocalFree(memory);
        }};
    Kor_LogFile m_log;
};

TEST_F(LogSystemText, TheTextIsAppendedAndFreed)
{
    m_log.OSErrLog(112, "cannot write %s:", "a.img");
    EXPECT_EQ(last(), "cannot write a.img: The disk is full.\n");
    m_log.OSLog("WriteFile", 112);
    EXPECT_EQ(last(), "System call <WriteFile> failed. Error code: 112. Error details: The disk is full.\n");

    EXPECT_EQ(m_given, 2);
    EXPECT_EQ(m_freed, 2);
}

TEST_F(LogSystemText, WithoutATextTheCodeIsShown)
{
    m_text = nullptr;
    m_log.OSErrLog(112, "cannot write %s:", "a.img");
    EXPECT_EQ(last(), "cannot write a.img: Unable to fetch message for system error 112.\n");
    m_log.OSLog("WriteFile", 112);
    EXPECT_EQ(last(), "System call <WriteFile> failed.\n");

    EXPECT_EQ(m_freed, 0);
}

TEST_F(LogSystemText, APercentSignInTheTextIsAPercentSign)
{
    m_text = "100% of %1 %s %n is used%";
    m_log.OSErrLog(112, "%d: cannot write %s:", 7, "a.img");
    EXPECT_EQ(last(), "7: cannot write a.img: 100% of %1 %s %n is used%\n");
    m_log.OSLog("WriteFile", 112);
    EXPECT_EQ(last(), "System call <WriteFile> failed. Error code: 112. Error details: 100% of %1 %s %n is used%\n");
}

TEST_F(LogSystemText, ALongTextIsCutLikeAnyOther)
{
    const std::string text(4000, '%');
    m_text = text.c_str();
    m_log.OSErrLog(112, "x");
    EXPECT_EQ(last(), "x " + std::string(2044, '%') + "\n");
    m_log.OSLog("WriteFile", 112);
    EXPECT_EQ(last().size(), 2047u);
}

TEST_F(LogSystemText, AnEmptyTextLeavesTheBlank)
{
    m_text = "";
    m_log.OSErrLog(112, "x");
    EXPECT_TRUE(last() == "x \n" || last() == "x Unable to fetch message for system error 112.\n") << last();
    EXPECT_EQ(m_freed, m_given);
}

TEST_F(LogSystemText, NothingIsFetchedForAMessageThatIsNotAccepted)
{
    with_context(m_log, [](Kor_LogMTVars& context) { context.m_accepted = 0; });
    m_log.OSErrLog(112, "x");

    EXPECT_EQ(m_format.calls(), 0);
}

TEST_F(LogSystemText, TheMessageKeepsLevelPackageAndPlace)
{
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.OSErrLog(112, "x");

    EXPECT_EQ(
        m_directory.lines().back(),
        "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> x The disk is full.");
}
} // namespace
