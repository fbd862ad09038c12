// session_events.cpp - any sequence of operations on the events of a session, beside a model that keeps it simple.

#include "core/session_events.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "require.h"

using kor::core::SessionEvent;
using kor::core::SessionEvents;
using kor::core::SessionStatistics;
using kor::core::Triple;

namespace
{
using Key = std::pair<std::wstring, std::wstring>;

/// Reads the operations off the input; zeros follow its end.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool is_over() const { return m_at >= m_size; }
    unsigned byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    unsigned below(unsigned limit) { return byte() % limit; }

    /// Of few texts, so that events meet.
    std::wstring text()
    {
        static const wchar_t* const TEXTS[] = {L"", L"a", L"b", L"ab"};
        return TEXTS[below(4)];
    }

    Key key()
    {
        Key key;
        key.first = text();
        key.second = text();
        return key;
    }

    std::uint32_t flags()
    {
        static const std::uint32_t FLAGS[] = {0x1, 0x2, 0x4, 0x8, 0x100, 0x200, 0x400, 0x5000};
        const unsigned chosen = byte();
        std::uint32_t flags = 0;
        for (unsigned i = 0; i < 8; ++i)
            if ((chosen >> i & 1) != 0)
                flags |= FLAGS[i];
        return flags;
    }

    std::uint32_t weight()
    {
        const unsigned chosen = byte();
        return chosen == 255 ? std::numeric_limits<std::uint32_t>::max() : chosen % 8;
    }

    /// The clock may be set, also back.
    std::uint64_t time()
    {
        const unsigned chosen = byte();
        return chosen == 255 ? std::numeric_limits<std::uint64_t>::max() : 1000 + chosen;
    }

    double number()
    {
        static const double NUMBERS[] = {0, 1, -1, 2.5, 1e308, -1e308, std::numeric_limits<double>::infinity(), 1e-308};
        return NUMBERS[below(8)];
    }

