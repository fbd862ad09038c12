package lumaris.infra.log;

import java.lang.management.ManagementFactory;

/** The number of this process. */
final class ProcessIds
{
    private ProcessIds()
    {
    }

    /** 0 where it can't be found out. */
    static long ofThis()
    {
        String name = ManagementFactory.getRuntimeMXBean().getName(); // "number@computer"
        int at = name.indexOf('@');
        try
        {
            return at < 0 ? 0 : Long.parseLong(name.substring(0, at));
        }
        catch (NumberFormatException other)
        {
            return 0;
        }
    }
}
