// spool.h - bytes that are made now and read again later, more than memory should hold.

#ifndef LEVELSYNC_SPOOL_H
#define LEVELSYNC_SPOOL_H

#include <cstdint>
#include <string>
#include <string_view>

#include "core/log_split.h"
#include "owned.h"

namespace levelsync
{
/// A file in the folder for temporary ones, which goes with this object and with the process. Little stays in memory.
class Spool final : public kor::core::LogBytes
{
public:
    Spool() = default;

    /// Throws Failure when the disk is full.
    void append(std::string_view bytes);

    std::size_t read(std::uint64_t at, char* to, std::size_t size) override;
    std::uint64_t size() const noexcept { return m_written + m_waiting.size(); }

private:
    void hand_on();

    OwnedHandle m_file;
    std::uint64_t m_written = 0;
    std::string m_waiting; // what is not in the file yet
};
} // namespace levelsync

#endif // LEVELSYNC_SPOOL_H