    Triple triple() { return {number(), number(), number()}; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

/// The same once more, in lists that are searched from one end to the other.
struct Model
{
    struct Entry
    {
        Key key;
        SessionEvent event;
    };

    std::vector<Entry> context;
    std::vector<SessionEvent> history;
    std::vector<std::pair<Key, SessionStatistics>> statistics;
    std::vector<std::pair<Key, Key>> aliases; ///< the latest of an identity counts
    std::vector<std::pair<Key, std::uint64_t>> times;
    std::size_t history_size = 128;

    void sort_context()
    {
        std::sort(context.begin(), context.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
    }

    Entry* find(const Key& key)
    {
        for (Entry& entry : context)
            if (entry.key == key)
                return &entry;
        return nullptr;
    }

    template <class Value>
    static const Value* latest(const std::vector<std::pair<Key, Value>>& list, const Key& key)
    {
        const Value* found = nullptr;
        for (const auto& entry : list)
            if (entry.first == key)
                found = &entry.second;
        return found;
    }

    void add_history(const SessionEvent& event)
    {
        if ((event.flags & 0x4) != 0)
            return;
        history.push_back(event);
        if (history.size() > history_size)
            history.erase(history.begin(), history.end() - static_cast<std::ptrdiff_t>(history_size));
    }

    static Triple mixed(const Triple& before, double x, double n, double k)
    {
        if (n == 0)
            return {x, x, x};
        return {x < before.min ? x : before.min, (k * x + n * before.avg) / (k + n), x > before.max ? x : before.max};
    }

    void count(const Key& identity, const SessionEvent& event)
    {
        if ((event.flags & 0x100) == 0)
            return;
        const Key* const alias = latest(aliases, identity);
        const Key& key = alias != nullptr ? *alias : identity;
        const double d = static_cast<double>(event.end_time) - static_cast<double>(event.begin_time);
        const double w = event.weight;
        const double u = event.weight == 0 ? d : d / w;
        const bool is_span = (event.flags & 0x600) == 0x600;
        for (auto& [known, record] : statistics)
        {
            if (known != key)
                continue;
            const auto c = static_cast<double>(record.count);
            if (is_span)
            {
                double n = std::trunc(c * record.weight.avg);
                if (!(n > 0))
                    n = 0;
                else if (n > 18446744073709551615.0)
                    n = 18446744073709551615.0;
                record.unit_time = mixed(record.unit_time, u, n, w);
                record.total_time = mixed(record.total_time, d, c, 1);
            }
            record.weight = mixed(record.weight, w, c, 1);
            ++record.count;
            return;
        }
        SessionStatistics record;
        record.type = key.first;
        record.subject = key.second;
        record.count = 1;
        record.weight = {w, w, w};
        if (is_span)
        {
            record.total_time = {d, d, d};
            record.unit_time = {u, u, u};
        }
        statistics.emplace_back(key, record);
    }

    void finish(const Key& key, const SessionEvent& event)
    {
        count(key, event);
        add_history(event);
    }

    void put(const Key& key, const SessionEvent& event)
    {
        if (Entry* const entry = find(key))
            entry->event = event;
        else
            context.push_back({key, event});
        sort_context();
    }

    void end(const Key& key, SessionEvent event, std::uint64_t now)
    {
        event.end_time = now;
        Entry* const entry = find(key);
        if (entry == nullptr || (entry->event.flags & 0x200) == 0)
        {
            event.flags &= ~0x600u;
            finish(key, event);
            return;
        }
        SessionEvent& span = entry->event;
        if ((span.flags & 0x400) != 0)
        {
            add_history(event);
            return;
        }
        span.weight = event.weight == 0 ? span.weight : event.weight;
        span.info += event.info;
        span.end_time = now;
        span.flags |= event.flags & 0x103;
        span.flags |= 0x400;
        count(key, span);
        span.flags &= ~0x100u;
        if ((span.flags & 0x3) != 0)
            return;
        add_history(span);
        context.erase(context.begin() + (entry - context.data()));
    }

    void report(SessionEvent event, std::uint64_t now)
    {
        const Key key((event.type), (event.flags & 0x2) != 0 ? L"" : event.subject);
        const Entry* const entry = find(key);
        if ((event.flags & 0x400) != 0)
        {
            end(key, event, now);
        }
        else if ((event.flags & 0x200) != 0)
        {
            event.begin_time = now;
            if (entry != nullptr && (entry->event.flags & 0x1) != 0 && (event.flags & 0x1) == 0)
            {
                event.flags &= ~0x600u;
                finish(key, event);
                return;
            }
            if (entry != nullptr)
                finish(key, entry->event);
            put(key, event);
        }
        else
        {
            event.begin_time = event.end_time = now;
            if ((event.flags & 0x3) == 0)
            {
                finish(key, event);
                return;
            }
            if (entry != nullptr)
            {
                SessionEvent old = entry->event;
                old.flags &= ~0x600u;
                finish(key, old);
            }
            put(key, event);
        }
    }

    void remove(const std::wstring* type, const std::wstring* subject, bool include_spans)
    {
        const Key first(type == nullptr ? L"" : *type, subject == nullptr ? L"" : *subject);
        std::vector<Entry> left;
        bool walking = true;
        for (const Entry& entry : context)
        {
            const bool begun = !(entry.key < first);
            const bool matches =
                (type == nullptr || entry.key.first == *type) && (subject == nullptr || entry.key.second == *subject);
            if (begun && !matches)
                walking = false;
            if (!begun || !walking || (!include_spans && (entry.event.flags & 0x3) == 0))
            {
                left.push_back(entry);
                continue;
            }
            SessionEvent event = entry.event;
            if ((event.flags & 0x200) != 0)
                event.flags &= ~0x600u;
            finish(entry.key, event);
        }
        context = left;
    }

    void load_statistics(const SessionStatistics& loaded)
    {
        const Key key(loaded.type, loaded.subject);
        for (auto& [known, record] : statistics)
        {
            if (known == key)
            {
                record = loaded;
                return;
            }
        }
        statistics.emplace_back(key, loaded);
    }
};

bool same(double a, double b) { return a == b; }

bool same(const Triple& a, const Triple& b) { return same(a.min, b.min) && same(a.avg, b.avg) && same(a.max, b.max); }

bool same(const SessionEvent& a, const SessionEvent& b)
{
    const auto all = [](const SessionEvent& event)
    {
        return std::tie(
            event.type, event.subject, event.flags, event.weight, event.begin_time, event.end_time, event.info);
    };
    return all(a) == all(b);
}

bool same(const SessionStatistics& a, const SessionStatistics& b)
{
    return a.type == b.type && a.subject == b.subject && a.count == b.count && same(a.weight, b.weight) &&
           same(a.total_time, b.total_time) && same(a.unit_time, b.unit_time);
}

void compare(const SessionEvents& events, const Model& model)
{
    require(events.history().size() == model.history.size());
    require(std::equal(
        model.history.begin(), model.history.end(), events.history().begin(),
        [](const SessionEvent& a, const SessionEvent& b) { return same(a, b); }));

    require(events.context().size() == model.context.size());
    auto entry = events.context().begin();
    for (const Model::Entry& expected : model.context)
    {
        require(entry->first.type == expected.key.first && entry->first.subject == expected.key.second);
        require(same(entry->second, expected.event));
        ++entry;
    }

    require(events.statistics().size() == model.statistics.size());
    const Key* last = nullptr;
    Key keys[2];
    std::size_t number = 0;
    for (const auto& [id, record] : events.statistics())
    {
        Key& key = keys[number++ % 2];
        key = Key(id.type, id.subject);
        require(last == nullptr || *last < key); // in their order, and each once
        last = &key;
        const SessionStatistics* const expected = Model::latest(model.statistics, key);
        require(expected != nullptr && same(record, *expected));
    }
}

/// Loaded numbers are never NaN, and then nothing else is.
void check_numbers(const SessionEvents& events)
{
    for (const auto& entry : events.statistics())
        for (const Triple* const triple : {&entry.second.weight, &entry.second.total_time, &entry.second.unit_time})
            require(!std::isnan(triple->min) && !std::isnan(triple->avg) && !std::isnan(triple->max));
}

SessionEvent read_event(Input& input)
{
    SessionEvent event;
    std::tie(event.type, event.subject) = input.key();
    event.flags = input.flags();
    event.weight = input.weight();
    event.info = input.text();
    return event;
}

void load_event(Input& input, SessionEvents& events, Model& model)
{
    SessionEvent event = read_event(input);
    event.begin_time = input.time();
    event.end_time = input.time();
    const Key key(event.type, event.subject);
    if (model.find(key) == nullptr)
        model.put(key, event);
    events.load_context(std::move(event));
}

void load_statistics(Input& input, SessionEvents& events, Model& model)
{
    SessionStatistics record;
    std::tie(record.type, record.subject) = input.key();
    record.count = input.below(4) == 0 ? std::numeric_limits<std::uint64_t>::max() - 1 : input.byte();
    record.weight = input.triple();
    record.total_time = input.triple();
    record.unit_time = input.triple();
    model.load_statistics(record);
    events.load_statistics(std::move(record));
}

void remove(Input& input, SessionEvents& events, Model& model)
{
    const unsigned given = input.byte();
    const auto [type, subject] = input.key();
    const bool has_type = (given & 1) != 0;
    const bool has_subject = (given & 2) != 0;
    const bool include_spans = (given & 4) != 0;
    events.remove_from_context(
        has_type ? type.c_str() : nullptr, has_subject ? subject.c_str() : nullptr, include_spans);
    model.remove(has_type ? &type : nullptr, has_subject ? &subject : nullptr, include_spans);
}

void run_one(Input& input, SessionEvents& events, Model& model)
{
    switch (input.below(16))
    {
    case 0:
        remove(input, events, model);
        break;
    case 1:
    {
        const Key from = input.key();
        const Key to = input.key();
        events.set_alias({from.first, from.second}, {to.first, to.second});
        model.aliases.emplace_back(from, to);
        break;
    }
    case 2:
        model.history_size = input.below(8);
        events.set_history_size(static_cast<std::uint32_t>(model.history_size));
        break;
    case 3:
    {
        const Key key = input.key();
        const std::uint64_t now = input.time();
        events.set_time({key.first, key.second}, now);
        model.times.emplace_back(key, now);
        const Key asked = input.key();
        const std::uint64_t* const time = Model::latest(model.times, asked);
        require(events.time_of({asked.first, asked.second}) == (time == nullptr ? 0 : *time));
        break;
    }
    case 4:
        load_event(input, events, model);
        break;
    case 5:
        load_statistics(input, events, model);
        break;
    case 6:
    {
        const SessionEvent event = read_event(input);
        model.add_history(event);
        events.add_history(SessionEvent(event));
        break;
    }
    case 7:
    {
        const std::size_t before = events.errors().size();
        events.report_error(read_event(input));
        events.report_warning(read_event(input));
        require(events.errors().size() == before + 1 && events.warnings().size() == before + 1);
        break;
    }
    default:
    {
        SessionEvent event = read_event(input);
        const std::uint64_t now = input.time();
        model.report(event, now);
        events.report(std::move(event), now);
    }
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    SessionEvents events(7);
    Model model;
    while (!input.is_over())
    {
        run_one(input, events, model);
        compare(events, model);
        check_numbers(events);
    }
    require(events.history_size() == model.history_size && events.statistics_start() == 7);
    return 0;
}
