// Kor_SessionLogGatherer.h - what a session or crash report tells: events, errors, statistics, the machine.

#ifndef KOR_SESSIONLOGGATHERER_H
#define KOR_SESSIONLOGGATHERER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Kor_Package.h"

// Only the loaders derive from classes of the XML library. Whoever does not use them needs none of its headers,
// and the loaders are then declared only.
#if defined(_WIN32) && __has_include(<xercesc/sax2/DefaultHandler.hpp>)
#define KOR_HAS_XML_HEADERS 1
#include <xercesc/sax2/DefaultHandler.hpp>
#else
#define KOR_HAS_XML_HEADERS 0
#endif

// The version that is linked into the library: its namespace carries it.
namespace xercesc_3_2
{
class XMLFormatTarget;
class XMLFormatter;
} // namespace xercesc_3_2

struct _EXCEPTION_POINTERS;

/// Takes the bytes of a report.
using Kor_SessionLogFileOutput = xercesc_3_2::XMLFormatTarget;
/// Writes text to a Kor_SessionLogFileOutput in the encoding of the report.
using Kor_SessionLogFileOutputFormatter = xercesc_3_2::XMLFormatter;

class Kor_SessionLogGatherer_Loader;

/// Takes the next bytes of a report, which are only there during the call; context is what was given with it. False: they
/// could not be taken, and no more shall come. size is at least 1.
using Kor_SessionLogWriter = bool (*)(void* context, const void* bytes, std::size_t size);

/// What the process has to tell in a session or crash report: events that it reports, the last finished of them,
/// those that still hold, errors, warnings, statistics, and the machine that it runs on.
///
///     Kor_SessionLogGatherer::Activate(true); // before anything asks for the instance
///     Kor_SessionLogGatherer* const session = Kor_SessionLogGatherer::GetInstance();
///     session->gatherSystemInfo();
///     session->reportEvent(L"Login", L"user1", Kor_SessionLogGatherer::COUNTED, 1, L"from %ls", address);
///
/// Unless Activate(true) came first the instance is inert: members do nothing, and return 0 or null.
///
/// Texts are UTF-16; characters that XML does not allow stand in reports as U+FFFD. Times are milliseconds since
/// 1 January 1970 UTC, 0 where there is none. A null pointer for a text counts as an empty text.
///
/// Threads: all members may be called from any thread at any time, also from within a crash handler whose
/// thread is inside one of them. They wait for each other, but not for the writing of reports. Where a thread does not
/// come out of a member, others wait for it once: who reports something, for a second. That then waits in their place, up
/// to 10,000 events or 4 MiB, until somebody has the gatherer again; what comes beyond is lost, and how much that was is
/// told in the general log and in the report. Other members wait for ten seconds and then do nothing, but for the report
/// of a crash: it tells of the crash and of what waits. Nothing is thrown: an event for which there is no memory is lost.
class KOR_API Kor_SessionLogGatherer
{
public:
    // Flags of an event. They may be combined.
    static constexpr std::uint32_t STATE = 0x1;           ///< stays in the context until replaced or removed
    static constexpr std::uint32_t STATE_OF_TYPE = 0x2;   ///< the same, one for its type whatever the subject
    static constexpr std::uint32_t HIDDEN = 0x4;          ///< neither in the history nor written
    static constexpr std::uint32_t CONFIGURATION = 0x8;   ///< written as an element `configuration`
    static constexpr std::uint32_t COUNTED = 0x100;       ///< counted in the statistics
    static constexpr std::uint32_t BEGIN_OF_SPAN = 0x200; ///< opens a span
    static constexpr std::uint32_t END_OF_SPAN = 0x400;   ///< closes the span that has its type and subject
    static constexpr std::uint32_t LEVEL_MASK = 0x7000;   ///< level 0 to 7
    static constexpr std::uint32_t LEVEL_SHIFT = 12;      ///< of the lowest bit of the level
    static constexpr std::uint32_t DEFAULT_HISTORY_SIZE = 128;

    /// The flags that give an event a level of 0 to 7.
    static constexpr std::uint32_t level(unsigned number) noexcept { return (number << LEVEL_SHIFT) & LEVEL_MASK; }

