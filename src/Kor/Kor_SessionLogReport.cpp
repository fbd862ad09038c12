// The part of Kor_SessionLogGatherer that writes: reports, state files, encoded texts.

#include <iterator>
#include <memory>
#include <string>

#include <xercesc/util/XMLUni.hpp>

#include "Kor_SessionLogGatherer.h"
#include "core/session_text.h"
#include "core/session_time.h"
#include "general_log.h"
#include "session_content.h"
#include "session_file.h"
#include "win/output_file.h"
#include "win/text.h"
#include "win/zone_clock.h"

using kor::CannotWrite;
using kor::core::SessionWriter;

namespace
{
constexpr char GENERATE_REPORT[] = "Kor_SessionLogGatherer::generateReport";

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

/// Runs write(), and tells in the general log what it throws. False: it threw.
template <class Write>
bool succeeds(Write&& write) noexcept
try
{
    try
    {
        write();
        return true;
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
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_ERROR,
            "Exception in Kor_SessionLogGatherer::generateReport()\n");
    }
    return false;
}
catch (...) // of a destination of the general log
{
    return false;
}

void log_success(const wchar_t* path, bool is_report)
{
    const std::string name = kor::win::narrow_for_thread(path);
    if (is_report)
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_DEBUG, "Crash report written to '%s'.\n", name.c_str());
    else
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_DEBUG, "Crashlog gatherer state written to '%s'.\n",
            name.c_str());
}

/// Ends a report however it goes.
class ReportEnd
{
public:
    explicit ReportEnd(kor::ReportText& text) noexcept : m_text(text) {}
    ReportEnd(const ReportEnd&) = delete;
    ReportEnd& operator=(const ReportEnd&) = delete;
    ~ReportEnd() { m_text.end(); }

private:
    kor::ReportText& m_text;
};
} // namespace

/// Throws what the target throws.
void Kor_SessionLogGatherer::write_report(Content& content, Kor_SessionLogFileOutput& target, bool is_report)
{
    kor::ReportText& text = content.report_text;
    kor::win::ZoneClock clock;
    SessionWriter writer(text, clock);
    const ReportEnd end(text);
    text.begin(&target);
    text.put_byte_order_mark();
    text.put(L"<?xml version=\"1.0\" encoding=\"utf-16\"?>"
             L"<?xml-stylesheet type=\"text/xsl\" href=\"SessionLogSummary.xsl\"?>"
             L"<lumariscontext>");
    text.flush();
    if (content.document != nullptr)
        write_document(*content.document, target);
    if (is_report)
        writer.put_lists(content.events);
    writer.put_all_statistics(content.events);
    text.put(L"</lumariscontext>");
    text.flush();
    target.flush();
}

void Kor_SessionLogGatherer::write_report_file(Content& content, const wchar_t* path)
{
    kor::win::OutputFile file = kor::win::OutputFile::create(path);
    if (!file.is_open())
        throw CannotWrite();
    kor::FileTarget target(file, content.file_buffer);
    write_report(content, target, true);
}

/// Other processes may be reading the one there is.
void Kor_SessionLogGatherer::write_state_file(Content& content, const wchar_t* path)
{
    kor::win::OutputFile file = kor::win::OutputFile::create_successor(path);
    if (!file.is_open())
        throw CannotWrite();
    kor::FileTarget target(file, content.file_buffer);
    write_report(content, target, false);
    switch (file.replace(path))
    {
    case kor::win::OutputFile::Replaced::ByName:
        return;
    case kor::win::OutputFile::Replaced::InPlace:
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GENERATE_REPORT, kor::LEVEL_WARNING,
            "Somebody has the state file '%s' open and keeps it from being replaced. It was written in place.\n",
            kor::win::narrow_for_thread(path).c_str());
        return;
    case kor::win::OutputFile::Replaced::Not:
        throw CannotWrite();
    }
}

void Kor_SessionLogGatherer::generateReport(const wchar_t* path, bool isReport) const
{
    if (bBypass || m_content == nullptr)
        return;
    const kor::win::KeptErrors kept;
    succeeds(
        [&]
        {
            write_file(path, isReport);
            log_success(path, isReport); // when other threads can go on
        });
}

/// Throws what keeps the file from being written.
void Kor_SessionLogGatherer::write_file(const wchar_t* path, bool is_report) const
{
    const Access content(*this);
    if (!content || path == nullptr)
        throw CannotWrite();
    if (is_report)
        write_report_file(*content, path);
    else
        write_state_file(*content, path);
}

void Kor_SessionLogGatherer::generateReport(Kor_SessionLogFileOutput* target, bool isReport) const
{
    if (bBypass || m_content == nullptr)
        return;
    const kor::win::KeptErrors kept;
    succeeds(
        [&]
        {
            const Access content(*this);
            if (!content || target == nullptr)
                throw CannotWrite();
            write_report(*content, *target, isReport);
        });
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
