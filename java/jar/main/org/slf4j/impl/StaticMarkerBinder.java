package org.slf4j.impl;

import lumaris.infra.log.Slf4jBinding;
import org.slf4j.IMarkerFactory;
import org.slf4j.spi.MarkerFactoryBinder;

/** Where SLF4J 1.7 looks for its markers. */
public final class StaticMarkerBinder implements MarkerFactoryBinder
{
    /** The only one. */
    public static final StaticMarkerBinder SINGLETON = new StaticMarkerBinder();

    private StaticMarkerBinder()
    {
    }

    /**
     * For SLF4J.
     *
     * @return the only one
     */
    public static StaticMarkerBinder getSingleton()
    {
        return SINGLETON;
    }

    @Override
    public IMarkerFactory getMarkerFactory()
    {
        return Slf4jBinding.markers();
    }

    @Override
    public String getMarkerFactoryClassStr()
    {
        return getMarkerFactory().getClass().getName();
    }
}
