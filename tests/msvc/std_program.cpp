// A program for the ABI of Microsoft's compiler, with a standard library, threads and exceptions: all that it knows of
// LUMlog is lumlog.hpp and the import library. Tells of each check that failed, and ends with their number.

#include "lumlog.hpp"

#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <windows.h>

namespace
{
constexpr int PACKAGE = 310;
constexpr int COUNTED_PACKAGE = 311;
int failed = 0;

void check(bool holds, const char* what, int line)
{
    if (holds)
        return;
    std::printf("std_program.cpp(%d): %s\n", line, what);
    ++failed;
}
#define CHECK(condition) check(condition, #condition, __LINE__)

std::string client_of_thread()
{
    const lum::Client client = lum::Client::current();
    return client.get() == nullptr ? "the process's" : "its own";
}

std::string name_of_thread()
{
    char name[64];
    lum_thread_name(name, sizeof name);
    return name;
}

/// False when a lock was left behind.
bool another_thread_can_log()
{
    std::atomic<bool> logged{false};
    HANDLE const done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread other(
        [&]
        {
            LUM_LOG(LUM_WARNING, PACKAGE, "from another thread");
            logged = true;
            SetEvent(done);
        });
    const bool in_time = WaitForSingleObject(done, 20000) == WAIT_OBJECT_0;
    if (!in_time) // it can't be joined
    {
        CHECK(in_time);
        std::fflush(stdout);
        TerminateProcess(GetCurrentProcess(), 99);
    }
    other.join();
    CloseHandle(done);
    return logged;
}

// Texts ------------------------------------------------------------------------------------------------------------------
void check_texts()
{
    const std::string title = "front.png";
    LUM_LOG(LUM_WARNING, PACKAGE, "%s has %d pages of %.1f MB", title.c_str(), 3, 2.5);
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE, title + " and 100% more");
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE, std::string_view(title).substr(0, 5));
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE, std::wstring_view(L"wide \u65e5"));
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE, std::u16string(u"sixteen \u65e5"));
    const std::filesystem::path path = std::filesystem::path(L"albums") / L"f\u00fcr Seite 1.png";
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE, path);
    LUM_LOG(LUM_WARNING, PACKAGE, "the name of it is %s", lum::utf8(path.filename()).c_str());
    LUM_LOG_HEX(LUM_WARNING, PACKAGE, "header", std::vector<unsigned char>{0x89, 'P', 'N', 'G'});
    LUM_LOG_ERROR(LUM_WARNING, PACKAGE, 5, "cannot read " + title);
    LUM_LOG_FORMAT(LUM_WARNING, PACKAGE, "{} of {} in {}", 12, 17, path);
}

// Levels -----------------------------------------------------------------------------------------------------------------
void check_levels()
{
    int evaluated = 0;
    const auto evaluate = [&] { return ++evaluated; };
    LUM_LOG(LUM_INFO, PACKAGE, "not wanted %d", evaluate());
    CHECK(evaluated == 0);
    std::thread([] { CHECK(lum_set_level(PACKAGE, LUM_INFO, 1) == LUM_OK); }).join();
    LUM_LOG(LUM_INFO, PACKAGE, "wanted now %d", evaluate());
    CHECK(evaluated == 1);
    std::thread([] { CHECK(lum_set_level(PACKAGE, LUM_WARNING, 1) == LUM_OK); }).join();
    LUM_LOG(LUM_INFO, PACKAGE, "not wanted any more %d", evaluate());
    CHECK(evaluated == 1);
}

// Threads ----------------------------------------------------------------------------------------------------------------
void check_threads()
{
    constexpr int THREADS = 4;
    constexpr int LINES = 50;
    std::atomic<int> received{0};
    std::atomic<int> named{0};
    const std::function<void(const lum_message&)> receive = [&](const lum_message& message)
    {
        received += message.package == COUNTED_PACKAGE ? 1 : 0;
        named += std::string_view(message.headline).find("|Reader") != std::string_view::npos ? 1 : 0;
    };
    {
        const lum::Destination counter(receive);
        CHECK(counter.added());
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i)
            threads.emplace_back(
                [i]
                {
                    LUM_LOG_ONCE(LUM_WARNING, PACKAGE, "once for all threads");
                    const lum::ThreadName name("Reader " + std::to_string(i));
                    for (int line = 0; line < LINES; ++line)
                        LUM_LOG(LUM_WARNING, COUNTED_PACKAGE, "thread %d, line %d", i, line);
                });
        for (std::thread& thread : threads)
            thread.join();
    }
    CHECK(received == THREADS * LINES);
    CHECK(named == THREADS * LINES);
}

// Exceptions of the program's own ----------------------------------------------------------------------------------------
void read_page(int page)
{
    const lum::ClientScope client("192.0.2.7", page);
    const lum::Timer timer("read page");
    LUM_LOG(LUM_WARNING, PACKAGE, "reads page %d", page);
    if (page == 2)
        throw std::runtime_error("page 2 is torn");
}

void read_album(const char* title)
{
    const lum::ThreadName name(title);
    const lum::ClientScope client("192.0.2.1");
    for (int page = 1; page < 4; ++page)
        read_page(page);
}

