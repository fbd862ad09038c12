// service.cpp - a Windows service that logs. With --console it runs in a window, for trying it out.

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_SERVICE = 340;
constexpr char NAME[] = "lumlog-example";

HANDLE stop_event = nullptr;
SERVICE_STATUS_HANDLE status_handle = nullptr;

void open_log()
{
    // A service starts in the system's folder, so PRISMATE_LOG_DIR has to name one: in the value Environment of the
    // service's key, or for the whole machine. The account of the service must be allowed to write there.
    KorGLog.Open("service.log", NAME);
    KorGLog.SetThreadName("Main");
    Kor_LogFile::NamePackage(PACKAGE_SERVICE, "Service");
}

void work()
{
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_SERVICE, "the service works");
    for (int turn = 1; ::WaitForSingleObject(stop_event, 1'000) == WAIT_TIMEOUT; ++turn)
        KOR_LOG(KorGLog, KOR_LEVEL_DEBUG, PACKAGE_SERVICE, "turn %d", turn);
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_SERVICE, "the service stops");
}

void report(DWORD state)
{
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    ::SetServiceStatus(status_handle, &status);
}

DWORD WINAPI control(DWORD code, DWORD, void*, void*)
{
    if (code != SERVICE_CONTROL_STOP && code != SERVICE_CONTROL_SHUTDOWN)
        return code == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
    // In this order: what the service says while it stops must still find its log.
    report(SERVICE_STOP_PENDING);
    ::SetEvent(stop_event);
    return NO_ERROR;
}

void WINAPI service_main(DWORD, char**)
{
    status_handle = ::RegisterServiceCtrlHandlerExA(NAME, &control, nullptr);
    if (status_handle == nullptr)
    {
        KorGLog.OSLog("RegisterServiceCtrlHandlerEx", ::GetLastError());
        return;
    }
    report(SERVICE_RUNNING);
    work();
    report(SERVICE_STOPPED);
}

BOOL WINAPI stop_on_ctrl_c(DWORD) { return ::SetEvent(stop_event); }

int run_in_a_window()
{
    ::SetConsoleCtrlHandler(&stop_on_ctrl_c, TRUE);
    work();
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    stop_event = ::CreateEventA(nullptr, TRUE, FALSE, "lumlog-host-service");
    open_log();
    if (argc > 1 && std::strcmp(argv[1], "--console") == 0)
        return run_in_a_window();

    char name[] = "lumlog-example";
    const SERVICE_TABLE_ENTRYA services[] = {{name, &service_main}, {nullptr, nullptr}};
    if (::StartServiceCtrlDispatcherA(services) != FALSE)
        return 0;
    const DWORD error = ::GetLastError();
    if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_SERVICE) != 0)
        KorGLog.OSErrLog(error, "This is no service process; try --console.");
    std::fprintf(stderr, "This is a service; try --console.\n");
    return 1;
}
