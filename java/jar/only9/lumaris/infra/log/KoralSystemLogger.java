package lumaris.infra.log;

import java.text.MessageFormat;
import java.util.MissingResourceException;
import java.util.ResourceBundle;
import java.util.function.Supplier;

/** A logger of the runtime. Trace is written with the level of debug, as the log knows nothing below. */
final class KoralSystemLogger implements System.Logger
{
    private final String m_name;
    // Made with the first message: the runtime asks for loggers while it starts.
    private volatile KoralLogger m_logger;

    KoralSystemLogger(String name)
    {
        m_name = name;
    }

    /** The log's level; 0 for that which is off. */
    static int levelOf(Level level)
    {
        switch (level)
        {
        case ALL:
        case TRACE:
        case DEBUG:
            return KoralLog.DEBUG;
        case INFO:
            return KoralLog.INFO;
        case WARNING:
            return KoralLog.WARNING;
        case ERROR:
            return KoralLog.ERROR;
        default:
            return 0;
        }
    }

    @Override
    public String getName()
    {
        return m_name;
    }

    @Override
    public boolean isLoggable(Level level)
    {
        int koralLevel = levelOf(level);
        return koralLevel != 0 && logger().isWanted(koralLevel);
    }

    @Override
    public void log(Level level, ResourceBundle bundle, String text, Throwable thrown)
    {
        if (isLoggable(level))
            logger().write(levelOf(level), null, translated(bundle, text), thrown);
    }

    @Override
    public void log(Level level, ResourceBundle bundle, String format, Object... parameters)
    {
        if (isLoggable(level))
            logger().write(levelOf(level), null, formatted(translated(bundle, format), parameters), null);
    }

    @Override
    public void log(Level level, Supplier<String> text)
    {
        log(level, text, null);
    }

    @Override
    public void log(Level level, Supplier<String> text, Throwable thrown)
    {
        if (isLoggable(level))
            logger().write(levelOf(level), null, text, thrown);
    }

    private KoralLogger logger()
    {
        KoralLogger logger = m_logger;
        if (logger == null)
        {
            logger = KoralLogger.of(m_name);
            m_logger = logger;
        }
        return logger;
    }

    private static String translated(ResourceBundle bundle, String text)
    {
        if (bundle == null || text == null)
            return text;
        try
        {
            return bundle.getString(text);
        }
        catch (MissingResourceException | ClassCastException none)
        {
            return text;
        }
    }

    /** As the runtime's own loggers do: what is no format stands as it is. */
    private static String formatted(String format, Object... parameters)
    {
        if (format == null || parameters == null || parameters.length == 0)
            return format;
        try
        {
            return MessageFormat.format(format, parameters);
        }
        catch (RuntimeException broken)
        {
            return format;
        }
    }
}
