/* c.c - a program in C over lumlog.h: lines, a client, a destination, errors, timers and a session report. */

#include <lumlog.h>

#include <stdio.h>

enum
{
    PACKAGE_LOADER = 310
};

static int LUM_CALL count_errors(void* user, const lum_message* message)
{
    if (message->level <= LUM_ERROR)
        ++*(int*)user;
    return LUM_OK;
}

static void load(const char* path)
{
    static const lum_site here = LUM_SITE;
    lum_timer* const timer = lum_timer_begin("load", LUM_NOTICE);

    lum_error_set(PACKAGE_LOADER * LUM_PACKAGE_RANGE + 12, "front.png ends after 17 rows", LUM_ZT);
    lum_error_log(&here, LUM_ERROR, PACKAGE_LOADER, NULL, 0);

    /* A finished text: what stands in it is no format, whoever has written it. */
    lum_write(&here, LUM_WARNING, PACKAGE_LOADER, path, LUM_ZT);
    lum_timer_end(timer);
}

/* This thread works for a client of its own, whomever the process serves. */
static void serve(const char* address, int session)
{
    const lum_uint64 entry = lum_client_enter(address, session);
    LUM_LOG(LUM_WARNING, PACKAGE_LOADER, "page 1 took long");
    lum_client_leave(entry);
}

int main(void)
{
    int errors = 0;
    lum_destination* counter;

    if (lum_open("c.log", "c") != LUM_OK)
        return 1;
    lum_session_start(0);
    lum_set_thread_name("Main");
    counter = lum_add_destination(&count_errors, &errors);

    LUM_LOG(LUM_WARNING, PACKAGE_LOADER, "only %d of %d images fit into memory", 12, 17);
    if (lum_wants(LUM_DEBUG, PACKAGE_LOADER))
        LUM_LOG(LUM_DEBUG, PACKAGE_LOADER, "a summary for debugging");

    lum_set_client("192.0.2.7", 3);
    load("100% of front.png");
    lum_set_client(NULL, 0);
    serve("192.0.2.9", 4);

    lum_remove_destination(counter);
    lum_session_event("Load", "front.png", LUM_EVENT_COUNTED, 1, "with errors", LUM_ZT);
    printf("%d error\n", errors);
    return 0;
}
