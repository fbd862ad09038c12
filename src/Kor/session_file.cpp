#include "session_file.h"

#include <xercesc/util/PlatformUtils.hpp>

namespace kor
{
void FileTarget::writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter*)
{
    if (m_file.write(bytes, count))
        return;
    using namespace xercesc;
    ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
}
} // namespace kor
