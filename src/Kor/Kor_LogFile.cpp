// The life of a general log: made, opened, closed.

#include "Kor_LogFile.h"

#include <windows.h>

#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Kor/configuration_folder.h"
#include "Kor/diagnostics.h"
#include "Kor/identity.h"
#include "Kor/isolation.h"
#include "Kor/kept_texts.h"
#include "Kor/log_lock.h"
#include "Kor/own_conf.h"
#include "Kor/private_file.h"
#include "Kor/recorder.h"
#include "Kor/safe_lines.h"
#include "Kor/shared_conf.h"
#include "Kor/shared_name.h"
#include "Kor/thread_client.h"
#include "core/size_limit.h"
#include "win/account.h"
#include "win/append_file.h"
#include "win/console.h"
#include "win/environment.h"
#include "win/kept_errors.h"
#include "win/path.h"
#include "win/text.h"

using kor::LogLock;
using kor::win::duplicate;
using kor::win::KeptErrors;
using kor::win::OwnerLockGuard;

namespace
{
/// True by default; PRISMATE_TRUNC_SZT clears it.
bool truncation_enabled = true;

char default_directory[] = "log";

Kor_LogFile* newest_log = nullptr; // with identity_lock held
} // namespace

Kor_LogFile::Kor_LogFile(int, bool banners)
    : m_file(nullptr), m_banners(banners),
      m_event_source(nullptr), m_event_types{EVENTLOG_ERROR_TYPE,       EVENTLOG_ERROR_TYPE,
                                             EVENTLOG_ERROR_TYPE,       EVENTLOG_ERROR_TYPE,
                                             EVENTLOG_WARNING_TYPE,     EVENTLOG_INFORMATION_TYPE,
                                             EVENTLOG_INFORMATION_TYPE, EVENTLOG_INFORMATION_TYPE},
      m_shared_view(nullptr), m_conf(nullptr), m_shared_conf(nullptr), m_local_conf(nullptr),
      m_conf_initialised(false), m_user_name{}, m_computer_name{}, m_context_changed(false), m_seen_count(0),
      m_seen_local_count(0), m_console_mode(false), m_size_exceeded(false),
      m_size_countdown(kor::core::FIRST_SIZE_COUNTDOWN), m_level_cache{}, m_debugger_destination(nullptr),
      m_destination_count(0), m_lock(nullptr), m_cache_generation(0),
      m_append_file(new (std::nothrow) kor::win::AppendFile(m_file)), m_own_conf(nullptr), m_shared_stamp(nullptr),
      m_generation(0), m_older_log(nullptr), m_isolation(nullptr), m_is_isolated(false),
      m_quick_stamp(&kor::UNSEEN_STAMP)
{
    {
        const OwnerLockGuard guard(kor::identity_lock);
        m_older_log = std::exchange(newest_log, this);
    }
    forget_levels();
    if (kor::win::is_set("PRISMATE_TRUNC_SZT"))
        truncation_enabled = false;
    m_console_mode = kor::win::environment("PRISMATE_LOG_CONSOLE") == "1";
    kor::read_safe_lines();
    m_own_conf = new (std::nothrow) kor::OwnConf;
    if (m_own_conf != nullptr && m_own_conf->exists())
        set_shared_stamp(&m_own_conf->stamp());
    kor::shared_block_name =
        kor::win::is_unlimited_administrator() || kor::win::holds_privilege("SeCreateGlobalPrivilege")
            ? kor::GLOBAL_BLOCK_NAME
            : kor::LOCAL_BLOCK_NAME;
    DWORD size = sizeof m_computer_name;
    ::GetComputerNameA(m_computer_name, &size);
    size = sizeof m_user_name;
    ::GetUserNameA(m_user_name, &size);
    m_lock = new (std::nothrow) ThreadAPI_RecursiveMutex;
    if (kor::win::is_set("PRISMATE_LOG_DIR") && !kor::is_tool_program())
        InitConf();
}

Kor_LogFile::~Kor_LogFile()
{
    leave_list();
    isolate(nullptr);
    if (m_banners && !(is_closed() && kor::is_tool_program())) // a tool need not have a log
        write_end_banner();
    close();
    delete m_debugger_destination;
    // One that the log has not exchanged for the block stays: who has asked for it may still look at it.
    if (m_own_conf != nullptr && m_own_conf->made() != nullptr && m_own_conf->made() == m_shared_conf)
        m_own_conf->release();
    m_quick_stamp = &kor::UNSEEN_STAMP;
    m_shared_stamp = nullptr;
    m_conf = nullptr;
    m_shared_conf = nullptr;
    delete m_own_conf;
    m_own_conf = nullptr;
    delete m_isolation;
    m_isolation = nullptr;
    delete m_append_file;
    m_append_file = nullptr;
    delete m_lock;
    m_lock = nullptr;
}

