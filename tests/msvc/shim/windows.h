/* windows.h - adds what Wine's header lacks of Microsoft's. */
#pragma once
#include_next <windows.h>

#ifndef GetExceptionCode
#define GetExceptionCode _exception_code
#endif
#ifndef GetExceptionInformation
#define GetExceptionInformation() (static_cast<struct _EXCEPTION_POINTERS*>(_exception_info()))
#endif
#ifndef AbnormalTermination
#define AbnormalTermination _abnormal_termination
#endif
/* Also the name of a member, which Wine declares before the macro. */
#undef DeleteFile
#ifndef SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
#define SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE 2
#endif

#ifdef __cplusplus
extern "C"
{
#endif
    BOOL WINAPI SetThreadStackGuarantee(PULONG);
    VOID WINAPI GetCurrentThreadStackLimits(PULONG_PTR, PULONG_PTR);
#ifdef __cplusplus
}
#endif
