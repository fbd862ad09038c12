// recorded_section.h - the recorded lines of a process, found and read as another process would, with nothing of the
// library's.

#ifndef KOR_TESTS_RECORDED_SECTION_H
#define KOR_TESTS_RECORDED_SECTION_H

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "recorded_lines.h"

/// The lines of a process that runs. Once opened they stay, whatever becomes of the process.
class RecordedSection
{
public:
    explicit RecordedSection(unsigned long process = ::GetCurrentProcessId())
    {
        const std::string name = "LUMLOG_LINES_1_" + std::to_string(process) + '_' + std::to_string(created(process));
        m_mapping = ::OpenFileMappingA(FILE_MAP_READ, FALSE, ("Global\\" + name).c_str());
        if (m_mapping == nullptr)
            m_mapping = ::OpenFileMappingA(FILE_MAP_READ, FALSE, ("Local\\" + name).c_str());
        if (m_mapping == nullptr)
            return;
        m_view = ::MapViewOfFile(m_mapping, FILE_MAP_READ, 0, 0, 0);
        MEMORY_BASIC_INFORMATION region{};
        ::VirtualQuery(m_view, &region, sizeof region);
        m_size = region.RegionSize;
    }
    RecordedSection(const RecordedSection&) = delete;
    RecordedSection& operator=(const RecordedSection&) = delete;
    ~RecordedSection()
    {
        if (m_view != nullptr)
            ::UnmapViewOfFile(m_view);
        if (m_mapping != nullptr)
            ::CloseHandle(m_mapping);
    }

    bool is_there() const noexcept { return m_view != nullptr; }
    std::size_t size() const noexcept { return m_size; }

    /// Nothing when there are none.
    std::optional<recorded::Lines> read() const
    {
        return m_view == nullptr ? std::nullopt : recorded::read(m_view, m_size);
    }

    static std::uint64_t created(unsigned long process)
    {
        const HANDLE handle = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
        FILETIME created{};
        FILETIME unused{};
        ::GetProcessTimes(handle, &created, &unused, &unused, &unused);
        if (handle != nullptr)
            ::CloseHandle(handle);
        return std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime;
    }

private:
    HANDLE m_mapping = nullptr;
    const void* m_view = nullptr;
    std::size_t m_size = 0;
};

#endif // KOR_TESTS_RECORDED_SECTION_H
