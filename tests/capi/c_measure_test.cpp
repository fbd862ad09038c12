// The functions for C: the thread's last error, timers, the performance-monitor log, records.

#include "lumlog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "Kor_PerfmonLogFile.h"
#include "bounded.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

class CMeasure : public ::testing::Test
{
protected:
    CMeasure() { lum_open_with("test.log", "tool", LUM_NO_BANNERS); }

    /// What stands behind "->" in the lines of the general log.
    Lines texts() const
    {
        Lines texts;
        for (const std::string& line : m_directory.lines())
            texts.push_back(line.substr(line.find(" -> ") + 4));
        return texts;
    }

    /// What stands behind "=" in the lines of the monitor log, without banners.
    Lines measured(const std::string& file = "monitor.log") const
    {
        Lines texts;
        for (const std::string& line : lines_of(m_directory.text(file)))
            if (line.find("=====") == std::string::npos)
                texts.push_back(line.substr(line.find(": =") + 3));
        return texts;
    }

    const LogDirectory m_directory{TO_FILE + "Perfmon 109 5\n"};
    const lum_site m_site = {sizeof(lum_site), 77, "tool.c", "load"};
};
} // namespace

// The thread's last error -----------------------------------------------------------------------------
TEST_F(CMeasure, AnErrorIsNotedAndLoggedElsewhere)
{
    EXPECT_EQ(lum_error_get(), 0u);
    lum_error_set(3100012, "front.png ends after 17% of its rows", LUM_ZT);
    EXPECT_EQ(lum_error_get(), 3100012u);
    lum_error_log(&m_site, LUM_ERROR, 310, nullptr, 0);
    lum_error_log(&m_site, LUM_ERROR, 310, "ERR_TRUNCATED", 3100013);
    lum_error_log(&m_site, LUM_ERROR, 310, nullptr, 0);
    lum_error_log(&m_site, LUM_DEBUG, 310, nullptr, 0);
    EXPECT_EQ(
        texts(), (Lines{
                     "Error 3100012 detected. front.png ends after 17% of its rows",
                     "Error 3100013 [ERR_TRUNCATED] occurred. front.png ends after 17% of its rows",
                     "Error 3100013 detected. ",
                 }));
    on_another_thread([] { EXPECT_EQ(lum_error_get(), 0u); });
}

TEST_F(CMeasure, ATextStaysUntilItIsForgotten)
{
    lum_error_set(1, "front.png", 5);
    lum_error_set(2, nullptr, 0);
    lum_error_log(&m_site, LUM_ERROR, 310, nullptr, 0);
    lum_error_forget_text();
    lum_error_log(&m_site, LUM_ERROR, 310, nullptr, 0);
    EXPECT_EQ(texts(), (Lines{"Error 2 detected. front", "Error 2 detected. "}));
}

TEST_F(CMeasure, AnErrorThatIsErrnoIsExplained)
{
    errno = ENOENT;
    lum_error_log(&m_site, LUM_ERROR, 310, "ENOENT", ENOENT);
    EXPECT_EQ(texts(), Lines{"Errno 2 [ENOENT - No such file or directory] occurred. "});
}

// Timers ----------------------------------------------------------------------------------------------
TEST_F(CMeasure, AMeasurementWritesALine)
{
    lum_monitor_open("monitor.log", "tool");
    lum_timer* const timer = lum_timer_begin("load album", LUM_NOTICE);
    ASSERT_NE(timer, nullptr);
    const lum_int64 time = lum_timer_end(timer);
    EXPECT_GE(time, 0);
    EXPECT_EQ(measured(), Lines{"T=load album,ms=" + std::to_string(time)});
}

TEST_F(CMeasure, WhatNobodyWantsIsNotMeasured)
{
    EXPECT_EQ(lum_timer_begin("load album", LUM_INFO), nullptr);
    EXPECT_EQ(lum_timer_end(nullptr), LUM_FAILED);
}

TEST_F(CMeasure, NamedTimersAreReadAndRemoved)
{
    lum_int64 time = -7;
    EXPECT_EQ(lum_timer_read("load", &time), LUM_FAILED);
    EXPECT_EQ(time, -7);
    EXPECT_EQ(lum_timer_stop("load"), LUM_FAILED);
    EXPECT_EQ(lum_timer_add("load"), LUM_OK);
    EXPECT_EQ(lum_timer_add("load"), LUM_FAILED);
    EXPECT_EQ(lum_timer_stop("load"), LUM_OK);
    EXPECT_EQ(lum_timer_read("load", &time), LUM_OK);
    EXPECT_GE(time, 0);
    EXPECT_EQ(lum_timer_restart("load", &time), LUM_OK);
    EXPECT_EQ(lum_timer_restart("load", nullptr), LUM_OK);
    EXPECT_EQ(lum_timer_remove("load", nullptr), LUM_OK);
    EXPECT_EQ(lum_timer_remove("load", nullptr), LUM_FAILED);
}

// The performance-monitor log -------------------------------------------------------------------------
TEST_F(CMeasure, MonitorLinesAreFinishedTextsOrFormats)
{
    EXPECT_EQ(lum_monitor_open("monitor.log", "tool"), LUM_OK);
    lum_monitor_context("album 12");
    EXPECT_EQ(lum_monitor_wants(LUM_NOTICE), 1);
    EXPECT_EQ(lum_monitor_wants(LUM_INFO), 0);
    lum_monitor_write(LUM_NOTICE, "100% done", LUM_ZT);
    lum_monitor_write(LUM_NOTICE, "100% done\n", 4);
    lum_monitor_writef(LUM_NOTICE, "%d%%", 17);
    lum_monitor_write(LUM_INFO, "not wanted", LUM_ZT);
    lum_monitor_writef(LUM_INFO, "%d", 17);
    EXPECT_EQ(measured(), (Lines{"100% done", "100%", "17%"}));
    EXPECT_NE(m_directory.text("monitor.log").find("album 12: =100% done"), std::string::npos);
    EXPECT_EQ(lum_monitor_close(), LUM_OK);
    EXPECT_EQ(lum_monitor_close(), LUM_FAILED);
    lum_monitor_context(nullptr);
}

// Records ---------------------------------------------------------------------------------------------
TEST_F(CMeasure, RecordsAreInTheirFileOnceTheLogIsClosed)
{
    EXPECT_EQ(lum_records_open(), LUM_OK);
    lum_record("scan", "load", 0.5f, "album 12", "image 3");
    lum_record("scan", nullptr, 2, "", "");
    lum_records_close();
    lum_records_close();
    const std::string prefix = std::to_string(::GetCurrentProcessId()) + "_P";
    std::string name;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
        if (entry.path().filename().string().rfind(prefix, 0) == 0)
            name = entry.path().filename().string();
    const Lines lines = lines_of(m_directory.text(name));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(lines[0].find(',')), ",scan,load,0.5,album 12,image 3");
    EXPECT_EQ(lines[1].substr(lines[1].find(',')), ",scan,(null),2,,");
}
