// last_lines.h - what a crash leaves of the lines that were recorded.

#ifndef KOR_LAST_LINES_H
#define KOR_LAST_LINES_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "Kor/recorder.h"
#include "core/line_ring_reader.h"

namespace kor
{
/// Writes lines to a file, as a log has them. text: room for COMMENT_SIZE bytes. False when that failed.
bool write_lines(core::LineRingReader& lines, char* text, const wchar_t* path) noexcept;

/// The lines as they are now, in memory that was kept for it. Takes no memory and no lock. Of several threads that crash at
/// once one has them, and the others none.
class LastLines
{
public:
    LastLines() noexcept;
    LastLines(const LastLines&) = delete;
    LastLines& operator=(const LastLines&) = delete;
    ~LastLines();

    /// False when nothing was recorded.
    bool are_there() const noexcept { return m_lines.has_value(); }

    /// Writes all of them to a file. False when that failed.
    bool write_to(const wchar_t* path) noexcept;

    /// The newest of them, up to 64 KB, with a nul behind them.
    std::string_view newest() noexcept;

private:
    Recorder* m_recorder;
    char* m_text = nullptr; // COMMENT_SIZE bytes
    std::optional<core::LineRingReader> m_lines;
};
} // namespace kor

#endif // KOR_LAST_LINES_H
