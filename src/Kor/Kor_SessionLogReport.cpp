// The part of Kor_SessionLogGatherer that writes: reports, state files, encoded texts.

#include <atomic>
#include <iterator>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <xercesc/util/XMLUni.hpp>

#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "core/session_text.h"
#include "core/session_time.h"
#include "general_log.h"
#include "session_content.h"
#include "session_file.h"
#include "win/memory.h"
#include "win/output_file.h"
#include "win/text.h"
#include "win/zone_clock.h"

using kor::core::SessionWriter;

namespace
{
constexpr char GENERATE_REPORT[] = "Kor_SessionLogGatherer::generateReport";

struct CannotWrite
{
};

/// Held by whoever writes a report, so that two do not write to the same file at once. It guards nothing else: a thread
/// that has waited for it in vain goes on.
kor::win::OwnerLock report_lock;

/// A thread that is inside of the gatherer does not wait for its turn: whoever has it may be waiting for the gatherer. One
/// that writes a report from within another goes on, too.
class ReportTurn
{
public:
    ReportTurn() noexcept
        : m_thread(kor::win::current_thread_mark()),
          m_held(!kor::session_lock.is_held_by(m_thread) && report_lock.lock(m_thread))
    {
    }
    ReportTurn(const ReportTurn&) = delete;
    ReportTurn& operator=(const ReportTurn&) = delete;
    ~ReportTurn()
    {
        if (m_held)
            report_lock.unlock(m_thread);
    }

private:
    const kor::win::ThreadMark m_thread;
    const bool m_held;
};

std::wstring_view utf16(const XMLByte* bytes, XMLSize_t count) noexcept
{
    return {reinterpret_cast<const wchar_t*>(bytes), count / sizeof(wchar_t)};
}

/// Keeps text, without an exception where there is no memory for it.
class KeptText final : public xercesc::XMLFormatTarget
{
public:
    KeptText() noexcept = default;
    ~KeptText() override { clear(); }

    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter*) override
    {
        for (std::wstring_view text = utf16(bytes, count); !text.empty() && has_room();)
        {
            const std::wstring_view piece = text.substr(0, std::size(m_last->text) - m_last->used);
            piece.copy(m_last->text + m_last->used, piece.size());
            m_last->used += piece.size();
            text.remove_prefix(piece.size());
        }
    }

    /// False: there was no memory for it, and it is not there.
    bool is_whole() const noexcept { return m_is_whole; }

    void put_to(kor::core::TextBlocks& to) const
    {
        for (const Block* block = m_first; block != nullptr; block = block->next)
            to.put({block->text, block->used});
    }

private:
    struct Block
    {
        Block* next = nullptr;
        std::size_t used = 0;
        wchar_t text[8 * 1024];
    };

    bool has_room() noexcept
    {
        if (m_last != nullptr && m_last->used < std::size(m_last->text))
            return true;
        Block* const block = m_is_whole ? new (std::nothrow) Block : nullptr;
        m_is_whole = block != nullptr;
        if (m_is_whole)
            m_last = (m_last == nullptr ? m_first : m_last->next) = block;
        else
            clear();
        return m_is_whole;
    }

    void clear() noexcept
    {
        while (m_first != nullptr)
            delete std::exchange(m_first, m_first->next);
        m_last = nullptr;
    }

    Block* m_first = nullptr;
    Block* m_last = nullptr;
    bool m_is_whole = true;
};

/// Puts text where the rest of a report goes.
class ForwardedText final : public xercesc::XMLFormatTarget
{
public:
    explicit ForwardedText(kor::core::TextBlocks& to) noexcept : m_to(to) {}

    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter*) override
    {
        m_to.put(utf16(bytes, count));
    }

private:
    kor::core::TextBlocks& m_to;
};

