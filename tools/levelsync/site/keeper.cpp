#include "site/keeper.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "site/refusal.h"

namespace levelsync
{
namespace
{
class CopiedStore final : public SiteStore
{
public:
    explicit CopiedStore(std::shared_ptr<const SiteCopy> copy) : m_copy(std::move(copy)) {}

    SiteMark mark() override
    {
        require_good();
        return m_copy->read.mark;
    }

    SiteRead read(const std::optional<std::vector<std::string>>&) override
    {
        require_good();
        return m_copy->read;
    }

    std::vector<SiteValue> history(std::size_t most) override
    {
        const auto& all = m_copy->history;
        return {all.end() - static_cast<std::ptrdiff_t>(std::min(most, all.size())), all.end()};
    }

    std::optional<SiteValue> value(const std::string& key) override
    {
        for (const SiteValue& value : m_copy->read.values)
            if (value.key == key)
                return value;
        return std::nullopt;
    }

    std::vector<SiteMachine> machines() override { return m_copy->machines; }

    bool write(const std::vector<SiteWrite>&) override { refuse(); }
    void report(const std::string&, const std::string&) override { refuse(); }
    void leave(const std::string&, const std::string&) override { refuse(); }

private:
    void require_good() const
    {
        if (!m_copy->refusal.empty())
            throw Refusal(m_copy->refusal);
    }

    [[noreturn]] static void refuse() { throw std::logic_error("a copy of a site that is to be written to"); }

    std::shared_ptr<const SiteCopy> m_copy;
};

bool is_same(const std::vector<SiteMachine>& a, const std::vector<SiteMachine>& b)
{
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(),
        [](const SiteMachine& one, const SiteMachine& other)
        { return one.name == other.name && one.bytes == other.bytes && one.is_there == other.is_there; });
}

bool is_same(const std::optional<Failure>& a, const std::optional<Failure>& b)
{
    return a.has_value() == b.has_value() && (!a || std::string(a->what()) == b->what());
}

/// What is refused is read again when there is another state, and not with each look.
void bring_state_up_to_date(SiteStore& store, SiteCopy& copy, bool& is_other)
{
    SiteMark mark;
    try
    {
        mark = store.mark();
        if (copy.as_of != 0 && mark == copy.read.mark)
            return;
        is_other = true;
        copy.history = store.history(SiteKeeper::CHANGES_KEPT);
        copy.read = store.read(std::nullopt);
        copy.refusal.clear();
    }
    catch (const Refusal& refusal)
    {
        is_other = is_other || copy.refusal != refusal.what();
        copy.read = {mark, {}};
        copy.refusal = refusal.what();
    }
}

/// Reads what is no longer as in the copy. is_other is set when anything was, also where the rest could not be read.
void bring_up_to_date(SiteStore& store, SiteCopy& copy, bool& is_other)
{
    bring_state_up_to_date(store, copy, is_other);
    copy.as_of = now();
    std::vector<SiteMachine> machines = store.machines();
    is_other = is_other || !is_same(machines, copy.machines);
    copy.machines = std::move(machines);
}
} // namespace

std::unique_ptr<SiteStore> open_copy(std::shared_ptr<const SiteCopy> copy)
{
    return std::make_unique<CopiedStore>(std::move(copy));
}

SiteKeeper::SiteKeeper(std::unique_ptr<SiteStore> store)
    : m_store(std::move(store)), m_wanted_at(::GetTickCount64()), m_thread([this] { run(); })
{
    std::unique_lock<std::mutex> lock(m_mutex);
    wait_for_round(lock, 1);
}

SiteKeeper::~SiteKeeper()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_is_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

SiteKeeper::Known SiteKeeper::known()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_wanted_at = ::GetTickCount64();
    return m_known;
}

void SiteKeeper::look_again()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // A look that is under way may have begun before what is to be seen.
    const std::uint64_t round = ++m_asked_round;
    m_changed.notify_all();
    wait_for_round(lock, round);
}

void SiteKeeper::wait_for_round(std::unique_lock<std::mutex>& lock, std::uint64_t round)
{
    m_changed.wait_for(lock, std::chrono::milliseconds(PATIENCE_MS), [&] { return m_done_round >= round; });
}

void SiteKeeper::run()
{
    for (std::uint64_t round = 0; wait_for_turn(round);)
    {
        look();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done_round = round;
        m_changed.notify_all();
    }
}

/// False when it is over. round: the last that somebody waits for.
bool SiteKeeper::wait_for_turn(std::uint64_t& round)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto is_called = [this] { return m_is_ending || m_asked_round > m_done_round; };
    do
        m_changed.wait_for(lock, std::chrono::milliseconds(LOOK_EVERY_MS), is_called);
    while (!is_called() && ::GetTickCount64() - m_wanted_at > WANTED_FOR_MS);
    round = m_asked_round;
    return !m_is_ending;
}

void SiteKeeper::look()
{
    auto copy = std::make_shared<SiteCopy>();
    std::optional<Failure> trouble;
    bool is_other = false;
    try
    {
        if (m_known.copy) // nobody else changes it
            *copy = *m_known.copy;
        bring_up_to_date(*m_store, *copy, is_other);
    }
    catch (const Failure& failure)
    {
        trouble = failure;
    }
    catch (const std::exception& error)
    {
        trouble = Failure(std::string("LevelSync ran into ") + error.what() + ".", "Please tell its makers.");
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!trouble || is_other)
        m_known.copy = std::move(copy);
    if (is_other || !is_same(trouble, m_known.trouble))
        ++m_known.number;
    m_known.trouble = std::move(trouble);
}
} // namespace levelsync
