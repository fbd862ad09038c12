// captured_stream.h - what this process, DLL included, writes to standard output or standard error.

#ifndef KOR_TESTS_CAPTURED_STREAM_H
#define KOR_TESTS_CAPTURED_STREAM_H

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "log_lines.h"
#include "temp_directory.h"

/// Sends stdout or stderr into a file until the end of the scope. Program and DLL share one C runtime,
/// so it catches both.
class CapturedStream
{
public:
    explicit CapturedStream(std::FILE* stream)
        : m_stream(stream), m_number(::_fileno(stream)), m_path(m_directory.file("captured.txt"))
    {
        std::fflush(m_stream);
        m_before = ::_dup(m_number);
        const int file = ::_open(m_path.c_str(), _O_CREAT | _O_TRUNC | _O_RDWR | _O_TEXT, _S_IREAD | _S_IWRITE);
        ::_dup2(file, m_number);
        ::_close(file);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;
    ~CapturedStream() { stop(); }

    /// Ends the capture; text() stays.
    void stop()
    {
        if (m_before < 0)
            return;
        std::fflush(m_stream);
        m_text = text_of(read_file(m_path));
        ::_dup2(m_before, m_number);
        ::_close(m_before);
        m_before = -1;
    }

    /// What has been written so far, with "\n" at the ends of lines.
    std::string text()
    {
        if (m_before >= 0)
            std::fflush(m_stream); // when it is no console, even stderr may have a buffer
        return arrived();
    }

    /// What has reached the file so far: what the writer has flushed.
    std::string arrived() const { return m_before < 0 ? m_text : text_of(read_file(m_path)); }

private:
    TempDirectory m_directory;
    std::FILE* m_stream;
    int m_number;
    int m_before = -1;
    std::string m_path;
    std::string m_text;
};

#endif // KOR_TESTS_CAPTURED_STREAM_H
