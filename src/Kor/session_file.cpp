#include "session_file.h"

#include <cstring>

#include <xercesc/util/PlatformUtils.hpp>

namespace kor
{
void FileTarget::writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter*)
{
    if (count > m_buffer.size() - m_used)
        flush();
    if (count > m_buffer.size())
    {
        write(bytes, count);
        return;
    }
    std::memcpy(m_buffer.data() + m_used, bytes, count);
    m_used += count;
}

void FileTarget::flush()
{
    const std::size_t count = m_used;
    m_used = 0;
    write(m_buffer.data(), count);
}

void FileTarget::write(const XMLByte* bytes, std::size_t count)
{
    if (m_failed || m_file.write(bytes, count))
        return;
    m_failed = true; // the serialiser flushes once more on its way out
    using namespace xercesc;
    ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
}
} // namespace kor
