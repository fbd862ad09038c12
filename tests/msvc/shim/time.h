/* time.h - adds what C11 and Microsoft's header have. */
#pragma once
#include_next <time.h>

#ifndef KOR_HAS_TIMESPEC
#define KOR_HAS_TIMESPEC
struct timespec
{
    time_t tv_sec;
    long tv_nsec;
};
#endif

#ifdef __cplusplus
extern "C"
{
#endif
    long* __cdecl __timezone(void);
    int __cdecl _ctime64_s(char*, size_t, const time_t*);
    int __cdecl _gmtime64_s(struct tm*, const time_t*);
    int __cdecl _localtime64_s(struct tm*, const time_t*);
    int __cdecl asctime_s(char*, size_t, const struct tm*);
    size_t __cdecl _strftime_l(char*, size_t, const char*, const struct tm*, _locale_t);
#ifdef __cplusplus
}
#endif

#undef _timezone
#define _timezone (*__timezone())
#define ctime_s _ctime64_s
#define gmtime_s _gmtime64_s
#ifndef localtime_s
#define localtime_s _localtime64_s
#endif