void Kor_LogFile::leave_list() noexcept
{
    const OwnerLockGuard guard(kor::identity_lock);
    Kor_LogFile** place = &newest_log;
    while (*place != nullptr && *place != this)
        place = &(*place)->m_older_log;
    if (*place == this)
        *place = m_older_log;
}

/// From now on all logs go by whom a thread works for.
void Kor_LogFile::ask_by_client() noexcept
{
    kor::threads_have_clients = true;
    kor::levels_are_ceilings = true;
    forget_all_levels();
}

/// From now on all logs let pass what is to be kept in memory, and no more than that.
void Kor_LogFile::ask_by_recorder() noexcept
{
    if (kor::recorder != nullptr)
        kor::levels_are_ceilings = true;
    if (kor::levels_are_ceilings)
        forget_all_levels();
}

void Kor_LogFile::forget_all_levels() noexcept
{
    const OwnerLockGuard guard(kor::identity_lock);
    for (Kor_LogFile* log = newest_log; log != nullptr; log = log->m_older_log)
        log->forget_levels();
}

/// Null when there is no memory for this thread's context: it stays silent, its host goes on.
Kor_LogMTVarsPtr* Kor_LogFile::find_context() noexcept { return m_context.find_or_make(); }

Kor_LogMTVars* Kor_LogFile::context() noexcept
{
    const Kor_LogMTVarsPtr* const vars = find_context();
    return vars == nullptr ? nullptr : vars->operator->();
}

/// Null also when the thread's messages are not accepted.
Kor_LogMTVarsPtr* Kor_LogFile::find_accepted_context() noexcept
{
    Kor_LogMTVarsPtr* const vars = find_context();
    return vars == nullptr || (*vars)->m_accepted == 0 ? nullptr : vars;
}

bool Kor_LogFile::is_closed() const noexcept { return m_file == nullptr && m_event_source == nullptr; }

int Kor_LogFile::Open(const char* app_name) { return is_closed() ? Init(app_name) : 0; }

int Kor_LogFile::Open(std::FILE* stream, const char* app_name)
{
    if (!is_closed())
        return 0;
    if (stream != nullptr && m_append_file != nullptr)
        m_append_file->adopt(stream);
    const int result = Init(app_name);
    return stream == nullptr ? -1 : result;
}

int Kor_LogFile::Open(const char* file_name, const char* app_name)
{
    if (!is_closed())
        return 0;
    const LogLock lock(m_lock);
    if (!is_closed())
        return 0;
    open_private_file(file_name);
    return Init(app_name);
}

int Kor_LogFile::Open(const char* file_name, const char* app_name, bool banners)
{
    m_banners = banners;
    return Open(file_name, app_name);
}

int Kor_LogFile::ReOpen(const char* file_name, const char* app_name, bool banners)
{
    m_banners = banners;
    const int result = is_closed() ? Init(app_name) : 0;
    const Kor_LogConf* const conf = m_conf;
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
        return result;
    open_private_file(file_name);
    return result;
}

int Kor_LogFile::Close() { return 0; }

char* Kor_LogFile::GetLogConfigDir()
{
    if (const auto directory = kor::win::environment("PRISMATE_LOG_DIR"))
        return kor::keep_text(*directory);
    kor::warn_of_missing_directory();
    return default_directory;
}

std::wstring kor::configuration_folder()
{
    if (auto folder = kor::win::configured_folder())
        return *std::move(folder);
    kor::warn_of_missing_directory();
    return L"log";
}

/// Opens a file of the configuration directory in place of the one that is open.
void Kor_LogFile::open_private_file(const char* file_name)
{
    const std::wstring folder = kor::configuration_folder();
    const std::wstring name = kor::private_file_name(file_name == nullptr ? "" : file_name);
    const std::wstring path = kor::win::system_path(folder + L"/" + name);
    const std::optional<int> files = kor::configured_file_count();
    if (m_append_file != nullptr && files)
        m_append_file->set_rotation(*files);
    if (m_append_file == nullptr || !m_append_file->open(path))
    {
        kor::win::print_line(
            stderr, "Failed to open log file [%s/%s]", kor::win::path_text(folder).c_str(),
            kor::win::path_text(name).c_str());
        kor::win::leave_line_open();
    }
}

void Kor_LogFile::SetRotation(int files)
{
    const KeptErrors kept;
    if (m_append_file != nullptr)
        m_append_file->set_rotation(kor::configured_file_count().value_or(files));
}

