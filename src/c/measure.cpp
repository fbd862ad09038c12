// The thread's last error, timers, the performance-monitor log and the records for C.

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

#include "Kor_Error.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_PerfmonScope.h"
#include "Kor_PerformanceLog.h"
#include "c/c_texts.h"
#include "win/format.h"

using kor::c::contained;
using kor::c::FinishedText;
using kor::c::NarrowName;
using kor::c::text_of;

struct lum_timer
{
    Kor_PerfmonScope scope;
};

namespace
{
static_assert(std::is_same_v<lum_int64, std::int64_t>);

constexpr std::size_t MONITOR_LINE_SIZE = 1024; // bytes with the terminator, as Kor_PerfmonLogFile::MAX_LINE_LEN says

RWCString name_of(const char* name) { return RWCString(name == nullptr ? "" : name); }

int done(int found) noexcept { return found != 0 ? LUM_OK : LUM_FAILED; }

void write_monitor_line(int level, std::string_view text)
{
    FinishedText line(text);
    if (KorPLog.StoreParams(nullptr, 0, level, KOR_PACKAGE_PERFMON) != 0)
        KorPLog.Log("%s", line.text());
}
} // namespace

// The thread's last error -----------------------------------------------------------------------------
void lum_error_set(unsigned int code, const char* text, size_t length)
{
    contained(
        [=]
        {
            KorGError.Set(code);
            if (text != nullptr)
                KorGError.SetLogMsg("%s", std::string(text_of(text, length)).c_str());
        });
}

unsigned int lum_error_get(void) { return static_cast<unsigned int>(KorGError.Get()); }

void lum_error_forget_text(void) { KorGError.ResetLogMsg(); }

void lum_error_log(const lum_site* site, int level, int package, const char* name, unsigned int code)
{
    const lum_site nowhere = {sizeof(lum_site), 0, nullptr, nullptr};
    const lum_site& place = site == nullptr || site->size < sizeof(lum_site) ? nowhere : *site;
    // Log looks at errno, which must be the caller's: nothing may stand between.
    if (KorGLog.StoreParams(place.file, place.function, place.line, level, package) != 0)
        KorGError.Log(name, code);
}

// Timers ----------------------------------------------------------------------------------------------
lum_timer* lum_timer_begin(const char* title, int level)
{
    if (KorGLog.IsRejected(level, KOR_PACKAGE_PERFMON) || lum_monitor_wants(level) == 0)
        return nullptr;
    return contained(
        static_cast<lum_timer*>(nullptr),
        [=] { return new lum_timer{Kor_PerfmonScope(title == nullptr ? "" : title, level)}; });
}

lum_int64 lum_timer_end(lum_timer* timer)
{
    if (timer == nullptr)
        return LUM_FAILED;
    const std::unique_ptr<lum_timer> ended(timer);
    return contained(lum_int64{LUM_FAILED}, [=] { return timer->scope.Stop(); });
}

int lum_timer_add(const char* name)
{
    // The result is 0 when the timer was added.
    return contained(LUM_FAILED, [=] { return done(KorPLog.Timers().AddTimer(name_of(name)) == 0); });
}

int lum_timer_stop(const char* name)
{
    return contained(LUM_FAILED, [=] { return done(KorPLog.Timers().Stop(name_of(name))); });
}

int lum_timer_read(const char* name, lum_int64* time)
{
    std::int64_t unwanted = 0;
    std::int64_t& result = time == nullptr ? unwanted : *time;
    return contained(LUM_FAILED, [&] { return done(KorPLog.Timers().GetTime(name_of(name), result)); });
}

int lum_timer_restart(const char* name, lum_int64* time)
{
    std::int64_t unwanted = 0;
    std::int64_t& result = time == nullptr ? unwanted : *time;
    return contained(LUM_FAILED, [&] { return done(KorPLog.Timers().GetTimeAndReset(name_of(name), result)); });
}

int lum_timer_remove(const char* name, lum_int64* time)
{
    std::int64_t unwanted = 0;
    std::int64_t& result = time == nullptr ? unwanted : *time;
    return contained(LUM_FAILED, [&] { return done(KorPLog.Timers().GetTimeAndRemove(name_of(name), result)); });
}

// The performance-monitor log -------------------------------------------------------------------------
int lum_monitor_open(const char* file_name, const char* app_name)
{
    return contained(
        LUM_FAILED,
        [=] {
            return file_name == nullptr ? KorPLog.Open(app_name) : KorPLog.Open(NarrowName(file_name).get(), app_name);
        });
}

int lum_monitor_close(void)
{
    return contained(LUM_FAILED, [] { return KorPLog.Close(); });
}

int lum_monitor_wants(int level) { return lum_wants(level, KOR_PACKAGE_PERFMON); }

void lum_monitor_write(int level, const char* text, size_t length)
{
    if (!KorGLog.IsRejected(level, KOR_PACKAGE_PERFMON))
        contained([=] { write_monitor_line(level, text_of(text, length)); });
}

void lum_monitor_writef(int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    lum_monitor_vwritef(level, format, arguments);
    va_end(arguments);
}

void lum_monitor_vwritef(int level, const char* format, va_list arguments)
{
    if (KorGLog.IsRejected(level, KOR_PACKAGE_PERFMON))
        return;
    contained(
        [=]
        {
            char text[MONITOR_LINE_SIZE];
            kor::win::format_text(text, sizeof text, format, arguments);
            write_monitor_line(level, text);
        });
}

void lum_monitor_context(const char* text)
{
    contained([=] { KorPLog.SetContext(text); });
}

// Records ---------------------------------------------------------------------------------------------
int lum_records_open(void)
{
    return contained(LUM_FAILED, [] { return Kor_PerformanceLog::GetInstance() == nullptr ? LUM_FAILED : LUM_OK; });
}

void lum_record(const char* first, const char* second, float value, const char* third, const char* fourth)
{
    contained(
        [=]
        {
            if (Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance())
                log->WriteRecord(first, second, value, third, fourth);
        });
}

void lum_records_close(void)
{
    contained([] { Kor_PerformanceLog::CloseInstance(); });
}
