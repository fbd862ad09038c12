// What a message is to say of itself, and whom the process works for.

#include <cstdlib>
#include <utility>

#include "Kor/client_address.h"
#include "Kor/diagnostics.h"
#include "Kor/identity.h"
#include "Kor/recorder.h"
#include "Kor_LogFile.h"
#include "core/headline.h"
#include "win/kept_errors.h"
#include "win/text.h"

using kor::win::duplicate;
using kor::win::KeptErrors;
using kor::win::OwnerLockGuard;

int Kor_LogFile::note_params(const char* file, const char* function, int line, int level, int package)
{
    const KeptErrors kept;
    return begin_message(file, function, line, level, package) == nullptr ? 0 : 1;
}

/// Notes the parameters in the calling thread's context. Null when the message is not wanted.
const Kor_LogMTVarsPtr*
Kor_LogFile::begin_message(const char* file, const char* function, int line, int level, int package) noexcept
{
    const bool is_written = level <= current_level(package);
    if (!is_written && level > kor::recorder_level(package))
        return nullptr;
    const Kor_LogMTVarsPtr* const found = find_context();
    if (found == nullptr)
        return nullptr;
    Kor_LogMTVars& vars = *found->operator->();
    vars.UpdateTime();
    ++vars.m_uses;
    vars.m_level = level;
    vars.m_package = package;
    vars.m_accepted = 1;
    vars.m_is_only_recorded = !is_written;
    vars.m_file = file == nullptr ? "unknown file" : kor::core::file_name_of(file);
    vars.m_line = line;
    vars.m_function = function;
    return found;
}

bool Kor_LogFile::IsWanted(int level, int package)
{
    return level <= current_level(package) || level <= kor::recorder_level(package);
}

void Kor_LogFile::SetOutLogLevel(int level)
{
    const KeptErrors kept;
    if (Kor_LogMTVars* const vars = context())
        vars->m_level = level;
}

void Kor_LogFile::SetIP(const char* ip)
{
    char* text = duplicate(ip);
    {
        const OwnerLockGuard guard(kor::identity_lock);
        std::swap(Kor_LogMTVars::m_str_ip_address, text);
        Kor_LogMTVars::m_session_id = 0;
        ++kor::identity_changes;
        ++kor::client_changes;
    }
    note_context_change();
    std::free(text);
    KOR_TRACE("SetIP: Log Context changed to [%s [%d]]\n", ip == nullptr ? "(null)" : ip, 0);
}

void Kor_LogFile::SetIPAndSID(const char* ip, long sid)
{
    SetIP(ip);
    {
        const OwnerLockGuard guard(kor::identity_lock);
        Kor_LogMTVars::m_session_id = sid;
        ++kor::identity_changes;
    }
    note_context_change();
    KOR_TRACE("SetIPAndSID: Log Context changed to [%s [%d]]\n", ip == nullptr ? "(null)" : ip, static_cast<int>(sid));
}

void Kor_LogFile::SetThreadName(const char* name)
{
    const KeptErrors kept;
    if (context() == nullptr) // made first, as a new context forgets the name
        return;
    char* text = duplicate(name);
    std::swap(*Kor_LogMTVars::m_thread_name.find(), text);
    note_context_change();
    std::free(text);
    KOR_TRACE("SetThreadName: Log head changed to include thread name [%s]\n", name == nullptr ? "(null)" : name);
}

void Kor_LogFile::note_context_change() noexcept
{
    m_context_changed = true;
    forget_levels();
}
