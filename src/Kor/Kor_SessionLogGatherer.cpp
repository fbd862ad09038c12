#include "Kor_SessionLogGatherer.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <new>

#include <xercesc/util/PlatformUtils.hpp>

#include "general_log.h"
#include "session_content.h"
#include "win/clock.h"
#include "win/format.h"

using kor::text_or_empty;
using kor::core::SessionEvent;

namespace
{
// Programs derive from the class and read these records.
using Event = Kor_SessionLogGatherer::ReportEventNode;
using Statistics = Kor_SessionLogGatherer::ReportStatNode;
constexpr std::size_t TEXT_SIZE = sizeof(std::wstring);
static_assert(
    offsetof(Event, type) == 0 && offsetof(Event, subject) == TEXT_SIZE && offsetof(Event, flags) == 2 * TEXT_SIZE);
static_assert(offsetof(Event, weight) == 2 * TEXT_SIZE + 4 && offsetof(Event, begin_time) == 2 * TEXT_SIZE + 8);
static_assert(offsetof(Event, end_time) == 2 * TEXT_SIZE + 16 && offsetof(Event, info) == 2 * TEXT_SIZE + 24);
static_assert(offsetof(Statistics, subject) == TEXT_SIZE && offsetof(Statistics, count) == 2 * TEXT_SIZE);
static_assert(
    offsetof(Statistics, weight) == 2 * TEXT_SIZE + 8 && offsetof(Statistics, total_time) == 2 * TEXT_SIZE + 32);
static_assert(offsetof(Statistics, unit_time) == 2 * TEXT_SIZE + 56 && sizeof(Statistics) == 2 * TEXT_SIZE + 80);

constexpr std::size_t INFO_SIZE = 1024; // characters with the terminator
constexpr char CONSTRUCTOR[] = "Kor_SessionLogGatherer::Kor_SessionLogGatherer";

std::atomic<bool> created{false};
// Making the instance may write to the general log, and a destination there may ask for the instance. Only the holder
// of the lock looks at it.
bool being_made = false;

// Where the one instance lives. Not a static object of a function, whose guard costs a thread-local slot for each load
// of the library.
alignas(Kor_SessionLogGatherer) unsigned char instance_place[sizeof(Kor_SessionLogGatherer)];

/// args: a va_list, from which a null format takes nothing.
SessionEvent make_event(
    const wchar_t* type, const wchar_t* subject, std::uint32_t flags, std::uint32_t weight, const wchar_t* format,
    char* args)
{
    SessionEvent event;
    event.type = text_or_empty(type);
    event.subject = text_or_empty(subject);
    event.flags = flags;
    event.weight = weight;
    if (format != nullptr)
    {
        wchar_t text[INFO_SIZE];
        event.info.assign(text, kor::win::format_wide_text(text, INFO_SIZE - 1, format, args));
    }
    return event;
}

SessionEvent make_notice(const wchar_t* type, const wchar_t* subject, const wchar_t* format, char* args)
{
    SessionEvent event = make_event(type, subject, 0, 1, format, args);
    event.begin_time = event.end_time = Kor_SessionLogGatherer::getCurrentTime();
    return event;
}

/// The document that takes the description of the machine, null with a line in the general log.
kor::Released<xercesc::DOMDocument> make_document()
{
    try
    {
        xercesc::DOMImplementation* const implementation =
            xercesc::DOMImplementationRegistry::getDOMImplementation(L"LS");
        if (implementation != nullptr)
            return kor::Released<xercesc::DOMDocument>(
                implementation->createDocument(nullptr, L"SessionLogData", nullptr));
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, CONSTRUCTOR, kor::LEVEL_ERROR,
            "No DOM implementation found in Kor_SessionLogGatherer::Kor_SessionLogGatherer()\n");
    }
    catch (const xercesc::DOMException& error)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, CONSTRUCTOR, kor::LEVEL_ERROR,
            "DOM Exception %d in Kor_SessionLogGatherer::Kor_SessionLogGatherer()\n", static_cast<int>(error.code));
    }
    catch (...)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, CONSTRUCTOR, kor::LEVEL_ERROR,
            "Exception in Kor_SessionLogGatherer::Kor_SessionLogGatherer()\n");
    }
    return nullptr;
}
} // namespace

kor::win::RecursiveLock kor::session_lock;

// What the content is made of ---------------------------------------------------------------------------
kor::XmlLibrary::XmlLibrary() { xercesc::XMLPlatformUtils::Initialize(); }
kor::XmlLibrary::~XmlLibrary() { xercesc::XMLPlatformUtils::Terminate(); }

void kor::keep_xml_library()
{
    static std::atomic<bool> kept{false};
    const win::RecursiveGuard guard(session_lock);
    if (kept.exchange(true))
        return;
    xercesc::XMLPlatformUtils::Initialize();
    std::atexit(&xercesc::XMLPlatformUtils::Terminate);
}

kor::ReportText::ReportText() : m_formatter("utf-16", &m_relay) {}

void kor::ReportText::begin(xercesc::XMLFormatTarget* target) noexcept
{
    m_relay.set_target(target);
    discard();
}

void kor::ReportText::put_byte_order_mark()
{
    constexpr XMLByte MARK[] = {0xFF, 0xFE};
    m_formatter.writeBOM(MARK, sizeof MARK);
}

void kor::ReportText::write(const wchar_t* text, std::size_t length) { m_formatter.formatBuf(text, length); }

kor::XmlEncoder::XmlEncoder() : target(1023), formatter("utf-16", &target, xercesc::XMLFormatter::StdEscapes) {}

