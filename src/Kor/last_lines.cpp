#include "Kor/last_lines.h"

#include "core/last_lines.h"
#include "win/output_file.h"

namespace kor
{
bool write_lines(core::LineRingReader& lines, char* text, const wchar_t* path) noexcept
{
    win::OutputFile file = win::OutputFile::create(path);
    if (!file.is_open())
        return false;
    bool is_written = true;
    lines.rewind();
    core::put_lines(
        lines, text, Recorder::COMMENT_SIZE,
        [&](std::string_view piece) { is_written = file.write(piece.data(), piece.size()) && is_written; });
    return is_written;
}

LastLines::LastLines() noexcept : m_recorder(recorder.load(std::memory_order_acquire))
{
    void* const room = m_recorder == nullptr ? nullptr : m_recorder->take_crash_room();
    if (room == nullptr)
    {
        m_recorder = nullptr;
        return;
    }
    m_text = static_cast<char*>(room) + m_recorder->size();
    m_lines.emplace(m_recorder->memory(), m_recorder->size(), room, m_recorder->size());
}

LastLines::~LastLines()
{
    if (m_recorder != nullptr)
        m_recorder->give_crash_room_back();
}

bool LastLines::write_to(const wchar_t* path) noexcept { return m_lines && write_lines(*m_lines, m_text, path); }

std::string_view LastLines::newest() noexcept
{
    if (!m_lines)
        return {};
    m_lines->rewind();
    return core::newest_lines(*m_lines, m_text, Recorder::COMMENT_SIZE);
}
} // namespace kor
