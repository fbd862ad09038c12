// conf_dump_test.cpp - writing a configuration back as a `logger` file, and the comments kept across it.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "log_lines.h"
#include "temp_directory.h"

namespace
{
const char HEADER[] = "#\r\n"
                      "# logger configuration file\r\n"
                      "#\r\n"
                      "# Lines started with # or ! are comment lines\r\n"
                      "#\r\n"
                      "#------------------------------------------------------------------------\r\n"
                      "# part 1: set the output of the messages\r\n"
                      "# 0=stderr    1=syslog-file   2=private-file \r\n"
                      "#------------------------------------------------------------------------\r\n";

const char MIDDLE[] = "#------------------------------------------------------------------------\r\n"
                      "# part 2: set the error level of each package. Each line consist of 3 fields\r\n"
                      "# first field is package name (and it is ignored)\r\n"
                      "# second field is package key. It must not be changed. This value is \r\n"
                      "# the the Kor_Package constans in Kor_Package file devided by PACKAGE_RANGE\r\n"
                      "# constans\r\n"
                      "# third field is the error level witch is a digit between 1 to 7:\r\n"
                      "# 0=unspecified  1=severe  2=critical  3=error  4=warning\r\n"
                      "# 5=notice  6=information  7=debug\r\n"
                      "#------------------------------------------------------------------------\r\n";

std::string file_of(const char* output, const char* limit, const std::string& packages)
{
    return std::string(HEADER) + output + "\r\nfile_size_limit_in_mb=" + limit + "\r\n" + MIDDLE + packages + "!\r\n";
}

std::string dumped(const Kor_LogConf& conf, char** comments = nullptr)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    EXPECT_TRUE(Kor_LogFile::DumpToLoggerFile(conf, path.c_str(), comments));
    return read_file(path);
}

std::string blanks(std::size_t count) { return std::string(count, ' '); }

/// The comments of a file of these bytes, which live as long as this object.
class Comments
{
public:
    explicit Comments(const std::string& bytes)
    {
        const TempDirectory directory;
        EXPECT_TRUE(write_file(directory.file("logger"), bytes));
        m_texts = Kor_LogFile::ReadCommentsFromFile(directory.file("logger").c_str());
        EXPECT_NE(m_texts, nullptr);
    }
    Comments(const Comments&) = delete;
    Comments& operator=(const Comments&) = delete;
    ~Comments() { Kor_LogFile::CleanComments(m_texts); }

    char** texts() const { return m_texts; }
    std::string of(int package) const { return m_texts[package]; }

    /// Packages whose comment is not the empty one.
    std::vector<int> packages() const
    {
        std::vector<int> result;
        for (int package = 0; package < 750; ++package)
        {
            if (std::string(m_texts[package]) != "//")
                result.push_back(package);
        }
        return result;
    }

private:
    char** m_texts = nullptr;
};

using Packages = std::vector<int>;
} // namespace

// Writing -------------------------------------------------------------------------------------------

TEST(ConfDump, AFreshConfigurationIsWrittenAsItsHeaderAndNothingElse)
{
    const auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_EQ(dumped(*conf), file_of("0", "0", ""));
}

TEST(ConfDump, EveryNamedPackageGetsOneLineInTheOrderOfTheNumbers)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetOutput(Kor_LogConf::OUTPUT_PRIVATE_FILE);
    conf->SetPrintToDebugger(true); // is not written
    conf->SetSizeLimitInMb(15);
    conf->SetPackageName(749, "Last");
    conf->SetPackageDefaultLogLevel(749, 255);
    conf->SetPackageName(3, "Net");
    conf->SetPackageDefaultLogLevel(3, 7);
    conf->SetPackageName(42, "Core");
    conf->GetRuleTable(42).ParseRules("(7;10.0.0.0;app.exe)(5;;;12;3)");
    conf->SetPackageDefaultLogLevel(50, 7); // nameless
    EXPECT_EQ(
        dumped(*conf), file_of(
                           "2", "15",
                           "Net" + blanks(38) + " 3          7  \r\n" + //
                               "Core" + blanks(37) + " 42          4 [(7;10.0.0.0;app.exe)(5;;;12:3)] \r\n" + "Last" +
                               blanks(37) + " 749          255  \r\n"));
}

TEST(ConfDump, NamesAreFilledUpWithBlanksTo41Characters)
{
    for (const std::size_t length : {1u, 2u, 20u, 38u, 39u})
    {
        auto conf = std::make_unique<Kor_LogConf>();
        const std::string name(length, 'n');
        conf->SetPackageName(7, name.c_str());
        EXPECT_EQ(dumped(*conf), file_of("0", "0", name + blanks(41 - length) + " 7          4  \r\n")) << length;
    }
}

