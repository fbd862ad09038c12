// isolation.h - what a log goes by, and went by, while a test keeps it apart from everything else.

#ifndef KOR_ISOLATION_H
#define KOR_ISOLATION_H

#include <cstdint>

#include "Kor_LogConf.h"

namespace kor
{
/// Stays with the log for good once it was made: threads may still look at the configuration when the test has ended.
struct Isolation
{
    Kor_LogConf conf;

    // Of the log, as it was before.
    Kor_LogConf* used = nullptr;
    Kor_LogConf* shared = nullptr;
    const volatile std::uint64_t* stamp = nullptr;
    bool was_initialised = false;
};
} // namespace kor

#endif // KOR_ISOLATION_H
