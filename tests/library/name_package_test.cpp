// name_package_test.cpp - what programs call their packages, in logger.packages.

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "Kor_LogFile.h"
#include "child.h"
#include "log_directory.h"
#include "lumlog.h"

namespace
{
class NamePackage : public ::testing::Test
{
protected:
    std::string names() const { return m_directory.text("logger.packages"); }

    const LogDirectory m_directory;
};
} // namespace

TEST_F(NamePackage, WritesALineWithTheProgramOnce)
{
    for (int start = 0; start < 3; ++start)
    {
        EXPECT_EQ(Kor_LogFile::NamePackage(310, "Reader"), 0);
        EXPECT_EQ(lum_name_package(0, "Kernel"), LUM_OK);
    }
    EXPECT_EQ(names(), "310 Reader library_tests.exe\n0 Kernel library_tests.exe\n");
}

TEST_F(NamePackage, WritesAnotherLineWhenTheNameChanges)
{
    for (const char* const name : {"Reader", "Books", "Books", "Reader"})
        EXPECT_EQ(Kor_LogFile::NamePackage(310, name), 0);
    EXPECT_EQ(names(), "310 Reader library_tests.exe\n310 Books library_tests.exe\n310 Reader library_tests.exe\n");
}

TEST_F(NamePackage, WritesNothingForWhatIsNoPackageOrNoName)
{
    EXPECT_EQ(Kor_LogFile::NamePackage(-1, "Reader"), -1);
    EXPECT_EQ(Kor_LogFile::NamePackage(750, "Reader"), -1);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, nullptr), -1);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, ""), -1);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, "two words"), -1);
    EXPECT_EQ(lum_name_package(310, "line\n"), LUM_FAILED);
    EXPECT_FALSE(file_exists(m_directory.file("logger.packages")));
}

TEST_F(NamePackage, LeavesTheLinesOfOthersAsTheyAre)
{
    const std::string others = "310 Pages archive.exe\nnot a line\n311 Half library_te";
    write_file(m_directory.file("logger.packages"), others);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, "Reader"), 0);
    EXPECT_EQ(names(), others + "\n310 Reader library_tests.exe\n");
}

TEST_F(NamePackage, IsNotHeldUpByAFileThatCannotBeReadOrWritten)
{
    ::SetLastError(4711);
    {
        const HANDLE held = ::CreateFileA(
            m_directory.file("logger.packages").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0,
            nullptr);
        ::SetLastError(4711);
        EXPECT_EQ(Kor_LogFile::NamePackage(310, "Reader"), 0);
        ::CloseHandle(held);
    }
    const EnvironmentVariable nowhere("PRISMATE_LOG_DIR", m_directory.file("missing"));
    ::SetLastError(4711);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, "Reader"), 0);
    EXPECT_EQ(::GetLastError(), 4711U);
    EXPECT_EQ(names(), "");
}

TEST_F(NamePackage, AddsNothingToAFileThatIsTooLarge)
{
    const std::string large(std::size_t{5} << 20, '#');
    write_file(m_directory.file("logger.packages"), large);
    EXPECT_EQ(Kor_LogFile::NamePackage(310, "Reader"), 0);
    EXPECT_EQ(names().size(), large.size());
}
