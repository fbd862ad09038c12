/* Linked by LUMlog::c alone. */
#include <lumlog.h>

/* The entry point, whose result is the exit code. */
int start(void)
{
    if (lum_open("consumer.log", "consumer") != LUM_OK)
        return 1;
    LUM_LOG(LUM_WARNING, 310, "linked by LUMlog::c");
    return 0;
}
