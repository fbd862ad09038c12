import java.util.Arrays;
import java.util.Locale;
import java.util.function.LongSupplier;

import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;

/**
 * What it costs to name the caller, at the end of short and long chains of calls: microseconds for each call, the best
 * of many short rounds, as most of them then fall between the doings of other programs.
 */
public final class Callers
{
    private static final int[] DEPTHS = {0, 10, 100, 500, 1000};
    private static final int ROUNDS = 21;
    private static final int CALLS = 200;
    private static final int PACKAGE = 310;
    private static final KoralLogger LOG = KoralLogger.of(PACKAGE);
    private static final KoralLogger BEHIND = KoralLogger.of(PACKAGE, Wrapper.class);
    private static final KoralLogger UNWANTED = KoralLogger.of(320);
    private static int s_sink; // what is kept is not left out

    private Callers()
    {
    }

    private static final class Wrapper
    {
        static void say(String text)
        {
            BEHIND.debug(text);
        }
    }

    private static double below(int depth, Runnable work)
    {
        if (depth > 0)
            return below(depth - 1, work);
        LongSupplier round = () ->
        {
            long begin = System.nanoTime();
            for (int call = 0; call < CALLS; ++call)
                work.run();
            return System.nanoTime() - begin;
        };
        long best = Long.MAX_VALUE;
        for (int number = 0; number < ROUNDS; ++number)
            best = Math.min(best, round.getAsLong());
        return best / 1000.0 / CALLS;
    }

    private static void measure(String name, Runnable work)
    {
        StringBuilder row = new StringBuilder(String.format("%-44s", name));
        for (int depth : DEPTHS)
            row.append(String.format(Locale.ROOT, "%9.2f", below(depth, work)));
        System.out.println(row);
    }

    public static void main(String[] arguments)
    {
        KoralLog.open("callers.log", "callers");
        for (int warm = 0; warm < 20_000; ++warm)
        {
            s_sink += KoralLog.located("text").length();
            UNWANTED.debug("text");
        }
        System.out.println(String.format("%-44s%s", "calls below main",
            Arrays.stream(DEPTHS).mapToObj(depth -> String.format("%9d", depth)).reduce("", String::concat)));
        measure("the caller alone (located)", () -> s_sink += KoralLog.located("text").length());
        measure("a line (debug)", () -> LOG.debug("text"));
        measure("a line through a wrapper", () -> Wrapper.say("text"));
        measure("a line without a caller (tlogln)", () -> KoralLog.tlogln(PACKAGE, KoralLog.DEBUG, "<m,C.m:1>text"));
        measure("a line that is not wanted", () -> UNWANTED.debug("text"));
        measure("a look at the whole stack", () -> s_sink += new Throwable().getStackTrace().length);
        System.err.println(s_sink);
    }
}
