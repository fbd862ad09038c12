// service.h - the agent as a Windows service.

#ifndef LEVELSYNC_SITE_SERVICE_H
#define LEVELSYNC_SITE_SERVICE_H

#include <functional>
#include <string>

#include "tool.h"

namespace levelsync
{
constexpr wchar_t SERVICE_NAME[] = L"LevelSyncAgent";

/// Makes it, to start with the machine, and starts it. command_line: what it runs. Throws Failure.
void install_service(const std::wstring& command_line);

/// Stops it and takes it away. False where there is none. Throws Failure.
bool remove_service();

struct ServiceState
{
    bool exists = false;
    unsigned long state = 0; ///< as SERVICE_STATUS has it
    unsigned long process = 0;
    unsigned long exit_code = 0;
    std::wstring command_line;
};

/// Throws Failure where the system does not say.
ServiceState service_state();

/// "running", "stopped".
std::string state_text(unsigned long state);

/// What the service's process does: hands itself over to the system, which has body run. body is given a function that
/// waits so many milliseconds and is true when it is to end. Throws Failure where the system has not started this process
/// as a service.
ExitCode run_as_service(const std::function<ExitCode(const std::function<bool(std::int64_t)>& wait)>& body);
} // namespace levelsync

#endif // LEVELSYNC_SITE_SERVICE_H
