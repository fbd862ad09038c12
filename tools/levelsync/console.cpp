#include "console.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>

#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t FLUSH_SIZE = 65'536;
constexpr DWORD MOST_CONSOLE_CHARACTERS = 8'192; // of one call; a console may refuse more than 64 KB

unsigned short attributes_of(Style style, unsigned short plain)
{
    constexpr unsigned short FOREGROUND = FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    const auto with = [plain](int colour) { return static_cast<unsigned short>((plain & ~FOREGROUND) | colour); };
    switch (style)
    {
    case Style::STRONG:
        return static_cast<unsigned short>(plain | FOREGROUND_INTENSITY);
    case Style::GOOD:
        return with(FOREGROUND_GREEN | FOREGROUND_INTENSITY);
    case Style::BAD:
        return with(FOREGROUND_RED | FOREGROUND_INTENSITY);
    case Style::CAREFUL:
        return with(FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_INTENSITY);
    case Style::FAINT:
        return with(FOREGROUND_INTENSITY);
    case Style::PLAIN:
        break;
    }
    return plain;
}
} // namespace

/// Keeps what stands behind one of the two streams, and lets the stream itself lead nowhere.
Console::Stream Console::take(unsigned long which, int descriptor)
{
    Stream stream;
    const HANDLE self = ::GetCurrentProcess();
    ::DuplicateHandle(self, ::GetStdHandle(which), self, &stream.handle, 0, FALSE, DUPLICATE_SAME_ACCESS);
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    stream.is_terminal = ::GetConsoleScreenBufferInfo(stream.handle, &screen) != FALSE;
    stream.colours = screen.wAttributes;
    const int nowhere = ::_open("NUL", _O_WRONLY);
    if (nowhere >= 0)
    {
        ::_dup2(nowhere, descriptor);
        ::_close(nowhere);
    }
    return stream;
}

Console::Console()
    : m_out(take(STD_OUTPUT_HANDLE, 1)), m_err(take(STD_ERROR_HANDLE, 2)),
      m_coloured(::GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) == 0)
{
}

Console::Console(std::string& out, std::string& err) : m_coloured(false)
{
    m_out.kept = &out;
    m_err.kept = &err;
}

Console::~Console()
{
    flush();
    for (const Stream& stream : {m_out, m_err})
        if (stream.handle != nullptr)
            ::CloseHandle(stream.handle);
}

void Console::print(std::string_view text, Style style)
{
    if (m_progress_length > 0)
    {
        write(m_out, '\r' + std::string(m_progress_length, ' ') + '\r', Style::PLAIN);
        m_progress_length = 0;
    }
    if (!m_out.is_terminal || style == Style::PLAIN)
    {
        m_waiting += text;
        if (m_waiting.size() >= FLUSH_SIZE)
            flush();
        return;
    }
    flush();
    write(m_out, text, style);
}

void Console::line(std::string_view text, Style style)
{
    print(text, style);
    print("\n");
}

void Console::error(std::string_view text, Style style)
{
    flush();
    write(m_err, text, style);
    write(m_err, "\n", Style::PLAIN);
}

void Console::progress(std::string_view text)
{
    if (!m_out.is_terminal)
        return;
    print({}); // takes the last one off
    flush();
    write(m_out, text, Style::FAINT);
    m_progress_length = text.size();
}

void Console::flush()
{
    write(m_out, m_waiting, Style::PLAIN);
    m_waiting.clear();
}

int Console::width() const noexcept
{
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    const bool known = m_out.is_terminal && ::GetConsoleScreenBufferInfo(m_out.handle, &screen) != FALSE;
    return known ? screen.srWindow.Right - screen.srWindow.Left + 1 : 0;
}

/// Where nobody listens any more, nothing is left to be told: errors of the output are not looked at.
void Console::write(const Stream& to, std::string_view text, Style style) const
{
    if (to.kept != nullptr)
    {
        *to.kept += text;
        return;
    }
    DWORD written = 0;
    if (!to.is_terminal)
    {
        while (!text.empty() &&
               ::WriteFile(
                   to.handle, text.data(), static_cast<DWORD>(std::min<std::size_t>(text.size(), FLUSH_SIZE)), &written,
                   nullptr) != FALSE)
            text.remove_prefix(written);
        return;
    }
    const bool coloured = m_coloured && style != Style::PLAIN;
    if (coloured)
        ::SetConsoleTextAttribute(to.handle, attributes_of(style, to.colours));
    std::wstring rest = wide(text);
    for (std::size_t at = 0; at < rest.size(); at += written)
    {
        const auto piece = static_cast<DWORD>(std::min<std::size_t>(rest.size() - at, MOST_CONSOLE_CHARACTERS));
        if (::WriteConsoleW(to.handle, rest.data() + at, piece, &written, nullptr) == FALSE || written == 0)
            break;
    }
    if (coloured)
        ::SetConsoleTextAttribute(to.handle, to.colours);
}
} // namespace levelsync
