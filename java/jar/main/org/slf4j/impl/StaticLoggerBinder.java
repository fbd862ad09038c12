package org.slf4j.impl;

import lumaris.infra.log.Slf4jBinding;
import org.slf4j.ILoggerFactory;
import org.slf4j.spi.LoggerFactoryBinder;

/** Where SLF4J 1.7 looks for its loggers. */
public final class StaticLoggerBinder implements LoggerFactoryBinder
{
    /** The API that this was made with. SLF4J reads it, and compilers shall not copy it, so it is not final. */
    public static String REQUESTED_API_VERSION = "1.7.32";

    private static final StaticLoggerBinder SINGLETON = new StaticLoggerBinder();

    private StaticLoggerBinder()
    {
    }

    /**
     * For SLF4J.
     *
     * @return the only one
     */
    public static StaticLoggerBinder getSingleton()
    {
        return SINGLETON;
    }

    @Override
    public ILoggerFactory getLoggerFactory()
    {
        return Slf4jBinding.loggers();
    }

    @Override
    public String getLoggerFactoryClassStr()
    {
        return getLoggerFactory().getClass().getName();
    }
}
