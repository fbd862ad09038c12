// The part of Kor_SessionLogGatherer that looks at the machine and the process: what they are, how a crash left
// them, and how much memory is in use.

#include <cstring>
#include <list>
#include <optional>
#include <string>

#include <xercesc/util/OutOfMemoryException.hpp>

#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "core/session_text.h"
#include "core/system_texts.h"
#include "general_log.h"
#include "session_content.h"
#include "session_crash.h"
#include "win/registry.h"
#include "win/system_version.h"
#include "win/text.h"
#include "win/zone_clock.h"

using kor::CrashFacts;
using kor::core::size_text;
using xercesc::DOMElement;

namespace
{
constexpr char GATHER_SYSTEM_INFO[] = "Kor_SessionLogGatherer::gatherSystemInfo";
constexpr char GATHER_PROCESSORS[] = "gatherProcessorDetails";
constexpr char GATHER_DISKS[] = "gatherDiskDetails";
constexpr char REPORT_EXCEPTION[] = "Kor_SessionLogGatherer::reportException";
constexpr char REPORT_MEMORY_DIFFERENCE[] = "Kor_SessionLogGatherer::reportMemoryDifference";

constexpr wchar_t MEMORY_TYPE[] = L"Mem";
constexpr wchar_t MEMORY_FORMAT[] = L"Mem Usage: %ls; VM Size: %ls";

DOMElement& append(xercesc::DOMNode& parent, const wchar_t* name)
{
    DOMElement* const element = parent.getOwnerDocument()->createElement(name);
    parent.appendChild(element);
    return *element;
}

void set(DOMElement& element, const wchar_t* name, std::wstring_view value)
{
    element.setAttribute(name, kor::core::replace_forbidden(value).c_str());
}

void set_if(DOMElement& element, const wchar_t* name, const std::optional<std::wstring>& value)
{
    if (value.has_value())
        set(element, name, *value);
}

std::wstring signed_32_bits(std::uint32_t value) { return std::to_wstring(static_cast<std::int32_t>(value)); }

/// Runs change(root of the document), if there is one. What it throws ends it and is told in the general log; what was
/// added before stays. function: with its class, as the general log has it.
template <class Change>
void change_document(xercesc::DOMDocument* document, const char* function, Change&& change)
{
    const char* const name = std::strchr(function, ':') + 2; // texts have it without the class's prefix
    try
    {
        if (document != nullptr)
            change(*document->getDocumentElement());
    }
    catch (const xercesc::OutOfMemoryException&)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, function, kor::LEVEL_ERROR, "Out of memory in SessionLogGatherer::%s()\n", name);
    }
    catch (const xercesc::DOMException& error)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, function, kor::LEVEL_ERROR, "DOM Exception %d in SessionLogGatherer::%s()\n",
            static_cast<int>(error.code), name);
    }
    catch (...)
    {
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, function, kor::LEVEL_ERROR, "Exception in SessionLogGatherer::%s()\n", name);
    }
}

// The machine ---------------------------------------------------------------------------------------------
void add_processor(DOMElement& system, int number, const kor::win::OwnedRegistryKey& key)
{
    DOMElement& processor = append(system, L"Processor");
    set(processor, L"Number", std::to_wstring(number));
    set_if(processor, L"ProcessorName", kor::win::text_value(key, L"ProcessorNameString"));
    set_if(processor, L"VendorIdentifier", kor::win::text_value(key, L"VendorIdentifier"));
    set_if(processor, L"Identifier", kor::win::text_value(key, L"Identifier"));
    if (const auto frequency = kor::win::number_value(key, L"~MHz"))
        set(processor, L"Frequency", signed_32_bits(*frequency) + L" MHz");
}

void add_processors(DOMElement& system)
try
{
    constexpr int MOST_PROCESSORS = 4096; // twice what Windows supports: the numbering ends in any case
    for (int number = 0; number < MOST_PROCESSORS; ++number)
    {
        const std::wstring path = L"Hardware\\Description\\System\\CentralProcessor\\" + std::to_wstring(number);
        const kor::win::OwnedRegistryKey key = kor::win::open_machine_key(path.c_str());
        if (!key)
            return;
        add_processor(system, number, key);
    }
}
catch (const xercesc::DOMException& error)
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, GATHER_PROCESSORS, kor::LEVEL_ERROR, "DOM Exception %d in gatherProcessorDetails()\n",
        static_cast<int>(error.code));
}
catch (...)
{
    KOR_GENERAL_LOG(
        kor::GATHERER_SOURCE, GATHER_PROCESSORS, kor::LEVEL_ERROR, "Exception in gatherProcessorDetails()\n");
}