void Kor_LogFile::SetSafeLines(bool safe)
{
    const KeptErrors kept;
    kor::set_safe_lines(safe);
}

int Kor_LogFile::SetRecorder(std::size_t bytes, int level)
{
    const KeptErrors kept;
    const int result = kor::set_recorder(bytes, level);
    ask_by_recorder();
    return result;
}

int Kor_LogFile::SetRecorderLevel(int package, int level)
{
    const KeptErrors kept;
    const int result = kor::set_recorder_level(package, level);
    ask_by_recorder();
    return result;
}

int Kor_LogFile::Init(const char* app_name)
{
    kor::read_safe_lines();
    if (kor::read_recorder())
        ask_by_recorder();
    InitConf();
    const std::string_view name(app_name == nullptr ? "" : app_name);
    char* old_name = nullptr;
    {
        const OwnerLockGuard guard(kor::identity_lock);
        if (Kor_LogMTVars::m_app_name == nullptr || !name.empty())
            old_name = std::exchange(Kor_LogMTVars::m_app_name, duplicate(app_name == nullptr ? "" : app_name));
        ++kor::identity_changes;
    }
    std::free(old_name);
    register_event_source();
    if (m_banners)
        write_start_banner();
    return 0;
}

void Kor_LogFile::register_event_source()
{
    m_event_source = ::RegisterEventSourceA(nullptr, Kor_LogMTVars::m_app_name);
    if (m_event_source == nullptr)
        kor::win::print_line(
            stderr, "Kor_LogFile::Init - RegisterEventSource(%s), Unable to use System Log, error = <%d>\n",
            Kor_LogMTVars::m_app_name, static_cast<int>(::GetLastError()));
}

void Kor_LogFile::write_start_banner()
{
    Kor_LogMTVars* const vars = context();
    if (vars == nullptr)
        return;
    vars->m_accepted = 1;
    vars->m_is_only_recorded = false;
    vars->UpdateTime();
    const kor::BannerName safe_name(Kor_LogMTVars::m_app_name);
    const char* const name = safe_name.get();
    const int process = Kor_LogMTVars::m_proc_id;
    const Kor_LogConf* const conf = m_conf;
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
    {
        vars->m_level = 1;
        log_banner("===== %s (%d) Start Session at %s, User %s =====\n", name, process, vars->TimeText(), m_user_name);
        return;
    }
    vars->m_level = 4;
    if (!kor::win::is_set("PRISMATE_LOG_INFO"))
    {
        log_banner(
            "===== %s (%d) Start Session at %s, User %s on %s =====\n", name, process, vars->TimeText(), m_user_name,
            m_computer_name);
        return;
    }
    // "empty" for a mapping that has a name, and nothing for one that has none: the banner stays as it was.
    log_banner(
        "===== %s (%d) Start Session at %s, User %s on %s =====\n"
        " params: file mapping name is %s size %d\n",
        name, process, vars->TimeText(), m_user_name, m_computer_name,
        kor::shared_block_name != nullptr ? "empty" : static_cast<const char*>(nullptr),
        static_cast<int>(sizeof(Kor_LogConf)));
}

void Kor_LogFile::write_end_banner()
{
    Kor_LogMTVars* const vars = context();
    if (vars == nullptr)
        return;
    vars->m_accepted = 1;
    vars->m_is_only_recorded = false;
    vars->UpdateTime();
    const kor::BannerName name(Kor_LogMTVars::m_app_name);
    const Kor_LogConf* const conf = m_conf;
    // The levels are the start banner's the other way round, and stay so.
    if (conf != nullptr && conf->GetOutput() == Kor_LogConf::OUTPUT_SYSLOG_FILE)
    {
        vars->m_level = 4;
        log_banner(
            "===== %s (%d) End Session at %s, User %s =====\n", name.get(), Kor_LogMTVars::m_proc_id, vars->TimeText(),
            m_user_name);
        return;
    }
    vars->m_level = 1;
    log_banner(
        "===== %s (%d) End Session at %s, User %s on %s =====\n", name.get(), Kor_LogMTVars::m_proc_id,
        vars->TimeText(), m_user_name, m_computer_name);
}

int Kor_LogFile::close()
{
    ClearAllLogDestinations();
    if (is_closed())
        return -1;
    if (m_append_file != nullptr)
        m_append_file->close();
    if (m_event_source != nullptr)
        ::CloseEventLog(m_event_source);
    m_event_source = nullptr;
    return 0;
}

char* Kor_LogFile::GetApplicationName()
{
    context();
    return Kor_LogMTVars::m_app_name;
}
