// enumerations.h - enumerations as headers declare them and as the compiler knows them.

#ifndef KOR_TESTS_ENUMERATIONS_H
#define KOR_TESTS_ENUMERATIONS_H

#include <string>
#include <vector>

#include "headers.h"

struct Enumerator
{
    const char* name;
    int value; ///< the compiler's
};

struct Enumeration
{
    const char* name;
    const char* declaration;
    std::vector<Enumerator> enumerators;
};

/// Those of headers.h; a generated source has them.
const std::vector<Enumeration>& enumerations();

#endif // KOR_TESTS_ENUMERATIONS_H