std::optional<std::wstring> computer_name()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD size = static_cast<DWORD>(std::size(name));
    if (!::GetComputerNameW(name, &size))
        return std::nullopt;
    return std::wstring(name, size);
}

void add_system_name(DOMElement& system)
{
    DOMElement& name = append(system, L"OS");
    const std::optional<OSVERSIONINFOEXA> version = kor::win::system_version();
    if (version.has_value())
    {
        const std::wstring description = kor::core::product_name(kor::win::describe(*version));
        if (!description.empty())
            set(name, L"Description", description);
        set(name, L"Version", signed_32_bits(version->dwMajorVersion) + L"." + signed_32_bits(version->dwMinorVersion));
        set(name, L"Build", signed_32_bits(version->dwBuildNumber));
        set(name, L"CSDVersion", kor::win::service_pack_of(*version));
    }
    set_if(name, L"HostName", computer_name());
}

void add_free_space(DOMElement& volume, const wchar_t* root)
{
    ULARGE_INTEGER free_for_user{};
    ULARGE_INTEGER total_for_user{};
    ULARGE_INTEGER free_on_disk{};
    if (!::GetDiskFreeSpaceExW(root, &free_for_user, &total_for_user, &free_on_disk))
    {
        const DWORD error = ::GetLastError();
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GATHER_DISKS, kor::LEVEL_DEBUG, "GetDiskFreeSpaceEx failed (%d)\n",
            static_cast<int>(error));
        return;
    }
    set(volume, L"UserFreeBytes", std::to_wstring(free_for_user.QuadPart));
    set(volume, L"UserTotalBytes", std::to_wstring(total_for_user.QuadPart));
    set(volume, L"DiskFreeBytes", std::to_wstring(free_on_disk.QuadPart));
}

/// Keeps Windows from asking the user to insert a disk.
class QuietDrives
{
public:
    QuietDrives() noexcept { ::SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_before); }
    QuietDrives(const QuietDrives&) = delete;
    QuietDrives& operator=(const QuietDrives&) = delete;
    ~QuietDrives() { ::SetThreadErrorMode(m_before, nullptr); }

private:
    DWORD m_before = 0;
};

void add_disks(DOMElement& parent)
{
    constexpr DWORD SIZE = 150; // 26 drives take 105
    const QuietDrives quiet;
    wchar_t roots[SIZE + 1] = {};
    const DWORD length = ::GetLogicalDriveStringsW(SIZE, roots);
    if (length == 0)
    {
        const DWORD error = ::GetLastError();
        KOR_GENERAL_LOG(
            kor::GATHERER_SOURCE, GATHER_DISKS, kor::LEVEL_ERROR, "GetLogicalDriveStrings failed (%d)\n",
            static_cast<int>(error));
    }
    DOMElement& disks = append(parent, L"Disks");
    if (length > SIZE) // that is how much room there should have been: no roots
        return;
    for (const wchar_t* root = roots; *root != L'\0' && root < roots + SIZE; root += std::wcslen(root) + 1)
    {
        DOMElement& volume = append(disks, L"Volume");
        set(volume, L"DriveLetter", root);
        set(volume, L"Type", kor::core::drive_type_name(::GetDriveTypeW(root)));
        add_free_space(volume, root);
    }
}

// The process ---------------------------------------------------------------------------------------------
/// Sets attributes of an element.
auto setter(DOMElement& element)
{
    return [&element](const wchar_t* name, std::wstring_view value) { set(element, name, value); };
}

/// Disks are asked about what is on them, which may take long where one does not answer.
enum class Disks
{
    ADDED,
    LEFT_OUT
};

void add_exception(DOMElement& root, const CrashFacts& crash, const wchar_t* event_id, Disks disks)
{
    DOMElement& exception = append(root, L"Exception");
    kor::tell_exception(crash, event_id, setter(exception));
    if (crash.memory.has_value())
        kor::tell_memory(*crash.memory, setter(append(exception, L"memory")));
    if (disks == Disks::ADDED)
        add_disks(exception);
}

void add_modules(DOMElement& root)
{
    DOMElement& modules = append(root, L"LoadedModules");
    const Kor_SessionLog* const crash_reporter = Kor_SessionLog::myInstance;
    if (crash_reporter == nullptr)
        return;
    kor::win::ZoneClock clock;
    for (const MINIDUMP_MODULE_CALLBACK& module : crash_reporter->getModulesList())
        kor::tell_module(module, clock, setter(append(modules, L"Module")));
}

