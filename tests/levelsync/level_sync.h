// level_sync.h - LevelSync.exe as somebody calls it, in a folder with a level file, and hosts that obey that file.

#ifndef KOR_TESTS_LEVEL_SYNC_H
#define KOR_TESTS_LEVEL_SYNC_H

#include <windows.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "child.h"
#include "named_event.h"
#include "temp_directory.h"

/// What a call came to.
struct Ran
{
    bool finished = false; ///< false: it was still running when the test's patience ended
    int exit_code = -1;
    std::string out; ///< as it stands on the screen, "\n" at the ends of lines
    std::string err;

    /// What the report of --json has at a JSON pointer, as JSON: at("/packages/0/level") is "5", at("/file") has its
    /// quotes. "(none)" where it has nothing there, "(no JSON)" for an output that is none.
    std::string at(const std::string& pointer) const;

    /// How many a list or an object of the report has; -1 where there is none.
    int size(const std::string& pointer) const;

    bool says(const std::string& text) const { return out.find(text) != std::string::npos; }
    bool warns(const std::string& text) const { return err.find(text) != std::string::npos; }
};

/// For the message of a failed expectation.
std::ostream& operator<<(std::ostream& to, const Ran& ran);

/// A process of the suite: it has loaded the library, works on the machine's block, and does what the test asks, one
/// step after the other. Each step ends within 20 seconds.
class Host
{
public:
    static constexpr int LOST = -1000; ///< the host did not answer

    /// Joins the block while it loads the library. The application's name is that of its log, NAME.log in the folder.
    Host(
        const std::string& folder, const std::string& name,
        std::vector<std::pair<std::string, std::string>> environment = {});
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    unsigned long pid() const noexcept { return m_child.pid(); }
    const std::string& name() const noexcept { return m_name; }

    /// The level in force for that package in this process, as GetLogLevel has it.
    int level(int package);

    /// Of all 750, in one step.
    std::vector<int> levels();

    /// The configuration in use.
    int output();
    int size_limit();

    /// Names client and session; an empty client is none.
    void serve(const std::string& client, long session = 0);

    /// Writes a message of that level for that package. True when it was wanted.
    bool write(int package, int level, const std::string& text);

    /// Ends it and waits for that.
    void stop();

    /// Ends it as a crash would, with nothing left to be done.
    void kill() { m_child.kill(); }

private:
    std::string ask(const std::string& request);

    std::string m_name;
    std::string m_channel;
    NamedEvent m_request;
    NamedEvent m_done;
    HANDLE m_mapping;
    char* m_board;
    Child m_child;
};

/// A folder with a level file, in which LevelSync is called as a person would.
class Site
{
public:
    /// Three packages: Reader 310 at 5, Replay 320 at 6, Client 330 at 5 and at 6 for the application archive; Control
    /// 340 at 4.
    static const std::string LOGGER;

    explicit Site(const std::string& logger = LOGGER);

    const std::string& path() const noexcept { return m_folder.path(); }
    std::string path(const std::string& name) const { return m_folder.file(name); }

    /// The bytes of the level file, and of any other.
    std::string logger() const { return read_file(path("logger")); }
    void configure(const std::string& logger) const { write_file(path("logger"), logger); }
    std::string file(const std::string& name) const { return read_file(path(name)); }

    /// The names of all files in the folder, sorted.
    std::vector<std::string> files() const;

    /// Calls LevelSync with PRISMATE_LOG_DIR naming the folder, and waits for its end.
    Ran run(const std::vector<std::string>& words) const;

    /// The same with one line of words that have no blanks: run("set replay 7 --client 192.0.2.7").
    Ran run(const std::string& line) const;

    /// The same on a machine that refuses something; see fault/main.cpp for what.
    Ran run_with(const std::string& fault, const std::string& line) const;

    /// Starts it and leaves it running. environment: added to that of the call.
    std::unique_ptr<Child>
    start(const std::string& line, std::vector<std::pair<std::string, std::string>> environment = {}) const;

    /// The options that start() and run() give.
    ChildOptions options(const std::vector<std::string>& words) const;

    /// A host of this folder. It lives as long as the returned object.
    std::unique_ptr<Host>
    host(const std::string& name, std::vector<std::pair<std::string, std::string>> environment = {}) const
    {
        return std::make_unique<Host>(path(), name, std::move(environment));
    }

private:
    TempDirectory m_folder;
};

/// The path of the built LevelSync.exe.
std::string level_sync_program();

/// The same program on a machine that refuses what the variable LEVELSYNC_FAULT names; see fault/main.cpp.
std::string level_sync_with_faults();

/// A text with one blank for several: where comments stand that were moved for a rule that came and went.
std::string without_columns(const std::string& text);

/// What has become of a call that was started.
Ran ran(const Child& child, unsigned timeout_ms);

/// The words of a line, which are parted by blanks.
std::vector<std::string> words_of(const std::string& line);

/// Asks until it is so, but no longer than that: for what another process does in its own time.
template <class Condition>
bool comes_true(Condition condition, unsigned timeout_ms = 20000)
{
    const ULONGLONG end = ::GetTickCount64() + timeout_ms;
    while (!condition())
    {
        if (::GetTickCount64() >= end)
            return false;
        ::Sleep(10);
    }
    return true;
}

#endif // KOR_TESTS_LEVEL_SYNC_H
