#include "shared_actor.h"

#include <cstdlib>
#include <cstring>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "environment.h"
#include "import_hook.h"

KOR_IMPORT(OpenFileMappingA);
KOR_IMPORT(CreateFileMappingA);
KOR_IMPORT(GetSystemTimeAsFileTime);

namespace
{
constexpr unsigned STEP_LIMIT_MS = 20000;

enum class Action : int
{
    READY,
    ATTACH_STATIC,
    ATTACH,
    READ_SHARED,
    WRITE_SHARED,
    INIT,
    UPDATE,
    LEVEL,
    CHECK,
    UP_TO_DATE,
    DEFAULT_LEVEL,
    OUTPUT,
    LIMIT,
    CUSTOM_LEVEL,
    SET_IP,
    VIEW_BYTE,
    CREATED,
    STOP_CLOCK,
    QUIT,
};
} // namespace

// The block -----------------------------------------------------------------------------------------

namespace
{
/// Lets the library look for the block, and find nothing.
std::string name_looked_for()
{
    std::string name;
    const Hook<OpenFileMappingAImport> open(
        [&name](DWORD, BOOL, LPCSTR asked) -> HANDLE
        {
            if (name.empty())
                name = asked;
            ::SetLastError(ERROR_FILE_NOT_FOUND);
            return nullptr;
        });
    const Hook<CreateFileMappingAImport> create(
        [](HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCSTR) -> HANDLE { return nullptr; });
    const CapturedStream report(stderr); // that nothing was created
    void* view = nullptr;
    Kor_LogFile::AttachSharedMemory(&view);
    return name;
}
} // namespace

std::string shared_block_name()
{
    static const std::string name = name_looked_for();
    return name;
}

BlockView::BlockView(DWORD size) : m_mapping(nullptr), m_view(nullptr), m_created(false)
{
    const std::string name = shared_block_name();
    m_mapping = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, name.c_str());
    m_created = m_mapping != nullptr && ::GetLastError() != ERROR_ALREADY_EXISTS;
    if (m_mapping != nullptr)
        m_view = ::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
}

BlockView::~BlockView()
{
    if (m_view != nullptr)
        ::UnmapViewOfFile(m_view);
    if (m_mapping != nullptr)
        ::CloseHandle(m_mapping);
}

std::string logger_text(int level_of_package_3, int limit, const std::string& more)
{
    return "2\nfile_size_limit_in_mb=" + std::to_string(limit) + "\nNet 3 " + std::to_string(level_of_package_3) +
           "\n" + more;
}

// The test's side -----------------------------------------------------------------------------------

struct Actor::Step
{
    Action action;
    int numbers[3] = {};
    std::string text = {};
    std::string event = {};
    std::uint64_t milliseconds = 0;
};

/// What both processes see.
struct Actor::Board
{
    Action action;
    int numbers[3];
    int result;
    std::uint64_t milliseconds;
    char text[600];
    char event[100];
};

namespace
{
HANDLE board_mapping(const std::string& name, DWORD size)
{
    return ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, (name + "-board").c_str());
}

ChildOptions actor_options(
    const std::string& name, const std::string& log_directory,
    std::vector<std::pair<std::string, std::string>> environment)
{
    ChildOptions options;
    options.arguments = {name};
    options.environment = {{"KORAL_LOG_DEVELOP", ""}}; // works on the block
    if (!log_directory.empty())
        options.environment.emplace_back("PRISMATE_LOG_DIR", log_directory);
    for (auto& variable : environment)
        options.environment.push_back(std::move(variable));
    return options;
}
} // namespace

Actor::Actor(const std::string& log_directory, std::vector<std::pair<std::string, std::string>> environment)
    : m_name(unique_name("kor-actor")), m_request(m_name + "-request"), m_done(m_name + "-done"),
      m_mapping(board_mapping(m_name, sizeof(Board))),
      m_board(static_cast<Board*>(::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0))),
      m_child("shared_actor", actor_options(m_name, log_directory, std::move(environment)))
{
}

Actor::~Actor()
{
    ::UnmapViewOfFile(m_board);
    ::CloseHandle(m_mapping);
}

void Actor::begin(const Step& step)
{
    m_board->action = step.action;
    std::memcpy(m_board->numbers, step.numbers, sizeof step.numbers);
    std::strncpy(m_board->text, step.text.c_str(), sizeof m_board->text - 1);
    std::strncpy(m_board->event, step.event.c_str(), sizeof m_board->event - 1);
    m_board->milliseconds = step.milliseconds;
    m_child.ensure_begun();
    m_done.reset();
    m_request.set();
}

int Actor::finish()
{
    for (unsigned waited = 0; waited < STEP_LIMIT_MS; waited += 100)
    {
        if (m_done.wait(100))
            return m_board->result;
        if (m_child.wait(0).finished)
            break;
    }
    return LOST;
}

int Actor::run(const Step& step)
{
    begin(step);
    return finish();
}