/// The machine and the crash, as the XML library writes them.
void write_document(const xercesc::DOMDocument& document, xercesc::XMLFormatTarget& target)
{
    using namespace xercesc;
    auto* const implementation =
        static_cast<DOMImplementationLS*>(DOMImplementationRegistry::getDOMImplementation(L"LS"));
    if (implementation == nullptr)
        throw CannotWrite();
    const kor::Released<DOMLSSerializer> serializer(implementation->createLSSerializer());
    const kor::Released<DOMLSOutput> output(implementation->createLSOutput());
    serializer->getDomConfig()->setParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true);
    output->setByteStream(&target);
    output->setEncoding(L"utf-16");
    if (!serializer->write(document.getDocumentElement(), output.get()))
        throw CannotWrite();
}

/// Hands a report to a function of the host's.
class FunctionTarget final : public xercesc::XMLFormatTarget
{
public:
    FunctionTarget(Kor_SessionLogWriter write, void* context) noexcept : m_write(write), m_context(context) {}

    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter*) override
    {
        if (count == 0 || m_has_failed)
            return;
        m_has_failed = true; // also when it throws: the serialiser comes again on its way out
        if (!m_write(m_context, bytes, count))
            throw CannotWrite();
        m_has_failed = false;
    }

private:
    const Kor_SessionLogWriter m_write;
    void* const m_context;
    bool m_has_failed = false;
};

void tell_of_exception()
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
        "Exception in Kor_SessionLogGatherer::generateReport()\n");
}

void tell_that_nothing_is_written()
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
        "Another thread has the gatherer and does not give it back. Nothing is written.\n");
    tell_of_exception();
}

/// Runs write(), and tells in the general log what it throws.
template <class Write>
void run_and_tell(Write&& write) noexcept
try
{
    try
    {
        write();
    }
    catch (const xercesc::DOMException& error)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
            "DOM Exception %d in Kor_SessionLogGatherer::generateReport()\n", static_cast<int>(error.code));
    }
    catch (const xercesc::XMLException& error)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
            "DOM Exception %d in Kor_SessionLogGatherer::generateReport()\n", static_cast<int>(error.getCode()));
    }
    catch (...)
    {
        tell_of_exception();
    }
}
catch (...) // of a destination of the general log
{
    return;
}

void log_success(const wchar_t* path, bool is_report)
{
    if (is_report)
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_DEBUG, "Crash report written to '%s'.\n",
            kor::win::narrow_for_thread(path).c_str());
    else
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_DEBUG, "Crashlog gatherer state written to '%s'.\n",
            kor::win::narrow_for_thread(path).c_str());
}

/// What a report is written with: what is there before a crash, or, where another report uses that, such as one whose
/// target has come to write this one, the same made for this one.
class TextInUse
{
public:
    TextInUse(
        kor::ReportText& prepared, std::atomic<bool>& in_use, xercesc::XMLFormatter& formatter,
        xercesc::XMLFormatTarget& target)
        : m_in_use(in_use), m_own(in_use.exchange(true) ? std::make_unique<kor::ReportText>(formatter) : nullptr),
          m_text(m_own == nullptr ? prepared : *m_own)
    {
        m_text.begin(target);
    }
    TextInUse(const TextInUse&) = delete;
    TextInUse& operator=(const TextInUse&) = delete;
    ~TextInUse()
    {
        if (m_own == nullptr)
            m_in_use = false;
    }

    kor::ReportText& operator*() const noexcept { return m_text; }

private:
    std::atomic<bool>& m_in_use;
    std::unique_ptr<kor::ReportText> m_own;
    kor::ReportText& m_text;
};

/// What waits for the gatherer, out of its place while somebody looks at it.
class TakenChanges
{
public:
    explicit TakenChanges(kor::core::WaitingChanges& waiting) noexcept : m_waiting(waiting), m_list(waiting.take()) {}
    TakenChanges(const TakenChanges&) = delete;
    TakenChanges& operator=(const TakenChanges&) = delete;
    ~TakenChanges() { m_waiting.put_back(std::move(m_list)); }

    const kor::core::SessionChangeList& list() const noexcept { return m_list; }

private:
    kor::core::WaitingChanges& m_waiting;
    kor::core::SessionChangeList m_list;
};
} // namespace

