// The functions for C: levels and configurations.

#include "lumlog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "captured_stream.h"
#include "log_directory.h"
#include "wide_directory.h"

namespace
{
using Lines = std::vector<std::string>;

class CConf : public ::testing::Test
{
protected:
    CConf() { lum_open_with("test.log", "tool", LUM_NO_BANNERS); }

    const LogDirectory m_directory{TO_FILE + "Tool 310 5\nReader 311 6 [(7;192.0.2.7)] // of images\n"};
};

std::string rules_of(const lum_conf* conf, int package)
{
    char text[256];
    lum_conf_rules(conf, package, text, sizeof text);
    return text;
}

std::string name_of(const lum_conf* conf, int package)
{
    char text[64];
    lum_conf_name(conf, package, text, sizeof text);
    return text;
}
} // namespace

TEST_F(CConf, ALevelIsSetForThisProcess)
{
    EXPECT_EQ(lum_set_level(310, 7, 1), LUM_OK);
    EXPECT_EQ(lum_level(310), 7);
    for (const auto& [package, level] : {std::pair{-1, 5}, {750, 5}, {310, -1}, {310, 8}})
        EXPECT_EQ(lum_set_level(package, level, 1), LUM_FAILED) << package << ' ' << level;
    EXPECT_EQ(lum_level(310), 7);
}

TEST_F(CConf, TheOutputIsSetAndNoLevelWithIt)
{
    ASSERT_EQ(lum_set_level(0, 2, 1), LUM_OK);
    CapturedStream err(stderr);
    EXPECT_EQ(lum_set_output(LUM_TO_STDERR, 1), LUM_OK);
    lum_write(nullptr, LUM_WARNING, 310, "to standard error", LUM_ZT);
    EXPECT_NE(err.text().find("to standard error"), std::string::npos);
    EXPECT_EQ(lum_level(0), 2);
    EXPECT_EQ(lum_set_output(3, 1), LUM_FAILED);
    EXPECT_EQ(lum_set_output(-1, 1), LUM_FAILED);
}

TEST_F(CConf, AConfigurationIsReadFromTheFolder)
{
    lum_conf* const conf = lum_conf_read(nullptr);
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(lum_conf_output(conf), LUM_TO_FILE);
    EXPECT_EQ(lum_conf_size_limit(conf), 0u);
    EXPECT_EQ(lum_conf_level(conf, 310), 5);
    EXPECT_EQ(lum_conf_level(conf, 312), 4);
    EXPECT_EQ(lum_conf_level(conf, 750), LUM_FAILED);
    EXPECT_EQ(name_of(conf, 310), "Tool");
    EXPECT_EQ(name_of(conf, 312), "");
    EXPECT_EQ(name_of(conf, -1), "");
    EXPECT_EQ(rules_of(conf, 310), "");
    EXPECT_EQ(rules_of(conf, 311), "[(7;192.0.2.7)]");
    EXPECT_EQ(rules_of(conf, 750), "");
    lum_conf_free(conf);
}

TEST_F(CConf, AFileIsReadWhateverItsFolderIsCalledAndHoweverLongThatIs)
{
    const std::wstring deep(120, L'a');
    for (const std::vector<std::wstring>& names : {std::vector<std::wstring>{L"\u65e5\u672c"}, {deep, deep, L"b"}})
    {
        const WideDirectory directory(names, TO_FILE + "Tool 310 3\n");
        std::string path; // in UTF-8
        for (const wchar_t character : directory.path())
            path += character == L'\u65e5'   ? std::string("\xE6\x97\xA5")
                    : character == L'\u672c' ? std::string("\xE6\x9C\xAC")
                                             : std::string(1, static_cast<char>(character));
        const WideLogFolder variable(directory.path());
        for (const char* const named : {static_cast<const char*>(nullptr), (path += "\\logger").c_str()})
        {
            lum_conf* const conf = lum_conf_read(named);
            ASSERT_NE(conf, nullptr) << path;
            EXPECT_EQ(lum_conf_level(conf, 310), 3) << path;
            lum_conf_free(conf);
        }
    }
}

TEST_F(CConf, AFileThatCannotBeReadGivesNoConfiguration)
{
    CapturedStream out(stdout);
    EXPECT_EQ(lum_conf_read(m_directory.file("missing").c_str()), nullptr);
    EXPECT_EQ(lum_publish_file(m_directory.file("missing").c_str()), LUM_FAILED);
}

