package programs;

import lumaris.infra.log.KoralLog;

/** Logs null in each of the ways. */
public final class Nulls
{
    private Nulls()
    {
    }

    public static void main(String[] arguments)
    {
        Program.open();
        Program.tell("tlog", KoralLog.tlog(0, null));
        Program.tell("tlogln", KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, null));
        Program.tell("log", KoralLog.log(Program.PACKAGE, Program.DEBUG, null));
    }
}
