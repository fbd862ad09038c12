#include "floor.h"

volatile unsigned char floor_level = 4;

int floor_is_wanted(int level) { return level <= floor_level ? 1 : 0; }
