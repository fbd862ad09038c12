#include "live_lines.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/last_lines.h"
#include "core/line_ring_reader.h"
#include "failure.h"
#include "log_files.h"
#include "owned.h"

namespace levelsync
{
namespace
{
constexpr std::size_t MOST_BYTES = 64 * 1024 * 1024; // of what a process can keep; more has been made by somebody else

struct ViewClose
{
    void operator()(const void* view) const noexcept { ::UnmapViewOfFile(view); }
};
using OwnedView = std::unique_ptr<const void, ViewClose>;

kor::core::RingOwner owner_of(unsigned long process)
{
    const OwnedHandle handle(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    FILETIME created{};
    FILETIME unused{};
    if (!is_valid(handle) || ::GetProcessTimes(handle.get(), &created, &unused, &unused, &unused) == FALSE)
        throw Failure(
            "No process " + std::to_string(process) + " runs, or it cannot be looked at.",
            "LevelSync ps shows the running processes.");
    return {process, std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime};
}

OwnedHandle open_section(const kor::core::RingOwner& owner)
{
    OwnedHandle section;
    for (const std::string_view where : {kor::core::GLOBAL_RING, kor::core::LOCAL_RING})
    {
        section.reset(::OpenFileMappingA(FILE_MAP_READ, FALSE, kor::core::RingName(where, owner).text()));
        if (is_valid(section))
            break;
    }
    return section;
}

/// How much of a view can be read.
std::size_t size_of(const void* view)
{
    MEMORY_BASIC_INFORMATION region{};
    const bool is_known = ::VirtualQuery(view, &region, sizeof region) != 0 && region.State == MEM_COMMIT &&
                          (region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) == 0;
    return is_known ? std::min<std::size_t>(region.RegionSize, MOST_BYTES) : 0;
}

std::string text_of_lines(unsigned long process)
{
    const kor::core::RingOwner owner = owner_of(process);
    const OwnedHandle section = open_section(owner);
    const OwnedView view(is_valid(section) ? ::MapViewOfFile(section.get(), FILE_MAP_READ, 0, 0, 0) : nullptr);
    const std::size_t size = view == nullptr ? 0 : size_of(view.get());
    std::vector<std::uint64_t> room(size / sizeof(std::uint64_t));
    kor::core::LineRingReader lines(view.get(), size, room.data(), size);
    if (!lines.is_ring())
        throw Failure(
            "Process " + std::to_string(process) + " keeps no lines in memory, or not for this session and account.",
            "It does when it is started with PRISMATE_LOG_RECORDER=256K,7 or calls KorGLog.SetRecorder.");
    std::string text;
    std::vector<char> piece(kor::core::LONGEST_LAST_LINE);
    kor::core::put_lines(lines, piece.data(), piece.size(), [&](std::string_view part) { text += part; });
    return text;
}

kor::core::LogFileFacts facts_of_now()
{
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    kor::core::LogFileFacts facts;
    facts.last_written = time_of_ticks(now.dwLowDateTime, now.dwHighDateTime);
    return facts;
}
} // namespace

class LiveLines::Bytes final : public kor::core::LogBytes
{
public:
    explicit Bytes(std::string text) : m_text(std::move(text)) {}

    std::size_t read(std::uint64_t at, char* to, std::size_t size) override
    {
        if (at >= m_text.size())
            return 0;
        return m_text.copy(to, size, static_cast<std::size_t>(at));
    }

private:
    const std::string m_text;
};

LiveLines::LiveLines(unsigned long process)
    : m_bytes(std::make_unique<Bytes>(text_of_lines(process))), m_zone(zone_of({})),
      m_reader(*m_bytes, *m_zone, facts_of_now()), m_merge({&m_reader})
{
}

LiveLines::~LiveLines() = default;

bool LiveLines::next(kor::core::LogRecord& record) { return m_merge.next(record); }
} // namespace levelsync
