#include "Kor_LogDestJsonLines.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "Kor/general_log.h"
#include "Kor/identity.h"
#include "Kor/package_names_file.h"
#include "Kor/thread_client.h"
#include "core/json_line.h"
#include "core/log_line.h"
#include "core/message.h"
#include "core/package_names.h"
#include "win/append_file.h"
#include "win/clock.h"
#include "win/console.h"
#include "win/path.h"
#include "win/utf8.h"

using kor::core::JsonLine;
using kor::core::WrittenJson;
using kor::win::OwnerLockGuard;

namespace
{
constexpr std::int64_t MEGABYTE = 1024 * 1024;
constexpr std::int64_t MS_PER_MINUTE = 60'000;
constexpr std::size_t ORDINARY_SIZE = 8 * 1024; // of a line; longer ones take memory
constexpr std::size_t RUN_SIZE = 32;

/// The number of a run: the time, and no two of a process have the same.
std::uint64_t next_run() noexcept
{
    static std::atomic<std::uint64_t> last{0};
    FILETIME time{};
    ::GetSystemTimePreciseAsFileTime(&time);
    const std::uint64_t now = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    std::uint64_t before = last;
    std::uint64_t mine = 0;
    do
        mine = std::max(now, before + 1);
    while (!last.compare_exchange_weak(before, mine));
    return mine;
}

/// A message as it was handed over: the text without what ends it.
std::string_view text_of(const char* text, unsigned int length) noexcept
{
    constexpr unsigned int MOST = 0x7FFFFFFF; // beyond it the message was cut and ends at its terminator
    if (text == nullptr)
        return {};
    const bool is_terminated = length > MOST;
    const std::string_view whole(text, is_terminated ? std::strlen(text) : length);
    const std::string_view body = kor::core::without_newline(whole);
    const bool is_cut = is_terminated || whole.size() == static_cast<std::size_t>(kor::core::MAX_MESSAGE);
    return is_cut ? kor::core::without_cut_character(body) : body;
}

/// Of the configuration, which other processes may be changing: a copy.
class PackageName
{
public:
    explicit PackageName(int package) noexcept
    {
        const Kor_LogConf* const conf = KorGLog.GetConf();
        const char* const name = conf == nullptr ? nullptr : conf->GetPackageName(package);
        if (name != nullptr)
            std::memcpy(m_name, name, sizeof m_name - 1);
        if (m_name[0] == '\0')
            kor::copy_package_name(package, m_name);
    }

    std::string_view text() const noexcept { return m_name; }

private:
    static_assert(kor::core::MAX_PACKAGE_NAME < Kor_LogConf::PACKAGE_NAME_SIZE);
    char m_name[Kor_LogConf::PACKAGE_NAME_SIZE]{};
};

/// Takes over where a message is from.
void add_place(JsonLine& line, const Kor_LogMTVars& vars) noexcept
{
    if (vars.m_line == 0)
        return;
    line.file = vars.m_file == nullptr ? "" : vars.m_file;
    line.line = vars.m_line;
    line.function = vars.m_function == nullptr ? "" : vars.m_function;
}

/// Takes over who the process is, and for whom the thread works. identity_lock is held, or is_readable false.
void add_identity(JsonLine& line, bool is_readable) noexcept
{
    if (is_readable && Kor_LogMTVars::m_app_name != nullptr)
        line.application = Kor_LogMTVars::m_app_name;
    line.process = Kor_LogMTVars::m_proc_id;
    const kor::Client* const client = kor::threads_have_clients ? kor::thread_client() : nullptr;
    const char* const process_address = is_readable ? Kor_LogMTVars::m_str_ip_address : nullptr;
    const char* const address = client != nullptr ? client->address() : process_address;
    line.client = address == nullptr ? "" : address;
    line.session = client != nullptr ? client->session() : is_readable ? Kor_LogMTVars::m_session_id : 0;
}

/// When a message was said. The zone is the present one: each thread's headlines keep that of its first message.
void add_time(JsonLine& line, const Kor_LocalTime& time) noexcept
{
    const std::int64_t offset = kor::win::known_zone_offset_ms();
    line.zone_minutes = static_cast<int>(offset / MS_PER_MINUTE);
    line.utc_ms = time.year == 0
                      ? static_cast<std::int64_t>(kor::win::precise_milliseconds())
                      : kor::core::wall_milliseconds(
                            {time.year, time.month, time.day, time.hour, time.minute, time.second, time.milliseconds}) -
                            offset;
}
} // namespace

