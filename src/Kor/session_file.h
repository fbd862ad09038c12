// session_file.h - targets of the XML library that write reports to files.

#ifndef KOR_SESSION_FILE_H
#define KOR_SESSION_FILE_H

#include <xercesc/framework/XMLFormatter.hpp>

#include "win/output_file.h"

namespace kor
{
/// Writes to a file, each piece as it comes. What cannot be written throws the exception that the XML library's own file
/// target throws.
class FileTarget final : public xercesc::XMLFormatTarget
{
public:
    /// The file must live as long as this.
    explicit FileTarget(win::OutputFile& file) noexcept : m_file(file) {}

    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter* formatter) override;

private:
    win::OutputFile& m_file;
};
} // namespace kor

#endif // KOR_SESSION_FILE_H
