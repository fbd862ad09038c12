// bounded.h - threads of a test that cannot hang it.

#ifndef KOR_TESTS_BOUNDED_H
#define KOR_TESTS_BOUNDED_H

#include <windows.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "named_event.h"

/// A thread that is to end by itself. When it has not within the limit, the whole process ends with
/// exit code 98: nothing that the thread still uses could be cleaned up.
class BoundedThread
{
public:
    explicit BoundedThread(std::function<void()> body, unsigned timeout_ms = 30000)
        : m_done(unique_name("thread-done")), m_timeout_ms(timeout_ms), m_thread(
                                                                            [this, work = std::move(body)]
                                                                            {
                                                                                work();
                                                                                m_done.set();
                                                                            })
    {
    }
    BoundedThread(const BoundedThread&) = delete;
    BoundedThread& operator=(const BoundedThread&) = delete;
    ~BoundedThread() { join(); }

    void join()
    {
        if (!m_thread.joinable())
            return;
        if (!m_done.wait(m_timeout_ms))
        {
            std::fputs("a thread of the test hangs\n", stderr);
            ::TerminateProcess(::GetCurrentProcess(), 98);
        }
        m_thread.join();
    }

    bool done() const noexcept { return m_done.wait(0); }

private:
    NamedEvent m_done;
    unsigned m_timeout_ms;
    std::thread m_thread;
};

/// Runs body on a thread of its own and waits for it.
inline void on_another_thread(std::function<void()> body, unsigned timeout_ms = 30000)
{
    BoundedThread(std::move(body), timeout_ms).join();
}

/// Runs body(0) to body(count - 1), each on a thread of its own, and waits for all.
inline void run_on_threads(int count, const std::function<void(int)>& body, unsigned timeout_ms = 30000)
{
    std::vector<std::unique_ptr<BoundedThread>> threads;
    for (int i = 0; i < count; ++i)
        threads.push_back(std::make_unique<BoundedThread>([&body, i] { body(i); }, timeout_ms));
}

#endif // KOR_TESTS_BOUNDED_H
