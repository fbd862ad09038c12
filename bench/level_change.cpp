// From a change of the machine's configuration in one process to the first check in another that obeys
// it. This process changes, a child checks; what either has done they tell each other through shared memory, so
// that the child's next check really comes next. Prints JSON.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>
#include <thread>
#include <vector>

#include "Kor_LogFile.h"
#include "bench_log.h"

namespace
{
constexpr int CHANGES = 200;
constexpr int CHECKS_AFTER_CHANGE = 100;

/// What the two processes tell each other; the atomics are free of locks and so work across processes.
struct Board
{
    std::atomic<int> change;  // number of the last change that is complete
    std::atomic<int> checked; // number of the last change that the child has looked at
    std::atomic<int> disobeyed;
    double first_ns[CHANGES]; // the first check after each change
    double next_ns[CHANGES];  // a later one
};
static_assert(std::atomic<int>::is_always_lock_free);

/// The board of that name, made by whoever comes first.
Board& board_of(const std::string& name)
{
    const HANDLE mapping =
        ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Board), name.c_str());
    void* const view = mapping == nullptr ? nullptr : ::MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    if (view == nullptr)
        fail("no shared memory");
    return *static_cast<Board*>(view); // zero bytes, which is what an empty board is
}

/// Waits for the other process; false after ten seconds.
bool wait_for(const std::atomic<int>& number, int wanted)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (number.load(std::memory_order_acquire) < wanted)
    {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        ::SwitchToThread();
    }
    return true;
}

int check() { return KorGLog.CheckMsgLevel(BENCH_PACKAGE * PACKAGE_RANGE, REJECTED_LEVEL); }

double nanoseconds_of_check(int& wanted)
{
    const auto before = std::chrono::steady_clock::now();
    wanted = check();
    const auto after = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(after - before).count();
}

/// A `logger` file with ten rules for the package, of which the last fits the child: they grant it the level
/// of REJECTED_LEVEL in every second change. A line holds 199 characters.
std::string configuration(int change, unsigned long child)
{
    std::string rules;
    for (char name = 'a'; name < 'j'; ++name)
        rules += std::string("(7;10.1.2.3;") + name + ";11)";
    rules += "(" + std::to_string(change % 2 == 1 ? 7 : 5) + ";10.9.8.7;bench;" + std::to_string(child) + ")";
    return full_configuration() + "RULED 17 4 [" + rules + "]\n";
}
} // namespace

// args: the board's name, and "busy" for a second thread that checks all the time.
KOR_CHILD(checker)
{
    Board& board = board_of(args.at(0));
    KorGLog.Open("checker.log", "bench", false);
    KorGLog.SetIP("10.9.8.7");
    std::atomic<bool> stop{false};
    std::thread busy;
    if (args.size() > 1)
        busy = std::thread(
            [&stop]
            {
                while (!stop)
                    check();
            });
    int result = 0;
    check();
    board.checked = 0;
    for (int change = 1; change <= CHANGES && result == 0; ++change)
    {
        if (!wait_for(board.change, change))
        {
            result = 1;
            break;
        }
        int wanted = 0;
        const auto i = static_cast<std::size_t>(change - 1);
        board.first_ns[i] = nanoseconds_of_check(wanted);
        int disobeyed = wanted == change % 2 ? 0 : 1;
        board.next_ns[i] = nanoseconds_of_check(wanted);
        for (int again = 0; again < CHECKS_AFTER_CHANGE; ++again)
            disobeyed += check() == change % 2 ? 0 : 1;
        board.disobeyed += disobeyed;
        board.checked.store(change, std::memory_order_release);
    }
    stop = true;
    if (busy.joinable())
        busy.join();
    return result;
}

namespace
{
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

struct Outcome
{
    int disobeyed;
    double first_ns;
    double next_ns;
    double update_ms;
};

Outcome change_levels(const LogDirectory& directory, bool busy)
{
    const std::string name = unique_name("bench-board");
    Board& board = board_of(name);
    board.checked = -1;
    ChildOptions options = directory.for_child({{"KORAL_LOG_DEVELOP", ""}});
    options.arguments = {name};
    if (busy)
        options.arguments.emplace_back("busy");
    const Child child("checker", options);
    if (!wait_for(board.checked, 0))
        fail("the checking process does not start");
    write_file(directory.file("even"), configuration(0, child.pid()));
    write_file(directory.file("odd"), configuration(1, child.pid()));

    std::vector<double> update_ms;
    for (int change = 1; change <= CHANGES; ++change)
    {
        const std::string file = directory.file(change % 2 == 1 ? "odd" : "even");
        const auto before = std::chrono::steady_clock::now();
        if (Kor_LogFile::UpdateSMFromFile(file.c_str()) != 0)
            fail("the configuration cannot be changed");
        const auto after = std::chrono::steady_clock::now();
        update_ms.push_back(std::chrono::duration<double, std::milli>(after - before).count());
        board.change.store(change, std::memory_order_release);
        if (!wait_for(board.checked, change))
            fail("the checking process does not answer");
    }
    if (child.wait(10000).exit_code != 0)
        fail("the checking process failed");
    return {
        board.disobeyed, median({board.first_ns, board.first_ns + CHANGES}),
        median({board.next_ns, board.next_ns + CHANGES}), median(update_ms)};
}
} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && std::string(argv[1]) == "--child=checker")
        return find_child_body("checker")({argv + 2, argv + argc});

    const LogDirectory directory(full_configuration());
    KorGLog.Open("changer.log", "bench", false); // makes the block and keeps it there
    const Outcome quiet = change_levels(directory, false);
    const Outcome busy = change_levels(directory, true);
    std::printf(
        "{\"changes\": %d, \"disobeyed\": %d, \"first_ns\": %.0f, \"next_ns\": %.0f, \"update_ms\": %.2f}\n",
        2 * CHANGES, quiet.disobeyed + busy.disobeyed, quiet.first_ns, quiet.next_ns, quiet.update_ms);
    return 0;
}
