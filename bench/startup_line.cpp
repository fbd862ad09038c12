// A process that loads the library, opens its log and writes one line. With an argument it then prints its private
// memory.

#include "Kor_LogFile.h"
#include "startup_memory.h"

int main(int argc, char**)
{
    KorGLog.Open("startup.log", "bench");
    KOR_LOG(KorGLog, 4, 17, "request %d of %s took %d us", 1, "client", 250);
    print_private_memory(argc);
    return 0;
}