    /// What events are told apart by.
    struct Kor_SessionLogEventID
    {
        std::wstring type;
        std::wstring subject; ///< empty: none
    };

    /// An event as it is kept.
    struct ReportEventNode
    {
        std::wstring type;
        std::wstring subject; ///< empty: none
        std::uint32_t flags = 0;
        std::uint32_t weight = 0;
        std::uint64_t begin_time = 0;
        std::uint64_t end_time = 0;
        std::wstring info;
    };

    /// Least, average and greatest of something.
    struct ReportTriple
    {
        double min = 0;
        double avg = 0;
        double max = 0;
    };

    /// What is known of all events that are counted together.
    struct ReportStatNode
    {
        std::wstring type;
        std::wstring subject; ///< empty: none
        std::uint64_t count = 0;
        ReportTriple weight;
        ReportTriple total_time; ///< of completed spans, in milliseconds
        ReportTriple unit_time;  ///< the same for each unit of weight
    };

    /// The instance, null before the first GetInstance and once the library has ended it.
    static Kor_SessionLogGatherer* myInstance;
    /// True: the instance is inert. Changed by Activate only.
    static bool bBypass;

    /// Switches the gatherer on or off. Without effect once there is an instance.
    static void Activate(bool active);

    /// The instance, made at the first call. Null when there is no memory for it, and once the library has
    /// ended it, at the end of the process or when the library is unloaded.
    static Kor_SessionLogGatherer* GetInstance();

    Kor_SessionLogGatherer(const Kor_SessionLogGatherer&) = delete;
    Kor_SessionLogGatherer& operator=(const Kor_SessionLogGatherer&) = delete;

    // Events.

    /// Reports an event. format: a wprintf format for the event's text, of which 1023 characters are kept; null:
    /// no text. Arguments that do not fit the format cost the text, not the host.
    ///
    /// With END_OF_SPAN, closes the span of this type and subject; without an open one the event is recorded at
    /// once. With BEGIN_OF_SPAN alone, opens one. Otherwise the event is an instant: with STATE or STATE_OF_TYPE it
    /// replaces the one in the context, else it is counted and goes to the history at once.
    void reportEvent(
        const wchar_t* type, const wchar_t* subject, unsigned flags, unsigned weight, const wchar_t* format, ...);

    /// Adds to the list of errors, which is never trimmed.
    void reportError(const wchar_t* subject, const wchar_t* format, ...);
    /// Adds to the list of warnings, which is never trimmed.
    void reportWarning(const wchar_t* subject, const wchar_t* format, ...);

    /// Notes the present time under a type and a subject, in place of an earlier one.
    void reportEventTime(const wchar_t* type, const wchar_t* subject);
    /// The time that was noted, 0 when none was.
    unsigned long long getEventTime(const wchar_t* type, const wchar_t* subject) const;

    /// From now on events of type and subject are counted as those of statsType and statsSubject.
    void reportStatsEventSubject(
        const wchar_t* type, const wchar_t* subject, const wchar_t* statsType, const wchar_t* statsSubject);

    /// Finishes what stands in the context under type and subject: it is counted and goes to the history. A null
    /// subject means all subjects of the type, a null type the entries that come first in the order of types.
    /// includeSpans: open spans that are no states go, too.
    void removeFromContext(const wchar_t* type, const wchar_t* subject, bool includeSpans);

    /// How many finished events are kept.
    unsigned getHistorySize() const;
    /// A smaller size takes effect at the next event.
    void setHistorySize(unsigned size);

    /// The time now, also of an inert instance.
    static unsigned long long getCurrentTime();

    // The machine and the process.

    /// Adds a description of processors, operating system and disks to the report. To be called once.
    void gatherSystemInfo();

    /// Adds a crash: its exception, the memory of the process, the disks, and the modules that the last minidump
    /// of Kor_SessionLog found. exception may be null. eventId: the host's name for this crash; null: none.
    void reportException(_EXCEPTION_POINTERS* exception, const wchar_t* eventId);

