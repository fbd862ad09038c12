package programs;

import java.lang.management.ManagementFactory;

import com.sun.management.ThreadMXBean;
import lumaris.infra.log.KoralLog;

/** Finds out whether an unwanted message costs memory, as each look at the stack does. */
public final class Unwanted
{
    private static final int CALLS = 1000;

    private Unwanted()
    {
    }

    private static long allocatedByCalls(int level)
    {
        ThreadMXBean threads = (ThreadMXBean)ManagementFactory.getThreadMXBean();
        long thread = Thread.currentThread().getId();
        long before = threads.getThreadAllocatedBytes(thread);
        for (int call = 0; call < CALLS; ++call)
            KoralLog.log(Program.PACKAGE, level, "text");
        return threads.getThreadAllocatedBytes(thread) - before;
    }

    public static void main(String[] arguments)
    {
        Program.open();
        allocatedByCalls(Program.DEBUG); // what is allocated once is allocated now
        Program.tell("unwanted messages allocate", allocatedByCalls(Program.DEBUG) >= CALLS);
        Program.tell("wanted messages allocate", allocatedByCalls(1) >= CALLS);
    }
}