TEST_F(CConf, AConfigurationIsChangedAndWritten)
{
    lum_conf* const conf = lum_conf_read(nullptr);
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(lum_conf_set_output(conf, LUM_TO_EVENT_LOG), LUM_OK);
    EXPECT_EQ(lum_conf_set_size_limit(conf, 12), LUM_OK);
    EXPECT_EQ(lum_conf_set_level(conf, 310, 6), LUM_OK);
    EXPECT_EQ(lum_conf_set_name(conf, 312, "Scanner"), LUM_OK);
    EXPECT_EQ(lum_conf_set_rules(conf, 312, "(6;;tool)"), LUM_OK);
    EXPECT_EQ(lum_conf_set_rules(conf, 311, ""), LUM_OK);
    const std::string path = m_directory.file("written");
    EXPECT_EQ(lum_conf_write(conf, path.c_str(), m_directory.file("logger").c_str()), LUM_OK);
    lum_conf_free(conf);

    lum_conf* const again = lum_conf_read(path.c_str());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(lum_conf_output(again), LUM_TO_EVENT_LOG);
    EXPECT_EQ(lum_conf_size_limit(again), 12u);
    EXPECT_EQ(lum_conf_level(again, 310), 6);
    EXPECT_EQ(name_of(again, 312), "Scanner");
    EXPECT_EQ(rules_of(again, 312), "[(6;;tool)]");
    EXPECT_EQ(rules_of(again, 311), "");
    lum_conf_free(again);
    EXPECT_NE(m_directory.text("written").find("// of images"), std::string::npos);
}

TEST_F(CConf, WhatCannotBeIsRefused)
{
    lum_conf* const conf = lum_conf_current();
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(lum_conf_set_output(conf, 3), LUM_FAILED);
    EXPECT_EQ(lum_conf_set_level(conf, 750, 4), LUM_FAILED);
    EXPECT_EQ(lum_conf_set_level(conf, 310, 8), LUM_FAILED);
    EXPECT_EQ(lum_conf_set_name(conf, 310, std::string(40, 'x').c_str()), LUM_FAILED);
    EXPECT_EQ(lum_conf_set_name(conf, 310, std::string(39, 'x').c_str()), LUM_OK);
    EXPECT_EQ(lum_conf_set_name(conf, 310, "two words"), LUM_FAILED);
    EXPECT_EQ(lum_conf_set_rules(conf, -1, "(7)"), LUM_FAILED);
    EXPECT_EQ(lum_conf_write(conf, nullptr, nullptr), LUM_FAILED);
    EXPECT_EQ(lum_conf_write(conf, m_directory.file("missing\\x").c_str(), nullptr), LUM_FAILED);
    lum_conf_free(conf);

    EXPECT_EQ(lum_conf_set_level(nullptr, 310, 4), LUM_FAILED);
    EXPECT_EQ(lum_conf_output(nullptr), LUM_FAILED);
    EXPECT_EQ(lum_conf_level(nullptr, 310), LUM_FAILED);
    lum_conf_free(nullptr);
}

TEST_F(CConf, TheConfigurationInUseIsCopied)
{
    lum_conf* const conf = lum_conf_current();
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(lum_conf_level(conf, 310), 5);
    EXPECT_EQ(lum_conf_set_level(conf, 310, 1), LUM_OK);
    EXPECT_EQ(lum_level(310), 5);
    lum_conf_free(conf);
}

TEST_F(CConf, RulesOfALocalConfigurationRaiseLevelsUntilItIsFreed)
{
    lum_conf* const conf = lum_conf_current();
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(lum_conf_set_rules(conf, 310, "(7;;tool)"), LUM_OK);
    EXPECT_EQ(lum_level(310), 5);
    EXPECT_EQ(lum_conf_use_locally(conf), LUM_OK);
    EXPECT_EQ(lum_level(310), 7);
    EXPECT_EQ(lum_conf_set_rules(conf, 310, "(6;;tool)"), LUM_OK);
    EXPECT_EQ(lum_level(310), 6);
    lum_conf_free(conf);
    EXPECT_EQ(lum_level(310), 5);
}

TEST(SharedBlockCConf, AFileIsPublishedToEveryProcess)
{
    const LogDirectory directory(TO_FILE + "Tool 310 5\n");
    const EnvironmentVariable together("KORAL_LOG_DEVELOP", "0");
    lum_open_with("test.log", "tool", LUM_NO_BANNERS);
    directory.configure(TO_FILE + "Tool 310 6\n");
    EXPECT_EQ(lum_publish_file(nullptr), LUM_OK);
    EXPECT_EQ(lum_level(310), 6);
    const std::string other = directory.file("other");
    write_file(other, TO_FILE + "Tool 310 2\n");
    EXPECT_EQ(lum_publish_file(other.c_str()), LUM_OK);
    EXPECT_EQ(lum_level(310), 2);
    const WideDirectory wide({L"\u65e5\u672c"}, TO_FILE + "Tool 310 3\n");
    const WideLogFolder variable(wide.path());
    EXPECT_EQ(lum_publish_file(nullptr), LUM_OK);
    EXPECT_EQ(lum_level(310), 3);
}
