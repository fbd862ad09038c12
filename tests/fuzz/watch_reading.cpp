// watch_reading.cpp - a process that tells its watcher what it does, and writes over any of it: what is read stays within
// its bounds, makes a report that is well-formed, and never keeps the watcher busy.

#include "core/watch_reading.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/crash_texts.h"
#include "core/session_changes.h"
#include "core/session_text.h"
#include "require.h"

using namespace kor::core;

namespace
{
constexpr ProcessIdentity IDENTITY{4312, 133773984000000000};

/// Reads the operations off the input; zeros follow its end.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool is_over() const { return m_at >= m_size; }
    std::uint8_t byte() { return m_at < m_size ? m_data[m_at++] : std::uint8_t{0}; }

    std::uint64_t number(int bytes)
    {
        std::uint64_t value = 0;
        for (int i = 0; i < bytes; ++i)
            value = value << 8 | byte();
        return value;
    }

    /// Numbers at which something changes, or any.
    std::uint64_t telling_number()
    {
        constexpr std::uint64_t ALL = ~std::uint64_t{0};
        constexpr std::uint64_t NUMBERS[] = {0, 1, 2, 63, 64, 767, 768, 769, 0x7FFFFFFF, 0xFFFFFFFF, ALL >> 1, ALL};
        const std::uint8_t chosen = byte();
        return chosen < std::size(NUMBERS) ? NUMBERS[chosen] : number(chosen % 9);
    }

    std::string text()
    {
        std::string text(byte() % 64, '\0');
        for (char& c : text)
            c = static_cast<char>(byte());
        return text;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

class UtcClock final : public LocalClock
{
public:
    std::int64_t local(std::int64_t utc) override { return utc; }
};

class Collected final : public TextBlocks
{
public:
    std::wstring text;

private:
    void write(const wchar_t* block, std::size_t length) override { text.append(block, length); }
};

/// A process and its watcher.
class Watching
{
public:
    explicit Watching(WatchedProcess& told) : m_told(&told)
    {
        std::memset(static_cast<void*>(m_told), 0, sizeof *m_told);
        m_told->version = WATCH_VERSION;
        m_told->size = sizeof *m_told;
        m_told->identity = IDENTITY;
        m_told->magic = WATCH_MAGIC;
    }

    void run_one(Input& input)
    {
        switch (input.byte() % 8)
        {
        case 0:
            write_over(input);
            break;
        case 1:
            fill(input);
            break;
        case 2:
            change_word(input);
            break;
        case 3:
            report(input);
            break;
        case 4:
            beat(input);
            break;
        case 5:
            name_files(input);
            break;
        default:
            m_now += input.number(2);
            check_heartbeats();
        }
    }

    void check_all()
    {
        check_heartbeats();
        check_events();
        check_names();
        check_steps();
        is_watched_process(*m_told, sizeof *m_told, IDENTITY);
        require(!is_watched_process(*m_told, sizeof *m_told - 1, IDENTITY));
        require(watched_module_count(*m_told) <= std::size(m_told->modules));
    }

private:
    // What the process does -----------------------------------------------------------------------------------------
    std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(m_told); }

    void write_over(Input& input)
    {
        std::size_t at = input.number(3) % sizeof *m_told;
        for (int left = input.byte(); left > 0 && at < sizeof *m_told; --left, ++at)
            bytes()[at] = input.byte();
    }

    void fill(Input& input)
    {
        const std::size_t at = input.number(3) % sizeof *m_told;
        const std::size_t size = std::min<std::size_t>(input.number(3), sizeof *m_told - at);
        std::memset(bytes() + at, input.byte(), size);
    }

    void change_word(Input& input)
    {
        const std::uint8_t which = input.byte();
        const std::uint8_t index = input.byte();
        const std::uint64_t value = input.telling_number();
        const auto low = static_cast<std::uint32_t>(value);
        WatchedHeartbeat& beat = m_told->heartbeats[index % MOST_HEARTBEATS];
        WatchedEvent& event = m_told->event_ring[index % WATCHED_EVENTS];
        switch (which % 10)
        {
        case 0:
            m_told->steps = low;
            break;
        case 1:
            m_told->step_time = value;
            break;
        case 2:
            m_told->module_count = low;
            break;
        case 3:
            m_told->events = value;
            break;
        case 4:
            beat.is_named = low;
            break;
        case 5:
            beat.period_ms = low;
            break;
        case 6:
            beat.beat = value;
            break;
        case 7:
            event.sequence = value;
            break;
        case 8:
            event.list = low;
            break;
        default:
            event.begin_time = event.end_time = value;
        }
    }

    void report(Input& input)
    {
        const auto wide = [&]
        {
            const std::string text = input.text();
            return std::wstring(text.begin(), text.end());
        };
        SessionEvent event;
        event.type = wide();
        event.subject = wide();
        event.info = wide();
        event.flags = static_cast<std::uint32_t>(input.telling_number());
        tell_event(*m_told, event, input.byte() % 3, input.telling_number(), input.telling_number());
    }

    void beat(Input& input)
    {
        const std::string name = input.text();
        const auto period_ms = static_cast<std::uint32_t>(input.telling_number());
        if (WatchedHeartbeat* const heartbeat = add_heartbeat(*m_told, name))
            tell_heartbeat(*heartbeat, period_ms, m_now);
    }

    void name_files(Input& input)
    {
        const std::string text = input.text();
        const std::wstring name(text.begin(), text.end());
        tell_text(m_told->folder, std::size(m_told->folder), L"C:\\logs\\");
        tell_text(m_told->dump_name, std::size(m_told->dump_name), L"minidump-" + name + L".dmp");
        tell_text(m_told->report_name, std::size(m_told->report_name), name);
    }

    // What the watcher makes of it ----------------------------------------------------------------------------------
    void check_heartbeats()
    {
        for (const LateHeartbeat& change : m_heartbeats.look(*m_told, m_now))
        {
            require(change.slot < MOST_HEARTBEATS && change.silence <= m_now);
            bool& is_late = m_is_late[change.slot];
            require(change.is_back == is_late); // each hang once
            is_late = !is_late;
            check_line(change);
        }
        const WatchTime next = m_heartbeats.next_look(*m_told, m_now);
        require(next > m_now); // or else it would do nothing but look
        const std::uint32_t wait = m_heartbeats.time_to_next_look(*m_told, m_now);
        require(wait > 0 && (wait == HeartbeatWatch::WAIT_FOR_EVER) == (next == HeartbeatWatch::NEVER));
    }

    /// Whatever the process calls itself and its promise, it is one line.
    void check_line(const LateHeartbeat& change)
    {
        const std::string program = watched_program_text(*m_told);
        HangLine line{};
        line.program = program;
        line.process = IDENTITY.process;
        line.heartbeat = change.name;
        line.silence_ms = change.silence;
        line.is_back = change.is_back;
        char text[CRASH_LINE_SIZE];
        const std::string_view written = write_hang_line(text, line);
        require(is_inside(written, {text, sizeof text}) && written.size() > 1);
        const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' '; };
        const std::size_t end = written.find_first_of("\r\n");
        require(std::none_of(written.begin(), written.begin() + static_cast<std::ptrdiff_t>(end), is_control));
        require(written.find_first_not_of("\r\n", end) == std::string_view::npos);
    }