TEST(ConfDump, TheSizeLimitIsWrittenAsASignedNumber)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetSizeLimitInMb(0xFFFFFFFFu);
    conf->SetOutput(Kor_LogConf::OUTPUT_SYSLOG_FILE);
    EXPECT_EQ(dumped(*conf), file_of("1", "-1", ""));
}

TEST(ConfDump, KeptCommentsEndTheLinesOfTheirPackages)
{
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetPackageName(3, "Net");
    conf->GetRuleTable(3).ParseRules("(7;;a)");
    conf->SetPackageName(4, "Core");
    const Comments comments("2\nfile_size_limit_in_mb=15\nNet 3 7 // net stack\nOld 5 7 // gone\n");
    EXPECT_EQ(
        dumped(*conf, comments.texts()), file_of(
                                             "0", "0",
                                             "Net" + blanks(38) + " 3          4 [(7;;a)] // net stack\r\n" + "Core" +
                                                 blanks(37) + " 4          4  //\r\n"));
}

TEST(ConfDump, AnExistingFileIsReplaced)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(write_file(path, std::string(100000, 'x')));
    const auto conf = std::make_unique<Kor_LogConf>();
    EXPECT_TRUE(Kor_LogFile::DumpToLoggerFile(*conf, path.c_str(), nullptr));
    EXPECT_EQ(read_file(path), file_of("0", "0", ""));
}

TEST(ConfDump, AFileThatCannotBeOpenedIsReportedOnStandardError)
{
    const TempDirectory directory;
    const auto conf = std::make_unique<Kor_LogConf>();
    for (const std::string& path : {directory.file("no\\logger"), directory.path()})
    {
        CapturedStream captured_out(stdout);
        CapturedStream captured_err(stderr);
        EXPECT_FALSE(Kor_LogFile::DumpToLoggerFile(*conf, path.c_str(), nullptr));
        captured_err.stop();
        captured_out.stop();
        EXPECT_EQ(captured_err.text(), "*** Error -  DumpToLoggerFile.Can't open file <" + path + ">\n");
        EXPECT_EQ(captured_out.text(), "");
    }
}

TEST(ConfDump, TheFileIsClosedWhenItReturns)
{
    const TempDirectory directory;
    const auto conf = std::make_unique<Kor_LogConf>();
    ASSERT_TRUE(Kor_LogFile::DumpToLoggerFile(*conf, directory.file("logger").c_str(), nullptr));
    EXPECT_TRUE(::DeleteFileA(directory.file("logger").c_str()));
}

TEST(ConfDump, NamesWithoutATerminatorEndWithTheirSlot)
{
    auto conf = std::make_unique<Kor_LogConf>();
    std::memset(conf->packageNames, 'n', sizeof conf->packageNames);
    const std::string text = dumped(*conf);
    EXPECT_EQ(text.find(std::string(41, 'n')), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 21 + 750 + 1);
}

// Reading back --------------------------------------------------------------------------------------

namespace
{
/// A generator of our own, so that every run sees the same configurations.
class Random
{
public:
    explicit Random(std::uint32_t seed) : m_state(seed * 2654435761u + 1) {}
    unsigned below(unsigned bound)
    {
        m_state = m_state * 1664525u + 1013904223u;
        return (m_state >> 8) % bound;
    }

private:
    std::uint32_t m_state;
};

std::string random_name(Random& random, unsigned longest)
{
    const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:#!/()[];%";
    std::string name(1, letters[random.below(52)]); // no '#' and no '!' at the start
    for (unsigned i = random.below(longest); i > 0; --i)
        name += letters[random.below(sizeof letters - 1)];
    return name;
}

std::string random_rules(Random& random, std::size_t longest)
{
    const char* const addresses[] = {"10.0.0.0",  "10.1.2.3",          "192.168.0.0", "10.1.2.0",
                                     "fe80::/10", "2001:db8::1:2/127", "::1",         "2001:db8::/33"};
    std::string rules;
    for (unsigned i = random.below(4); i > 0; --i)
    {
        std::string rule = "(" + std::to_string(1 + random.below(7)) + ';';
        for (unsigned n = random.below(3); n > 0; --n)
            rule += std::string(addresses[random.below(8)]) + (n > 1 ? "," : "");
        rule += ";app" + std::to_string(random.below(1000));
        if (random.below(2) == 0)
            rule += ';' + std::to_string(random.below(2000000000)) + ',' + std::to_string(random.below(10));
        rule += ')';
        if (rules.size() + rule.size() < longest)
            rules += rule;
    }
    return rules;
}

std::unique_ptr<Kor_LogConf> random_conf(std::uint32_t seed)
{
    Random random(seed);
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetOutput(static_cast<Kor_LogConf::Output>(random.below(3)));
    conf->SetSizeLimitInMb(random.below(2) == 0 ? random.below(100) : 0x7FFFFFFFu - random.below(256));
    const unsigned density = 1 + random.below(100);
    for (int package = 0; package < 750; ++package)
    {
        if (random.below(100) >= density)
            continue;
        conf->SetPackageName(package, random_name(random, 39).c_str());
        conf->SetPackageDefaultLogLevel(
            package, static_cast<unsigned char>(random.below(10) == 0 ? random.below(256) : random.below(8)));
        if (random.below(4) == 0)
            conf->GetRuleTable(package).ParseRules(random_rules(random, 120).c_str());
    }
    return conf;
}
} // namespace

