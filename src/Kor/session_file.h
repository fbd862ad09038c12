// session_file.h - targets of the XML library that write reports to files.

#ifndef KOR_SESSION_FILE_H
#define KOR_SESSION_FILE_H

#include <array>

#include <xercesc/framework/XMLFormatter.hpp>

#include "win/output_file.h"

namespace kor
{
/// Collects what goes to a file. Somebody else's, so that it is there before a crash.
using FileBuffer = std::array<unsigned char, 16 * 1024>;

/// Writes to a file. What cannot be written throws the exception that the XML library's own file target throws;
/// whatever comes after that is left out.
class FileTarget final : public xercesc::XMLFormatTarget
{
public:
    /// Both must live as long as this.
    FileTarget(win::OutputFile& file, FileBuffer& buffer) noexcept : m_file(file), m_buffer(buffer) {}

    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter* formatter) override;
    void flush() override;

private:
    void write(const XMLByte* bytes, std::size_t count);

    win::OutputFile& m_file;
    FileBuffer& m_buffer;
    std::size_t m_used = 0;
    bool m_failed = false;
};
} // namespace kor

#endif // KOR_SESSION_FILE_H