/// What a report or a state file tells, as it is when this is made. Its writing holds up nobody else, unless there is no
/// memory to take all out of the gatherer first.
class Kor_SessionLogGatherer::Report
{
public:
    Report(Content& content, bool is_report);

    /// False: another thread has the gatherer and does not give it back. A report of a crash can be had even then: it tells
    /// of the crash, and of what waits to be entered, says that the rest is missing, and takes no memory.
    bool can_be_had() const noexcept
    {
        return m_has_gatherer || (m_is_report && !bBypass && m_content.waiting_crash.is_there());
    }

    /// Throws what the target throws.
    void write(xercesc::XMLFormatTarget& target);

private:
    void take();
    void put_content(kor::core::TextBlocks& text, SessionWriter& writer) const;
    void put_live_content(kor::core::TextBlocks& text, SessionWriter& writer) const;
    void put_without_gatherer(kor::core::TextBlocks& text) const;

    Content& m_content;
    const bool m_is_report;
    bool m_has_gatherer = true;
    std::optional<Access> m_access; // there: nothing could be taken
    KeptText m_document;
    std::optional<kor::core::SessionSnapshot> m_events; // there: taken. An empty one takes memory, too
};

Kor_SessionLogGatherer::Report::Report(Content& content, bool is_report) : m_content(content), m_is_report(is_report)
{
    m_access.emplace(&content);
    if (*m_access)
    {
        take();
        return;
    }
    m_access.reset();
    m_has_gatherer = false;
}

void Kor_SessionLogGatherer::Report::take()
{
    m_content.take_over_crash();
    constexpr std::size_t MORE = 64 * 1024; // for the document
    if (!kor::win::has_memory(m_content.events.snapshot_size(m_is_report) + MORE))
        return;
    m_events.emplace(m_content.events.snapshot(m_is_report));
    if (m_content.document != nullptr)
        write_document(*m_content.document, m_document);
    if (m_document.is_whole())
        m_access.reset();
    else
        m_events.reset(); // its memory is needed now
}

void Kor_SessionLogGatherer::Report::write(xercesc::XMLFormatTarget& target)
{
    const TextInUse in_use(m_content.report_text, m_content.report_text_in_use, m_content.formatter, target);
    kor::ReportText& text = *in_use;
    kor::win::ZoneClock clock;
    SessionWriter writer(text, clock);
    text.put(kor::core::REPORT_BEGIN);
    if (!m_has_gatherer)
        put_without_gatherer(text);
    else if (m_access.has_value())
        put_live_content(text, writer);
    else
        put_content(text, writer);
    text.put(kor::core::REPORT_END);
    text.flush();
    target.flush();
    if (!m_has_gatherer)
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
            "Another thread has the gatherer and does not give it back. The report lacks all that the gatherer has.\n");
}

/// Asks the system for nothing: the thread that has the gatherer may be stuck in there.
void Kor_SessionLogGatherer::Report::put_without_gatherer(kor::core::TextBlocks& text) const
{
    kor::win::KnownZoneClock clock;
    SessionWriter writer(text, clock);
    const TakenChanges waiting(m_content.waiting);
    const std::list<MINIDUMP_MODULE_CALLBACK> no_modules;
    const Kor_SessionLog* const crash_reporter = Kor_SessionLog::myInstance;
    kor::put_crash(
        text, m_content.waiting_crash.facts(),
        crash_reporter == nullptr ? no_modules : crash_reporter->getModulesList(), clock);
    writer.put_what_waits(waiting.list(), m_content.waiting.lost(), getCurrentTime());
}

void Kor_SessionLogGatherer::Report::put_content(kor::core::TextBlocks& text, SessionWriter& writer) const
{
    m_document.put_to(text);
    if (m_is_report)
        writer.put_lists(*m_events);
    writer.put_all_statistics(*m_events);
}

void Kor_SessionLogGatherer::Report::put_live_content(kor::core::TextBlocks& text, SessionWriter& writer) const
{
    ForwardedText to(text);
    if (m_content.document != nullptr)
        write_document(*m_content.document, to);
    if (m_is_report)
        writer.put_lists(m_content.events);
    writer.put_all_statistics(m_content.events);
}

