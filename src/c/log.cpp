// The general log for C: opening, filtering, writing, whom the lines are about.

#include <windows.h>

#include <cstddef>
#include <string>

#include "Kor/configuration_folder.h"
#include "Kor/identity.h"
#include "Kor/thread_client.h"
#include "Kor_LogFile.h"
#include "c/c_texts.h"
#include "c/log_access.h"
#include "core/file_rotation.h"
#include "win/owned.h"

using kor::c::contained;
using kor::c::FinishedText;
using kor::c::give;
using kor::c::name_of;
using kor::c::NarrowName;
using kor::c::text_of;

const lum_gate lum_process_gate = Kor_LogFileForC::of(KorGLog);

namespace
{
static_assert(LUM_PACKAGE_COUNT == PACKAGE_COUNT && LUM_PACKAGE_RANGE == PACKAGE_RANGE);
static_assert(LUM_TO_STDERR == Kor_LogConf::OUTPUT_STDERR && LUM_TO_EVENT_LOG == Kor_LogConf::OUTPUT_SYSLOG_FILE);
static_assert(LUM_STAMP_OFFSET == offsetof(Kor_LogConf, changeCount));
static_assert(LUM_TO_FILE == Kor_LogConf::OUTPUT_PRIVATE_FILE);

/// Notes level and place of the next message; false when nobody wants it. A site of a size that none has counts as none.
bool store_params(const lum_site* site, int level, int package)
{
    if (site == nullptr || site->size < sizeof(lum_site))
        return KorGLog.StoreParams(nullptr, nullptr, 0, level, package) != 0;
    return KorGLog.StoreParams(site->file, site->function, site->line, level, package) != 0;
}

void send_finished(const lum_site* site, int level, int package, unsigned long code, std::string_view text) noexcept
{
    FinishedText message(text);
    if (store_params(site, level, package))
        KorGLog.SendLogNoLimit(code, message.text(), message.length());
}

/// The system's text for an error code, empty when it has none.
std::string system_text(unsigned int error)
{
    void* raw = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
            FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(&raw), 0, nullptr);
    const kor::win::OwnedLocalMemory owner(raw);
    return raw == nullptr ? std::string() : kor::win::utf8_of_wide({static_cast<wchar_t*>(raw), length});
}

bool wants_banners(unsigned int flags) noexcept { return (flags & LUM_NO_BANNERS) == 0; }
} // namespace

unsigned int lum_version(void) { return LUM_VERSION; }

// Opening ---------------------------------------------------------------------------------------------
int lum_open(const char* file_name, const char* app_name) { return lum_open_with(file_name, app_name, 0); }

int lum_open_with(const char* file_name, const char* app_name, unsigned int flags)
{
    return contained(
        LUM_FAILED,
        [=]
        {
            if (file_name == nullptr)
                return Kor_LogFileForC::open_without_file(KorGLog, app_name, wants_banners(flags));
            return KorGLog.Open(NarrowName(file_name).get(), app_name, wants_banners(flags));
        });
}

int lum_reopen(const char* file_name, const char* app_name, unsigned int flags)
{
    return contained(
        LUM_FAILED, [=] { return KorGLog.ReOpen(NarrowName(file_name).get(), app_name, wants_banners(flags)); });
}

size_t lum_app_name(char* buffer, size_t size)
{
    return contained(
        std::size_t{0},
        [=]
        {
            const kor::win::OwnerLockGuard guard(kor::identity_lock);
            return give(guard.held() ? name_of(Kor_LogMTVars::m_app_name) : "", buffer, size);
        });
}

size_t lum_folder(char* buffer, size_t size)
{
    return contained(
        std::size_t{0}, [=] { return give(kor::win::utf8_of_wide(kor::configuration_folder()), buffer, size); });
}

// Filtering -------------------------------------------------------------------------------------------
const lum_gate* lum_get_gate(void) { return &lum_process_gate; }

int lum_wants(int level, int package)
{
    return !KorGLog.IsRejected(level, package) && KorGLog.IsWanted(level, package) ? 1 : 0;
}

int lum_level(int package)
{
    if (!Kor_LogConf::IsPackageNoLegal(package))
        return Kor_LogConf::DEFAULT_LEVEL;
    return contained(0, [=] { return static_cast<int>(KorGLog.GetLogLevel(package * PACKAGE_RANGE)); });
}

// Writing ---------------------------------------------------------------------------------------------
void lum_write(const lum_site* site, int level, int package, const char* text, size_t length)
{
    if (!KorGLog.IsRejected(level, package))
        send_finished(site, level, package, KOR_MSG_HEADLINE, text_of(text, length));
}

