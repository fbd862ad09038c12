// The UI feature log.

#include "Kor_UIFeatureLog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <type_traits>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

static_assert(std::has_virtual_destructor_v<Kor_UIFeatureLog> && sizeof(Kor_UIFeatureLog) == sizeof(void*));

class UIFeature : public ::testing::Test
{
protected:
    UIFeature() { KorGLog.Open("test.log", "viewer", false); }

    const LogDirectory m_directory;
};
} // namespace

TEST_F(UIFeature, AUseIsALineWithTheThreadsParameters)
{
    KorGLog.StoreParams("Kor_Toolbar", "Press", 12, 3, 17);
    Kor_UIFeatureLog::GetInstance()->writeFeature(7, 2);
    EXPECT_EQ(
        m_directory.lines(),
        Lines{"<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Toolbar(12) Press -> Kor_UI_FeatureLog (0) "
              "Pressing button - 7, activated from source - 2"});
}

TEST_F(UIFeature, NoLevelIsAskedFor)
{
    m_directory.configure(TO_FILE + "Library 106 0\nNone 0 0\n");
    KorGLog.ReadFile();
    KorGLog.ClearCacheTable();
    Kor_UIFeatureLog::GetInstance()->writeFeature(7, 2);
    EXPECT_EQ(m_directory.lines().size(), 1u);
}

TEST_F(UIFeature, NumbersAreWrittenAsSignedOnes)
{
    Kor_UIFeatureLog::GetInstance()->writeFeature(2147483648u, 4294967295u);
    EXPECT_NE(
        m_directory.text().find("Pressing button - -2147483648, activated from source - -1\n"), std::string::npos);
}

TEST_F(UIFeature, SwitchedOffNothingIsWritten)
{
    // Private to the library, so a test can only reach it by its exported name.
    const FARPROC found = ::GetProcAddress(library_module(), "_ZN16Kor_UIFeatureLog15useUIFeatureLogE");
    ASSERT_NE(found, nullptr);
    int& in_use = *reinterpret_cast<int*>(reinterpret_cast<void*>(found));
    EXPECT_EQ(in_use, 1);
    in_use = 0;
    Kor_UIFeatureLog::GetInstance()->writeFeature(7, 2);
    in_use = 1;
    EXPECT_EQ(m_directory.lines(), Lines{});
}

TEST_F(UIFeature, ThereIsOneForAllThreads)
{
    Kor_UIFeatureLog* instances[8] = {};
    run_on_threads(8, [&](int number) { instances[number] = Kor_UIFeatureLog::GetInstance(); });
    ASSERT_NE(instances[0], nullptr);
    for (const Kor_UIFeatureLog* const instance : instances)
        EXPECT_EQ(instance, instances[0]);
}
