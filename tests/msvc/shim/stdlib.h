/* stdlib.h - adds what libc++ asks for. */
#pragma once
#include_next <stdlib.h>

#ifdef __cplusplus
extern "C"
{
#endif
    typedef void(__cdecl* _purecall_handler)(void);
    int __cdecl ___mb_cur_max_func(void);
    int __cdecl ___mb_cur_max_l_func(_locale_t);
    int* __cdecl __sys_nerr(void);
    unsigned int __cdecl _set_abort_behavior(unsigned int, unsigned int);
    _purecall_handler __cdecl _set_purecall_handler(_purecall_handler);
    float __cdecl _strtof_l(const char*, char**, _locale_t);
    double __cdecl _strtod_l(const char*, char**, _locale_t);
#ifdef __cplusplus
}
#endif
#define _WRITE_ABORT_MSG 1u
#define _CALL_REPORTFAULT 2u
#ifndef _sys_nerr
#define _sys_nerr (*__sys_nerr())
#endif
#ifndef MB_CUR_MAX
#define MB_CUR_MAX ___mb_cur_max_func()
#endif
