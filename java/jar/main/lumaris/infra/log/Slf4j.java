package lumaris.infra.log;

import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ConcurrentMap;

import org.slf4j.ILoggerFactory;
import org.slf4j.IMarkerFactory;
import org.slf4j.Logger;
import org.slf4j.helpers.BasicMDCAdapter;
import org.slf4j.helpers.BasicMarkerFactory;
import org.slf4j.spi.MDCAdapter;

/** What SLF4J 1.7 and 2 get from here: loggers by name, and the context of threads that names their clients. */
final class Slf4j
{
    private static final String CLIENT = "client";
    private static final String SESSION = "session";

    static final ILoggerFactory LOGGERS = new Loggers();
    static final IMarkerFactory MARKERS = new BasicMarkerFactory();
    static final MDCAdapter CONTEXT = new Context();

    private Slf4j()
    {
    }

    private static final class Loggers implements ILoggerFactory
    {
        private final ConcurrentMap<String, Logger> m_byName = new ConcurrentHashMap<>();

        @Override
        public Logger getLogger(String name)
        {
            return m_byName.computeIfAbsent(name, Slf4jLogger::new);
        }
    }

    /** The keys of SLF4J's own adapter, of which two name the client that a thread works for. */
    private static final class Context extends BasicMDCAdapter implements KoralClient.Source
    {
        Context()
        {
            KoralClient.ask(this);
        }

        @Override
        public String address()
        {
            return get(CLIENT);
        }

        @Override
        public String session()
        {
            return get(SESSION);
        }
    }
}