bool Kor_SessionLogGatherer::write_report(Content& content, Kor_SessionLogFileOutput& target, bool is_report)
{
    const ReportTurn turn;
    Report report(content, is_report);
    if (!report.can_be_had())
        return false;
    report.write(target);
    return true;
}

bool Kor_SessionLogGatherer::write_report_file(Content& content, const wchar_t* path)
{
    const ReportTurn turn;
    Report report(content, true);
    if (!report.can_be_had()) // the file that there is stays
        return false;
    kor::win::OutputFile file = kor::win::OutputFile::create(path);
    if (!file.is_open())
        throw CannotWrite();
    kor::FileTarget target(file);
    report.write(target);
    return true;
}

/// Other processes may be reading the one there is.
bool Kor_SessionLogGatherer::write_state_file(Content& content, const wchar_t* path)
{
    const ReportTurn turn;
    Report report(content, false);
    if (!report.can_be_had())
        return false;
    kor::win::OutputFile file = kor::win::OutputFile::create_successor(path);
    if (!file.is_open())
        throw CannotWrite();
    kor::FileTarget target(file);
    report.write(target);
    switch (file.replace(path))
    {
    case kor::win::OutputFile::Replaced::ByName:
        return true;
    case kor::win::OutputFile::Replaced::InPlace:
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_WARNING,
            "Somebody has the state file '%s' open and keeps it from being replaced. It was written in place.\n",
            kor::win::narrow_for_thread(path).c_str());
        return true;
    case kor::win::OutputFile::Replaced::Not:
        break;
    }
    throw CannotWrite();
}

bool Kor_SessionLogGatherer::write_file(const wchar_t* path, bool is_report) const
{
    if (path == nullptr)
        throw CannotWrite();
    return is_report ? write_report_file(*m_content, path) : write_state_file(*m_content, path);
}

void Kor_SessionLogGatherer::generateReport(const wchar_t* path, bool isReport) const
{
    if (bBypass || m_content == nullptr)
        return;
    const kor::win::KeptErrors kept;
    run_and_tell(
        [&]
        {
            if (write_file(path, isReport))
                log_success(path, isReport);
            else
                tell_that_nothing_is_written();
        });
}

void Kor_SessionLogGatherer::generateReport(Kor_SessionLogFileOutput* target, bool isReport) const
{
    if (bBypass || m_content == nullptr)
        return;
    const kor::win::KeptErrors kept;
    run_and_tell(
        [&]
        {
            if (target == nullptr)
                throw CannotWrite();
            if (!write_report(*m_content, *target, isReport))
                tell_that_nothing_is_written();
        });
}

void Kor_SessionLogGatherer::generateReport(Kor_SessionLogWriter write, void* context, bool isReport) const
{
    if (write == nullptr)
        return generateReport(static_cast<Kor_SessionLogFileOutput*>(nullptr), isReport); // which tells it
    FunctionTarget target(write, context);
    generateReport(&target, isReport);
}

void Kor_SessionLogGatherer::printTime(Kor_SessionLogFileOutputFormatter* out, unsigned long long time) const
{
    if (bBypass || m_content == nullptr || out == nullptr)
        return;
    wchar_t text[kor::core::SESSION_TIME_LENGTH];
    kor::win::ZoneClock clock;
    kor::core::write_session_time(text, kor::core::local_session_time(clock, time));
    out->formatBuf(text, std::size(text));
}

const wchar_t* Kor_SessionLogGatherer::XMLEncode(const wchar_t* text)
{
    const wchar_t* encoded = nullptr;
    Access::run(
        this,
        [&](Content& content)
        {
            if (content.encoder == nullptr)
                content.encoder = std::make_unique<kor::XmlEncoder>();
            kor::XmlEncoder& encoder = *content.encoder;
            encoder.target.reset();
            encoder.formatter << kor::text_or_empty(text);
            encoded = reinterpret_cast<const wchar_t*>(encoder.target.getRawBuffer());
        });
    return encoded;
}
