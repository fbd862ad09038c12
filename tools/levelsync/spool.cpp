#include "spool.h"

#include <algorithm>

#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t MOST_WAITING = 65'536;

/// In the order in which calls of this process make them.
std::wstring next_path()
{
    static unsigned count = 0;
    wchar_t folder[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH + 1, folder);
    return folder + std::wstring(L"LevelSync-") + std::to_wstring(::GetCurrentProcessId()) + L'-' +
           std::to_wstring(++count) + L".tmp";
}

OVERLAPPED position_of(std::uint64_t at)
{
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>(at);
    position.OffsetHigh = static_cast<DWORD>(at >> 32);
    return position;
}

[[noreturn]] void fail()
{
    throw Failure(
        "The folder for temporary files cannot be written to: " + system_text(::GetLastError()) + '.',
        "Nothing was written. Make room on its disk, or set TEMP to a folder on another one.");
}
} // namespace

void Spool::append(std::string_view bytes)
{
    m_waiting += bytes;
    if (m_waiting.size() >= MOST_WAITING)
        hand_on();
}

std::size_t Spool::read(std::uint64_t at, char* to, std::size_t size)
{
    if (at >= m_written)
    {
        const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(at - m_written, m_waiting.size()));
        return m_waiting.copy(to, size, begin);
    }
    OVERLAPPED position = position_of(at);
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min<std::uint64_t>({size, m_written - at, MOST_WAITING}));
    return ::ReadFile(m_file.get(), to, wanted, &count, &position) != FALSE ? count : 0;
}

void Spool::hand_on()
{
    if (!is_valid(m_file))
        m_file.reset(::CreateFileW(
            next_path().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
            FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!is_valid(m_file))
        fail();
    OVERLAPPED position = position_of(m_written);
    DWORD count = 0;
    if (::WriteFile(m_file.get(), m_waiting.data(), static_cast<DWORD>(m_waiting.size()), &count, &position) == FALSE ||
        count != m_waiting.size())
        fail();
    m_written += m_waiting.size();
    m_waiting.clear();
}
} // namespace levelsync