    /// Keeps the present memory use of the process under a name, in place of an earlier one.
    void storeMemoryStatus(const wchar_t* name);
    /// Reports the present memory use as an event of type "Mem", with the flags of reportEvent.
    void reportMemoryStatus(const wchar_t* subject, unsigned flags);
    /// Reports by how much the memory use has grown since storeMemoryStatus; a use that shrank gives a very large
    /// number. Without a stored one it only says so in the general log.
    void reportMemoryDifference(const wchar_t* subject, const wchar_t* name, unsigned flags);

    // Reports.

    /// Writes a file: a report, or, with isReport false, a state file, which holds the machine and the statistics.
    /// A state file takes the place of an earlier one when it is complete. The general log tells the outcome.
    void generateReport(const wchar_t* path, bool isReport) const;
    /// Writes the same to any target. What the target throws is caught, and told in the general log.
    void generateReport(Kor_SessionLogFileOutput* target, bool isReport) const;
    /// Writes the same through a function, without the XML library's headers: UTF-16 with a byte-order mark, in pieces
    /// of any size, in this thread. A null function, one that returns false and one that throws end the report, which the
    /// general log tells.
    void generateReport(Kor_SessionLogWriter write, void* context, bool isReport) const;

    /// Writes a time as it stands in reports: "2024-01-31 23:59:59.007", in local time. 23 characters always: years
    /// beyond 9999 are written as its last moment. Passes on what the formatter throws.
    void printTime(Kor_SessionLogFileOutputFormatter* out, unsigned long long time) const;

    /// text with the five XML escapes, in a buffer that is the gatherer's and changes with the next call. Null
    /// without memory. Not for several threads at a time, as all get the same buffer.
    const wchar_t* XMLEncode(const wchar_t* text);

    /// Reads a state file or a report into the gatherer. What is not as it should be ends the reading, is told in the
    /// general log, and leaves what was read before. Fetches nothing that the file refers to, and reads nothing of one
    /// that declares a document type.
    void loadFromFile(const wchar_t* path, Kor_SessionLogGatherer_Loader& loader);
    /// The same with a loader for this gatherer, without the XML library's headers.
    void loadFromFile(const wchar_t* path);

    /// Reads a time as reports have it, but as UTC. 2^64 - 1 when the text is none.
    unsigned long long loadTime(std::wstring text) const;

protected:
    Kor_SessionLogGatherer();
    ~Kor_SessionLogGatherer();

    /// Appends to the history and drops what is too many at its old end. Not an event that is HIDDEN.
    void add_history(const ReportEventNode& event);
    /// Counts an event, if it is COUNTED, under its identity or the one that this stands for.
    void updateStats(const Kor_SessionLogEventID& identity, const ReportEventNode& event);

private:
    friend class Kor_SessionLogGatherer_Loader;

    struct Content;
    class Access;
    class Report;

    static void end_instance();
    void report(
        const wchar_t* type, const wchar_t* subject, unsigned flags, unsigned weight, const wchar_t* format,
        char* args) noexcept;

    void load_context(const ReportEventNode& event);
    void load_statistics(const ReportStatNode& statistics);
    void load_statistics_start(std::uint64_t start);
    // False: the gatherer cannot be had. They throw what keeps them from writing.
    bool write_file(const wchar_t* path, bool is_report) const;
    static bool write_report(Content& content, Kor_SessionLogFileOutput& target, bool is_report);
    static bool write_report_file(Content& content, const wchar_t* path);
    static bool write_state_file(Content& content, const wchar_t* path);

    std::unique_ptr<Content> m_content; // null: inert, or there was no memory
};

#if KOR_HAS_XML_HEADERS

/// Reads one item of a list. The elements inside the item go to its handler operations.
class KOR_API Kor_SessionLogGatherer_Item_Loader : public xercesc_3_2::DefaultHandler
{
public:
    Kor_SessionLogGatherer_Item_Loader();
    ~Kor_SessionLogGatherer_Item_Loader() override;

    /// Begins an item. Throws SAXException when an attribute is missing.
    virtual void start(const xercesc_3_2::Attributes& attributes) = 0;
};

/// Reads an element `event`.
class KOR_API Kor_SessionLogGatherer_Event_Loader : public Kor_SessionLogGatherer_Item_Loader
{
public:
    Kor_SessionLogGatherer_Event_Loader();
    ~Kor_SessionLogGatherer_Event_Loader() override;

