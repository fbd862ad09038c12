// A process that loads the library, and so reads the level file and joins the machine's configuration, and ends.

#include "Kor_LogFile.h"

int main() { return KorGLog.GetConf() == nullptr ? 1 : 0; }
