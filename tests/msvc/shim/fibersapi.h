/* fibersapi.h - whose functions Wine declares elsewhere. */
#pragma once
#include <windows.h>
