import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;

/** Many THREADS LINES: several threads log at once, so many lines in all. */
public final class Many
{
    private static final KoralLogger LOG = KoralLogger.of(310);

    private Many()
    {
    }

    private static void work(int lines)
    {
        for (int number = 0; number < lines; ++number)
            LOG.debug("line " + number);
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        KoralLog.open("test.log", "koral");
        Thread[] threads = new Thread[Integer.parseInt(arguments[0])];
        int lines = Integer.parseInt(arguments[1]) / threads.length;
        long begin = System.nanoTime();
        for (int number = 0; number < threads.length; ++number)
        {
            threads[number] = new Thread(() -> work(lines), "worker-" + number);
            threads[number].start();
        }
        for (Thread thread : threads)
            thread.join();
        System.out.println("written: " + lines * threads.length);
        System.err.println((System.nanoTime() - begin) / 1_000_000 + " ms");
    }
}
