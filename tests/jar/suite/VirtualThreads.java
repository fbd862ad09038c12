package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

import lumaris.infra.log.KoralClient;
import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.junit.Test;

/** Virtual threads, which share a few others; on Java 21 and later. What is new there is found by name. */
public final class VirtualThreads
{
    private static final KoralLogger LOG = KoralLogger.of(310);
    private static final int THREADS = 1000;

    private static void pause()
    {
        try
        {
            Thread.sleep(1); // another one goes on in the meantime where this one did
        }
        catch (InterruptedException stopped)
        {
            throw new IllegalStateException(stopped);
        }
    }

    private static void work(int number)
    {
        Thread thread = Thread.currentThread();
        boolean isNamed = number % 2 == 0;
        if (isNamed)
            thread.setName("page-" + number);
        String name = isNamed ? "page-" + number : "virtual-" + thread.getId();
        try (KoralClient client = KoralClient.enter(null, number + 1))
        {
            LOG.info("I am " + name + " SessionId(" + (number + 1) + ")");
            pause();
            LOG.info("I am " + name + " SessionId(" + (number + 1) + ")");
        }
        LOG.info("I am " + name + " nobody's");
    }

    @Test
    public void eachHasItsOwnNameAndClient() throws Exception
    {
        Lines lines = Lines.begin();
        KoralLog.open("archive");
        ExecutorService threads =
            (ExecutorService)Executors.class.getMethod("newVirtualThreadPerTaskExecutor").invoke(null);
        List<Future<?>> done = new ArrayList<>();
        for (int number = 0; number < THREADS; ++number)
        {
            int own = number;
            done.add(threads.submit(() -> work(own)));
        }
        for (Future<?> each : done)
            each.get();
        List<String> written = lines.written();
        assertEquals(1 + 3 * THREADS, written.size());
        for (String line : written.subList(1, written.size()))
        {
            String[] said = line.substring(line.indexOf("I am ") + 5).split(" ");
            assertTrue(line, line.contains("|" + said[0] + ") "));
            assertEquals(line, said[1].startsWith("SessionId"), line.contains(") " + said[1] + " VirtualThreads("));
        }
    }
}
