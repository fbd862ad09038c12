#include "processes.h"

#include <memory>

namespace kit
{
namespace
{
struct Close
{
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept
    {
        if (handle != INVALID_HANDLE_VALUE)
            ::CloseHandle(handle);
    }
};
using Handle = std::unique_ptr<HANDLE, Close>;

Handle temporary_file()
{
    wchar_t folder[MAX_PATH + 1] = {};
    wchar_t name[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH, folder);
    ::GetTempFileNameW(folder, L"kit", 0, name);
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return Handle(::CreateFileW(
        name, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited,
        CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
}

std::string content_of(HANDLE file)
{
    std::string text;
    char piece[8192];
    DWORD count = 0;
    ::SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    while (::ReadFile(file, piece, sizeof piece, &count, nullptr) != FALSE && count > 0)
        text.append(piece, count);
    return text;
}
} // namespace

std::wstring wide(const std::string& text)
{
    std::wstring result(text.size(), L'\0');
    const int size = static_cast<int>(text.size());
    result.resize(static_cast<std::size_t>(
        ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), static_cast<int>(result.size()))));
    return result;
}

std::string utf8(const std::wstring& text)
{
    std::string result(text.size() * 3, '\0');
    result.resize(static_cast<std::size_t>(::WideCharToMultiByte(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), static_cast<int>(result.size()), nullptr,
        nullptr)));
    return result;
}

std::wstring own_kit()
{
    std::wstring path(32'768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.find_last_of(L'\\'));
    return path.substr(0, path.find_last_of(L'\\'));
}

Ended run(const std::wstring& program, const std::wstring& arguments, const std::wstring& folder, DWORD timeout_ms)
{
    Ended ended;
    const Handle output = temporary_file();
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = start.hStdError = output.get();
    PROCESS_INFORMATION process = {};
    std::wstring line = L"\"" + program + L"\" " + arguments;
    if (::CreateProcessW(
            program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, folder.c_str(), &start,
            &process) == FALSE)
    {
        ended.output = "could not be started: error " + std::to_string(::GetLastError());
        return ended;
    }
    const Handle owner(process.hProcess);
    const Handle thread(process.hThread);
    const Handle job(::CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    ::AssignProcessToJobObject(job.get(), process.hProcess);
    ::ResumeThread(process.hThread);
    ended.is_over = ::WaitForSingleObject(process.hProcess, timeout_ms) == WAIT_OBJECT_0;
    if (ended.is_over)
        ::GetExitCodeProcess(process.hProcess, &ended.code);
    else
        ::TerminateJobObject(job.get(), 0xDEAD);
    ended.output = content_of(output.get());
    return ended;
}
} // namespace kit
