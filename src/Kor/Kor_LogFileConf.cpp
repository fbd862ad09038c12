// The configuration side of the general log: the `logger` file, the shared block, the level cache.

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "Kor/conf_contents.h"
#include "Kor/conf_parts.h"
#include "Kor/configuration_folder.h"
#include "Kor/diagnostics.h"
#include "Kor/identity.h"
#include "Kor/isolation.h"
#include "Kor/own_conf.h"
#include "Kor/package_names_file.h"
#include "Kor/recorder.h"
#include "Kor/rule_check.h"
#include "Kor/shared_conf.h"
#include "Kor/shared_name.h"
#include "Kor/thread_client.h"
#include "Kor_LogFile.h"
#include "core/logger_file.h"
#include "core/package_names.h"
#include "core/snapshot.h"
#include "core/stream_source.h"
#include "win/console.h"
#include "win/environment.h"
#include "win/kept_errors.h"
#include "win/path.h"
#include "win/shared_block.h"
#include "win/text.h"

using kor::core::LoggerLine;
using kor::win::KeptErrors;
using kor::win::OwnerLockGuard;

namespace
{
constexpr int MAX_CACHED_LEVEL = 255; // levels of the file go up to here, foreign blocks can hold more

struct FileClose
{
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using OwnedStream = std::unique_ptr<std::FILE, FileClose>;

// Text mode by name: a host can have made binary the one that "r" alone stands for.
OwnedStream open_text(const char* path) { return OwnedStream(std::fopen(path, "rt")); }
OwnedStream open_text(const wchar_t* path)
{
    return OwnedStream(::_wfopen(kor::win::system_path(path).c_str(), L"rt"));
}

// The file --------------------------------------------------------------------------------------------
/// Takes what one line of the file says into conf, but for the levels, which come all at once. Conf: a configuration, or
/// what takes the same changes.
template <class Conf>
void apply_line(const LoggerLine& line, Conf& conf, std::uint8_t (&levels)[PACKAGE_COUNT])
{
    const auto name_length = static_cast<int>(line.name.size());
    switch (line.kind)
    {
    case LoggerLine::NOTHING:
        break;
    case LoggerLine::OUTPUT:
        conf.SetOutput(static_cast<Kor_LogConf::Output>(line.output));
        conf.SetPrintToDebugger(line.to_debugger);
        break;
    case LoggerLine::SIZE_LIMIT:
        if (line.cut)
            KOR_WARN("file_size_limit_in_mb is beyond 32 bits, %u taken\n", line.size_limit);
        conf.SetSizeLimitInMb(line.size_limit);
        break;
    case LoggerLine::PACKAGE:
        if (line.cut)
            KOR_WARN("level of package %d is beyond 0-255, %d taken\n", line.number, line.level);
        levels[line.number] = line.level;
        conf.SetPackageName(line.number, std::string(line.name).c_str());
        if (!line.rules.empty())
        {
            KOR_TRACE("\nParsing rules for package %d\n", line.number);
            conf.GetRuleTable(line.number).ParseRules(RWCString(std::string(line.rules)));
        }
        break;
    case LoggerLine::PACKAGE_OUT_OF_RANGE:
        // The last legal number is one less; the text is as users and tools know it.
        kor::win::print_line(
            stdout, "Kor_LogFile - warning: package %d index out of range 0-%d\n", line.number, PACKAGE_COUNT);
        break;
    case LoggerLine::UNREADABLE:
        KOR_WARN("no package number in line %.*s\n", name_length, line.name.data());
        break;
    }
}

class FileSource final : public kor::core::ByteSource
{
public:
    explicit FileSource(OwnedStream file) noexcept : m_file(std::move(file)) {}

