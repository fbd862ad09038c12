package lumaris.infra.log;

import org.slf4j.ILoggerFactory;
import org.slf4j.IMarkerFactory;
import org.slf4j.spi.MDCAdapter;
import org.slf4j.spi.SLF4JServiceProvider;

/** Brings SLF4J 2 to the log: it finds this class by itself when {@code lumlog.jar} is on the class path. */
public final class Slf4jProvider implements SLF4JServiceProvider
{
    /** For SLF4J. */
    public Slf4jProvider()
    {
    }

    @Override
    public ILoggerFactory getLoggerFactory()
    {
        return Slf4j.LOGGERS;
    }

    @Override
    public IMarkerFactory getMarkerFactory()
    {
        return Slf4j.MARKERS;
    }

    @Override
    public MDCAdapter getMDCAdapter()
    {
        return Slf4j.CONTEXT;
    }

    @Override
    public String getRequestedApiVersion()
    {
        return "2.0.99"; // any of 2.0
    }

    @Override
    public void initialize()
    {
        // all is made when it is asked for
    }
}
