// The part of Kor_SessionLogGatherer that reads: state files, and reports, which have the same form.

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "Kor_SessionLogGatherer.h"
#include "core/numbers.h"
#include "core/session_time.h"
#include "general_log.h"
#include "session_content.h"
#include "win/output_file.h"
#include "win/owned.h"
#include "win/path.h"
#include "win/text.h"

using xercesc::Attributes;
using xercesc::SAXException;

namespace
{
constexpr char LOAD_FROM_FILE[] = "Kor_SessionLogGatherer::loadFromFile";
constexpr std::uint64_t NO_TIME = ~std::uint64_t{0}; // what a text that is no time reads as

/// Far more than the library's documents have. Each open element takes memory in the parser.
constexpr std::int32_t DEEPEST_NESTING = 256;

/// Of a file that is read, in bytes: a quarter of a million entries. Beyond it, reading would hold up the host.
constexpr std::uint64_t LARGEST_FILE = std::uint64_t{256} << 20;

[[noreturn]] void refuse(const wchar_t* why) { throw SAXException(why); }

/// Ends the load of a document that declares its type.
class DocumentTypeFound final : public SAXException
{
public:
    DocumentTypeFound() : SAXException(L"A document type is not allowed.") {}
};

bool is_name(const XMLCh* name, std::wstring_view wanted) noexcept { return name != nullptr && wanted == name; }

bool is_white_space(const XMLCh* text, XMLSize_t length) noexcept
{
    return std::wstring_view(text, length).find_first_not_of(L" \r\n\t") == std::wstring_view::npos;
}

/// Null when there is none of that name.
const wchar_t* find(const Attributes& attributes, const wchar_t* name) { return attributes.getValue(name); }

std::wstring text_of(const Attributes& attributes, const wchar_t* name)
{
    return kor::text_or_empty(find(attributes, name));
}

std::wstring required_type(const Attributes& attributes)
{
    const wchar_t* const type = find(attributes, L"type");
    if (type == nullptr)
        refuse(L"No type attribute found for event.");
    return type;
}

/// A time that is missing or cannot be read is one that was not set.
std::uint64_t time_of(const Attributes& attributes, const wchar_t* name)
{
    const auto time = kor::core::read_session_time(kor::text_or_empty(find(attributes, name)));
    return time.value_or(0);
}

Kor_SessionLogGatherer::ReportTriple triple_of(const Attributes& attributes)
{
    return {
        kor::core::fraction_at_front(kor::text_or_empty(find(attributes, L"min"))),
        kor::core::fraction_at_front(kor::text_or_empty(find(attributes, L"avg"))),
        kor::core::fraction_at_front(kor::text_or_empty(find(attributes, L"max")))};
}

std::uint64_t whole_number_of(const Attributes& attributes, const wchar_t* name, std::uint64_t otherwise)
{
    const wchar_t* const text = find(attributes, name);
    return text == nullptr ? otherwise : static_cast<std::uint64_t>(kor::core::number_at_front(text));
}

/// A count, 1 when there is none. It is written as a signed number of 32 bits: one beyond 2^31 - 1 as a negative.
std::uint64_t count_of(const Attributes& attributes)
{
    const auto count = static_cast<std::int64_t>(whole_number_of(attributes, L"count", 1));
    return count < 0 ? static_cast<std::uint32_t>(count) : static_cast<std::uint64_t>(count);
}

enum class FileState
{
    Missing,
    TooLarge,
    Readable
};

kor::win::OwnedFile open_sharing(const wchar_t* path, DWORD sharing) noexcept
{
    return kor::win::OwnedFile(kor::win::open_file(path, GENERIC_READ, sharing, OPEN_EXISTING));
}

/// Opens a file that another process may be replacing. It sees that file to its end, or the one that came before. A file
/// that is written over in place is waited for; one that somebody keeps open for writing is read all the same.
kor::win::OwnedFile open_shared(const wchar_t* path) noexcept
{
    constexpr DWORD PAUSE_MS = 10;
    constexpr DWORD NO_WRITER = FILE_SHARE_READ | FILE_SHARE_DELETE;
    const ULONGLONG end = ::GetTickCount64() + kor::win::OutputFile::SHORTLY_MS;
    for (;;)
    {
        kor::win::OwnedFile file = open_sharing(path, NO_WRITER);
        if (file || ::GetLastError() != ERROR_SHARING_VIOLATION)
            return file;
        if (::GetTickCount64() >= end)
            return open_sharing(path, NO_WRITER | FILE_SHARE_WRITE);
        ::Sleep(PAUSE_MS); // nothing tells when a writer is done
    }
}

FileState state_of(const kor::win::OwnedFile& file) noexcept
{
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size))
        return FileState::Missing;
    return static_cast<std::uint64_t>(size.QuadPart) > LARGEST_FILE ? FileState::TooLarge : FileState::Readable;
}

