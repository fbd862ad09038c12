// stream_source.h - the bytes of a C++ stream.

#ifndef KOR_CORE_STREAM_SOURCE_H
#define KOR_CORE_STREAM_SOURCE_H

#include <istream>

#include "core/logger_file.h"

namespace kor::core
{
class StreamSource final : public ByteSource
{
public:
    explicit StreamSource(std::istream& from) noexcept : m_from(from) {}

    std::size_t read(char* to, std::size_t size) override
    {
        m_from.read(to, static_cast<std::streamsize>(size));
        return static_cast<std::size_t>(m_from.gcount());
    }

private:
    std::istream& m_from;
};
} // namespace kor::core

#endif // KOR_CORE_STREAM_SOURCE_H
