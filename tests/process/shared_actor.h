// shared_actor.h - other processes of the machine, which do what a test tells them step by step, and
// the block that they share.

#ifndef KOR_TESTS_SHARED_ACTOR_H
#define KOR_TESTS_SHARED_ACTOR_H

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogConf.h"
#include "child.h"
#include "named_event.h"

/// The name under which this process, and so every one of the tests, looks for the machine's block.
std::string shared_block_name();

/// A mapping of the machine's block that was made, or opened, behind the library's back.
class BlockView
{
public:
    static constexpr DWORD SIZE = 4383776;

    /// Opens the block, or makes one of so many zero bytes.
    explicit BlockView(DWORD size = SIZE);
    BlockView(const BlockView&) = delete;
    BlockView& operator=(const BlockView&) = delete;
    ~BlockView();

    bool valid() const noexcept { return m_view != nullptr; }
    bool created() const noexcept { return m_created; }
    Kor_LogConf& conf() const noexcept { return *static_cast<Kor_LogConf*>(m_view); }
    unsigned char* bytes() const noexcept { return static_cast<unsigned char*>(m_view); }

private:
    HANDLE m_mapping;
    void* m_view;
    bool m_created;
};

/// A directory with a `logger` file in which package 3 has this level, and whose size limit tells the
/// file from others.
std::string logger_text(int level_of_package_3, int limit = 0, const std::string& more = {});

/// A process that works on the machine's block. Every step ends within 20 seconds or gives LOST.
class Actor
{
public:
    static constexpr int LOST = -1000;

    /// With a directory the process joins the block while it loads the library; without one it stays
    /// off until it is told. The environment adds to that, or takes away, as ChildOptions says.
    explicit Actor(
        const std::string& log_directory = {}, std::vector<std::pair<std::string, std::string>> environment = {});
    Actor(const Actor&) = delete;
    Actor& operator=(const Actor&) = delete;
    ~Actor();

    /// True when the process runs and has loaded the library.
    bool ready();

    int attach_static();                                    ///< the static form's result
    int attach();                                           ///< the result for the process's own log
    int read_shared();                                      ///< ReadSharedMemory
    int write_shared();                                     ///< WriteToSharedMemory
    int init(const std::string& log_directory);             ///< InitConf
    int update(const std::string& file, int times = 1);     ///< UpdateSMFromFile, so many times
    int level(int package);                                 ///< GetLogLevel
    int check(int package, int level);                      ///< CheckMsgLevel
    int up_to_date();                                       ///< IsCacheTableUpToDate
    int default_level(int package);                         ///< of the configuration in use
    int output();                                           ///< of the configuration in use
    int limit();                                            ///< of the configuration in use
    int custom_level(int package, int level, bool publish); ///< SetCustomLogLevel
    int set_ip(const std::string& ip);
    int view_byte(int offset); ///< of the block as attach_static mapped it
    int created();             ///< blocks that this process created since it runs

    /// From now on the library in that process sees a clock that stands at this millisecond since 1970.
    int stop_clock_at(std::uint64_t milliseconds);

    /// Starts a step that begins when the event is set. The next call has to be finish.
    void begin_init(const std::string& log_directory, const std::string& event);
    void begin_attach(const std::string& event);
    void begin_update(const std::string& file, int times);
    int finish();

    void kill() { m_child.kill(); }

    /// Ends the process and waits for that; what it wrote.
    ChildResult quit();

private:
    struct Board;
    struct Step;

    int run(const Step& step);
    void begin(const Step& step);

    std::string m_name;
    NamedEvent m_request;
    NamedEvent m_done;
    HANDLE m_mapping;
    Board* m_board;
    Child m_child;

    friend int run_actor(const std::string& name);
};

#endif // KOR_TESTS_SHARED_ACTOR_H
