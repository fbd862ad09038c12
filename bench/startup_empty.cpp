// A process that does nothing: what any other is compared with. With an argument it prints its private memory.

#include "startup_memory.h"

int main(int argc, char**)
{
    print_private_memory(argc);
    return 0;
}
