package unnumbered;

import lumaris.infra.log.KoralLog;

/** Compiled without debug information, as released programs may be. */
public final class Unnumbered
{
    private Unnumbered()
    {
    }

    public static void work()
    {
        KoralLog.log(310, 7, "from a class without line numbers");
    }

    public static String place()
    {
        return KoralLog.located("");
    }
}
