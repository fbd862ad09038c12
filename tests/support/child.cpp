#include "child.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <map>
#include <string_view>

#include "process_creation.h"

namespace
{
constexpr wchar_t BEGUN_VARIABLE[] = L"KOR_TEST_CHILD_HAS_BEGUN"; // the value of an inherited handle

std::map<std::string, ChildBody>& registered_bodies()
{
    static std::map<std::string, ChildBody> bodies; // filled during static construction, whatever its order
    return bodies;
}

std::wstring wide(std::string_view text)
{
    if (text.empty())
        return {};
    const int size = static_cast<int>(text.size());
    std::wstring result(
        static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0)), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), static_cast<int>(result.size()));
    return result;
}

// Environment --------------------------------------------------------------------
struct NameOrder // names of variables know no case, and a block is sorted by them
{
    bool operator()(const std::wstring& a, const std::wstring& b) const noexcept
    {
        return ::_wcsicmp(a.c_str(), b.c_str()) < 0;
    }
};
using Environment = std::map<std::wstring, std::wstring, NameOrder>;

bool belongs_to_the_library(const std::wstring& name)
{
    return ::_wcsnicmp(name.c_str(), L"PRISMATE_", 9) == 0 || ::_wcsnicmp(name.c_str(), L"KORAL_", 6) == 0;
}

Environment own_environment()
{
    Environment result;
    wchar_t* const block = ::GetEnvironmentStringsW();
    for (const wchar_t* entry = block; *entry != L'\0'; entry += std::wcslen(entry) + 1)
    {
        const std::wstring text(entry);
        const std::size_t equals = text.find(L'=', 1); // "=C:=C:\dir" starts with one
        if (equals != std::wstring::npos && !belongs_to_the_library(text.substr(0, equals)))
            result[text.substr(0, equals)] = text.substr(equals + 1);
    }
    ::FreeEnvironmentStringsW(block);
    return result;
}

std::wstring environment_block(const ChildOptions& options, HANDLE begun)
{
    Environment variables = own_environment();
    variables[L"KORAL_LOG_DEVELOP"] = L"1";
    variables[BEGUN_VARIABLE] = std::to_wstring(reinterpret_cast<std::uintptr_t>(begun));
    for (const auto& [name, value] : options.environment)
    {
        if (value.empty())
            variables.erase(wide(name));
        else
            variables[wide(name)] = wide(value);
    }
    std::wstring block;
    for (const auto& [name, value] : variables)
        block += name + L'=' + value + L'\0';
    return block += L'\0';
}

// Command line -------------------------------------------------------------------
std::wstring quoted(const std::wstring& argument)
{
    std::wstring result = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument)
    {
        if (c == L'"')
            result.append(backslashes + 1, L'\\'); // those in front of a quote count double
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        result += c;
    }
    result.append(backslashes, L'\\');
    return result + L'"';
}

