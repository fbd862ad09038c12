// require.h - what the fuzz targets check with.

#ifndef KOR_TESTS_REQUIRE_H
#define KOR_TESTS_REQUIRE_H

#include <cstdlib>
#include <string_view>

/// Ends the target, which keeps the input that led here.
inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

inline bool is_inside(std::string_view part, std::string_view text)
{
    return part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size();
}

inline bool is_empty_or_inside(std::string_view part, std::string_view text)
{
    return part.empty() || is_inside(part, text);
}

#endif // KOR_TESTS_REQUIRE_H
