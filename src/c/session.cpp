// Session events, reports and what crash handlers call, for C.

#include <windows.h>

#include <atomic>
#include <string>

#include "Kor_CrashHandlers.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "c/c_texts.h"

using kor::c::contained;
using kor::c::give;
using kor::c::text_of;
using kor::c::WideName;

namespace
{
using Gatherer = Kor_SessionLogGatherer;
static_assert(LUM_EVENT_STATE == Gatherer::STATE && LUM_EVENT_STATE_OF_TYPE == Gatherer::STATE_OF_TYPE);
static_assert(LUM_EVENT_HIDDEN == Gatherer::HIDDEN && LUM_EVENT_CONFIGURATION == Gatherer::CONFIGURATION);
static_assert(LUM_EVENT_COUNTED == Gatherer::COUNTED && LUM_EVENT_BEGIN == Gatherer::BEGIN_OF_SPAN);
static_assert(LUM_EVENT_END == Gatherer::END_OF_SPAN && LUM_EVENT_LEVEL(5) == Gatherer::level(5));

/// Asking for an instance that is switched off would make one that stays so: then there is none.
Gatherer* gatherer() { return Gatherer::bBypass ? nullptr : Gatherer::GetInstance(); }
Kor_SessionLog* reporter() noexcept { return Kor_SessionLog::bBypass ? nullptr : Kor_SessionLog::myInstance; }

/// Runs use with the gatherer, if it is switched on.
template <class Use>
void with_gatherer(Use use) noexcept
{
    if (!Gatherer::bBypass)
        contained(
            [&]
            {
                if (Gatherer* const session = gatherer())
                    use(*session);
            });
}

/// An event's text, as a format and its argument.
class EventText
{
public:
    EventText(const char* text, std::size_t length) : m_text(kor::win::wide_of_utf8(text_of(text, length))) {}

    const wchar_t* format() const noexcept { return m_text.empty() ? nullptr : L"%ls"; }
    const wchar_t* text() const noexcept { return m_text.c_str(); }

private:
    std::wstring m_text;
};

// Of names in a crash handler, which has little stack and must not use the heap.
constexpr int CRASH_PATH_SIZE = 1024;
constexpr int CRASH_NAME_SIZE = 128;

template <class Path>
std::size_t give_path(Path path, char* buffer, std::size_t size) noexcept
{
    return contained(
        std::size_t{0},
        [&]
        {
            Kor_SessionLog* const instance = reporter();
            const wchar_t* const wide = instance == nullptr ? nullptr : path(*instance);
            return give(wide == nullptr ? std::string() : kor::win::utf8_of_wide(wide), buffer, size);
        });
}

std::atomic<bool> machine_is_described{false};

int start(unsigned int flags)
{
    Gatherer::Activate(true);
    if (gatherer() == nullptr)
        return LUM_FAILED;
    if ((flags & LUM_SESSION_CRASHES) != 0)
    {
        Kor_SessionLog::Activate(true);
        if (Kor_SessionLog::bBypass || Kor_SessionLog::GetInstance() == nullptr)
            return LUM_FAILED;
    }
    if ((flags & LUM_SESSION_SYSTEM) != 0 && !machine_is_described.exchange(true))
        gatherer()->gatherSystemInfo();
    return LUM_OK;
}
} // namespace

int lum_session_start(unsigned int flags)
{
    return contained(LUM_FAILED, [=] { return start(flags); });
}

// Events ----------------------------------------------------------------------------------------------
void lum_session_event(
    const char* type, const char* subject, unsigned int flags, unsigned int weight, const char* text, size_t length)
{
    with_gatherer(
        [=](Gatherer& session)
        {
            const EventText info(text, length);
            session.reportEvent(
                WideName(type).get(), WideName(subject).get(), flags, weight, info.format(), info.text());
        });
}

void lum_session_error(const char* subject, const char* text, size_t length)
{
    with_gatherer(
        [=](Gatherer& session)
        {
            const EventText info(text, length);
            session.reportError(WideName(subject).get(), info.format(), info.text());
        });
}

void lum_session_warning(const char* subject, const char* text, size_t length)
{
    with_gatherer(
        [=](Gatherer& session)
        {
            const EventText info(text, length);
            session.reportWarning(WideName(subject).get(), info.format(), info.text());
        });
}

void lum_session_mark(const char* type, const char* subject)
{
    with_gatherer([=](Gatherer& session) { session.reportEventTime(WideName(type).get(), WideName(subject).get()); });
}

lum_uint64 lum_session_marked(const char* type, const char* subject)
{
    lum_uint64 time = 0;
    with_gatherer([&](Gatherer& session)
                  { time = session.getEventTime(WideName(type).get(), WideName(subject).get()); });
    return time;
}

lum_uint64 lum_session_now(void)
{
    return contained(lum_uint64{0}, [] { return static_cast<lum_uint64>(Gatherer::getCurrentTime()); });
}

void lum_session_count_as(const char* type, const char* subject, const char* stats_type, const char* stats_subject)
{
    with_gatherer(
        [=](Gatherer& session)
        {
            session.reportStatsEventSubject(
                WideName(type).get(), WideName(subject).get(), WideName(stats_type).get(),
                WideName(stats_subject).get());
        });
}

