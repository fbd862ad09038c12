// The objects that a process has one of. They are in one source because only the order within a source is
// promised: what a log needs while it is constructed comes before it, and goes after it.

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "Kor/client_address.h"
#include "Kor/identity.h"
#include "Kor/kept_texts.h"
#include "Kor/recorder.h"
#include "Kor/shared_name.h"
#include "Kor/thread_client.h"
#include "Kor/watched.h"
#include "Kor_Error.h"
#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "win/process_end.h"
#include "win/thread_mark.h"

namespace
{
const kor::win::ThreadMarkSlot thread_marks; // first, as every lock asks for one

/// The folders that GetLogConfigDir has handed out: a handful. Texts come and none goes, so nobody has to wait, not
/// even for a thread that was ended in here.
class KeptTexts
{
public:
    constexpr KeptTexts() noexcept = default;
    KeptTexts(const KeptTexts&) = delete;
    KeptTexts& operator=(const KeptTexts&) = delete;
    ~KeptTexts()
    {
        const Entry* entry = kor::win::process_is_ending() ? nullptr : m_newest.load();
        while (entry != nullptr)
            delete std::exchange(entry, entry->older);
    }

    char* keep(const std::string& text)
    {
        std::unique_ptr<Entry> made;
        Entry* newest = m_newest.load(std::memory_order_acquire);
        for (;;)
        {
            for (Entry* entry = newest; entry != nullptr; entry = entry->older)
                if (entry->text == text)
                    return entry->text.data();
            if (made == nullptr)
                made = std::make_unique<Entry>(Entry{text, nullptr});
            made->older = newest;
            if (m_newest.compare_exchange_weak(
                    newest, made.get(), std::memory_order_acq_rel, std::memory_order_acquire))
                return made.release()->text.data();
        }
    }

private:
    struct Entry
    {
        std::string text;
        Entry* older;
    };

    std::atomic<Entry*> m_newest{nullptr};
};

KeptTexts kept_texts;
const kor::WatchedEnd watched_end;   // last of all
const kor::RecorderEnd recorder_end; // after the logs, which have their end recorded
} // namespace

char* kor::keep_text(const std::string& text) { return kept_texts.keep(text); }

kor::win::OwnerLock kor::identity_lock;
std::atomic<std::uint32_t> kor::identity_changes{1};
std::atomic<std::uint32_t> kor::client_changes{1};
kor::KnownClient kor::known_client;
std::atomic<bool> kor::threads_have_clients{false};
std::atomic<bool> kor::levels_are_ceilings{false};
kor::KnownLevels kor::process_levels;
kor::Clients kor::clients;
const char* kor::shared_block_name = nullptr;
std::atomic<kor::Recorder*> kor::recorder{nullptr};
std::atomic<kor::Watched*> kor::watched{nullptr};

char* Kor_LogMTVars::m_app_name = nullptr;
int Kor_LogMTVars::m_proc_id = static_cast<int>(::GetCurrentProcessId());
long Kor_LogMTVars::m_session_id = 0;
char* Kor_LogMTVars::m_str_ip_address = nullptr;
RWTThreadLocal<char*> Kor_LogMTVars::m_thread_name([](char*& name) { std::free(name); });

Kor_LogFile KorGLog(777, true);
Kor_PerfmonLogFile KorPLog(777); // goes by the general log's configuration
Kor_GError KorGError;
