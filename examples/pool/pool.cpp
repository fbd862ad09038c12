// pool.cpp - a server that works for many clients at once: eight threads take requests for pages of an archive from one
// queue, and hand their second half on to whichever thread is free.

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kor_ClientScope.h"
#include "Kor_LogFile.h"
#include "Kor_LogLevel.h"

namespace
{
// The packages of this program. The `logger` file gives them their levels and rules.
constexpr int PACKAGE_READER = 310;  // finds pages
constexpr int PACKAGE_CLIENT = 330;  // serves clients
constexpr int PACKAGE_CONTROL = 340; // the server itself

constexpr int THREADS = 8;
constexpr int CLIENTS = 20;
constexpr int PAGES = 300; // of each album
constexpr DWORD DEFAULT_SECONDS = 600;
constexpr std::chrono::milliseconds BETWEEN_REQUESTS{5};

/// Threads that run what they are given, one task after the other.
class Pool
{
public:
    Pool()
    {
        for (int i = 1; i <= THREADS; ++i)
            m_threads.emplace_back([this, i] { work(i); });
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// Runs what is left, and ends.
    ~Pool()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ends = true;
        }
        m_changed.notify_all();
        for (std::thread& thread : m_threads)
            thread.join();
    }

    void run(std::function<void()> task)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        m_changed.notify_one();
    }

private:
    void work(int number)
    {
        KorGLog.SetThreadName(("Worker-" + std::to_string(number)).c_str());
        while (const std::function<void()> task = next())
            task();
    }

    /// Empty when there is nothing left to do.
    std::function<void()> next()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_ends || !m_tasks.empty(); });
        if (m_tasks.empty())
            return nullptr;
        std::function<void()> task = std::move(m_tasks.front());
        m_tasks.pop_front();
        return task;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_tasks;
    bool m_ends = false;
    std::vector<std::thread> m_threads;
};

struct Request
{
    std::string address;
    long session;
    int page;
};

void send_page(const Request& request)
{
    KOR_LOG(KorGLog, KOR_LEVEL_DEBUG, PACKAGE_CLIENT, "page %d goes out", request.page);
    if (request.page % 50 == 0)
        KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_CLIENT, "page %d took long", request.page);
}

void serve(Pool& pool, const Request& request)
{
    // From here on, lines of this thread and the rules of its levels are about this client.
    const Kor_ClientScope scope(request.address.c_str(), request.session);
    KOR_LOG(KorGLog, KOR_LEVEL_DEBUG, PACKAGE_READER, "looking for page %d", request.page);
    if (request.page == 1)
        KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CLIENT, "session %ld begins", request.session);

    pool.run(
        [request, client = Kor_ClientScope::Current()]
        {
            const Kor_ClientScope same(client); // on whichever thread this runs
            send_page(request);
        });
}

/// The clients ask for one page after the other, each at its own place.
void serve_until(HANDLE stop, DWORD seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    Pool pool;
    for (int number = 0; std::chrono::steady_clock::now() < end; ++number)
    {
        const int client = number % CLIENTS + 1;
        const int turn = number / CLIENTS;
        const Request request{"192.0.2." + std::to_string(client), 100L * client + turn / PAGES, turn % PAGES + 1};
        pool.run([&pool, request] { serve(pool, request); });
        if (::WaitForSingleObject(stop, static_cast<DWORD>(BETWEEN_REQUESTS.count())) == WAIT_OBJECT_0)
            return;
    }
}

HANDLE stop_event = nullptr;

BOOL WINAPI stop_on_ctrl_c(DWORD) { return ::SetEvent(stop_event); }
} // namespace

int main(int argc, char** argv)
{
    const DWORD seconds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : DEFAULT_SECONDS;
    if (argc > 2 || seconds < 1 || seconds > 86'400)
    {
        std::fprintf(
            stderr,
            "example_pool [SECONDS]\n\n"
            "Works for %d clients on %d threads, and writes to pool.log beside the `logger` file, in the\n"
            "folder that PRISMATE_LOG_DIR names. Ends at Ctrl-C, at \"example_control stop pool\", or after\n"
            "SECONDS, %lu if not given.\n",
            CLIENTS, THREADS, DEFAULT_SECONDS);
        return 2;
    }
    stop_event = ::CreateEventA(nullptr, TRUE, FALSE, "lumlog-host-pool");
    ::SetConsoleCtrlHandler(&stop_on_ctrl_c, TRUE);
    Kor_LogFile::NamePackage(PACKAGE_READER, "Reader"); // what LevelSync lists, and takes in place of the numbers
    Kor_LogFile::NamePackage(PACKAGE_CLIENT, "Client");
    Kor_LogFile::NamePackage(PACKAGE_CONTROL, "Control");
    KorGLog.Open("pool.log", "pool");
    KorGLog.SetThreadName("Main");
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CONTROL, "%d threads work for %d clients", THREADS, CLIENTS);
    serve_until(stop_event, seconds);
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CONTROL, "the pool stops");
    return 0;
}