/// The bytes of an open file.
class FileStream final : public xercesc::BinInputStream
{
public:
    explicit FileStream(kor::win::OwnedFile file) noexcept : m_file(std::move(file)) {}

    XMLFilePos curPos() const override { return m_position; }

    XMLSize_t readBytes(XMLByte* to, XMLSize_t size) override
    {
        DWORD count = 0;
        if (!::ReadFile(m_file.get(), to, static_cast<DWORD>(std::min<XMLSize_t>(size, 1 << 20)), &count, nullptr))
        {
            using namespace xercesc;
            ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotReadFromFile);
        }
        m_position += count;
        return count;
    }

    const XMLCh* getContentType() const override { return nullptr; }

private:
    kor::win::OwnedFile m_file;
    XMLFilePos m_position = 0;
};

/// A file that is open already. The XML library would open it so that nobody can replace it meanwhile, and could not
/// while somebody does.
class OpenFileSource final : public xercesc::LocalFileInputSource
{
public:
    OpenFileSource(const wchar_t* path, kor::win::OwnedFile file) : LocalFileInputSource(path), m_file(std::move(file))
    {
    }

    xercesc::BinInputStream* makeStream() const override { return new FileStream(std::move(m_file)); }

private:
    mutable kor::win::OwnedFile m_file; // goes to the one stream that is made
};

/// Reads documents that declare no type. It is told of one before anything of it is read, also where it is empty, which
/// no handler is told of.
class UntypedReader final : public xercesc::SAX2XMLReaderImpl
{
public:
    void doctypeDecl(const xercesc::DTDElementDecl&, const XMLCh*, const XMLCh*, bool, bool) override
    {
        throw DocumentTypeFound();
    }
};

void tell_of_exception()
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, LOAD_FROM_FILE, kor::LEVEL_DEBUG,
        "Exception while parsing in Kor_SessionLogGatherer::loadFromFile()\n");
}

void parse(const xercesc::InputSource& source, Kor_SessionLogGatherer_Loader& loader)
{
    using namespace xercesc;
    const auto reader = std::make_unique<UntypedReader>();
    reader->setFeature(XMLUni::fgSAX2CoreValidation, true);
    reader->setFeature(XMLUni::fgXercesDynamic, true); // only where the document declares a grammar
    // Neither the network nor other files are looked at.
    reader->setFeature(XMLUni::fgXercesSchema, false);
    reader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
    reader->setEntityResolver(&loader);
    reader->setDeclarationHandler(&loader); // without one the reader is not told of document types
    reader->setContentHandler(&loader);
    reader->setErrorHandler(&loader);
    reader->parse(source);
}
} // namespace

// Items -----------------------------------------------------------------------------------------------------
Kor_SessionLogGatherer_Item_Loader::Kor_SessionLogGatherer_Item_Loader() { kor::keep_xml_library(); }
Kor_SessionLogGatherer_Item_Loader::~Kor_SessionLogGatherer_Item_Loader() = default;

Kor_SessionLogGatherer_Event_Loader::Kor_SessionLogGatherer_Event_Loader() : m_inside_info(false), m_had_info(false) {}
Kor_SessionLogGatherer_Event_Loader::~Kor_SessionLogGatherer_Event_Loader() = default;

void Kor_SessionLogGatherer_Event_Loader::start(const Attributes& attributes)
{
    m_inside_info = false;
    m_had_info = false;
    m_event = {};
    m_event.type = required_type(attributes);
    m_event.subject = text_of(attributes, L"subject");
    m_event.weight = static_cast<std::uint32_t>(whole_number_of(attributes, L"weight", 1));
    m_event.begin_time = time_of(attributes, L"begintime");
    m_event.end_time = time_of(attributes, L"endtime");
}

void Kor_SessionLogGatherer_Event_Loader::startElement(const XMLCh*, const XMLCh*, const XMLCh* name, const Attributes&)
{
    if (!is_name(name, L"info"))
        refuse(L"only <info> tag is allowed inside event.");
    if (m_had_info)
        refuse(L"only one <info> tag is allowed inside event.");
    m_inside_info = true;
    m_had_info = true;
}

void Kor_SessionLogGatherer_Event_Loader::endElement(const XMLCh*, const XMLCh*, const XMLCh* name)
{
    if (!m_inside_info || !is_name(name, L"info"))
        refuse(L"unexpected </info> tag.");
    m_inside_info = false;
}