TEST(ConfDump, WhatIsWrittenReadsBackTheSame)
{
    for (std::uint32_t seed = 1; seed <= 40; ++seed)
    {
        const TempDirectory directory;
        const std::string path = directory.file("logger");
        const auto conf = random_conf(seed);
        ASSERT_TRUE(Kor_LogFile::DumpToLoggerFile(*conf, path.c_str(), nullptr));
        auto back = std::make_unique<Kor_LogConf>();
        CapturedStream captured_out(stdout);
        ASSERT_EQ(Kor_LogFile::ReadFile(path.c_str(), *back), 0);
        captured_out.stop();
        ASSERT_EQ(captured_out.text(), "") << seed;

        ASSERT_EQ(back->GetOutput(), conf->GetOutput()) << seed;
        ASSERT_EQ(back->GetSizeLimitInMb(), conf->GetSizeLimitInMb()) << seed;
        for (int package = 0; package < 750; ++package)
        {
            ASSERT_STREQ(back->GetPackageName(package), conf->GetPackageName(package)) << seed;
            ASSERT_EQ(back->GetPackageDefaultLogLevel(package), conf->GetPackageDefaultLogLevel(package)) << seed;
            ASSERT_STREQ(back->GetRuleTable(package).ToString(), conf->GetRuleTable(package).ToString()) << seed;
        }
        const std::string first = read_file(path);
        ASSERT_TRUE(Kor_LogFile::DumpToLoggerFile(*back, path.c_str(), nullptr));
        ASSERT_EQ(read_file(path), first) << seed;
    }
}

TEST(ConfDump, TheLargestSizeLimitReadsBackTheSame)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetSizeLimitInMb(0xFFFFFFFFu);
    ASSERT_TRUE(Kor_LogFile::DumpToLoggerFile(*conf, path.c_str(), nullptr));
    conf->SetSizeLimitInMb(0);
    ASSERT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), 0);
    EXPECT_EQ(conf->sizeLimitInMb, 0xFFFFFFFFu);
}

TEST(ConfDump, CommentsSurviveARewrite)
{
    const TempDirectory directory;
    const std::string path = directory.file("logger");
    ASSERT_TRUE(write_file(
        path,
        "3\r\nfile_size_limit_in_mb=15\r\nNet 3 7 // net stack, port 80/443\r\nCore 4 6 /* core */\r\nBare 5 5\r\n"));
    for (int round = 0; round < 3; ++round)
    {
        auto conf = std::make_unique<Kor_LogConf>();
        ASSERT_EQ(Kor_LogFile::ReadFile(path.c_str(), *conf), 0);
        char** comments = Kor_LogFile::ReadCommentsFromFile(path.c_str());
        ASSERT_TRUE(Kor_LogFile::DumpToLoggerFile(*conf, path.c_str(), comments));
        Kor_LogFile::CleanComments(comments);
        ASSERT_EQ(
            read_file(path),
            file_of(
                "2", "15",
                "Net" + blanks(38) + " 3          7  // net stack, port 80/443\r\n" + "Core" + blanks(37) +
                    " 4          6  /* core */\r\n" + "Bare" + blanks(37) + " 5          5  //\r\n"));
    }
}

// Kept comments -------------------------------------------------------------------------------------

TEST(ConfComments, TheCommentOfAPackageLineGoesToItsSlotAndTheOthersAreEmpty)
{
    const Comments comments("2\nfile_size_limit_in_mb=15\nCore 4 6\nNet 5 7 // net stack\nLast 749 4 //last\n");
    EXPECT_EQ(comments.packages(), (Packages{5, 749}));
    EXPECT_EQ(comments.of(5), "// net stack");
    EXPECT_EQ(comments.of(749), "//last");
    EXPECT_EQ(comments.of(4), "//");
    EXPECT_EQ(comments.of(0), "//");
}

