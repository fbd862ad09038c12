#include "turn.h"

#include "failure.h"
#include "file.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr wchar_t FILE_NAME[] = L"logger.lock";
constexpr ULONGLONG PATIENCE_MS = 30'000;
constexpr DWORD PAUSE_MS = 10;

// Bytes far behind what stands in the file: who reads that must not run into a lock.
constexpr DWORD TURN_HIGH = 1;
constexpr DWORD KEEPING_HIGH = 2;
constexpr DWORD AGENT_HIGH = 3;

OwnedHandle open_lock_file(const Folder& folder)
{
    return OwnedHandle(::CreateFileW(
        folder.name(FILE_NAME).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool lock_byte(const OwnedHandle& file, DWORD high, DWORD low, DWORD flags)
{
    OVERLAPPED at{};
    at.Offset = low;
    at.OffsetHigh = high;
    return ::LockFileEx(file.get(), flags | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &at) != FALSE;
}

/// Notes who has the turn, for those who wait in vain.
void sign(const OwnedHandle& file, const Tool& tool)
{
    const std::string text =
        own_account() + ", process " + std::to_string(::GetCurrentProcessId()) + ": " + tool.command_line + "\r\n";
    DWORD written = 0;
    ::SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
    ::WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    ::SetEndOfFile(file.get());
}

std::string holder(const Folder& folder)
{
    std::string text = shown(read_whole(folder.name(FILE_NAME)).value_or(std::string()));
    text.resize(std::min(text.find("\xC2\xB7"), text.size())); // the line end
    return text.empty() ? "another LevelSync" : text;
}
} // namespace

Turn::Turn(const Tool& tool)
{
    const Folder& folder = tool.folder;
    require_folder(folder.path);
    m_file = open_lock_file(folder);
    if (!is_valid(m_file))
    {
        const DWORD error = ::GetLastError();
        throw Failure(
            error == ERROR_ACCESS_DENIED
                ? own_account() + " has no right to write in " + shown(utf8(folder.path)) + "."
                : shown(utf8(folder.name(FILE_NAME))) + " cannot be opened: " + system_text(error) + ".",
            "Nothing was changed. Run LevelSync as an administrator, or ask for the right to write in that folder.");
    }
    const ULONGLONG end = ::GetTickCount64() + PATIENCE_MS;
    while (!lock_byte(m_file, TURN_HIGH, 0, LOCKFILE_EXCLUSIVE_LOCK))
    {
        if (::GetTickCount64() >= end)
            throw Failure(
                "Somebody else has been changing the file for half a minute: " + holder(folder) + ".",
                "Nothing was changed. Wait until that is done, or end that process, and try again.");
        ::Sleep(PAUSE_MS);
    }
    sign(m_file, tool);
}

Keeping::Keeping(const Folder& folder, long long change) : m_file(open_lock_file(folder))
{
    if (!is_valid(m_file) || !lock_byte(m_file, KEEPING_HIGH, static_cast<DWORD>(change), 0))
        throw Failure(
            "The override could not be marked as looked after: " + system_text(::GetLastError()) + ".",
            "Nothing was changed.");
}

bool Keeping::is_over(const Folder& folder, long long change)
{
    const OwnedHandle file = open_lock_file(folder);
    return is_valid(file) && lock_byte(file, KEEPING_HIGH, static_cast<DWORD>(change), LOCKFILE_EXCLUSIVE_LOCK);
}

AgentDuty::AgentDuty(const Tool& tool)
{
    require_folder(tool.folder.path);
    m_file = open_lock_file(tool.folder);
    if (!is_valid(m_file))
        throw Failure(
            own_account() + " has no right to write in " + shown(utf8(tool.folder.path)) + ": " +
                system_text(::GetLastError()) + ".",
            "Run the agent under an account that has it.");
    if (!lock_byte(m_file, AGENT_HIGH, 0, LOCKFILE_EXCLUSIVE_LOCK))
        throw Failure(
            "Another agent keeps the level file of " + shown(utf8(tool.folder.path)) + " already.",
            "LevelSync service status tells of the one that is a service.");
}
} // namespace levelsync
