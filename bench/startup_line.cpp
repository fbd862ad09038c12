// A process that loads the library, opens its log and writes one line.

#include "Kor_LogFile.h"

int main()
{
    KorGLog.Open("startup.log", "bench");
    KOR_LOG(KorGLog, 4, 17, "request %d of %s took %d us", 1, "client", 250);
    return 0;
}
