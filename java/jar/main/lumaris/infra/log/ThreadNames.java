package lumaris.infra.log;

/** What the calling thread is called in lines. */
final class ThreadNames
{
    private ThreadNames()
    {
    }

    static String ofCurrent()
    {
        return Thread.currentThread().getName();
    }
}
