/* differences.h - what Wine's headers and libc++ 14 lack of Microsoft's, in front of every source. */
#pragma once

#include <fcntl.h>
#include <io.h>
#undef open
#undef close
#undef read
#undef write

#include <windows.h>

#include <psapi.h>
typedef struct _PROCESS_MEMORY_COUNTERS_EX
{
    DWORD cb;
    DWORD PageFaultCount;
    SIZE_T PeakWorkingSetSize;
    SIZE_T WorkingSetSize;
    SIZE_T QuotaPeakPagedPoolUsage;
    SIZE_T QuotaPagedPoolUsage;
    SIZE_T QuotaPeakNonPagedPoolUsage;
    SIZE_T QuotaNonPagedPoolUsage;
    SIZE_T PagefileUsage;
    SIZE_T PeakPagefileUsage;
    SIZE_T PrivateUsage;
} PROCESS_MEMORY_COUNTERS_EX;

#include <charconv>

_LIBCPP_BEGIN_NAMESPACE_STD
from_chars_result from_chars(const char* first, const char* last, double& value);
_LIBCPP_END_NAMESPACE_STD
