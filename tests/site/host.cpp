// host.cpp - a process of the suite on one machine of a site: prints the levels of a few packages whenever one changes.

#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "Kor_LogFile.h"
#include "Kor_Package.h"

int main(int count, char** values)
{
    constexpr int MOST_PACKAGES = 8;
    constexpr DWORD PAUSE_MS = 20;
    int packages[MOST_PACKAGES] = {};
    int levels[MOST_PACKAGES] = {};
    int used = 0;
    for (int i = 1; i < count && used < MOST_PACKAGES; ++i)
    {
        packages[used] = std::atoi(values[i]);
        levels[used++] = -1;
    }
    KorGLog.Open("site_host.log", "site_host");
    for (;;) // until the test ends it
    {
        for (int i = 0; i < used; ++i)
        {
            const int level = KorGLog.GetLogLevel(packages[i] * PACKAGE_RANGE);
            if (level == levels[i])
                continue;
            levels[i] = level;
            std::printf("%d %d\n", packages[i], level);
            std::fflush(stdout);
        }
        ::Sleep(PAUSE_MS);
    }
}
