#include "session_crash.h"

#include "win/owned.h"

namespace kor
{
namespace
{
/// Puts an element's name and its attributes, without its end: tell(set) calls set(name, text) for each.
template <class Tell>
void begin_element(core::TextBlocks& to, std::wstring_view name, Tell&& tell)
{
    to.put(L"<");
    to.put(name);
    tell(
        [&to](std::wstring_view attribute, std::wstring_view value)
        {
            to.put(L" ");
            to.put(attribute);
            to.put(L"=\"");
            to.put_escaped(value);
            to.put(L"\"");
        });
}

void copy_cut(wchar_t (&to)[CrashFacts::TEXT_SIZE], const wchar_t* from) noexcept
{
    const std::wstring_view text = std::wstring_view(from).substr(0, CrashFacts::TEXT_SIZE - 1);
    to[text.copy(to, text.size())] = L'\0';
}
} // namespace

std::optional<PROCESS_MEMORY_COUNTERS_EX> sample_memory() noexcept
{
    const win::OwnedHandle process(
        ::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, ::GetCurrentProcessId()));
    return process ? sample_memory_of(process.get()) : std::nullopt;
}

std::optional<PROCESS_MEMORY_COUNTERS_EX> sample_memory_of(HANDLE process) noexcept
{
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!::GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters))
        return std::nullopt;
    return counters;
}

void find_facts(CrashFacts& to, const EXCEPTION_POINTERS* exception, const wchar_t* event_id) noexcept
{
    const EXCEPTION_RECORD nothing_known{};
    const EXCEPTION_RECORD& record =
        exception == nullptr || exception->ExceptionRecord == nullptr ? nothing_known : *exception->ExceptionRecord;
    to.module[0] = L'\0';
    ::GetModuleFileNameW(nullptr, to.module, CrashFacts::TEXT_SIZE);
    to.module[CrashFacts::TEXT_SIZE - 1] = L'\0'; // a path that was cut may have no end
    to.code = record.ExceptionCode;
    to.address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(record.ExceptionAddress));
    to.has_event_id = event_id != nullptr;
    copy_cut(to.event_id, event_id == nullptr ? L"" : event_id);
    to.memory = sample_memory();
}

void WaitingCrash::put(const EXCEPTION_POINTERS* exception, const wchar_t* event_id) noexcept
{
    State none = State::NONE;
    if (!m_state.compare_exchange_strong(none, State::CHANGING))
        return;
    find_facts(m_facts, exception, event_id);
    m_state.store(State::THERE, std::memory_order_release);
}

void put_crash(
    core::TextBlocks& to, const CrashFacts& crash, const std::list<MINIDUMP_MODULE_CALLBACK>& modules,
    core::LocalClock& clock)
{
    to.put(L"<SessionLogData>");
    begin_element(
        to, L"Exception",
        [&](auto&& set) { tell_exception(crash, crash.has_event_id ? crash.event_id : nullptr, set); });
    to.put(L">");
    if (crash.memory.has_value())
    {
        begin_element(to, L"memory", [&](auto&& set) { tell_memory(*crash.memory, set); });
        to.put(L"/>");
    }
    to.put(L"</Exception><LoadedModules>");
    for (const MINIDUMP_MODULE_CALLBACK& module : modules)
    {
        begin_element(to, L"Module", [&](auto&& set) { tell_module(module, clock, set); });
        to.put(L"/>");
    }
    to.put(L"</LoadedModules></SessionLogData>");
}
} // namespace kor