void Kor_SessionLogGatherer_Event_Loader::characters(const XMLCh* text, XMLSize_t length)
{
    if (m_inside_info)
        m_event.info.append(text, length);
    else if (!is_white_space(text, length))
        refuse(L"unexpected character data inside <event>.");
}

Kor_SessionLogGatherer_Stat_Loader::Kor_SessionLogGatherer_Stat_Loader() = default;
Kor_SessionLogGatherer_Stat_Loader::~Kor_SessionLogGatherer_Stat_Loader() = default;

void Kor_SessionLogGatherer_Stat_Loader::start(const Attributes& attributes)
{
    m_statistics = {};
    m_statistics.type = required_type(attributes);
    m_statistics.subject = text_of(attributes, L"subject");
    m_statistics.count = count_of(attributes);
}

void Kor_SessionLogGatherer_Stat_Loader::startElement(
    const XMLCh*, const XMLCh*, const XMLCh* name, const Attributes& attributes)
{
    if (is_name(name, L"weight"))
        m_statistics.weight = triple_of(attributes);
    else if (is_name(name, L"totaltimeinmilliseconds"))
        m_statistics.total_time = triple_of(attributes);
    else if (is_name(name, L"unittimeinmilliseconds"))
        m_statistics.unit_time = triple_of(attributes);
    else
        refuse(L"Unexpected tag inside <statentry>.");
}

// The document ------------------------------------------------------------------------------------------------
Kor_SessionLogGatherer_Loader::Kor_SessionLogGatherer_Loader(Kor_SessionLogGatherer* gatherer)
    : m_gatherer(gatherer), m_state(State::Outside), m_depth(0), m_ignored_depth(0), m_nesting(0), m_current(nullptr)
{
}

Kor_SessionLogGatherer_Loader::Kor_SessionLogGatherer_Loader() : Kor_SessionLogGatherer_Loader(nullptr) {}
Kor_SessionLogGatherer_Loader::~Kor_SessionLogGatherer_Loader() = default;

void Kor_SessionLogGatherer_Loader::startElement(
    const XMLCh* uri, const XMLCh* localName, const XMLCh* name, const Attributes& attributes)
{
    if (++m_nesting > DEEPEST_NESTING)
        refuse(L"Elements are nested too deeply.");
    if (m_current != nullptr)
    {
        ++m_depth;
        m_current->startElement(uri, localName, name, attributes);
    }
    else if (is_name(name, L"lumariscontext") && m_state != State::Outside)
        refuse(L"Unexpected 'context' tag");
    else if (m_ignored_depth > 0 || !enter(name, attributes))
        ++m_ignored_depth;
}

/// False for an element that means nothing where it stands: it is ignored with all that is in it.
bool Kor_SessionLogGatherer_Loader::enter(const XMLCh* name, const Attributes& attributes)
{
    switch (m_state)
    {
    case State::Outside:
        if (!is_name(name, L"lumariscontext"))
            return false;
        m_state = State::Root;
        return true;
    case State::Root:
        return enter_list(name, attributes);
    case State::Statistics:
        return is_name(name, L"statentry") && start_item(m_statistics_loader, attributes);
    case State::Context:
    case State::History:
        return is_name(name, L"event") && start_item(m_event_loader, attributes);
    }
    return false;
}

bool Kor_SessionLogGatherer_Loader::enter_list(const XMLCh* name, const Attributes& attributes)
{
    if (is_name(name, L"context"))
        m_state = State::Context;
    else if (is_name(name, L"history"))
        m_state = State::History;
    else if (is_name(name, L"stats"))
    {
        m_state = State::Statistics;
        const auto start = kor::core::read_session_time(kor::text_or_empty(find(attributes, L"start")));
        if (start.has_value() && m_gatherer != nullptr)
            m_gatherer->load_statistics_start(*start);
    }
    return m_state != State::Root;
}

bool Kor_SessionLogGatherer_Loader::start_item(Kor_SessionLogGatherer_Item_Loader& loader, const Attributes& attributes)
{
    m_current = &loader;
    m_depth = 0;
    loader.start(attributes);
    return true;
}

void Kor_SessionLogGatherer_Loader::endElement(const XMLCh* uri, const XMLCh* localName, const XMLCh* name)
{
    --m_nesting;
    if (m_current != nullptr && m_depth >= 1)
    {
        m_current->endElement(uri, localName, name);
        --m_depth;
    }
    else if (m_ignored_depth > 0)
        --m_ignored_depth;
    else if (is_name(name, L"context"))
        leave_list(State::Context);
    else if (is_name(name, L"history"))
        leave_list(State::History);
    else if (is_name(name, L"stats"))
        leave_list(State::Statistics);
    else if (is_name(name, L"statentry"))
        store_statistics();
    else if (is_name(name, L"event"))
        store_event();
}