void lum_write_wide(const lum_site* site, int level, int package, const wchar_t* text, size_t length)
{
    if (KorGLog.IsRejected(level, package))
        return;
    contained(
        [=]
        {
            std::wstring_view wide;
            if (text != nullptr)
                wide = length == LUM_ZT ? std::wstring_view(text) : std::wstring_view(text, length);
            send_finished(site, level, package, KOR_MSG_HEADLINE, kor::win::utf8_of_wide(wide));
        });
}

void lum_writef(const lum_site* site, int level, int package, const char* format, ...)
{
    if (KorGLog.IsRejected(level, package))
        return;
    va_list arguments;
    va_start(arguments, format);
    lum_vwritef(site, level, package, format, arguments);
    va_end(arguments);
}

void lum_vwritef(const lum_site* site, int level, int package, const char* format, va_list arguments)
{
    if (!KorGLog.IsRejected(level, package) && store_params(site, level, package))
        KorGLog.SendLog(KOR_MSG_HEADLINE, format, arguments);
}

void lum_write_error(
    const lum_site* site, int level, int package, unsigned int os_error, const char* text, size_t length)
{
    if (KorGLog.IsRejected(level, package))
        return;
    contained(
        [=]
        {
            std::string whole(text_of(text, length));
            const std::string details = system_text(os_error);
            whole += details.empty() ? " Unable to fetch message for system error " +
                                           std::to_string(static_cast<int>(os_error)) + "."
                                     : " " + details;
            send_finished(site, level, package, KOR_MSG_HEADLINE, whole);
        });
}

void lum_write_bare(int level, int package, unsigned int code, const char* text, size_t length)
{
    if (!KorGLog.IsRejected(level, package))
        send_finished(nullptr, level, package, code == 0 ? KOR_MSG_NO_HEADLINE : code, text_of(text, length));
}

// Files that rotate, lines that cannot lie -------------------------------------------------------------
int lum_set_rotation(int files)
{
    if (files < 0 || files > kor::core::MOST_OLDER_FILES)
        return LUM_FAILED;
    return contained(
        LUM_FAILED,
        [=]
        {
            KorGLog.SetRotation(files);
            return LUM_OK;
        });
}

void lum_set_safe_lines(int safe)
{
    contained([=] { KorGLog.SetSafeLines(safe != 0); });
}

// The last lines, in memory ---------------------------------------------------------------------------
int lum_set_recorder(size_t bytes, int level)
{
    return contained(LUM_FAILED, [=] { return KorGLog.SetRecorder(bytes, level) == 0 ? LUM_OK : LUM_FAILED; });
}

int lum_set_recorder_level(int package, int level)
{
    return contained(LUM_FAILED, [=] { return KorGLog.SetRecorderLevel(package, level) == 0 ? LUM_OK : LUM_FAILED; });
}

// Whom the lines are about ----------------------------------------------------------------------------
void lum_set_client(const char* ip, int session)
{
    contained([=] { KorGLog.SetIPAndSID(ip, session); });
}

size_t lum_client(char* buffer, size_t size, int* session)
{
    return contained(
        std::size_t{0},
        [=]
        {
            const kor::win::OwnerLockGuard guard(kor::identity_lock);
            if (session != nullptr)
                *session = static_cast<int>(Kor_LogMTVars::m_session_id);
            return give(guard.held() ? name_of(Kor_LogMTVars::m_str_ip_address) : "", buffer, size);
        });
}

namespace
{
/// The two names of one thing: what a reference holds is a client of the library.
kor::Client* client_of(const lum_client_ref* client) noexcept
{
    return reinterpret_cast<kor::Client*>(const_cast<lum_client_ref*>(client));
}
} // namespace

lum_uint64 lum_client_enter(const char* ip, int session) { return kor::enter_client(ip, session); }

void lum_client_leave(lum_uint64 entry) { kor::leave_client(entry); }

lum_client_ref* lum_client_current(void)
{
    kor::Client* const client = kor::thread_client();
    kor::hold(client);
    return reinterpret_cast<lum_client_ref*>(client);
}

lum_uint64 lum_client_enter_ref(const lum_client_ref* client) { return kor::enter_client(client_of(client)); }

void lum_client_ref_free(lum_client_ref* client) { kor::release(client_of(client)); }

void lum_set_thread_name(const char* name)
{
    contained([=] { KorGLog.SetThreadName(name); });
}

size_t lum_thread_name(char* buffer, size_t size)
{
    return contained(
        std::size_t{0},
        [=]
        {
            char** const name = Kor_LogMTVars::m_thread_name.find();
            return give(name == nullptr ? "" : name_of(*name), buffer, size);
        });
}
