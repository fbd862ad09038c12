package org.slf4j.spi;

import org.slf4j.ILoggerFactory;
import org.slf4j.IMarkerFactory;

/** What SLF4J 2 asks of a provider, to compile one with the API of 1.7, which the distribution has. Not in the jar. */
public interface SLF4JServiceProvider
{
    ILoggerFactory getLoggerFactory();

    IMarkerFactory getMarkerFactory();

    MDCAdapter getMDCAdapter();

    String getRequestedApiVersion();

    void initialize();
}
