package programs;

import java.util.Collections;

import lumaris.infra.log.KoralLog;

/** Logs from threads whose names would be something else in a prefix. */
public final class ThreadNames
{
    private static final int MOST_SECONDS = 10;
    private static final String[] NAMES = {
        "a,b<c>d",
        "",
        " ",
        "pool.1: worker",
        "first\nsecond\r\u0000",
        "Pr\u00fcfer",
        "(a|b)",
        String.join("", Collections.nCopies(300, "n")),
    };

    private ThreadNames()
    {
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        Program.open();
        for (String name : NAMES)
        {
            Thread thread = new Thread(() -> KoralLog.log(Program.PACKAGE, Program.DEBUG, "named"), name);
            thread.setDaemon(true);
            thread.start();
            thread.join(MOST_SECONDS * 1000L);
        }
    }
}
