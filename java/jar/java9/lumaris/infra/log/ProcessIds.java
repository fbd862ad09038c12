package lumaris.infra.log;

/** The number of this process. */
final class ProcessIds
{
    private ProcessIds()
    {
    }

    /** 0 where it can't be found out. */
    static long ofThis()
    {
        try
        {
            return ProcessHandle.current().pid();
        }
        catch (UnsupportedOperationException | SecurityException hidden)
        {
            return 0;
        }
    }
}
