/* wctype.h - adds the functions with a locale that libc++ asks for. */
#pragma once
#include_next <wctype.h>

#include <corecrt.h>

#ifdef __cplusplus
extern "C"
{
#endif
    int __cdecl _iswcntrl_l(wint_t, _locale_t);
    int __cdecl _iswxdigit_l(wint_t, _locale_t);
#ifdef __cplusplus
}
#endif
