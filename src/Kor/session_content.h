// session_content.h - what a gatherer holds, for the sources that make up its family.

#ifndef KOR_SESSION_CONTENT_H
#define KOR_SESSION_CONTENT_H

#include <windows.h>

#include <psapi.h>

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/XMLFormatter.hpp>

#include "Kor_SessionLogGatherer.h"
#include "core/session_text.h"
#include "core/session_waiting.h"
#include "core/text_blocks.h"
#include "session_crash.h"
#include "watched.h"
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

/// What stands for the target of a formatter: reports are in its encoding already.
class NoTarget final : public xercesc::XMLFormatTarget
{
public:
    void writeChars(const XMLByte*, XMLSize_t, xercesc::XMLFormatter*) override {}
};

/// The text of a report on its way to its target. Takes 64 KB, so one is there before a crash.
class ReportText final : public core::TextBlocks
{
public:
    /// formatter: which targets are told of. It must live as long as this.
    explicit ReportText(xercesc::XMLFormatter& formatter) noexcept : m_formatter(formatter) {}

    /// Begins a report. What an earlier one has left behind is forgotten.
    void begin(xercesc::XMLFormatTarget& target) noexcept;

private:
    void write(const wchar_t* text, std::size_t length) override;

    xercesc::XMLFormatter& m_formatter;
    xercesc::XMLFormatTarget* m_target = nullptr;
};

/// The buffer of XMLEncode.
struct XmlEncoder
{
    XmlEncoder();

    xercesc::MemBufFormatTarget target;
    xercesc::XMLFormatter formatter;
};
} // namespace kor

/// Its members go in the reverse order: what the XML library has made before that library.
struct Kor_SessionLogGatherer::Content
{
    explicit Content(std::uint64_t now) : events(now) {}

    /// Does to the events what has waited for it. Returns how many changes were lost, which reports then tell.
    std::size_t catch_up() noexcept;
    /// Puts a crash that has waited into the document.
    void take_over_crash();

    kor::core::SessionEvents events;
    // What needs no lock.
    kor::core::WaitingChanges waiting;
    kor::WaitingCrash waiting_crash;
    kor::NoTarget no_target;
    int users = 0; // Access objects of the thread that has the lock
    kor::core::SessionEventMap<PROCESS_MEMORY_COUNTERS_EX> memory_statuses;
    kor::XmlLibrary xml_library;
    kor::Released<xercesc::DOMDocument> document;          // null: could not be made
    std::unique_ptr<kor::XmlEncoder> encoder;              // made when first used
    xercesc::XMLFormatter formatter{"utf-16", &no_target}; // what targets of reports are told of
    kor::ReportText report_text{formatter};
    std::atomic<bool> report_text_in_use{false};
};

/// What an operation has to do with a gatherer: its content, under the lock.
class Kor_SessionLogGatherer::Access
{
public:
    /// How long to wait for a thread that has the gatherer. None waits for a thread that was waited for in vain.
    enum class Wait
    {
        FULL,
        FOR_AN_EVENT, ///< what an event may hold up its thread
        NOT
    };

    explicit Access(const Kor_SessionLogGatherer& gatherer, Wait wait = Wait::FULL) noexcept
        : Access(gatherer.m_content.get(), wait)
    {
    }
    explicit Access(Content* content, Wait wait = Wait::FULL) noexcept
        : m_has_lock(get_lock(wait)), m_content(m_has_lock && !bBypass ? content : nullptr)
    {
        // Not inside of another operation, which a crash handler may have come from.
        if (m_content != nullptr && ++m_content->users == 1 && !m_content->waiting.empty())
            m_lost = m_content->catch_up();
    }
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;
    ~Access()
    {
        if (m_content != nullptr)
            --m_content->users;
        if (m_has_lock)
            kor::session_lock.unlock(kor::win::current_thread_mark());
        if (m_lost != 0)
            tell_of_lost(m_lost);
    }

    explicit operator bool() const noexcept { return m_content != nullptr; }
    Content* operator->() const noexcept { return m_content; }
    Content& operator*() const noexcept { return *m_content; }

    /// Runs work(content) if there is a content. What it throws ends it: there was no memory. The last error of the
    /// thread and errno come out as they went in.
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

    /// Runs make()(events, time), now or, where another thread has the gatherer for long, when somebody has it next. make
    /// gives one of core/session_changes.h; texts are formatted and copied outside of the lock, for which others wait.
    template <class Make>
    static void enter(const Kor_SessionLogGatherer* gatherer, Make&& make) noexcept
    {
        if (bBypass || gatherer->m_content == nullptr)
            return;
        const kor::win::KeptErrors kept;
        try
        {
            enter_change(*gatherer, make());
        }
        catch (...) // no memory
        {
            return;
        }
    }

private:
    static bool get_lock(Wait wait) noexcept;
    static void tell_of_lost(std::size_t count) noexcept;

    /// Throws without memory.
    template <class Change>
    static void enter_change(const Kor_SessionLogGatherer& gatherer, Change&& change)
    {
        if (kor::Watched* const process = kor::watched.load(std::memory_order_acquire))
            process->tell_event(kor::core::told_by(change, getCurrentTime()));
        {
            const Access content(gatherer, Wait::FOR_AN_EVENT);
            if (content)
            {
                std::move(change)(content->events, getCurrentTime());
                return;
            }
        }
        if (bBypass)
            return;
        gatherer.m_content->waiting.put(std::unique_ptr<kor::core::SessionChange>(
            new (std::nothrow) kor::core::WaitingChange<Change>(std::move(change), getCurrentTime())));
        const Access catches_up(gatherer, Wait::NOT); // where the other thread has just left
    }

    std::size_t m_lost = 0; // changes, which are told of when the lock has been given back
    const bool m_has_lock;
    Content* m_content;
};

#endif // KOR_SESSION_CONTENT_H
