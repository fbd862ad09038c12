// session_content.h - what a gatherer holds, for the sources that make up its family.

#ifndef KOR_SESSION_CONTENT_H
#define KOR_SESSION_CONTENT_H

#include <windows.h>

#include <psapi.h>

#include <memory>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/XMLFormatter.hpp>

#include "Kor_SessionLogGatherer.h"
#include "core/session_events.h"
#include "core/text_blocks.h"
#include "session_file.h"
#include "win/kept_errors.h"
#include "win/recursive_lock.h"

namespace kor
{
constexpr char GATHERER_SOURCE[] = "Kor_SessionLogGatherer";

/// Guards the making of the gatherer and all its operations.
extern win::RecursiveLock session_lock;

inline const wchar_t* text_or_empty(const wchar_t* text) noexcept { return text == nullptr ? L"" : text; }

struct Releaser
{
    template <class T>
    void operator()(T* object) const noexcept
    {
        object->release();
    }
};

/// An object of the XML library that is given back by its member release.
template <class T>
using Released = std::unique_ptr<T, Releaser>;

/// Keeps the XML library going, which counts its users.
class XmlLibrary
{
public:
    XmlLibrary();
    XmlLibrary(const XmlLibrary&) = delete;
    XmlLibrary& operator=(const XmlLibrary&) = delete;
    ~XmlLibrary();
};

/// Keeps the XML library going until the library is unloaded, for objects of hosts that have no gatherer.
void keep_xml_library();

struct CannotWrite
{
};

/// Hands on what a formatter writes to whatever target is set, so that the formatter, which takes 16 KB, is there
/// before a crash.
class RelayTarget final : public xercesc::XMLFormatTarget
{
public:
    void set_target(xercesc::XMLFormatTarget* target) noexcept { m_target = target; }

    /// Throws CannotWrite when there is no target.
    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter* formatter) override
    {
        if (m_target == nullptr)
            throw CannotWrite();
        m_target->writeChars(bytes, count, formatter);
    }

private:
    xercesc::XMLFormatTarget* m_target = nullptr;
};

/// The text of a report on its way through a formatter.
class ReportText final : public core::TextBlocks
{
public:
    ReportText();

    /// Begins a report. What an earlier one has left behind is forgotten. One whose target has come to begin another,
    /// as a crash handler may, cannot go on after that.
    void begin(xercesc::XMLFormatTarget* target) noexcept;
    /// The target may go.
    void end() noexcept { m_relay.set_target(nullptr); }
    void put_byte_order_mark();

private:
    void write(const wchar_t* text, std::size_t length) override;

    RelayTarget m_relay;
    xercesc::XMLFormatter m_formatter;
};

/// The buffer of XMLEncode.
struct XmlEncoder
{
    XmlEncoder();

    xercesc::MemBufFormatTarget target;
    xercesc::XMLFormatter formatter;
};
} // namespace kor

/// Its members go in the reverse order: the document before the library that made it.
struct Kor_SessionLogGatherer::Content
{
    explicit Content(std::uint64_t now) : events(now) {}

    kor::core::SessionEvents events;
    kor::core::SessionEventMap<PROCESS_MEMORY_COUNTERS_EX> memory_statuses;
    kor::XmlLibrary xml_library;
    kor::Released<xercesc::DOMDocument> document; // null: could not be made
    std::unique_ptr<kor::XmlEncoder> encoder;     // made when first used
    kor::ReportText report_text;
    kor::FileBuffer file_buffer;
};

/// What an operation has to do with a gatherer: its content, under the lock. The last error of the thread and errno
/// come out as they went in.
class Kor_SessionLogGatherer::Access
{
public:
    explicit Access(const Kor_SessionLogGatherer& gatherer) noexcept
        : m_guard(kor::session_lock), m_content(m_guard.held() && !bBypass ? gatherer.m_content.get() : nullptr)
    {
    }

    explicit operator bool() const noexcept { return m_content != nullptr; }
    Content* operator->() const noexcept { return m_content; }
    Content& operator*() const noexcept { return *m_content; }

    /// Runs work(content) if there is a content. What it throws ends it: there was no memory.
    template <class Work>
    static void run(const Kor_SessionLogGatherer* gatherer, Work&& work) noexcept
    {
        if (bBypass)
            return;
        const kor::win::KeptErrors kept;
        const Access content(*gatherer);
        if (!content)
            return;
        try
        {
            work(*content);
        }
        catch (...)
        {
            return;
        }
    }

private:
    kor::win::RecursiveGuard m_guard;
    Content* m_content;
};

#endif // KOR_SESSION_CONTENT_H
