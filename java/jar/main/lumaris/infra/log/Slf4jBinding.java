package lumaris.infra.log;

import org.slf4j.ILoggerFactory;
import org.slf4j.IMarkerFactory;
import org.slf4j.spi.MDCAdapter;

/** For the classes in {@code org.slf4j.impl} by which SLF4J 1.7 comes to the log; not for programs. */
public final class Slf4jBinding
{
    private Slf4jBinding()
    {
    }

    /**
     * The loggers.
     *
     * @return the same each time
     */
    public static ILoggerFactory loggers()
    {
        return Slf4j.LOGGERS;
    }

    /**
     * The markers.
     *
     * @return the same each time
     */
    public static IMarkerFactory markers()
    {
        return Slf4j.MARKERS;
    }

    /**
     * The context of threads.
     *
     * @return the same each time
     */
    public static MDCAdapter context()
    {
        return Slf4j.CONTEXT;
    }
}
