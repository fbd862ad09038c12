package lumaris.infra.log;

import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ConcurrentMap;

/** Brings {@link System.Logger} to the log: the runtime finds this class by itself when {@code lumlog.jar} is there. */
public final class KoralLoggerFinder extends System.LoggerFinder
{
    private final ConcurrentMap<String, System.Logger> m_byName = new ConcurrentHashMap<>();

    /** For the runtime. */
    public KoralLoggerFinder()
    {
    }

    /**
     * The logger of a name.
     *
     * @param name its package is that of the name in {@code lumlog.properties}
     * @param module not looked at
     * @return the same for the same name
     */
    @Override
    public System.Logger getLogger(String name, Module module)
    {
        return m_byName.computeIfAbsent(name, KoralSystemLogger::new);
    }
}