TEST(ConfComments, ACommentIsWhatStandsFromTheFirstSlashToTheEndOfTheLine)
{
    struct Row
    {
        const char* line;
        const char* comment;
    };
    const Row rows[] = {
        {"Net 5 7 // net", "// net"},
        {"Net 5 7 / net", "/ net"},
        {"Net 5 7 /", "/"},
        {"Net 5 7 // a // b ", "// a // b "},
        {"Net 5 7 [(7;;a)] // net", "// net"},
        {"Net 5 7 [(7;10.0.0.0/8)] // net", "/8)] // net"}, // even one inside a rule
        {"Net/Work 5 7 // net", "/Work 5 7 // net"},
        {"Net 5 // no level", "// no level"},
        {"Net 5/x", "/x"},
        {"Net 5 7", "//"},
        {"Net 5 7 \\\\ no slash", "//"},
        {"# Net 5 7 // comment line", "//"},
        {"! Net 5 7 // comment line", "//"},
    };
    for (const Row& row : rows)
    {
        for (const char* end : {"\n", "\r\n", ""})
        {
            const Comments comments(std::string("2\nfile_size_limit_in_mb=15\n") + row.line + end);
            EXPECT_EQ(comments.of(5), row.comment) << row.line;
        }
    }
}

TEST(ConfComments, ALaterCommentReplacesAnEarlierOneAndItsAbsenceDoesNot)
{
    const Comments comments("2\nl\nA 5 7 // one\nB 5 7 // two\nC 5 7\nD 6 7 // six\nE 6 7\n");
    EXPECT_EQ(comments.of(5), "// two");
    EXPECT_EQ(comments.of(6), "// six");
    EXPECT_EQ(comments.packages(), (Packages{5, 6}));
}

TEST(ConfComments, NumbersOutOfRangeAreSkipped)
{
    const Comments comments("2\nl\nA 750 7 // a\nB -1 7 // b\nC 2147483647 7 // c\nD -2147483648 7 // d\nE 0 7 // e\n");
    EXPECT_EQ(comments.packages(), (Packages{0}));
    EXPECT_EQ(comments.of(0), "// e");
}

TEST(ConfComments, LinesOfTheFirstSectionCountWhenTheyLookLikePackages)
{
    const Comments comments("A 7 7 // in place of the output\nB 8 7 // in place of the limit\n");
    EXPECT_EQ(comments.of(7), "// in place of the output");
    EXPECT_EQ(comments.of(8), "// in place of the limit");
}

TEST(ConfComments, AnEmptyFileGives750EmptyComments)
{
    EXPECT_EQ(Comments("").packages(), (Packages{}));
    EXPECT_EQ(Comments("# only\n! comments // here\n").packages(), (Packages{}));
}

TEST(ConfComments, CommentsMayBeChangedInPlaceBeforeTheyAreWritten)
{
    const Comments comments("2\nl\nNet 3 7 // net\n");
    comments.texts()[3][3] = 'N';
    auto conf = std::make_unique<Kor_LogConf>();
    conf->SetPackageName(3, "Net");
    EXPECT_NE(dumped(*conf, comments.texts()).find("// Net\r\n"), std::string::npos);
}

TEST(ConfComments, AMissingFileIsReportedAndGivesNothing)
{
    const TempDirectory directory;
    for (const std::string& path : {directory.file("logger"), directory.path()})
    {
        CapturedStream captured_out(stdout);
        char** const comments = Kor_LogFile::ReadCommentsFromFile(path.c_str());
        captured_out.stop();
        EXPECT_EQ(comments, nullptr);
        EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + path + "\n");
    }
}

TEST(ConfComments, CleaningNoCommentsDoesNothing)
{
    char** none = nullptr;
    Kor_LogFile::CleanComments(none);
    EXPECT_EQ(none, nullptr);
}

TEST(ConfComments, CommentsCanBeReadAndCleanedManyTimes)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nA 5 7 // one\nB 5 7 // two\n"));
    for (int i = 0; i < 200; ++i)
    {
        char** comments = Kor_LogFile::ReadCommentsFromFile(directory.file("logger").c_str());
        ASSERT_NE(comments, nullptr);
        Kor_LogFile::CleanComments(comments);
    }
}

TEST(ConfComments, OverlongLinesAndAnyBytesDoNoHarm)
{
    const std::string zero(1, '\0');
    for (const std::string& bytes :
         {std::string(100000, 'x'), std::string(100000, '/'), "A 5 7 //" + std::string(100000, 'y') + "\nB 6 7 // b\n",
          std::string(199, '/') + "\n" + std::string(200, '/') + "\n", zero + "/" + zero + "\n",
          std::string("A 5 7 //x") + zero + "y\n", std::string("\xFF/\x1A/\n"), std::string(5000, '\n')})
    {
        const Comments comments(bytes);
        ASSERT_NE(comments.texts(), nullptr);
        for (int package = 0; package < 750; ++package)
            ASSERT_LE(std::strlen(comments.texts()[package]), 200u);
    }
}
