/* wchar.h - adds what C99 and libc++ ask for. */
#pragma once
#include_next <wchar.h>

#ifdef __cplusplus
extern "C"
{
#endif
    long double __cdecl wcstold(const wchar_t*, wchar_t**);
    int __cdecl wcrtomb_s(size_t*, char*, size_t, wchar_t, mbstate_t*);
#ifdef __cplusplus
}
#endif