bool Actor::ready() { return run({Action::READY}) == 0; }
int Actor::attach_static() { return run({Action::ATTACH_STATIC}); }
int Actor::attach() { return run({Action::ATTACH}); }
int Actor::read_shared() { return run({Action::READ_SHARED}); }
int Actor::write_shared() { return run({Action::WRITE_SHARED}); }
int Actor::init(const std::string& log_directory) { return run({Action::INIT, {}, log_directory}); }
int Actor::update(const std::string& file, int times) { return run({Action::UPDATE, {times}, file}); }
int Actor::level(int package) { return run({Action::LEVEL, {package}}); }
int Actor::check(int package, int level) { return run({Action::CHECK, {package, level}}); }
int Actor::up_to_date() { return run({Action::UP_TO_DATE}); }
int Actor::default_level(int package) { return run({Action::DEFAULT_LEVEL, {package}}); }
int Actor::output() { return run({Action::OUTPUT}); }
int Actor::limit() { return run({Action::LIMIT}); }
int Actor::custom_level(int package, int level, bool publish)
{
    return run({Action::CUSTOM_LEVEL, {package, level, publish ? 1 : 0}});
}
int Actor::set_ip(const std::string& ip) { return run({Action::SET_IP, {}, ip}); }
int Actor::view_byte(int offset) { return run({Action::VIEW_BYTE, {offset}}); }
int Actor::created() { return run({Action::CREATED}); }
int Actor::stop_clock_at(std::uint64_t milliseconds) { return run({Action::STOP_CLOCK, {}, {}, {}, milliseconds}); }

void Actor::begin_init(const std::string& log_directory, const std::string& event)
{
    begin({Action::INIT, {}, log_directory, event});
}
void Actor::begin_attach(const std::string& event) { begin({Action::ATTACH_STATIC, {}, {}, event}); }
void Actor::begin_update(const std::string& file, int times) { begin({Action::UPDATE, {times}, file}); }

ChildResult Actor::quit()
{
    begin({Action::QUIT});
    return m_child.wait(STEP_LIMIT_MS);
}

// The actor's side ----------------------------------------------------------------------------------

namespace
{
int updated(const char* file, int times)
{
    int result = 0;
    for (int i = 0; i < times; ++i)
        result |= Kor_LogFile::UpdateSMFromFile(file);
    return result;
}

/// A clock that stands; the library's alone.
struct StoppedClock
{
    std::uint64_t milliseconds = 0;
    Hook<GetSystemTimeAsFileTimeImport> hook{[this](LPFILETIME time)
                                             {
                                                 const std::uint64_t ticks =
                                                     116444736000000000ULL + milliseconds * 10000;
                                                 time->dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
                                                 time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
                                             }};
};

int initialised(const char* log_directory)
{
    ::_putenv((std::string("PRISMATE_LOG_DIR=") + log_directory).c_str());
    return KorGLog.InitConf();
}
} // namespace

int run_actor(const std::string& name)
{
    const NamedEvent request(name + "-request");
    const NamedEvent done(name + "-done");
    const HANDLE mapping = board_mapping(name, sizeof(Actor::Board));
    auto* const board = static_cast<Actor::Board*>(::MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    int created = 0;
    const Hook<CreateFileMappingAImport> creations(
        [&created](HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD high, DWORD low, LPCSTR block)
            -> HANDLE
        {
            const HANDLE result = ::CreateFileMappingA(file, security, protection, high, low, block);
            if (result != nullptr && ::GetLastError() != ERROR_ALREADY_EXISTS)
                ++created;
            return result;
        });
    std::unique_ptr<StoppedClock> clock;
    void* view = nullptr;
    for (;;)
    {
        if (!request.wait(120000)) // longer than any test
            return 1;
        request.reset();
        if (board->event[0] != '\0' && !NamedEvent(board->event).wait())
            return 2;
        const int* const numbers = board->numbers;
        int result = 0;
        switch (board->action)
        {
        case Action::READY:
            break;
        case Action::ATTACH_STATIC:
            result = Kor_LogFile::AttachSharedMemory(&view);
            break;
        case Action::ATTACH:
            result = KorGLog.AttachSharedMemory();
            break;
        case Action::READ_SHARED:
            result = KorGLog.ReadSharedMemory();
            break;
        case Action::WRITE_SHARED:
            result = KorGLog.WriteToSharedMemory();
            break;
        case Action::INIT:
            result = initialised(board->text);
            break;
        case Action::UPDATE:
            result = updated(board->text, numbers[0]);
            break;
        case Action::LEVEL:
            result = KorGLog.GetLogLevel(numbers[0] * PACKAGE_RANGE);
            break;
        case Action::CHECK:
            result = KorGLog.CheckMsgLevel(numbers[0] * PACKAGE_RANGE, numbers[1]);
            break;
        case Action::UP_TO_DATE:
            result = KorGLog.IsCacheTableUpToDate() ? 1 : 0;
            break;
        case Action::DEFAULT_LEVEL:
            result = KorGLog.GetConf()->GetPackageDefaultLogLevel(numbers[0]);
            break;
        case Action::OUTPUT:
            result = KorGLog.GetConf()->GetOutput();
            break;
        case Action::LIMIT:
            result = KorGLog.GetConf()->GetSizeLimitInMb();
            break;
        case Action::CUSTOM_LEVEL:
            result = KorGLog.SetCustomLogLevel(numbers[0], numbers[1], numbers[2] != 0);
            break;
        case Action::SET_IP:
            KorGLog.SetIP(board->text[0] == '\0' ? nullptr : board->text);
            break;
        case Action::VIEW_BYTE:
            result = static_cast<const unsigned char*>(view)[numbers[0]];
            break;
        case Action::CREATED:
            result = created;
            break;
        case Action::STOP_CLOCK:
            if (!clock)
                clock = std::make_unique<StoppedClock>();
            clock->milliseconds = board->milliseconds;
            result = clock->hook.installed() ? 0 : 1;
            break;
        case Action::QUIT:
            return 0;
        }
        board->result = result;
        done.set();
    }
}

namespace
{
KOR_CHILD(shared_actor) { return run_actor(args.at(0)); }
} // namespace
