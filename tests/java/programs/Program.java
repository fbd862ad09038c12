package programs;

import lumaris.infra.log.KoralLog;

/** What the programs have in common. What they print is compared with what they shall print. */
final class Program
{
    static final int PACKAGE = 310;
    static final int DEBUG = 7;

    private Program()
    {
    }

    static void open()
    {
        tell("open", KoralLog.open("test.log", "koral"));
    }

    static void tell(String call, Object result)
    {
        System.out.println(call + ": " + result);
    }
}
