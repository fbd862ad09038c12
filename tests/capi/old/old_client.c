/* A program that was built against version 1.0 of lumlog.h: the header beside it stays as it was then, so that every later
 * DLL is tried with what such a program expects. Prints what it finds, and ends with the number of checks that failed. */

#include "lumlog-1.0.h"

#include <stdio.h>
#include <string.h>

static int failed;

static void check(int holds, const char* what)
{
    if (holds)
        return;
    printf("failed: %s\n", what);
    ++failed;
}

static int LUM_CALL receive(void* user, const lum_message* message)
{
    check(message->size >= sizeof(lum_message), "a message is at least as long as it was");
    check(message->level == LUM_ERROR && message->package == 310, "level and package");
    check(strcmp(message->text, "cannot read front.png\n") == 0 && message->length == 22, "text");
    check(strncmp(message->headline, "20", 2) == 0, "headline");
    ++*(int*)user;
    return LUM_OK;
}

int main(void)
{
    static const lum_site here = LUM_SITE;
    lum_destination* destination;
    int received = 0;

    check(lum_version() >> 16 == LUM_VERSION >> 16 && lum_version() >= LUM_VERSION, "version");
    check(lum_open("old.log", "old") == LUM_OK, "open");
    check(lum_process_gate.size >= sizeof(lum_gate) && lum_get_gate() == &lum_process_gate, "gate");
    check(lum_process_gate.package_count >= LUM_PACKAGE_COUNT, "packages");
    check(lum_level(310) == 4 && lum_wants(LUM_DEBUG, 310) == 0, "level");
    check(lum_rejected(&lum_process_gate, LUM_DEBUG, 310) == 1, "what is not wanted is rejected");
    check(lum_rejected(&lum_process_gate, LUM_WARNING, 310) == 0, "what is wanted is not");

    destination = lum_add_destination(&receive, &received);
    lum_write(&here, LUM_ERROR, 310, "cannot read front.png", LUM_ZT);
    lum_remove_destination(destination);
    LUM_LOG(LUM_WARNING, 310, "only %d of %d images fit", 12, 17);
    check(received == 1, "destination");
    lum_error_set(3100012, "text", LUM_ZT);
    check(lum_error_get() == 3100012, "error");
    check(lum_session_start(0) == LUM_OK, "session");
    check(lum_set_level(310, LUM_DEBUG, 0) == LUM_OK, "set level");
    return failed;
}
