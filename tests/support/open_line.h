// open_line.h - standard error from the beginning of a line.

#ifndef KOR_TESTS_OPEN_LINE_H
#define KOR_TESTS_OPEN_LINE_H

#include <cstdio>

#include "Kor_LogFile.h"

/// Has the library end a line that a test before this one has left open on standard error.
inline void begin_on_a_new_line() { KorGLog.PrintOrLog(stderr, "%s", ""); }

#endif // KOR_TESTS_OPEN_LINE_H
