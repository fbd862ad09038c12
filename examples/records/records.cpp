// records.cpp - how long each step takes, measured on threads that are not held up by that.

#include <windows.h>

#include <chrono>
#include <string>
#include <thread>

#include "Kor_LogFile.h"
#include "Kor_PerformanceLog.h"

namespace
{
using Clock = std::chrono::steady_clock;

/// Stands for work.
void load_image(int number) { ::Sleep(static_cast<DWORD>(5 + number)); }

void load_album(const char* album)
{
    Kor_PerformanceLog* const records = Kor_PerformanceLog::GetInstance();
    for (int number = 1; number <= 3; ++number)
    {
        const std::string image = "image " + std::to_string(number);
        const Clock::time_point start = Clock::now();
        load_image(number);
        const std::chrono::duration<float, std::milli> taken = Clock::now() - start;
        records->WriteRecord("viewer", "load", taken.count(), album, image.c_str());
    }
}
} // namespace

int main()
{
    KorGLog.Open("records.log", "records");
    if (Kor_PerformanceLog::GetInstance() == nullptr) // makes the file, before there are threads
        return 1;

    std::thread first(load_album, "album 12");
    std::thread second(load_album, "album 17");
    first.join();
    second.join();

    Kor_PerformanceLog::CloseInstance(); // writes the records, after the threads have ended
    return 0;
}
