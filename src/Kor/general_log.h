// general_log.h - the library's own lines in the general log.

#ifndef KOR_GENERAL_LOG_H
#define KOR_GENERAL_LOG_H

#include "Kor_LogFile.h"
#include "Kor_LogLevel.h"

namespace kor
{
// Levels of those lines.
constexpr int LEVEL_ERROR = KOR_LEVEL_ERROR;
constexpr int LEVEL_WARNING = KOR_LEVEL_WARNING;
constexpr int LEVEL_DEBUG = KOR_LEVEL_DEBUG;
} // namespace kor

/// Writes a line, if its level is wanted, as one of the function `function` in the source `file`. A macro, so that
/// the arguments cost nothing otherwise and the line number is that of the place.
#define KOR_GENERAL_LOG(file, function, level, ...)                                                 \
    do                                                                                              \
    {                                                                                               \
        if (KorGLog.IsWanted((level), KOR_PACKAGE_LIBRARY))                                         \
            KorGLog.LogAt((file), (function), __LINE__, (level), KOR_PACKAGE_LIBRARY, __VA_ARGS__); \
    } while (false)

#endif // KOR_GENERAL_LOG_H
