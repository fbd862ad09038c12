// lumlog_capture.hpp - for unit tests of code that logs: what it has logged, with nothing of the machine in between.
//
//     lum::Capture log;
//     load("front.png");
//     EXPECT_EQ(log.count(LUM_ERROR, 310), 1);
//     EXPECT_TRUE(log.contains("cannot read front.png"));
//
// While a capture is there, the process goes by it alone: each package logs up to the level that the capture names,
// whatever a `logger` file or another program of the machine says; nothing is published; and nothing is written to a file,
// the console or the event log. It needs no file and no folder. Messages by KOR_LOG and by the functions of lumlog.h are
// captured as well as those by LUM_LOG.

#ifndef LUMLOG_CAPTURE_HPP
#define LUMLOG_CAPTURE_HPP

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "lumlog.h"

namespace lum
{
/// A message as it was logged.
struct CapturedMessage
{
    int level = 0;
    int package = 0;
    std::string text;     ///< without the newline at its end
    std::string headline; ///< what would stand in front of it; empty for a bare line
    std::string file;     ///< without its path
    std::string function;
    int line = 0; ///< 0: no place is known
    unsigned int thread = 0;
};

/// The messages of this process from its construction to its end. One at a time; to be made and ended while no other
/// thread logs, or sets levels. Everything else may be called from any thread. May throw std::bad_alloc.
class Capture
{
public:
    /// level: up to which all packages log. Throws std::logic_error where there is a capture already.
    explicit Capture(int level = LUM_DEBUG) : m_only(is_in_use())
    {
        m_conf.reset(::lum_conf_default());
        for (int package = 0; m_conf != nullptr && package < LUM_PACKAGE_COUNT; ++package)
            ::lum_conf_set_level(m_conf.get(), package, level);
        isolate();
        m_destination = ::lum_add_destination(&Capture::receive, this);
        if (m_destination != nullptr)
            return;
        ::lum_isolate(nullptr);
        throw std::bad_alloc();
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    ~Capture()
    {
        ::lum_remove_destination(m_destination);
        ::lum_isolate(nullptr);
    }

    /// Another level for one package, from now on. Throws std::invalid_argument for numbers that are none.
    void set_level(int package, int level)
    {
        if (::lum_conf_set_level(m_conf.get(), package, level) != LUM_OK)
            throw std::invalid_argument("lum::Capture: no package or no level has this number");
        isolate();
    }

    /// A package's rules, as they stand in a `logger` file: "[(7;192.0.2.7)]".
    void set_rules(int package, const char* rules)
    {
        if (::lum_conf_set_rules(m_conf.get(), package, rules) != LUM_OK)
            throw std::invalid_argument("lum::Capture: no package has this number");
        isolate();
    }

    /// All so far, in the order in which they were logged.
    std::vector<CapturedMessage> messages() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_messages;
    }

    /// Their texts.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> texts;
        for (CapturedMessage& message : messages())
            texts.push_back(std::move(message.text));
        return texts;
    }

    /// How many there are of a package, or all; of this level.
    std::size_t count(int level, int package = ANY) const
    {
        return count_if([=](const CapturedMessage& message)
                        { return message.level == level && (package == ANY || message.package == package); });
    }

    /// True when the text of one of them has this in it.
    bool contains(std::string_view part) const
    {
        return count_if([=](const CapturedMessage& message)
                        { return std::string_view(message.text).find(part) != std::string_view::npos; }) != 0;
    }

    /// Forgets them.
    void clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.clear();
    }

    static constexpr int ANY = -1;

private:
    struct Free
    {
        void operator()(lum_conf* conf) const noexcept { ::lum_conf_free(conf); }
    };

    /// Holds the process's one place for a capture.
    class Only
    {
    public:
        explicit Only(bool& in_use) : m_in_use(in_use)
        {
            if (m_in_use)
                throw std::logic_error("lum::Capture: there is one already");
            m_in_use = true;
        }
        Only(const Only&) = delete;
        Only& operator=(const Only&) = delete;
        ~Only() { m_in_use = false; }

    private:
        bool& m_in_use;
    };

    static bool& is_in_use()
    {
        static bool in_use = false;
        return in_use;
    }

    void isolate()
    {
        if (m_conf == nullptr || ::lum_isolate(m_conf.get()) != LUM_OK)
            throw std::bad_alloc();
    }

    template <class Fits>
    std::size_t count_if(Fits fits) const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<std::size_t>(std::count_if(m_messages.begin(), m_messages.end(), fits));
    }

    static int LUM_CALL receive(void* self, const lum_message* message)
    {
        static_cast<Capture*>(self)->add(*message);
        return LUM_OK;
    }

    void add(const lum_message& from)
    {
        CapturedMessage message;
        message.level = from.level;
        message.package = from.package;
        message.text.assign(from.text, from.length);
        while (!message.text.empty() && (message.text.back() == '\n' || message.text.back() == '\r'))
            message.text.pop_back();
        message.headline.assign(from.headline, from.headline_length);
        message.file = from.file;
        message.function = from.function;
        message.line = from.line;
        message.thread = from.thread;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.push_back(std::move(message));
    }

    const Only m_only;
    std::unique_ptr<lum_conf, Free> m_conf;
    mutable std::mutex m_mutex;
    std::vector<CapturedMessage> m_messages;
    lum_destination* m_destination = nullptr;
};
} // namespace lum

#endif // LUMLOG_CAPTURE_HPP
