// line_section.h - memory for recorded lines that other processes can map, under a name that tells whose they are.

#ifndef KOR_WIN_LINE_SECTION_H
#define KOR_WIN_LINE_SECTION_H

#include <cstddef>

#include "core/line_ring_layout.h"
#include "win/owned.h"

namespace kor::win
{
/// The calling process, as a section of its lines is named after it.
core::RingOwner own_process() noexcept;

/// The owner's memory, all zeros. It lasts as long as anybody has it.
class LineSection
{
public:
    LineSection() noexcept = default;

    /// Makes the calling process's. is_global: for all sessions of the machine, where the process may do that. Where an
    /// object of that name is there already, it has none. view() is null when there is no memory.
    LineSection(const core::RingOwner& owner, std::size_t size, bool is_global) noexcept;

    void* view() const noexcept { return m_view.get(); }
    HANDLE mapping() const noexcept { return m_mapping.get(); }

private:
    bool make(const char* name, std::size_t size) noexcept;

    OwnedHandle m_mapping;
    OwnedView m_view;
};
} // namespace kor::win

#endif // KOR_WIN_LINE_SECTION_H
