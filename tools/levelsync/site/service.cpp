#include "site/service.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <type_traits>

#include "failure.h"
#include "file.h"
#include "owned.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr wchar_t SHOWN_NAME[] = L"LevelSync agent";
constexpr wchar_t PURPOSE[] = L"Keeps the levels of this machine's logs as its site wants them.";
constexpr DWORD TIME_TO_STOP_MS = 30'000; // a question to a store that does not answer ends within that
constexpr DWORD PAUSE_MS = 50;

struct ServiceClose
{
    void operator()(SC_HANDLE handle) const noexcept { ::CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceClose>;

[[noreturn]] void fail(const std::string& what, DWORD error)
{
    throw Failure(
        what + ": " + system_text(error) + ".",
        error == ERROR_ACCESS_DENIED ? own_account() + " needs the rights of an administrator." : "");
}

ServiceHandle open_manager(DWORD access)
{
    ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, access));
    if (!manager)
        fail("The system's services cannot be reached", ::GetLastError());
    return manager;
}

/// Null where there is none.
ServiceHandle open_service(const ServiceHandle& manager, DWORD access)
{
    ServiceHandle service(::OpenServiceW(manager.get(), SERVICE_NAME, access));
    if (!service && ::GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
        fail("The service cannot be reached", ::GetLastError());
    return service;
}

DWORD state_of(const ServiceHandle& service)
{
    SERVICE_STATUS status{};
    return ::QueryServiceStatus(service.get(), &status) != FALSE ? status.dwCurrentState : SERVICE_STOPPED;
}

bool wait_for(const ServiceHandle& service, DWORD state)
{
    const ULONGLONG end = ::GetTickCount64() + TIME_TO_STOP_MS;
    while (state_of(service) != state)
    {
        if (::GetTickCount64() >= end)
            return false;
        ::Sleep(PAUSE_MS);
    }
    return true;
}

// In the service's process --------------------------------------------------------------------------------
const std::function<ExitCode(const std::function<bool(std::int64_t)>&)>* service_body = nullptr;
SERVICE_STATUS_HANDLE service_handle = nullptr;
HANDLE service_stop = nullptr;

void tell_state(DWORD state, DWORD exit_code = NO_ERROR) noexcept
{
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = exit_code == NO_ERROR ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = exit_code;
    status.dwWaitHint = TIME_TO_STOP_MS;
    ::SetServiceStatus(service_handle, &status);
}

DWORD WINAPI handle_control(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_INTERROGATE)
        return NO_ERROR;
    if (control != SERVICE_CONTROL_STOP && control != SERVICE_CONTROL_SHUTDOWN)
        return ERROR_CALL_NOT_IMPLEMENTED;
    tell_state(SERVICE_STOP_PENDING);
    ::SetEvent(service_stop);
    return NO_ERROR;
}

void WINAPI service_main(DWORD, LPWSTR*)
{
    service_handle = ::RegisterServiceCtrlHandlerExW(SERVICE_NAME, &handle_control, nullptr);
    if (service_handle == nullptr)
        return;
    tell_state(SERVICE_RUNNING);
    ExitCode code = NOT_DONE;
    try
    {
        code = (*service_body)(
            [](std::int64_t milliseconds)
            {
                constexpr std::int64_t LONGEST_MS = 86'400'000;
                const auto time = static_cast<DWORD>(std::clamp<std::int64_t>(milliseconds, 0, LONGEST_MS));
                return ::WaitForSingleObject(service_stop, time) == WAIT_OBJECT_0;
            });
    }
    catch (const std::exception&) // nobody is there to be told; status shows the code
    {
    }
    tell_state(SERVICE_STOPPED, static_cast<DWORD>(code));
}
} // namespace

void install_service(const std::wstring& command_line)
{
    const ServiceHandle manager = open_manager(SC_MANAGER_CREATE_SERVICE);
    const ServiceHandle service(::CreateServiceW(
        manager.get(), SERVICE_NAME, SHOWN_NAME, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
        SERVICE_ERROR_NORMAL, command_line.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service && ::GetLastError() == ERROR_SERVICE_EXISTS)
        throw Failure("The service is there already.", "Take it away first: LevelSync service remove.");
    if (!service)
        fail("The service cannot be made", ::GetLastError());
    std::wstring purpose = PURPOSE;
    SERVICE_DESCRIPTIONW description{purpose.data()};
    ::ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_DESCRIPTION, &description);
    // Begun again after it ended by itself, a minute later: the machine works meanwhile.
    SC_ACTION again{SC_ACTION_RESTART, 60'000};
    SERVICE_FAILURE_ACTIONSW actions{};
    actions.dwResetPeriod = 86'400; // seconds
    actions.cActions = 1;
    actions.lpsaActions = &again;
    ::ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &actions);
    if (::StartServiceW(service.get(), 0, nullptr) == FALSE)
    {
        const DWORD error = ::GetLastError();
        ::DeleteService(service.get());
        fail("The service cannot be started and was taken away again", error);
    }
}

bool remove_service()
{
    const ServiceHandle manager = open_manager(SC_MANAGER_CONNECT);
    const ServiceHandle service = open_service(manager, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE);
    if (!service)
        return false;
    SERVICE_STATUS status{};
    ::ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    const bool is_stopped = wait_for(service, SERVICE_STOPPED);
    if (::DeleteService(service.get()) == FALSE)
        fail("The service cannot be taken away", ::GetLastError());
    if (!is_stopped)
        throw Failure("The service does not stop.", "It is gone when its process has ended.");
    return true;
}

ServiceState service_state()
{
    ServiceState found;
    const ServiceHandle manager = open_manager(SC_MANAGER_CONNECT);
    const ServiceHandle service = open_service(manager, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
    if (!service)
        return found;
    found.exists = true;
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    if (::QueryServiceStatusEx(
            service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status, &size) == FALSE)
        fail("The service says nothing", ::GetLastError());
    found.state = status.dwCurrentState;
    found.process = status.dwProcessId;
    found.exit_code = status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR ? status.dwServiceSpecificExitCode
                                                                             : status.dwWin32ExitCode;
    ::QueryServiceConfigW(service.get(), nullptr, 0, &size);
    const auto bytes = std::make_unique<std::uint64_t[]>(size / sizeof(std::uint64_t) + 1);
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes.get());
    if (::QueryServiceConfigW(service.get(), config, size, &size) != FALSE && config->lpBinaryPathName != nullptr)
        found.command_line = config->lpBinaryPathName;
    return found;
}

std::string state_text(unsigned long state)
{
    switch (state)
    {
    case SERVICE_RUNNING:
        return "running";
    case SERVICE_START_PENDING:
        return "starting";
    case SERVICE_STOP_PENDING:
        return "stopping";
    case SERVICE_STOPPED:
        return "stopped";
    default:
        return "paused";
    }
}

ExitCode run_as_service(const std::function<ExitCode(const std::function<bool(std::int64_t)>& wait)>& body)
{
    const OwnedHandle stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    service_stop = stop.get();
    service_body = &body;
    wchar_t name[] = L"LevelSyncAgent";
    const SERVICE_TABLE_ENTRYW table[] = {{name, &service_main}, {nullptr, nullptr}};
    if (::StartServiceCtrlDispatcherW(table) != FALSE)
        return DONE;
    throw Failure(
        "The system has not started this as a service: " + system_text(::GetLastError()) + ".",
        "LevelSync agent --site ... runs it here; LevelSync service install --site ... makes it a service.",
        WRONG_CALL);
}
} // namespace levelsync