void Kor_SessionLogGatherer_Loader::leave_list(State list)
{
    if (m_state != list)
        refuse(L"Unexpected end tag");
    m_state = State::Root;
}

void Kor_SessionLogGatherer_Loader::store_statistics()
{
    if (m_state == State::Statistics && m_gatherer != nullptr)
        m_gatherer->load_statistics(m_statistics_loader.statistics());
    m_current = nullptr;
}

void Kor_SessionLogGatherer_Loader::store_event()
{
    if (m_current != &m_event_loader)
        refuse(L"Unexpected end tag");
    m_current = nullptr;
    if (m_gatherer == nullptr)
        return;
    if (m_state == State::History)
        m_gatherer->add_history(m_event_loader.event());
    else
        m_gatherer->load_context(m_event_loader.event());
}

void Kor_SessionLogGatherer_Loader::characters(const XMLCh* text, XMLSize_t length)
{
    if (m_current != nullptr)
        m_current->characters(text, length);
    else if (m_ignored_depth == 0 && !is_white_space(text, length))
        refuse(L"unexpected character data.");
}

xercesc::InputSource* Kor_SessionLogGatherer_Loader::resolveEntity(const XMLCh*, const XMLCh* systemId)
{
    static constexpr XMLByte NOTHING[1] = {};
    return new xercesc::MemBufInputSource(NOTHING, 0, systemId); // becomes the parser's
}

void Kor_SessionLogGatherer_Loader::internalEntityDecl(const XMLCh*, const XMLCh*)
{
    refuse(L"Entities are not allowed.");
}

void Kor_SessionLogGatherer_Loader::externalEntityDecl(const XMLCh*, const XMLCh*, const XMLCh*)
{
    refuse(L"Entities are not allowed.");
}

// The gatherer ------------------------------------------------------------------------------------------------
void Kor_SessionLogGatherer::loadFromFile(const wchar_t* path, Kor_SessionLogGatherer_Loader& loader)
try
{
    if (bBypass || m_content == nullptr || path == nullptr)
        return;
    const kor::win::KeptErrors kept;
    const Access content(*this);
    if (!content)
        return;
    const std::string name = kor::win::narrow_for_thread(path);
    kor::win::OwnedFile file = open_shared(path);
    switch (state_of(file))
    {
    case FileState::Missing:
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, LOAD_FROM_FILE, kor::LEVEL_DEBUG, "File %s does't exist or cannot be accessed.",
            name.c_str());
        return;
    case FileState::TooLarge:
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, LOAD_FROM_FILE, kor::LEVEL_WARNING, "File %s is too large and is not read.\n",
            name.c_str());
        return;
    case FileState::Readable:
        break;
    }
    try
    {
        parse(OpenFileSource(path, std::move(file)), loader);
    }
    catch (const xercesc::SAXParseException& error)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, LOAD_FROM_FILE, kor::LEVEL_DEBUG,
            "XML parse error loading SessionLogGatherer state. line=%d, col=%d, msg=%s.\n",
            static_cast<int>(error.getLineNumber()), static_cast<int>(error.getColumnNumber()),
            kor::win::narrow_for_thread(kor::text_or_empty(error.getMessage())).c_str());
    }
    catch (const DocumentTypeFound&)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, LOAD_FROM_FILE, kor::LEVEL_WARNING,
            "File %s declares a document type and is not read.\n", name.c_str());
        tell_of_exception();
    }
    catch (...)
    {
        tell_of_exception();
    }
}
catch (...) // no memory for what is to be told, or what a destination of the general log throws
{
    return;
}

void Kor_SessionLogGatherer::loadFromFile(const wchar_t* path)
try
{
    Kor_SessionLogGatherer_Loader loader(this);
    loadFromFile(path, loader);
}
catch (...) // no memory for the loader
{
    return;
}

unsigned long long Kor_SessionLogGatherer::loadTime(std::wstring text) const
{
    return kor::core::read_session_time(text).value_or(NO_TIME);
}

void Kor_SessionLogGatherer::load_context(const ReportEventNode& event)
{
    Access::run(this, [&](Content& content) { content.events.load_context(ReportEventNode(event)); });
}

void Kor_SessionLogGatherer::load_statistics(const ReportStatNode& statistics)
{
    Access::run(this, [&](Content& content) { content.events.load_statistics(ReportStatNode(statistics)); });
}

void Kor_SessionLogGatherer::load_statistics_start(std::uint64_t start)
{
    Access::run(this, [&](Content& content) { content.events.set_statistics_start(start); });
}
