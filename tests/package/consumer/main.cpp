// Another project's program: all it knows of LUMlog is the installed package.

#include <cstdio>

#include "all_headers.h"

int main()
{
    Mutex mutex;
    mutex.Lock();
    mutex.Unlock();
    std::printf("linked with LUMlog; a package has %d message codes\n", static_cast<int>(PACKAGE_RANGE));
    return 0;
}
