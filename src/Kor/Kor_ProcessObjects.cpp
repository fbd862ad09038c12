// The objects that a process has one of. They are in one source because only the order within a source is
// promised: what a log needs while it is constructed comes before it, and goes after it.

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "Kor/identity.h"
#include "Kor/kept_texts.h"
#include "Kor/shared_name.h"
#include "Kor_Error.h"
#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"

namespace
{
kor::win::OwnerLock kept_texts_lock;
std::set<std::string> kept_texts; // a handful: the folders that GetLogConfigDir has handed out
} // namespace

char* kor::keep_text(const std::string& text)
{
    const win::OwnerLockGuard guard(kept_texts_lock);
    return const_cast<char*>(kept_texts.insert(text).first->c_str());
}

kor::win::OwnerLock kor::identity_lock;
std::atomic<std::uint32_t> kor::identity_changes{1};
const char* kor::shared_block_name = nullptr;

char* Kor_LogMTVars::m_app_name = nullptr;
int Kor_LogMTVars::m_proc_id = static_cast<int>(::GetCurrentProcessId());
long Kor_LogMTVars::m_session_id = 0;
char* Kor_LogMTVars::m_str_ip_address = nullptr;
RWTThreadLocal<char*> Kor_LogMTVars::m_thread_name([](char*& name) { std::free(name); });

Kor_LogFile KorGLog(777, true);
Kor_PerfmonLogFile KorPLog(777); // goes by the general log's configuration
Kor_GError KorGError;