std::wstring own_program()
{
    std::wstring path(32768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

// Captured output ----------------------------------------------------------------
// Files, not pipes: no reader has to keep up, and none can be left waiting for a grandchild.
HANDLE new_capture_file()
{
    static std::atomic<unsigned> number{0};
    wchar_t directory[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH + 1, directory);
    const std::wstring path = directory + std::wstring(L"kor-") + std::to_wstring(::GetCurrentProcessId()) + L'-' +
                              std::to_wstring(++number) + L".out";
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return ::CreateFileW(
        path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

std::string contents(HANDLE file)
{
    // A second look at the same file, as the child's position in it must not move.
    const HANDLE view = ::ReOpenFile(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
    if (view == INVALID_HANDLE_VALUE)
        return {};
    std::string result;
    char piece[16384];
    DWORD count = 0;
    while (::ReadFile(view, piece, sizeof piece, &count, nullptr) && count > 0)
        result.append(piece, count);
    ::CloseHandle(view);
    return result;
}

HANDLE new_job()
{
    const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

HANDLE new_inheritable_event()
{
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return ::CreateEventW(&inheritable, TRUE, FALSE, nullptr);
}

HANDLE inheritable_null_device()
{
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return ::CreateFileW(
        L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0, nullptr);
}
} // namespace

ChildRegistration::ChildRegistration(const char* name, ChildBody body) { registered_bodies()[name] = body; }

ChildBody find_child_body(const std::string& name)
{
    const auto found = registered_bodies().find(name);
    return found == registered_bodies().end() ? nullptr : found->second;
}

Child::Child(std::string name, ChildOptions options) : m_name(std::move(name)), m_options(std::move(options))
{
    start();
}

Child::~Child() { end(); }

void Child::start()
{
    m_job = new_job();
    m_out = new_capture_file();
    m_err = new_capture_file();
    m_begun = new_inheritable_event();
    const std::wstring program = m_options.program.empty() ? own_program() : wide(m_options.program);
    std::wstring line = quoted(program);
    if (m_options.program.empty())
        line += L' ' + quoted(L"--child=" + wide(m_name));
    for (const std::string& argument : m_options.arguments)
        line += L' ' + quoted(wide(argument));
    std::wstring environment = environment_block(m_options, m_begun);
    const std::wstring directory = wide(m_options.directory);

    const HANDLE input = inheritable_null_device();
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = m_out;
    startup.hStdError = m_err;
    PROCESS_INFORMATION process{};
    const auto create = [&]
    {
        return ::CreateProcessW(
            program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT,
            environment.data(), directory.empty() ? nullptr : directory.c_str(), &startup, &process);
    };
    if (created_at_last(create))
    {
        ::AssignProcessToJobObject(m_job, process.hProcess); // before it can start anything
        ::ResumeThread(process.hThread);
        ::CloseHandle(process.hThread);
        m_process = process.hProcess;
        m_pid = process.dwProcessId;
    }
    else
    {
        std::fprintf(stderr, "%s could not be created: error %lu\n", m_name.c_str(), ::GetLastError());
    }
    if (!m_options.program.empty())
        ::SetEvent(m_begun);
    ::CloseHandle(input);
}

void Child::end() noexcept
{
    ::CloseHandle(m_job); // ends what is still running
    if (m_process != nullptr)
    {
        ::WaitForSingleObject(m_process, 10000); // so that its files can be removed
        ::CloseHandle(m_process);
        m_process = nullptr;
    }
    ::CloseHandle(m_out);
    ::CloseHandle(m_err);
    ::CloseHandle(m_begun);
}

void Child::ensure_begun()
{
    constexpr DWORD TIME_TO_BEGIN_MS = 15000;
    constexpr int MOST_STARTS = 3;
    for (int starts = 1;; ++starts)
    {
        const HANDLE either[] = {m_begun, m_process};
        const bool begun =
            m_process != nullptr && ::WaitForMultipleObjects(2, either, FALSE, TIME_TO_BEGIN_MS) != WAIT_TIMEOUT;
        if (begun || starts == MOST_STARTS)
            return;
        std::fprintf(stderr, "%s did not come to its main function and is started again\n", m_name.c_str());
        end();
        start();
    }
}

ChildResult Child::wait(unsigned timeout_ms) const
{
    ChildResult result;
    if (m_process == nullptr)
        return result;
    result.finished = ::WaitForSingleObject(m_process, timeout_ms) == WAIT_OBJECT_0;
    ::GetExitCodeProcess(m_process, &result.exit_code);
    result.out = contents(m_out);
    result.err = contents(m_err);
    return result;
}

void Child::kill() const noexcept
{
    if (m_process != nullptr)
        ::TerminateProcess(m_process, 0xDEAD);
}

void tell_that_child_has_begun()
{
    wchar_t value[32] = {};
    if (::GetEnvironmentVariableW(BEGUN_VARIABLE, value, 32) == 0)
        return;
    const auto begun = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(std::wcstoull(value, nullptr, 10)));
    ::SetEnvironmentVariableW(BEGUN_VARIABLE, nullptr); // means nothing to the processes that this one starts
    ::SetEvent(begun);
    ::CloseHandle(begun);
}

ChildResult run_child(const char* name, const ChildOptions& options)
{
    Child child(name, options);
    child.ensure_begun();
    return child.wait(options.timeout_ms);
}