// Life --------------------------------------------------------------------------------------------------
Kor_SessionLogGatherer* Kor_SessionLogGatherer::myInstance = nullptr;
bool Kor_SessionLogGatherer::bBypass = true;

void Kor_SessionLogGatherer::Activate(bool active)
{
    if (created.load(std::memory_order_acquire))
        return;
    const kor::win::RecursiveGuard guard(kor::session_lock);
    if (guard.held() && !created.load(std::memory_order_relaxed))
        bBypass = !active;
}

Kor_SessionLogGatherer* Kor_SessionLogGatherer::GetInstance()
{
    if (created.load(std::memory_order_acquire))
        return myInstance;
    const kor::win::KeptErrors kept;
    const kor::win::RecursiveGuard guard(kor::session_lock);
    if (!guard.held() || being_made || created.load(std::memory_order_relaxed))
        return myInstance;
    being_made = true;
    myInstance = new (instance_place) Kor_SessionLogGatherer;
    being_made = false;
    std::atexit(&end_instance); // runs before the general log ends, which is older
    created.store(true, std::memory_order_release);
    return myInstance;
}

/// At the end of the process, and when the library is unloaded.
void Kor_SessionLogGatherer::end_instance()
{
    const kor::win::RecursiveGuard guard(kor::session_lock);
    Kor_SessionLogGatherer* const instance = myInstance;
    myInstance = nullptr;
    bBypass = true;
    if (guard.held()) // or a thread that is gone was changing it: it stays as it is
        instance->~Kor_SessionLogGatherer();
}

Kor_SessionLogGatherer::Kor_SessionLogGatherer()
{
    if (bBypass)
        return;
    try
    {
        m_content = std::make_unique<Content>(getCurrentTime());
    }
    catch (...)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, CONSTRUCTOR, kor::LEVEL_ERROR,
            "Exception in Kor_SessionLogGatherer::Kor_SessionLogGatherer()\n");
        return;
    }
    m_content->document = make_document();
}

Kor_SessionLogGatherer::~Kor_SessionLogGatherer() = default;

// Events ------------------------------------------------------------------------------------------------
void Kor_SessionLogGatherer::reportEvent(
    const wchar_t* type, const wchar_t* subject, unsigned flags, unsigned weight, const wchar_t* format, ...)
{
    if (bBypass)
        return;
    const kor::win::KeptErrors kept;
    va_list args;
    va_start(args, format);
    report(type, subject, flags, weight, format, args);
    va_end(args);
}

/// args: a va_list. Formats outside of the lock, for which other threads wait.
void Kor_SessionLogGatherer::report(
    const wchar_t* type, const wchar_t* subject, unsigned flags, unsigned weight, const wchar_t* format,
    char* args) noexcept
try
{
    SessionEvent event = make_event(type, subject, flags, weight, format, args);
    const Access content(*this);
    if (content)
        content->events.report(std::move(event), getCurrentTime());
}
catch (...) // no memory
{
    return;
}

void Kor_SessionLogGatherer::reportError(const wchar_t* subject, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    Access::run(
        this, [&](Content& content) { content.events.report_error(make_notice(L"Error", subject, format, args)); });
    va_end(args);
}

void Kor_SessionLogGatherer::reportWarning(const wchar_t* subject, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    Access::run(
        this, [&](Content& content) { content.events.report_warning(make_notice(L"Warning", subject, format, args)); });
    va_end(args);
}

void Kor_SessionLogGatherer::reportEventTime(const wchar_t* type, const wchar_t* subject)
{
    Access::run(
        this,
        [&](Content& content) {
            content.events.set_time({text_or_empty(type), text_or_empty(subject)}, getCurrentTime());
        });
}

unsigned long long Kor_SessionLogGatherer::getEventTime(const wchar_t* type, const wchar_t* subject) const
{
    unsigned long long time = 0;
    Access::run(
        this,
        [&](Content& content) {
            time = content.events.time_of({text_or_empty(type), text_or_empty(subject)});
        });
    return time;
}

void Kor_SessionLogGatherer::reportStatsEventSubject(
    const wchar_t* type, const wchar_t* subject, const wchar_t* statsType, const wchar_t* statsSubject)
{
    Access::run(
        this,
        [&](Content& content)
        {
            content.events.set_alias(
                {text_or_empty(type), text_or_empty(subject)}, {text_or_empty(statsType), text_or_empty(statsSubject)});
        });
}

void Kor_SessionLogGatherer::removeFromContext(const wchar_t* type, const wchar_t* subject, bool includeSpans)
{
    Access::run(this, [&](Content& content) { content.events.remove_from_context(type, subject, includeSpans); });
}

unsigned Kor_SessionLogGatherer::getHistorySize() const
{
    unsigned size = 0;
    Access::run(this, [&](Content& content) { size = content.events.history_size(); });
    return size;
}

void Kor_SessionLogGatherer::setHistorySize(unsigned size)
{
    Access::run(this, [&](Content& content) { content.events.set_history_size(size); });
}

// The clock that the timers read, too, but without the C runtime around it, which takes ten times as long.
unsigned long long Kor_SessionLogGatherer::getCurrentTime() { return kor::win::milliseconds_since_1970(); }

void Kor_SessionLogGatherer::add_history(const ReportEventNode& event)
{
    Access::run(this, [&](Content& content) { content.events.add_history(ReportEventNode(event)); });
}

void Kor_SessionLogGatherer::updateStats(const Kor_SessionLogEventID& identity, const ReportEventNode& event)
{
    Access::run(
        this,
        [&](Content& content) {
            content.events.update_statistics({identity.type, identity.subject}, event);
        });
}
