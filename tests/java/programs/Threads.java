package programs;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

import lumaris.infra.log.KoralLog;

/** Several threads log at once, in both ways and lines of many lengths. */
public final class Threads
{
    private static final int THREADS = 4;
    private static final int LINES = 300;
    private static final int MOST_SECONDS = 40;

    private Threads()
    {
    }

    private static void work(String name)
    {
        for (int number = 0; number < LINES; ++number)
        {
            String text = "line " + number + " " + repeated(number * 7 % 250);
            if (number % 2 == 0)
                KoralLog.log(Program.PACKAGE, Program.DEBUG, text);
            else
                KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, "<" + name + ",Worker.by_hand:77>" + text);
            Thread.yield(); // else one is often done before the next has begun
        }
    }

    private static String repeated(int length)
    {
        char[] characters = new char[length];
        Arrays.fill(characters, '.');
        return new String(characters);
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        Program.open();
        List<Thread> threads = new ArrayList<>();
        for (int number = 0; number < THREADS; ++number)
        {
            String name = "worker-" + number;
            Thread thread = new Thread(() -> work(name), name);
            thread.setDaemon(true);
            threads.add(thread);
        }
        threads.forEach(Thread::start);
        for (Thread thread : threads)
            thread.join(MOST_SECONDS * 1000L);
        Program.tell("done", threads.stream().noneMatch(Thread::isAlive));
    }
}
