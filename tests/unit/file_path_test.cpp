// file_path_test.cpp - paths that Windows takes as they are, and those that it limits.

#include "core/file_path.h"

#include <gtest/gtest.h>

#include <string>

using kor::core::is_verbatim;
using kor::core::lift_length_limit;
using kor::core::tidy_verbatim;

namespace
{
TEST(FilePath, OnlyThePrefixWithAQuestionMarkIsVerbatim)
{
    EXPECT_TRUE(is_verbatim(L"\\\\?\\C:\\logs"));
    EXPECT_TRUE(is_verbatim(L"\\\\?\\"));
    for (const wchar_t* const path : {L"", L"\\\\?", L"\\\\.\\C:\\logs", L"\\\\server\\share", L"C:\\logs", L"//?/C:/"})
        EXPECT_FALSE(is_verbatim(path)) << path;
}

TEST(FilePath, AVerbatimPathKeepsItsNamesAndGetsSingleBackslashes)
{
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\C:\\logs\\test.log"), L"\\\\?\\C:\\logs\\test.log");
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\C:\\logs/test.log"), L"\\\\?\\C:\\logs\\test.log");
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\C:\\logs\\/a//b\\\\c. "), L"\\\\?\\C:\\logs\\a\\b\\c. ");
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\UNC\\server\\share/test.log"), L"\\\\?\\UNC\\server\\share\\test.log");
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\C:\\.."), L"\\\\?\\C:\\..");
    EXPECT_EQ(tidy_verbatim(L"\\\\?\\"), L"\\\\?\\");
}

TEST(FilePath, APathOfUpTo200CharactersStaysAsItIs)
{
    const std::wstring drive = L"C:\\" + std::wstring(197, L'x');
    ASSERT_EQ(drive.size(), 200u);
    EXPECT_EQ(lift_length_limit(drive), drive);
    EXPECT_EQ(lift_length_limit(drive + L"y"), L"\\\\?\\" + drive + L"y");
}

TEST(FilePath, ALongPathOnAServerGetsTheNetworksPrefix)
{
    const std::wstring rest = L"server\\share\\" + std::wstring(300, L'x');
    EXPECT_EQ(lift_length_limit(L"\\\\" + rest), L"\\\\?\\UNC\\" + rest);
    EXPECT_EQ(lift_length_limit(L"\\\\server\\share\\x"), L"\\\\server\\share\\x");
}

TEST(FilePath, ALongPathThatHasAPrefixGetsNoSecondOne)
{
    const std::wstring rest = L"C:\\" + std::wstring(300, L'x');
    EXPECT_EQ(lift_length_limit(L"\\\\?\\" + rest), L"\\\\?\\" + rest);
    EXPECT_EQ(lift_length_limit(L"\\\\.\\" + rest), L"\\\\.\\" + rest);
}
} // namespace