void add_crash(xercesc::DOMDocument* document, const CrashFacts& crash, const wchar_t* event_id, Disks disks)
{
    change_document(
        document, REPORT_EXCEPTION,
        [&](DOMElement& root)
        {
            add_exception(root, crash, event_id, disks);
            add_modules(root);
        });
}

/// Runs work(memory that the process uses), if that is known. What it throws ends it: there was no memory. The last error
/// of the thread and errno come out as they went in.
template <class Work>
void measure_memory(Work&& work) noexcept
try
{
    const kor::win::KeptErrors kept;
    if (const auto sample = kor::sample_memory())
        work(*sample);
}
catch (...)
{
    return;
}
} // namespace

void Kor_SessionLogGatherer::gatherSystemInfo()
{
    Access::run(
        this,
        [](Content& content)
        {
            change_document(
                content.document.get(), GATHER_SYSTEM_INFO,
                [](DOMElement& root)
                {
                    DOMElement& system = append(root, L"System");
                    add_processors(system);
                    add_system_name(system);
                    add_disks(system);
                });
        });
}

void Kor_SessionLogGatherer::reportException(_EXCEPTION_POINTERS* exception, const wchar_t* eventId)
{
    if (bBypass || m_content == nullptr)
        return;
    const kor::win::KeptErrors kept;
    try
    {
        const Access content(*this);
        if (content)
        {
            CrashFacts crash{};
            kor::find_facts(crash, exception, nullptr);
            add_crash(content->document.get(), crash, eventId, Disks::ADDED);
        }
        else if (!bBypass)
            m_content->waiting_crash.put(exception, eventId);
    }
    catch (...) // of a destination of the general log
    {
        return;
    }
}

void Kor_SessionLogGatherer::Content::take_over_crash()
{
    if (!waiting_crash.is_there())
        return;
    const CrashFacts& crash = waiting_crash.facts();
    add_crash(document.get(), crash, crash.has_event_id ? crash.event_id : nullptr, Disks::LEFT_OUT);
    waiting_crash.clear();
}

// Memory ----------------------------------------------------------------------------------------------------
void Kor_SessionLogGatherer::storeMemoryStatus(const wchar_t* name)
{
    if (bBypass)
        return;
    measure_memory(
        [&](const PROCESS_MEMORY_COUNTERS_EX& sample)
        {
            const Access content(*this);
            if (content)
                content->memory_statuses.insert_or_assign({MEMORY_TYPE, kor::text_or_empty(name)}, sample);
        });
}

void Kor_SessionLogGatherer::reportMemoryStatus(const wchar_t* subject, unsigned flags)
{
    if (bBypass)
        return;
    measure_memory(
        [&](const PROCESS_MEMORY_COUNTERS_EX& sample)
        {
            const std::wstring full_subject = kor::text_or_empty(subject) + std::wstring(L" - Status");
            reportEvent(
                MEMORY_TYPE, full_subject.c_str(), flags, 1, MEMORY_FORMAT, size_text(sample.WorkingSetSize).c_str(),
                size_text(sample.PrivateUsage).c_str());
        });
}

void Kor_SessionLogGatherer::reportMemoryDifference(const wchar_t* subject, const wchar_t* name, unsigned flags)
{
    if (bBypass)
        return;
    measure_memory(
        [&](const PROCESS_MEMORY_COUNTERS_EX& sample)
        {
            const Access content(*this);
            if (!content)
                return;
            const auto stored =
                content->memory_statuses.find(kor::core::SessionEventKey{MEMORY_TYPE, kor::text_or_empty(name)});
            if (stored == content->memory_statuses.end())
            {
                KOR_GENERAL_LOG(
                    kor::GATHERER_SOURCE, REPORT_MEMORY_DIFFERENCE, kor::LEVEL_WARNING,
                    "No stored memory status for %s.\n", kor::win::narrow_for_thread(kor::text_or_empty(name)).c_str());
                return;
            }
            const std::wstring full_subject = kor::text_or_empty(subject) + std::wstring(L" - Difference from ") +
                                              (name == nullptr ? L"previous log" : name);
            // A use that has shrunk wraps.
            const std::uint64_t working_set = sample.WorkingSetSize - stored->second.WorkingSetSize;
            const std::uint64_t private_usage = sample.PrivateUsage - stored->second.PrivateUsage;
            reportEvent(
                MEMORY_TYPE, full_subject.c_str(), flags, 1, MEMORY_FORMAT, size_text(working_set).c_str(),
                size_text(private_usage).c_str());
        });
}
