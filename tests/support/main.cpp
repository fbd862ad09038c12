// main.cpp - runs the tests, or the one child body that the command line names.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "child.h"
#include "own_memory.h"

namespace
{
constexpr char CHILD_OPTION[] = "--child=";
constexpr int NO_SUCH_CHILD = 99;

int run_body(const char* name, const std::vector<std::string>& arguments)
{
    const ChildBody body = find_child_body(name);
    if (body == nullptr)
    {
        std::fprintf(stderr, "no child body is named %s\n", name);
        return NO_SUCH_CHILD;
    }
    return body(arguments);
}
} // namespace

int main(int argc, char** argv)
{
    // No dialog may ever block a run that nobody watches.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);

    read_own_memory_directly();

    const std::size_t option_length = sizeof CHILD_OPTION - 1;
    if (argc > 1 && std::strncmp(argv[1], CHILD_OPTION, option_length) == 0)
    {
        tell_that_child_has_begun();
        return run_body(argv[1] + option_length, std::vector<std::string>(argv + 2, argv + argc));
    }

    // Said before anything can go wrong here, so that a run which says nothing never began: what is
    // printed to standard output would be lost in its buffer at a crash.
    std::fputs("the test program has started\n", stderr);

    ::_putenv("KORAL_LOG_DEVELOP=1"); // the tests' own logs stay off the machine-wide block
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