    void check_events()
    {
        const WatchedEvents events(*m_told);
        require(events.history.size() + events.errors.size() + events.warnings.size() <= WATCHED_EVENTS);
        SessionSnapshot snapshot;
        snapshot.history = events.history.view();
        snapshot.errors = events.errors.view();
        snapshot.warnings = events.warnings.view();
        UtcClock clock;
        Collected to;
        SessionWriter writer(to, clock);
        writer.put_lists(snapshot);
        writer.put_all_statistics(snapshot);
        to.flush();
        check_document(to.text);
    }

    /// Each element ends, and there is no character that a document may not have.
    static void check_document(std::wstring_view text)
    {
        std::vector<std::wstring_view> open;
        for (const wchar_t c : text)
            require(c >= L' ' || c == L'\t' || c == L'\n' || c == L'\r');
        for (std::size_t at = text.find(L'<'); at != std::wstring_view::npos; at = text.find(L'<', at + 1))
        {
            const std::wstring_view name = text.substr(at + 1, text.find_first_of(L" >", at + 1) - at - 1);
            if (name.front() != L'/')
                open.push_back(name);
            else
            {
                require(!open.empty() && open.back() == name.substr(1));
                open.pop_back();
            }
        }
        require(open.empty());
    }

    void check_names() const
    {
        for (const std::wstring& name :
             {watched_file_name(m_told->dump_name, std::size(m_told->dump_name), L"minidump-", L".dmp"),
              watched_file_name(m_told->report_name, std::size(m_told->report_name), L"crash-", L".xml"),
              watched_file_name(m_told->program, std::size(m_told->program))})
        {
            require(name.size() <= WATCH_NAME_SIZE && name.find_first_of(L"\\/:") == std::wstring::npos);
            require(name.find(L'\0') == std::wstring::npos);
        }
        const std::wstring folder = watched_folder(*m_told);
        require(folder.size() <= WATCH_FOLDER_SIZE && (folder.empty() || folder.back() == L'\\'));
        require(watched_text(m_told->program_path, std::size(m_told->program_path)).size() <= WATCH_PROGRAM_SIZE);
        require(watched_program_text(*m_told).size() <= WATCH_PROGRAM_SIZE);
    }

    void check_steps() const
    {
        constexpr std::uint32_t ALL = WATCH_LINE | WATCH_LAST_LINES | WATCH_REPORT;
        const std::uint32_t missing = missing_steps(*m_told, m_now);
        require((missing & ~ALL) == 0);
        require((missing & m_told->steps & ALL) == 0 || m_told->step_time != m_now);
    }

    WatchedProcess* m_told;
    HeartbeatWatch m_heartbeats;
    bool m_is_late[MOST_HEARTBEATS] = {};
    WatchTime m_now = 1'000'000;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Made once, as it is large, and on the heap, where nothing is behind it.
    static const std::unique_ptr<WatchedProcess> told = std::make_unique<WatchedProcess>();
    Input input(data, size);
    Watching watching(*told);
    while (!input.is_over())
        watching.run_one(input);
    watching.check_all();
    return 0;
}