void check_own_exceptions()
{
    std::string caught;
    try
    {
        read_album("Album");
    }
    catch (const std::logic_error&)
    {
        caught = "another type";
    }
    catch (const std::exception& error)
    {
        caught = error.what();
        LUM_LOG(LUM_WARNING, PACKAGE, "caught: %s", error.what());
    }
    CHECK(caught == "page 2 is torn");
    CHECK(client_of_thread() == "the process's");
    CHECK(name_of_thread().empty());

    // On another thread, and from there to here.
    std::exception_ptr passed;
    std::thread(
        [&]
        {
            try
            {
                read_album("Second");
            }
            catch (...)
            {
                passed = std::current_exception();
            }
            CHECK(client_of_thread() == "the process's" && name_of_thread().empty());
        })
        .join();
    caught.clear();
    try
    {
        std::rethrow_exception(passed);
    }
    catch (const std::runtime_error& error)
    {
        caught = error.what();
    }
    CHECK(caught == "page 2 is torn");
}

// Destinations that throw ------------------------------------------------------------------------------------------------
int LUM_CALL throw_runtime_error(void* calls, const lum_message* message)
{
    ++*static_cast<int*>(calls);
    throw std::runtime_error("raw: " + std::string(message->text, message->length));
}

int LUM_CALL throw_number(void* calls, const lum_message*)
{
    ++*static_cast<int*>(calls);
    throw 7;
}

/// True when nothing of what is thrown in a destination comes back here.
bool write_unharmed(const char* text)
{
    try
    {
        LUM_LOG_TEXT(LUM_WARNING, PACKAGE, text);
        return true;
    }
    catch (...)
    {
        return false;
    }
}

void check_destinations_that_throw()
{
    {
        int calls = 0;
        const lum::Destination disk(std::function<void(const lum_message&)>(
            [&](const lum_message&)
            {
                ++calls;
                throw std::runtime_error("disk full");
            }));
        CHECK(write_unharmed("to a std::function that throws"));
        CHECK(calls == 1);
        CHECK(another_thread_can_log());
    }
    for (const lum_receive receive : {&throw_runtime_error, &throw_number})
    {
        int calls = 0;
        lum_destination* const destination = lum_add_destination(receive, &calls);
        CHECK(write_unharmed("to a function of C that throws"));
        CHECK(calls == 1);
        CHECK(std::uncaught_exceptions() == 0);
        CHECK(another_thread_can_log());
        lum_remove_destination(destination);
    }
    // In the middle of an exception of the program's own.
    int calls = 0;
    lum_destination* const destination = lum_add_destination(&throw_runtime_error, &calls);
    std::string caught;
    try
    {
        struct Writes
        {
            ~Writes() { LUM_LOG(LUM_WARNING, PACKAGE, "while an exception is on its way"); }
        } writes;
        throw std::out_of_range("page 9 of 8");
    }
    catch (const std::out_of_range& error)
    {
        caught = error.what();
    }
    CHECK(caught == "page 9 of 8" && calls == 1);
    lum_remove_destination(destination);
    LUM_LOG(LUM_WARNING, PACKAGE, "without a destination");
}

// Structured exceptions through the DLL ----------------------------------------------------------------------------------
int LUM_CALL read_from_nowhere(void*, const lum_message*) { return *reinterpret_cast<volatile int*>(8); }

/// A structured exception runs no destructor here, as it would not with the options that Microsoft's compiler is called with.
void write_for_a_client()
{
    const lum_uint64 entry = lum_client_enter("192.0.2.9", 0);
    __try
    {
        LUM_LOG(LUM_WARNING, PACKAGE, "to a destination that crashes");
    }
    __finally
    {
        lum_client_leave(entry);
    }
}

/// The code of what comes as far as the program's own handler.
unsigned long code_of(void (*write)())
{
    unsigned long code = 0;
    __try
    {
        write();
    }
    __except (code = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER)
    {
        return code;
    }
    return 0;
}

void write_from_nowhere()
{
    static const lum_site wild = {sizeof(lum_site), 1, reinterpret_cast<const char*>(8), nullptr};
    lum_write(&wild, LUM_WARNING, PACKAGE, "never", LUM_ZT);
}

void check_structured_exceptions()
{
    CHECK(code_of(&write_from_nowhere) == EXCEPTION_ACCESS_VIOLATION);
    CHECK(another_thread_can_log());

    lum_destination* const destination = lum_add_destination(&read_from_nowhere, nullptr);
    CHECK(code_of(&write_for_a_client) == EXCEPTION_ACCESS_VIOLATION);
    lum_remove_destination(destination);
    CHECK(client_of_thread() == "the process's");
    CHECK(another_thread_can_log());
}

// Static objects ---------------------------------------------------------------------------------------------------------
class Archive
{
public:
    explicit Archive(const char* name) : m_name(name) {}
    ~Archive() { LUM_LOG(LUM_WARNING, PACKAGE, "%s is closed", m_name.c_str()); }
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    std::string m_name;
};

const Archive archive("the archive of a static object");
} // namespace

int main()
{
    CHECK(lum_open("std.log", "std") == LUM_OK);
    CHECK(lum_monitor_open("perfmon.log", "std") == LUM_OK);
    static const Archive second("the archive of a function");
    check_texts();
    check_levels();
    check_threads();
    check_own_exceptions();
    check_destinations_that_throw();
    check_structured_exceptions();
    return failed;
}
