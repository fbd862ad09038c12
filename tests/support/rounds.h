// rounds.h - how often a test does what goes wrong once in a thousand times.

#ifndef KOR_TESTS_ROUNDS_H
#define KOR_TESTS_ROUNDS_H

#include <cstdlib>

/// As often as usual, or as scripts/soak.sh says in the variable.
inline int rounds_wanted(const char* variable, int usual)
{
    const char* const wanted = std::getenv(variable);
    return wanted == nullptr ? usual : std::atoi(wanted);
}

#endif // KOR_TESTS_ROUNDS_H
