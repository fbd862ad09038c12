// control.cpp - what an operator does while hosts are running: publish a changed `logger` file to
// all of them at once, and tell one of them to stop.

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_CONTROL = 340;

int publish(const char* path)
{
    // UpdateSMFromFile itself takes a missing file for a wish to have the defaults everywhere.
    if (!std::ifstream(path).is_open())
    {
        std::fprintf(stderr, "%s cannot be read; nothing was changed.\n", path);
        return 1;
    }
    if (Kor_LogFile::UpdateSMFromFile(path) != 0)
    {
        std::fprintf(stderr, "The shared configuration cannot be reached; nothing was changed.\n");
        return 1;
    }
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CONTROL, "published %s", path);
    return 0;
}

int stop(const char* name)
{
    HANDLE const event = ::OpenEventA(EVENT_MODIFY_STATE, FALSE, (std::string("lumlog-host-") + name).c_str());
    if (event == nullptr)
    {
        std::fprintf(stderr, "No host called %s is running.\n", name);
        return 1;
    }
    ::SetEvent(event);
    ::CloseHandle(event);
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CONTROL, "told the host %s to stop", name);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    // Who changes what everybody logs leaves a trace of it.
    KorGLog.Open("control.log", "control");
    if (argc == 3 && std::strcmp(argv[1], "publish") == 0)
        return publish(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], "stop") == 0)
        return stop(argv[2]);
    std::fprintf(
        stderr, "example_control publish FILE   gives every running process the configuration in FILE\n"
                "example_control stop NAME      tells the example_host of that name to stop\n");
    return 2;
}