    void start(const xercesc_3_2::Attributes& attributes) override;
    void startElement(
        const XMLCh* uri, const XMLCh* localName, const XMLCh* name,
        const xercesc_3_2::Attributes& attributes) override;
    void endElement(const XMLCh* uri, const XMLCh* localName, const XMLCh* name) override;
    void characters(const XMLCh* text, XMLSize_t length) override;

    /// The event as far as it has been read.
    const Kor_SessionLogGatherer::ReportEventNode& event() const noexcept { return m_event; }

private:
    Kor_SessionLogGatherer::ReportEventNode m_event;
    bool m_inside_info;
    bool m_had_info;
};

/// Reads an element `statentry`.
class KOR_API Kor_SessionLogGatherer_Stat_Loader : public Kor_SessionLogGatherer_Item_Loader
{
public:
    Kor_SessionLogGatherer_Stat_Loader();
    ~Kor_SessionLogGatherer_Stat_Loader() override;

    void start(const xercesc_3_2::Attributes& attributes) override;
    void startElement(
        const XMLCh* uri, const XMLCh* localName, const XMLCh* name,
        const xercesc_3_2::Attributes& attributes) override;

    /// The statistics as far as they have been read.
    const Kor_SessionLogGatherer::ReportStatNode& statistics() const noexcept { return m_statistics; }

private:
    Kor_SessionLogGatherer::ReportStatNode m_statistics;
};

/// Handler for Kor_SessionLogGatherer::loadFromFile: puts what a state file or report holds into a gatherer.
/// Its operations throw SAXException where the document is not as it should be. One object reads one document.
class KOR_API Kor_SessionLogGatherer_Loader : public xercesc_3_2::DefaultHandler
{
public:
    /// For a gatherer, which may be null: the document is then only checked.
    explicit Kor_SessionLogGatherer_Loader(Kor_SessionLogGatherer* gatherer);
    /// For no gatherer.
    Kor_SessionLogGatherer_Loader();
    ~Kor_SessionLogGatherer_Loader() override;

    void startElement(
        const XMLCh* uri, const XMLCh* localName, const XMLCh* name,
        const xercesc_3_2::Attributes& attributes) override;
    void endElement(const XMLCh* uri, const XMLCh* localName, const XMLCh* name) override;
    void characters(const XMLCh* text, XMLSize_t length) override;

    /// Gives whatever lies outside the file an empty text.
    xercesc_3_2::InputSource* resolveEntity(const XMLCh* publicId, const XMLCh* systemId) override;
    /// Both throw SAXException: the library's documents declare no entities, and a few that are made of each other
    /// can grow without bounds.
    void internalEntityDecl(const XMLCh* name, const XMLCh* value) override;
    void externalEntityDecl(const XMLCh* name, const XMLCh* publicId, const XMLCh* systemId) override;

private:
    enum class State : int
    {
        Outside = 0,
        Root = 1,
        Statistics = 2,
        Context = 3,
        History = 4
    };

    bool enter(const XMLCh* name, const xercesc_3_2::Attributes& attributes);
    bool enter_list(const XMLCh* name, const xercesc_3_2::Attributes& attributes);
    bool start_item(Kor_SessionLogGatherer_Item_Loader& loader, const xercesc_3_2::Attributes& attributes);
    void leave_list(State list);
    void store_statistics();
    void store_event();

    Kor_SessionLogGatherer* m_gatherer;
    State m_state;
    std::int32_t m_depth;                          // of elements inside the current item
    std::int32_t m_ignored_depth;                  // of elements from the outermost one that is ignored
    std::int32_t m_nesting;                        // of all elements
    Kor_SessionLogGatherer_Item_Loader* m_current; // one of the two below, or none
    Kor_SessionLogGatherer_Stat_Loader m_statistics_loader;
    Kor_SessionLogGatherer_Event_Loader m_event_loader;
};

#endif // KOR_HAS_XML_HEADERS

#undef KOR_HAS_XML_HEADERS

#endif // KOR_SESSIONLOGGATHERER_H
