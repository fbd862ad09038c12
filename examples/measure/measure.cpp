// measure.cpp - each way of logging a measurement once.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_PerfmonScope.h"
#include "Kor_UIFeatureLog.h"

namespace
{
constexpr int NOTICE = 5;

void read_images() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }
} // namespace

int main()
{
    KorGLog.Open("measure.log", "measure");
    KorPLog.Open("measure.perf", "measure");
    KorPLog.SetContext(" A4");

    // The time of a scope.
    {
        const Kor_PerfmonScope timing("load album");
        read_images();
    }

    // Named values of one measurement.
    if (KorPLog.StoreParams(KOR_FILE_NAME, __LINE__, NOTICE, KOR_PACKAGE_PERFMON) != 0)
        KorPLog.FLog("memory", "dfs", "images", 17, "used", 211.5, "unit", "MB");

    // A timer that is stopped elsewhere than where it was started.
    KorPLog.Timers().AddTimer("first image");
    read_images();
    std::int64_t time = 0;
    if (KorPLog.Timers().GetTimeAndRemove("first image", time) != 0 &&
        KorPLog.StoreParams(KOR_FILE_NAME, __LINE__, NOTICE, KOR_PACKAGE_PERFMON) != 0)
        KorPLog.Log("the first image took %lld ms\n", static_cast<long long>(time));

    // Which feature was used, in the general log.
    if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_WARNING, 310) != 0)
        Kor_UIFeatureLog::GetInstance()->writeFeature(7, 2);

    std::printf("measuring is %s\n", KorPLog.IsPerfmonEnabled() != 0 ? "on" : "off");
    return 0;
}
