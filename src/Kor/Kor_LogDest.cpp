#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string_view>

#include "Kor/log_lock.h"
#include "Kor_LogFile.h"
#include "core/bounded_text.h"
#include "core/message.h"
#include "win/console.h"

using kor::LogLock;
using kor::core::MESSAGE_SIZE;

// The kinds of destinations -------------------------------------------------------------------------------
Kor_LogDestBase::~Kor_LogDestBase() = default;

int Kor_LogDestDebug::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int)
{
    if (bare)
    {
        ::OutputDebugStringA(text);
        return 0;
    }
    char buffer[MESSAGE_SIZE];
    kor::core::BoundedText whole(buffer, sizeof buffer);
    whole.add(std::string_view(context->AsStringFull(false))).add(' ').add(std::string_view(text)).finish();
    ::OutputDebugStringA(buffer);
    return 0;
}

Kor_LogDestFile::Kor_LogDestFile(const char* path)
{
    try
    {
        if (std::FILE* const stream = std::fopen(path, "at"))
            m_file.reset(stream, &std::fclose);
    }
    catch (const std::bad_alloc&) // the stream is closed again
    {
    }
    if (!m_file)
        kor::win::print_line(stderr, "Kor_LogDestFile: failed to open file <%s>\n", path);
}

int Kor_LogDestFile::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int)
{
    if (!m_file)
        return -1;
    const kor::core::ComposedLine line({bare ? std::string_view() : context->full_headline(), text, ""});
    std::fwrite(line.text().data(), 1, line.text().size(), m_file.get());
    std::fflush(m_file.get());
    return 0;
}

Kor_TestLogDestFile::Kor_TestLogDestFile(const char* path) : Kor_LogDestFile(path) {}

int Kor_TestLogDestFile::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length)
{
    return context->m_package == KOR_PACKAGE_TEST ? Kor_LogDestFile::LogMessage(context, bare, text, length) : 0;
}

// The list of a log ----------------------------------------------------------------------------------------
void Kor_LogFile::RegisterLogDestination(Kor_LogDestBase* destination)
{
    if (destination == nullptr)
        return;
    const LogLock lock(m_lock);
    try
    {
        if (std::find(m_destinations.begin(), m_destinations.end(), destination) == m_destinations.end())
            m_destinations.push_back(destination);
    }
    catch (const std::bad_alloc&)
    {
        constexpr int LEVEL_ERROR = 3;
        if (StoreParams(
                "Kor_LogFile", "Kor_LogFile::RegisterLogDestination", __LINE__, LEVEL_ERROR, KOR_PACKAGE_LIBRARY) != 0)
            Log("No memory to register a log destination\n");
    }
    m_destination_count = m_destinations.size();
}

void Kor_LogFile::UnregisterLogDestination(Kor_LogDestBase* destination)
{
    const LogLock lock(m_lock);
    const auto found = std::find(m_destinations.begin(), m_destinations.end(), destination);
    if (found != m_destinations.end())
        m_destinations.erase(found);
    m_destination_count = m_destinations.size();
}

void Kor_LogFile::ClearAllLogDestinations()
{
    const LogLock lock(m_lock);
    m_destinations.clear();
    m_destination_count = 0;
}