void lum_session_remove(const char* type, const char* subject, int spans)
{
    with_gatherer([=](Gatherer& session)
                  { session.removeFromContext(WideName(type).get(), WideName(subject).get(), spans != 0); });
}

unsigned int lum_session_history(void)
{
    unsigned int size = 0;
    with_gatherer([&](Gatherer& session) { size = session.getHistorySize(); });
    return size;
}

void lum_session_set_history(unsigned int size)
{
    with_gatherer([=](Gatherer& session) { session.setHistorySize(size); });
}

void lum_session_memory_keep(const char* name)
{
    with_gatherer([=](Gatherer& session) { session.storeMemoryStatus(WideName(name).get()); });
}

void lum_session_memory(const char* subject, unsigned int flags)
{
    with_gatherer([=](Gatherer& session) { session.reportMemoryStatus(WideName(subject).get(), flags); });
}

void lum_session_memory_growth(const char* subject, const char* name, unsigned int flags)
{
    with_gatherer([=](Gatherer& session)
                  { session.reportMemoryDifference(WideName(subject).get(), WideName(name).get(), flags); });
}

int lum_session_report(const char* path)
{
    int result = LUM_FAILED;
    with_gatherer(
        [&](Gatherer& session)
        {
            Kor_SessionLog* const instance = reporter();
            if (path == nullptr && instance == nullptr)
                return;
            if (path == nullptr)
                instance->createSessionReport();
            else
                session.generateReport(WideName(path).get(), true);
            result = LUM_OK;
        });
    return result;
}

// Crashes ---------------------------------------------------------------------------------------------
int lum_crash_install(void)
{
    return contained(LUM_FAILED, [] { return Kor_CrashHandlers::InstallWithoutRuntime() ? LUM_OK : LUM_FAILED; });
}

void lum_crash_prepare_thread(void) { Kor_CrashHandlers::KeepStackForHandlers(); }

void lum_crash_abort(void) { Kor_CrashHandlers::ReportAbort(); }

void lum_crash_terminate(const char* what) { Kor_CrashHandlers::ReportTerminate(what); }

void lum_crash_release_memory(void) { Kor_CrashHandlers::ReleaseMemory(); }

int lum_crash_keep_dll(const char* path)
{
    constexpr std::size_t LONGEST = 259;
    return contained(
        LUM_FAILED,
        [=]
        {
            Kor_SessionLog* const instance = reporter();
            const std::string name = kor::win::narrow_of_utf8(text_of(path, LUM_ZT));
            if (instance == nullptr || name.empty() || name.size() > LONGEST)
                return LUM_FAILED;
            instance->addDllToLoad(name.c_str());
            instance->enable();
            return LUM_OK;
        });
}

void lum_crash_minidump(_EXCEPTION_POINTERS* exception)
{
    if (Kor_SessionLog* const instance = reporter())
        contained([=] { instance->produceMinidump(exception); });
}

void lum_crash_report(_EXCEPTION_POINTERS* exception, const char* path, const char* event_id)
{
    Kor_SessionLog* const instance = reporter();
    if (instance == nullptr)
        return;
    wchar_t id[CRASH_NAME_SIZE];
    if (event_id != nullptr)
        kor::win::put_wide_of_utf8(event_id, id, CRASH_NAME_SIZE);
    wchar_t file[CRASH_PATH_SIZE];
    const bool has_file = path != nullptr && kor::win::put_wide_of_utf8(path, file, CRASH_PATH_SIZE);
    contained(
        [&]
        {
            if (!has_file && event_id == nullptr)
                instance->createReport(exception);
            else
                instance->createReport(
                    exception, has_file ? file : instance->getLogFullPath(L"crash"),
                    event_id == nullptr ? nullptr : id);
        });
}

void lum_crash_line(_EXCEPTION_POINTERS* exception)
{
    contained([=] { Kor_SessionLogHost::reportToCrashLogFile(exception); });
}

void lum_crash_state(void)
{
    contained([] { Kor_SessionLogHost::saveState(); });
}

void lum_crash_line_only(int only) { Kor_SessionLog::setReportToCrashLogFileOnly(only != 0); }

size_t lum_crash_minidump_path(char* buffer, size_t size)
{
    return give_path([](Kor_SessionLog& instance) { return instance.getMinidumpFullPath(); }, buffer, size);
}

size_t lum_crash_report_path(char* buffer, size_t size)
{
    return give_path([](Kor_SessionLog& instance) { return instance.getLogFullPath(L"crash"); }, buffer, size);
}

size_t lum_crash_state_path(char* buffer, size_t size)
{
    return give_path([](Kor_SessionLog& instance) { return instance.getStateFullPath(); }, buffer, size);
}

void lum_crash_end(void)
{
    contained([] { Kor_SessionLogHost::destroy(); });
}

int lum_watch_start(void)
{
    return contained(LUM_FAILED, [] { return Kor_SessionLogHost::startWatcher() ? LUM_OK : LUM_FAILED; });
}

int lum_watch_start_in_background(void)
{
    return contained(LUM_FAILED, [] { return Kor_SessionLogHost::startWatcherInBackground() ? LUM_OK : LUM_FAILED; });
}

int lum_heartbeat(const char* name, unsigned int milliseconds)
{
    return Kor_SessionLogHost::heartbeat(name, milliseconds) ? LUM_OK : LUM_FAILED;
}
