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
#include "win/process_end.h"

using kor::text_or_empty;
using kor::core::Alias;
using kor::core::ContextRemoval;
using kor::core::ErrorReport;
using kor::core::EventReport;
using kor::core::HistoryAddition;
using kor::core::HistorySize;
using kor::core::SessionEvent;
using kor::core::SessionEventId;
using kor::core::StatisticsUpdate;
using kor::core::TimeNote;
using kor::core::WarningReport;

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

SessionEventId id_of(const wchar_t* type, const wchar_t* subject)
{
    return {text_or_empty(type), text_or_empty(subject)};
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

SessionEvent make_warning_of_lost(std::size_t count)
{
    SessionEvent event;
    event.type = L"Warning";
    event.subject = kor::core::OWN_WARNING_SUBJECT;
    event.weight = 1;
    event.begin_time = event.end_time = Kor_SessionLogGatherer::getCurrentTime();
    event.info = std::to_wstring(count).append(kor::core::EVENTS_LOST);
    return event;
}
} // namespace

kor::win::RecursiveLock kor::session_lock;

// Access ------------------------------------------------------------------------------------------------
bool Kor_SessionLogGatherer::Access::get_lock(Wait wait) noexcept
{
    // How long an event may hold up its thread: longer than others have the gatherer who are not stuck, also where the
    // machine is busy, and short enough for who waits for a picture.
    constexpr DWORD EVENT_WAIT_MS = 1000;
    static std::atomic<std::uint64_t> waited_for_in_vain{0};

    const kor::win::ThreadMark thread = kor::win::current_thread_mark();
    if (kor::session_lock.try_lock(thread))
        return true;
    if (wait == Wait::NOT)
        return false;
    if (wait == Wait::FULL)
        return kor::session_lock.lock(thread);
    const std::uint64_t turn = kor::session_lock.turn();
    if (turn == waited_for_in_vain.load(std::memory_order_relaxed))
        return false;
    if (kor::session_lock.lock_within(thread, EVENT_WAIT_MS))
        return true;
    if (turn == kor::session_lock.turn())
        waited_for_in_vain.store(turn, std::memory_order_relaxed);
    return false;
}

void Kor_SessionLogGatherer::Access::tell_of_lost(std::size_t count) noexcept
try
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, "Kor_SessionLogGatherer::reportEvent", kor::LEVEL_WARNING,
        "%lu events were lost: another thread had the gatherer for too long.\n", static_cast<unsigned long>(count));
}
catch (...) // of a destination of the general log
{
    return;
}

std::size_t Kor_SessionLogGatherer::Content::catch_up() noexcept
{
    waiting.add_lost(waiting.take().apply_to(events));
    const std::size_t lost = waiting.take_lost();
    if (lost == 0)
        return 0;
    try
    {
        events.report_warning(make_warning_of_lost(lost));
    }
    catch (...) // no memory: the general log is told all the same
    {
        return lost;
    }
    return lost;
}

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
    std::atexit(
        []
        {
            if (!win::process_is_ending())
                xercesc::XMLPlatformUtils::Terminate();
        });
}

void kor::ReportText::begin(xercesc::XMLFormatTarget& target) noexcept
{
    m_target = &target;
    discard();
}

void kor::ReportText::write(const wchar_t* text, std::size_t length)
{
    m_target->writeChars(reinterpret_cast<const XMLByte*>(text), length * sizeof(wchar_t), &m_formatter);
}

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

/// At the end of the process, and when the library is unloaded. Once the process is ending the content stays as it is: a
/// thread that is gone may have been changing it, or have the heap, and the system takes all memory back.
void Kor_SessionLogGatherer::end_instance()
{
    const kor::win::RecursiveGuard guard(kor::session_lock);
    Kor_SessionLogGatherer* const instance = myInstance;
    myInstance = nullptr;
    bBypass = true;
    if (guard.held() && !kor::win::process_is_ending())
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

/// args: a va_list.
void Kor_SessionLogGatherer::report(
    const wchar_t* type, const wchar_t* subject, unsigned flags, unsigned weight, const wchar_t* format,
    char* args) noexcept
{
    Access::enter(this, [&] { return EventReport(make_event(type, subject, flags, weight, format, args)); });
}

void Kor_SessionLogGatherer::reportError(const wchar_t* subject, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    Access::enter(this, [&] { return ErrorReport(make_event(L"Error", subject, 0, 1, format, args)); });
    va_end(args);
}

void Kor_SessionLogGatherer::reportWarning(const wchar_t* subject, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    Access::enter(this, [&] { return WarningReport(make_event(L"Warning", subject, 0, 1, format, args)); });
    va_end(args);
}

void Kor_SessionLogGatherer::reportEventTime(const wchar_t* type, const wchar_t* subject)
{
    Access::enter(this, [&] { return TimeNote{id_of(type, subject)}; });
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
    Access::enter(this, [&] { return Alias{id_of(type, subject), id_of(statsType, statsSubject)}; });
}

void Kor_SessionLogGatherer::removeFromContext(const wchar_t* type, const wchar_t* subject, bool includeSpans)
{
    Access::enter(
        this,
        [&] {
            return ContextRemoval{type == nullptr, subject == nullptr, id_of(type, subject), includeSpans};
        });
}

unsigned Kor_SessionLogGatherer::getHistorySize() const
{
    unsigned size = 0;
    Access::run(this, [&](Content& content) { size = content.events.history_size(); });
    return size;
}

void Kor_SessionLogGatherer::setHistorySize(unsigned size)
{
    Access::enter(this, [size] { return HistorySize{size}; });
}

// The clock that the timers read, too, but without the C runtime around it, which takes ten times as long.
unsigned long long Kor_SessionLogGatherer::getCurrentTime() { return kor::win::milliseconds_since_1970(); }

void Kor_SessionLogGatherer::add_history(const ReportEventNode& event)
{
    Access::enter(this, [&] { return HistoryAddition(SessionEvent(event)); });
}

void Kor_SessionLogGatherer::updateStats(const Kor_SessionLogEventID& identity, const ReportEventNode& event)
{
    Access::enter(this, [&] { return StatisticsUpdate{identity, event}; });
}
