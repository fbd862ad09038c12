package org.slf4j.impl;

import lumaris.infra.log.Slf4jBinding;
import org.slf4j.spi.MDCAdapter;

/** Where SLF4J 1.7 looks for the context of threads. */
public final class StaticMDCBinder
{
    /** The only one. */
    public static final StaticMDCBinder SINGLETON = new StaticMDCBinder();

    private StaticMDCBinder()
    {
    }

    /**
     * For SLF4J.
     *
     * @return the only one
     */
    public static StaticMDCBinder getSingleton()
    {
        return SINGLETON;
    }

    /**
     * For SLF4J.
     *
     * @return the context of threads
     */
    public MDCAdapter getMDCA()
    {
        return Slf4jBinding.context();
    }

    /**
     * For SLF4J.
     *
     * @return its class
     */
    public String getMDCAdapterClassStr()
    {
        return getMDCA().getClass().getName();
    }
}