/// The file, and what its lines have in common.
class kor::JsonLinesFile
{
public:
    JsonLinesFile(const char* path, int megabytes, int files)
        : m_most_bytes(std::max(megabytes, 0) * MEGABYTE), m_code_page(win::code_page())
    {
        std::snprintf(
            m_run, sizeof m_run, "%llx-%lu", static_cast<unsigned long long>(next_run()), ::GetCurrentProcessId());
        m_file.set_rotation(std::max(files, 1));
        m_is_open = m_file.open(win::system_path(win::wide_file_name(path)));
    }

    bool is_open() const noexcept { return m_is_open; }

    bool write(const Kor_LogMTVars& vars, bool bare, std::string_view text) noexcept
    {
        char small[ORDINARY_SIZE];
        std::unique_ptr<char[]> large;
        const std::string_view line = compose({small, sizeof small}, large, vars, bare, text);
        const Seam seam(*this);
        return !line.empty() && m_file.write_as_it_is(line, {m_most_bytes, seam});
    }

private:
    /// Nothing stands where the file goes on in another one; what is wrong with that is a line like others.
    struct Seam final : win::FileSeam
    {
        explicit Seam(JsonLinesFile& its_file) noexcept : file(its_file) {}

        std::size_t write_end(core::Buffer) const noexcept override { return 0; }
        std::size_t write_begin(core::Buffer) const noexcept override { return 0; }
        std::size_t write_notice(core::Buffer to, std::string_view notice) const noexcept override
        {
            JsonLine line = file.next_line(LEVEL_WARNING, KOR_PACKAGE_LIBRARY, true);
            add_time(line, {});
            line.process = Kor_LogMTVars::m_proc_id;
            line.thread = ::GetCurrentThreadId();
            line.text = core::without_newline(notice);
            return core::write_json_line(to, line, file.m_code_page).size;
        }

        JsonLinesFile& file;
    };

    JsonLine next_line(int level, int package, bool bare) noexcept
    {
        JsonLine line{};
        line.level = level;
        line.level_name = core::level_name(level);
        line.package = package;
        line.is_bare = bare;
        line.run = m_run;
        line.sequence = m_lines.fetch_add(1) + 1;
        return line;
    }

    /// Empty where there is no memory for a line that needs some. One whose text alone is too long is cut then.
    std::string_view compose(
        core::Buffer small, std::unique_ptr<char[]>& large, const Kor_LogMTVars& vars, bool bare,
        std::string_view text) noexcept
    {
        JsonLine line = next_line(vars.m_level, vars.m_package, bare);
        add_time(line, vars.m_time);
        add_place(line, vars);
        line.thread = vars.m_thread_id;
        const char* const* const thread_name = Kor_LogMTVars::m_thread_name.find();
        line.thread_name = thread_name == nullptr || *thread_name == nullptr ? "" : *thread_name;
        line.text = text;

        const PackageName package_name(vars.m_package);
        line.package_name = package_name.text();

        const OwnerLockGuard guard(identity_lock);
        add_identity(line, guard.held());
        WrittenJson made = core::write_json_line(small, line, m_code_page);
        if (!made.is_cut)
            return {small.data, made.size};
        const std::size_t room = core::most_json_size(line);
        large.reset(new (std::nothrow) char[room]);
        if (!large)
            return {small.data, made.size};
        made = core::write_json_line({large.get(), room}, line, m_code_page);
        return {large.get(), made.size};
    }

    const std::int64_t m_most_bytes;
    const core::CodePage m_code_page;
    char m_run[RUN_SIZE]{};
    std::atomic<std::uint64_t> m_lines{0};
    std::atomic<std::FILE*> m_shown{nullptr};
    win::AppendFile m_file{m_shown};
    bool m_is_open = false;
};

Kor_LogDestJsonLines::Kor_LogDestJsonLines(const char* path, int megabytes, int files)
{
    try
    {
        auto file = std::make_shared<kor::JsonLinesFile>(path == nullptr ? "" : path, megabytes, files);
        if (file->is_open())
            m_file = std::move(file);
    }
    catch (const std::bad_alloc&)
    {
    }
    if (!m_file)
        kor::win::print_line(
            stderr, "Kor_LogDestJsonLines: failed to open file <%s>\n", path == nullptr ? "(null)" : path);
}

bool Kor_LogDestJsonLines::IsOpen() const noexcept { return m_file != nullptr; }

int Kor_LogDestJsonLines::LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length)
{
    return m_file && m_file->write(*context.operator->(), bare, text_of(text, length)) ? 0 : -1;
}
