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

    /** Whether the calling thread takes turns with others on a thread of the system's, as it may from Java 21 on. */
    static boolean isCurrentVirtual()
    {
        return false;
    }
}
