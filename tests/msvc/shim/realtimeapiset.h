/* realtimeapiset.h - which Wine does not have, as far as it is used. */
#pragma once
#include <windows.h>

#ifdef __cplusplus
extern "C"
{
#endif
    BOOL WINAPI QueryUnbiasedInterruptTime(PULONGLONG);
#ifdef __cplusplus
}
#endif
