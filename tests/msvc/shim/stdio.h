/* stdio.h - adds what Wine's header has under another name. */
#pragma once
#include_next <stdio.h>

#ifndef vsnprintf_s
#define vsnprintf_s _vsnprintf_s
#endif
