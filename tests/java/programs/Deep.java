package programs;

import java.lang.management.ManagementFactory;

import com.sun.management.ThreadMXBean;
import lumaris.infra.log.KoralLog;

/** Logs from the end of long chains of calls, and finds out whether their length costs memory. */
public final class Deep
{
    private static final int CALLS = 1000;

    private Deep()
    {
    }

    private static long allocatedBelow(int depth, int calls)
    {
        if (depth > 0)
            return allocatedBelow(depth - 1, calls);
        ThreadMXBean threads = (ThreadMXBean)ManagementFactory.getThreadMXBean();
        long thread = Thread.currentThread().getId();
        long before = threads.getThreadAllocatedBytes(thread);
        for (int call = 0; call < calls; ++call)
            KoralLog.located("from below");
        return threads.getThreadAllocatedBytes(thread) - before;
    }

    private static void logBelow(int depth)
    {
        if (depth > 0)
            logBelow(depth - 1);
        else
            KoralLog.log(Program.PACKAGE, Program.DEBUG, "from below");
    }

    public static void main(String[] arguments)
    {
        Program.open();
        logBelow(500);
        allocatedBelow(0, CALLS); // what is allocated once is allocated now
        long few = allocatedBelow(10, CALLS);
        long many = allocatedBelow(500, CALLS);
        Program.tell("a long chain of calls costs memory", many >= 2 * few);
    }
}