    std::size_t read(char* to, std::size_t size) override { return std::fread(to, 1, size, m_file.get()); }

private:
    OwnedStream m_file;
};

template <class Conf>
int read_lines(kor::core::ByteSource& from, Conf& conf)
{
    std::uint8_t levels[PACKAGE_COUNT];
    std::memset(levels, Kor_LogConf::DEFAULT_LEVEL, sizeof levels);
    kor::core::LoggerFileReader reader(from);
    kor::core::LoggerFileParser parser(PACKAGE_COUNT);
    std::string_view line;
    while (reader.next(line))
        apply_line(parser.parse(line), conf, levels);
    if (reader.ended_early())
        KOR_WARN(
            "a line of the configuration file is longer than %d characters, the file is read up to it\n",
            static_cast<int>(kor::core::MAX_LOGGER_LINE));
    conf.SetPackages(levels);
    return 0;
}

constexpr int MOST_COPIES = 10;

template <class Conf>
int read_file(const wchar_t* path, Conf& conf)
{
    OwnedStream file = open_text(path);
    if (!file)
    {
        KOR_WARN("No configuration file: %s\n", kor::win::narrow(path).c_str());
        return -1;
    }
    FileSource source(std::move(file));
    return read_lines(source, conf);
}

/// The file of the configuration directory.
template <class Conf>
int read_own_file(Conf& conf)
{
    return read_file((kor::configuration_folder() + L"\\logger").c_str(), conf);
}

// The start -------------------------------------------------------------------------------------------
/// What KORAL_LOG_OUTPUT says, nothing when it is not set.
std::optional<Kor_LogConf::Output> output_override(bool has_event_source)
{
    const auto value = kor::win::environment("KORAL_LOG_OUTPUT");
    if (!value)
        return std::nullopt;
    if (value->c_str()[0] == '0')
        return Kor_LogConf::OUTPUT_STDERR;
    if (value->c_str()[0] == '2')
        return Kor_LogConf::OUTPUT_PRIVATE_FILE;
    return has_event_source ? Kor_LogConf::OUTPUT_SYSLOG_FILE : Kor_LogConf::OUTPUT_PRIVATE_FILE;
}

/// Reads the file into conf, which then has the output that was chosen, if any. True when messages are to go to a
/// debugger as well.
template <class Conf>
bool read_start_file(Conf& conf, const std::optional<Kor_LogConf::Output>& chosen)
{
    read_own_file(conf);
    if (chosen)
        conf.SetOutput(*chosen);
    return conf.GetPrintToDebugger();
}

/// Where the system adjusts its clock, sets that to a fixed step; not under a debugger.
void steady_system_clock() noexcept
{
    constexpr DWORD STEP_100NS = 10'000;
    DWORD adjustment = 0;
    DWORD increment = 0;
    BOOL disabled = TRUE;
    if (::IsDebuggerPresent() == FALSE && ::GetSystemTimeAdjustment(&adjustment, &increment, &disabled) != FALSE &&
        disabled == FALSE)
        ::SetSystemTimeAdjustment(STEP_100NS, FALSE);
}

RWCString copy_identity(char* const& text)
{
    const OwnerLockGuard guard(kor::identity_lock);
    return RWCString(guard.held() ? text : nullptr);
}

/// What a configuration's rules grant this process for a package and a client, null for the process's.
int level_of_rules(const Kor_LogConf& conf, int package, kor::Client* client)
{
    const Kor_LogLevelRuleTable& table = conf.ruleTables[package];
    if (!table.HasRules())
        return 0;
    return kor::level_granted(
        table,
        {client == nullptr ? copy_identity(Kor_LogMTVars::m_str_ip_address) : RWCString(client->address()),
         copy_identity(Kor_LogMTVars::m_app_name), static_cast<unsigned long>(Kor_LogMTVars::m_proc_id),
         static_cast<unsigned long>(client == nullptr ? Kor_LogMTVars::m_session_id : client->session()), client});
}

/// The most that they grant it for any client.
int highest_level_of_rules(const Kor_LogConf& conf, int package)
{
    const Kor_LogLevelRuleTable& table = conf.ruleTables[package];
    if (!table.HasRules())
        return 0;
    return kor::level_granted_at_most(
        table, copy_identity(Kor_LogMTVars::m_app_name), static_cast<unsigned long>(Kor_LogMTVars::m_proc_id));
}

/// The largest of a package's level and what level_of_rules tells of a log's configurations, null for none.
template <class LevelOfRules>
int largest_level(
    const Kor_LogConf* used, const Kor_LogConf* local, int package, const LevelOfRules& level_of_rules) noexcept
{
    int level = used == nullptr ? Kor_LogConf::DEFAULT_LEVEL : used->GetPackageDefaultLogLevel(package);
    try
    {
        if (used != nullptr)
            level = std::max(level, level_of_rules(*used));
        if (local != nullptr)
            level = std::max(level, level_of_rules(*local));
    }
    catch (const std::bad_alloc&) // then without the rules, until the next change
    {
    }
    return std::min(level, MAX_CACHED_LEVEL);
}

kor::win::OwnerLock level_lock;                // of a log's generation and what is kept for it
std::atomic<std::uint64_t> last_generation{0}; // of any log
} // namespace

// Reading and writing the file ------------------------------------------------------------------------
int Kor_LogFile::ReadFile(std::ifstream& file, Kor_LogConf& conf)
{
    kor::core::StreamSource source(file);
    return read_lines(source, conf);
}

int Kor_LogFile::ReadFile(const char* path, Kor_LogConf& conf)
{
    OwnedStream file = open_text(path);
    if (!file)
    {
        KOR_WARN("No configuration file: %s\n", path);
        return -1;
    }
    FileSource source(std::move(file));
    return read_lines(source, conf);
}

int Kor_LogFile::ReadFile(const wchar_t* path, Kor_LogConf& conf) { return read_file(path, conf); }

int Kor_LogFile::ReadFile()
{
    const std::wstring path = kor::configuration_folder() + L"\\logger";
    Kor_LogConf* const conf = configuration();
    return conf == nullptr ? -1 : read_file(path.c_str(), *conf);
}

int Kor_LogFile::NamePackage(int package, const char* name)
{
    const KeptErrors kept;
    if (!Kor_LogConf::IsPackageNoLegal(package) || name == nullptr || !kor::core::is_package_name(name))
        return -1;
    kor::remember_package_name(package, name);
    try
    {
        kor::keep_package_name(package, name);
    }
    catch (const std::bad_alloc&) // then it is not kept this time
    {
    }
    return 0;
}

char** Kor_LogFile::ReadCommentsFromFile(const char* path)
{
    OwnedStream file = open_text(path);
    if (!file)
    {
        KOR_WARN("No configuration file: %s\n", path);
        return nullptr;
    }
    std::string found[PACKAGE_COUNT];
    FileSource source(std::move(file));
    kor::core::LoggerFileReader reader(source);
    kor::core::LoggerComment comment;
    for (std::string_view line; reader.next(line);)
        if (kor::core::find_logger_comment(line, PACKAGE_COUNT, comment))
            found[comment.number] = comment.text;

    auto** const comments = new char*[PACKAGE_COUNT];
    for (int package = 0; package < PACKAGE_COUNT; ++package)
    {
        const std::string& text = found[package].empty() ? "//" : found[package];
        comments[package] = new char[text.size() + 1];
        std::memcpy(comments[package], text.c_str(), text.size() + 1);
    }
    return comments;
}

void Kor_LogFile::CleanComments(char**& comments)
{
    if (comments == nullptr)
        return;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        delete[] comments[package];
    delete[] comments;
    comments = nullptr;
}

bool Kor_LogFile::DumpToLoggerFile(const Kor_LogConf& conf, const char* path, char** comments)
{
    OwnedStream file(std::fopen(path, "w"));
    if (!file)
    {
        kor::win::print_line(stderr, "*** Error -  DumpToLoggerFile.Can't open file <%s>\n", path);
        return false;
    }
    std::string text =
        kor::core::logger_file_header(conf.GetOutput(), static_cast<std::uint32_t>(conf.GetSizeLimitInMb()));
    for (int package = 0; package < PACKAGE_COUNT; ++package)
    {
        // conf may be the shared block, where other processes write at any time.
        const kor::core::TextSnapshot name(conf.packageNames[package]);
        if (name.empty())
            continue;
        const std::string line = kor::core::logger_package_line(
            name.text(), package, conf.GetPackageDefaultLogLevel(package), conf.ruleTables[package].ToString().data(),
            comments == nullptr ? "" : comments[package]);
        if (line.size() - 1 > kor::core::MAX_LOGGER_LINE)
            KOR_WARN(
                "the line of package %d is longer than %d characters and ends the reading of %s\n", package,
                static_cast<int>(kor::core::MAX_LOGGER_LINE), path);
        text += line;
    }
    text += kor::core::LOGGER_FILE_END;
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    if (std::fclose(file.release()) == 0 && written)
        return true;
    kor::win::print_line(stderr, "*** Error -  DumpToLoggerFile.Can't write file <%s>\n", path);
    return false;
}

// Start of the configuration --------------------------------------------------------------------------
int Kor_LogFile::InitConf()
{
    if (m_conf_initialised.exchange(true) || m_shared_stamp == nullptr)
        return 0;
    if (kor::is_tool_program())
    {
        Kor_LogConf* const conf = configuration();
        if (conf != nullptr && CopySharedMemory(*conf) == kor::ATTACH_FAILED)
            ReadFile();
        return 0;
    }
    const std::optional<Kor_LogConf::Output> chosen = output_override(m_event_source != nullptr);
    if (read_start_configuration(chosen))
    {
        m_debugger_destination = new Kor_LogDestDebug;
        RegisterLogDestination(m_debugger_destination);
    }
    const auto develop = kor::win::environment("KORAL_LOG_DEVELOP");
    const bool is_private = develop && develop->c_str()[0] == '1';
    if (is_private)
        use_own_configuration();
    else if (!attach_configuration() && chosen)
        override_output(*chosen);
    steady_system_clock();
    return 0;
}

/// Reads the file. True when messages are to go to a debugger as well.
bool Kor_LogFile::read_start_configuration(const std::optional<Kor_LogConf::Output>& chosen)
{
    if (Kor_LogConf* const conf = m_conf)
        return read_start_file(*conf, chosen);
    // Whoever joins the machine's configuration has read the file for its warnings and for the debugger only.
    std::unique_ptr<kor::ConfContents> contents(new (std::nothrow) kor::ConfContents());
    if (!contents)
        return false;
    try
    {
        read_start_file(*contents, chosen);
    }
    catch (const std::bad_alloc&) // then with what was read so far
    {
        KOR_WARN("no memory for all of the configuration file\n");
    }
    const bool to_debugger = contents->GetPrintToDebugger();
    m_own_conf->set_contents(std::move(contents));
    return to_debugger;
}

/// Joins the machine's configuration. Returns true when this process gave it its contents.
bool Kor_LogFile::attach_configuration()
{
    const int result = AttachSharedMemory();
    auto* const block = static_cast<Kor_LogConf*>(m_shared_view);
    if (block == nullptr)
    {
        use_own_configuration();
        return false;
    }
    if ((result == kor::ATTACH_CREATED || !kor::wait_until_filled(*block)) && fill_block(*block))
        return true;
    ReadSharedMemory();
    return false;
}

/// In the block, if the log has joined it: whoever overrides the output does so for the machine.
void Kor_LogFile::override_output(Kor_LogConf::Output output)
{
    if (Kor_LogConf* const used = configuration())
        used->SetOutput(output);
}

/// Puts the log's own configuration in use, with what the file says.
void Kor_LogFile::use_own_configuration()
{
    configuration();
    ClearCacheTable(); // levels from before it was read
}

/// Gives a block its contents. False when another process has done so meanwhile.
bool Kor_LogFile::fill_block(Kor_LogConf& block)
{
    const kor::PublisherTurn turn;
    if (block.GetChangeCount() != 0)
        return false;
    if (const Kor_LogConf* const conf = m_conf)
        kor::copy_all_but_stamp(block, *conf);
    else
        m_own_conf->fill(block);
    kor::stamp_change(block);
    ReadSharedMemory();
    return true;
}

// The shared block ------------------------------------------------------------------------------------
int Kor_LogFile::AttachSharedMemory(void** view)
{
    kor::Attachment attachment = kor::attach_block();
    *view = attachment.view.get();
    if (attachment.view)
        kor::keep(attachment);
    return attachment.result;
}

int Kor_LogFile::AttachSharedMemory()
{
    void* view = nullptr;
    const int result = AttachSharedMemory(&view);
    m_shared_view = view;
    if (view != nullptr)
    {
        auto* const block = static_cast<Kor_LogConf*>(view);
        m_shared_conf = block;
        set_shared_stamp(&block->changeCount);
    }
    return result;
}

int Kor_LogFile::ReadSharedMemory()
{
    Kor_LogConf* const shared = m_shared_conf;
    if (shared == nullptr) // unless nobody has looked at the log's own yet, which then is both
        return m_shared_stamp == nullptr ? -1 : 0;
    m_conf = shared;
    if (m_own_conf != nullptr && shared != m_own_conf->made())
        m_own_conf->give_up();
    return 0;
}

int Kor_LogFile::WriteToSharedMemory()
{
    const kor::PublisherTurn turn;
    write_block();
    return 0;
}

/// Publishes the configuration in use. In this process's turn.
void Kor_LogFile::write_block()
{
    Kor_LogConf* const used = configuration();
    auto* const block = m_is_isolated ? nullptr : static_cast<Kor_LogConf*>(m_shared_view);
    if (used == nullptr)
        return;
    if (used != block)
        used->GenerateChangeCount();
    if (block == nullptr)
        return;
    if (used != block)
        kor::copy_all_but_stamp(*block, *used);
    kor::stamp_change(*block);
    ReadSharedMemory();
}

int Kor_LogFile::UpdateSMFromFile(const char* path)
{
    const std::unique_ptr<Kor_LogConf> fresh(new (std::nothrow) Kor_LogConf);
    if (!fresh)
        return -1;
    ReadFile(path, *fresh);
    return UpdateSMFromConf(*fresh);
}

int Kor_LogFile::UpdateSMFromConf(Kor_LogConf& conf)
{
    kor::Attachment attachment = kor::attach_block();
    if (!attachment.view)
        return -1;
    {
        const kor::PublisherTurn turn;
        kor::copy_all_but_stamp(*attachment.block(), conf);
        conf.SetChangeCount(kor::stamp_change(*attachment.block()));
    }
    // One mapping keeps the block alive for this process; a program that publishes for weeks needs no more. A tool
    // keeps none: what all share has to go with those who share it.
    if (!kor::is_kept() && !kor::is_tool_program())
        kor::keep(attachment);
    return 0;
}

int Kor_LogFile::CopySharedMemory(Kor_LogConf& copy, const char** name)
{
    const kor::win::FoundView found =
        kor::win::find_view(kor::shared_block_name, kor::fallback_name(), sizeof(Kor_LogConf));
    if (name != nullptr)
        *name = found.view ? found.name : nullptr;
    const auto* const block = static_cast<const Kor_LogConf*>(found.view.get());
    if (block == nullptr || !kor::wait_until_filled(*block))
        return kor::ATTACH_FAILED;
    const kor::PublisherTurn turn(found.name);
    // Where no turn could be had, or its holder hangs: a writer stamps the block when all of it is there.
    for (int tries = 0; tries < MOST_COPIES; ++tries)
    {
        const unsigned long long stamp = block->GetChangeCount();
        copy = *block;
        if (block->GetChangeCount() == stamp)
            break;
    }
    return kor::ATTACH_EXISTED;
}

int Kor_LogFile::TakeSharedConf(const char** name)
{
    if (name != nullptr)
        *name = nullptr;
    Kor_LogConf* const conf = kor::is_tool_program() ? configuration() : nullptr;
    if (conf == nullptr || CopySharedMemory(*conf, name) == kor::ATTACH_FAILED)
        return kor::ATTACH_FAILED;
    m_conf_initialised = true;
    return kor::ATTACH_EXISTED;
}

unsigned long long Kor_LogFile::GetSharedChangeCount()
{
    const kor::win::FoundView found =
        kor::win::find_view(kor::shared_block_name, kor::fallback_name(), sizeof(Kor_LogConf));
    const auto* const block = static_cast<const Kor_LogConf*>(found.view.get());
    return block == nullptr ? 0 : block->GetChangeCount();
}

// Isolation -------------------------------------------------------------------------------------------
/// From now on the log goes by these contents alone, reads no file and joins no block when it is opened, and hands
/// messages to its destinations only; null: as before. For one thread at a time. False when there is no memory.
bool Kor_LogFile::isolate(const Kor_LogConf* contents) noexcept
{
    if (contents == nullptr)
    {
        if (!m_is_isolated)
            return true;
        m_conf = m_isolation->used;
        m_shared_conf = m_isolation->shared;
        set_shared_stamp(m_isolation->stamp);
        m_conf_initialised = m_isolation->was_initialised;
        m_is_isolated = false;
        note_context_change();
        return true;
    }
    if (m_isolation == nullptr)
        m_isolation = new (std::nothrow) kor::Isolation;
    if (m_isolation == nullptr)
        return false;
    Kor_LogConf& conf = m_isolation->conf;
    kor::copy_all_but_stamp(conf, *contents);
    conf.GenerateChangeCount();
    if (!m_is_isolated.exchange(true))
    {
        m_isolation->was_initialised = m_conf_initialised.exchange(true);
        m_isolation->stamp = set_shared_stamp(&conf.changeCount);
        m_isolation->shared = m_shared_conf.exchange(&conf);
        m_isolation->used = m_conf.exchange(&conf);
    }
    note_context_change();
    return true;
}

// Levels ----------------------------------------------------------------------------------------------
const Kor_LogConf* Kor_LogFile::GetConf() { return configuration(); }

/// The configuration in use: the log's own is made when it is first asked for. Null when there is no memory for one.
Kor_LogConf* Kor_LogFile::configuration() noexcept
{
    if (Kor_LogConf* const used = m_conf)
        return used;
    Kor_LogConf* const own = m_own_conf == nullptr ? nullptr : m_own_conf->make();
    if (own == nullptr)
        return m_conf; // null, or the shared one, for which it has just been given up
    // Only in place of itself: the log may have joined the shared block meanwhile.
    const volatile std::uint64_t* stamp = &m_own_conf->stamp();
    m_shared_stamp.compare_exchange_strong(stamp, &own->changeCount);
    choose_quick_stamp();
    Kor_LogConf* none = nullptr;
    m_shared_conf.compare_exchange_strong(none, own);
    none = nullptr;
    m_conf.compare_exchange_strong(none, own);
    return m_conf;
}

/// As GetConf()->GetOutput(), for who wants no more of it.
int Kor_LogFile::configured_output() const noexcept
{
    const Kor_LogConf* const used = m_conf;
    return used == nullptr ? static_cast<int>(Kor_LogConf::OUTPUT_STDERR) : used->GetOutput();
}

Kor_LogConf* Kor_LogFile::GetLocalConf() { return m_local_conf; }

void Kor_LogFile::SetLocalConf(Kor_LogConf* conf)
{
    m_local_conf = conf;
    choose_quick_stamp();
    forget_levels();
}

int Kor_LogFile::SetCustomLogLevel(Kor_LogConf::Output output, int package, int level, bool publish_it)
{
    Kor_LogConf* const conf = configuration();
    if (conf == nullptr || conf != m_shared_conf || !Kor_LogConf::IsPackageNoLegal(package))
        return -1;
    std::optional<kor::PublisherTurn> turn; // from the first change on, or another publisher could undo it
    if (publish_it)
        turn.emplace();
    if (static_cast<int>(output) != -1)
        conf->SetOutput(output);
    conf->SetPackageDefaultLogLevel(package, static_cast<unsigned char>(level));
    if (publish_it)
        write_block();
    return 0;
}

int Kor_LogFile::SetCustomLogLevel(int package, int level, bool publish_it)
{
    return SetCustomLogLevel(static_cast<Kor_LogConf::Output>(-1), package, level, publish_it);
}

bool Kor_LogFile::IsCacheTableUpToDate()
{
    const volatile std::uint64_t* const stamp = m_shared_stamp;
    const Kor_LogConf* const local = m_local_conf;
    return stamp != nullptr && *stamp == m_seen_count && !m_context_changed &&
           (local == nullptr || local->GetChangeCount() == m_seen_local_count);
}

void Kor_LogFile::ClearCacheTable() { forget_levels(); }

/// No level that was found before counts any more, nor one that another thread is finding now.
void Kor_LogFile::forget_levels() noexcept
{
    const OwnerLockGuard guard(level_lock);
    m_generation = ++last_generation;
    for (auto& entry : m_level_cache)
        entry.store(0, std::memory_order_relaxed);
}

/// Returns the one before.
const volatile std::uint64_t* Kor_LogFile::set_shared_stamp(const volatile std::uint64_t* stamp) noexcept
{
    const volatile std::uint64_t* const before = m_shared_stamp.exchange(stamp);
    choose_quick_stamp();
    return before;
}

/// After each change of what the stamps are looked up in. The last of several threads sees what all of them have changed.
void Kor_LogFile::choose_quick_stamp() noexcept
{
    const OwnerLockGuard guard(level_lock);
    const volatile std::uint64_t* const stamp = m_shared_stamp;
    m_quick_stamp = stamp == nullptr || m_local_conf != nullptr ? &kor::UNSEEN_STAMP : stamp;
}

/// For the checks that come, unless it is of before the last change: a thread may be held up between looking and storing.
void Kor_LogFile::keep_level(int package, std::uint64_t generation, int level) noexcept
{
    const kor::win::ThreadMark thread = kor::win::current_thread_mark();
    if (!level_lock.try_lock(thread)) // then the next check finds it
        return;
    if (m_generation == generation)
        m_level_cache[package].store(static_cast<std::uint16_t>(level), std::memory_order_relaxed);
    level_lock.unlock(thread);
}

void Kor_LogFile::UpdateCacheFromSharedMem(int package) { current_level(package); }

/// The level in force for a package: the check that every message passes.
int Kor_LogFile::current_level(int package) noexcept
{
    if (!Kor_LogConf::IsPackageNoLegal(package))
        return Kor_LogConf::DEFAULT_LEVEL;
    if (!IsCacheTableUpToDate())
        return refresh_level(package);
    if (kor::levels_are_ceilings.load(std::memory_order_relaxed))
        return level_of_thread(package);
    // Only now, or the entry might be older than the stamp that was just found to be the latest.
    const int level = m_level_cache[package].load(std::memory_order_relaxed);
    return level != 0 ? level : refresh_level(package);
}

int Kor_LogFile::refresh_level(int package) noexcept
{
    const KeptErrors kept;
    if (m_shared_stamp == nullptr)
        return Kor_LogConf::DEFAULT_LEVEL;
    if (!IsCacheTableUpToDate())
        rebuild_cache(package);
    // Before the question by whom the levels go: when that changes, so does this.
    const std::uint64_t generation = m_generation;
    if (kor::levels_are_ceilings)
        return find_level_of_thread(package, generation, kor::thread_client());
    const int level = effective_level(package);
    KOR_TRACE("Package %d Log level set to %d\n", package, level);
    keep_level(package, generation, level);
    return level;
}

/// The level in force for whom the calling thread works for.
int Kor_LogFile::level_of_thread(int package) noexcept
{
    const std::uint64_t generation = m_generation;
    kor::Client* const client = kor::thread_client();
    const kor::KnownLevels& levels = client == nullptr ? kor::process_levels : client->levels();
    const int level = levels.find(package, generation);
    if (level != kor::KnownLevels::UNKNOWN && m_level_cache[package].load(std::memory_order_relaxed) != 0)
        return level;
    const KeptErrors kept;
    return find_level_of_thread(package, generation, client);
}

int Kor_LogFile::find_level_of_thread(int package, std::uint64_t generation, kor::Client* client) noexcept
{
    const int level = effective_level_for(package, client);
    const int highest = kor::threads_have_clients ? highest_level(package) : level;
    keep_level(package, generation, std::max(highest, kor::recorder_level(package)));
    KOR_TRACE("Package %d Log level set to %d\n", package, level);
    kor::KnownLevels& levels = client == nullptr ? kor::process_levels : client->levels();
    levels.keep(package, generation, level);
    return level;
}

void Kor_LogFile::rebuild_cache(int package)
{
    m_size_countdown = 0;
    KOR_TRACE("Cache table is not up-to-date. clearing table and getting configuration for package %d\n", package);
    const Kor_LogConf* const local = m_local_conf;
    // The stamps first: a change that comes while this runs must be found at the next check. They are
    // noted last, when no level of before them counts any more.
    const Kor_LogConf* const used = m_conf;
    const std::uint64_t count = used == nullptr ? m_own_conf->stamp() : used->GetChangeCount();
    const std::uint64_t local_count = local == nullptr ? 0 : local->GetChangeCount();
    m_context_changed = false;
    ClearCacheTable();
    m_seen_local_count = local_count;
    m_seen_count = count == kor::UNSEEN_STAMP ? 0 : count;
}

/// The largest of the package's level and those of the rules that fit this process as it is now.
int Kor_LogFile::effective_level(int package) noexcept { return effective_level_for(package, nullptr); }

/// The same for a client or, if null, the process's own.
int Kor_LogFile::effective_level_for(int package, kor::Client* client) noexcept
{
    return largest_level(
        m_conf, m_local_conf, package, [=](const Kor_LogConf& conf) { return level_of_rules(conf, package, client); });
}

/// The largest that effective_level_for can have for any client.
int Kor_LogFile::highest_level(int package) noexcept
{
    return largest_level(
        m_conf, m_local_conf, package, [=](const Kor_LogConf& conf) { return highest_level_of_rules(conf, package); });
}

int Kor_LogFile::check_level(int package, int level)
{
    if (m_shared_stamp == nullptr)
    {
        kor::win::print_line(stderr, "ERROR.Can not CheckMsgLevel.conf is NULL\n");
        return 0;
    }
    return IsWanted(level, package) ? 1 : 0;
}

unsigned char Kor_LogFile::GetLogLevel(int code)
{
    return static_cast<unsigned char>(current_level(code / PACKAGE_RANGE));
}
