package lumaris.infra.log;

import org.slf4j.Marker;
import org.slf4j.helpers.FormattingTuple;
import org.slf4j.helpers.MessageFormatter;
import org.slf4j.spi.LocationAwareLogger;

/**
 * A logger of SLF4J, by the interface of 1.7; that of 2 adds methods that call these. Markers are not looked at.
 *
 * <p>Trace is written with the level of debug, as the log knows nothing below.
 */
final class Slf4jLogger implements LocationAwareLogger
{
    private final String m_name;
    private final KoralLogger m_logger;

    Slf4jLogger(String name)
    {
        m_name = name;
        m_logger = KoralLogger.of(name);
    }

    /** The log's level of one of SLF4J's numbers. */
    static int levelOf(int slf4jLevel)
    {
        if (slf4jLevel >= ERROR_INT)
            return KoralLog.ERROR;
        if (slf4jLevel >= WARN_INT)
            return KoralLog.WARNING;
        return slf4jLevel >= INFO_INT ? KoralLog.INFO : KoralLog.DEBUG;
    }

    @Override
    public String getName()
    {
        return m_name;
    }

    /** What stands in front of SLF4J, such as a bridge, names itself as the boundary. */
    @Override
    public void log(Marker marker, String boundary, int level, String format, Object[] arguments, Throwable thrown)
    {
        int koralLevel = levelOf(level);
        if (!m_logger.isWanted(koralLevel))
            return;
        FormattingTuple text = MessageFormatter.arrayFormat(format, arguments);
        m_logger.write(koralLevel, boundary, text.getMessage(), thrown == null ? text.getThrowable() : thrown);
    }

    private void write(int level, String text, Throwable thrown)
    {
        m_logger.write(level, null, text, thrown);
    }

    private void write(int level, String format, Object[] arguments)
    {
        if (!m_logger.isWanted(level))
            return;
        FormattingTuple text = MessageFormatter.arrayFormat(format, arguments);
        m_logger.write(level, null, text.getMessage(), text.getThrowable());
    }

    @Override
    public boolean isTraceEnabled()
    {
        return m_logger.isWanted(KoralLog.DEBUG);
    }

    @Override
    public void trace(String text)
    {
        write(KoralLog.DEBUG, text, (Throwable)null);
    }

    @Override
    public void trace(String format, Object argument)
    {
        write(KoralLog.DEBUG, format, new Object[] {argument});
    }

    @Override
    public void trace(String format, Object first, Object second)
    {
        write(KoralLog.DEBUG, format, new Object[] {first, second});
    }

    @Override
    public void trace(String format, Object... arguments)
    {
        write(KoralLog.DEBUG, format, arguments);
    }

    @Override
    public void trace(String text, Throwable thrown)
    {
        write(KoralLog.DEBUG, text, thrown);
    }

    @Override
    public boolean isTraceEnabled(Marker marker)
    {
        return m_logger.isWanted(KoralLog.DEBUG);
    }

    @Override
    public void trace(Marker marker, String text)
    {
        write(KoralLog.DEBUG, text, (Throwable)null);
    }

    @Override
    public void trace(Marker marker, String format, Object argument)
    {
        write(KoralLog.DEBUG, format, new Object[] {argument});
    }

    @Override
    public void trace(Marker marker, String format, Object first, Object second)
    {
        write(KoralLog.DEBUG, format, new Object[] {first, second});
    }

    @Override
    public void trace(Marker marker, String format, Object... arguments)
    {
        write(KoralLog.DEBUG, format, arguments);
    }

    @Override
    public void trace(Marker marker, String text, Throwable thrown)
    {
        write(KoralLog.DEBUG, text, thrown);
    }

    @Override
    public boolean isDebugEnabled()
    {
        return m_logger.isWanted(KoralLog.DEBUG);
    }

    @Override
    public void debug(String text)
    {
        write(KoralLog.DEBUG, text, (Throwable)null);
    }

    @Override
    public void debug(String format, Object argument)
    {
        write(KoralLog.DEBUG, format, new Object[] {argument});
    }

    @Override
    public void debug(String format, Object first, Object second)
    {
        write(KoralLog.DEBUG, format, new Object[] {first, second});
    }

    @Override
    public void debug(String format, Object... arguments)
    {
        write(KoralLog.DEBUG, format, arguments);
    }

    @Override
    public void debug(String text, Throwable thrown)
    {
        write(KoralLog.DEBUG, text, thrown);
    }

    @Override
    public boolean isDebugEnabled(Marker marker)
    {
        return m_logger.isWanted(KoralLog.DEBUG);
    }

    @Override
    public void debug(Marker marker, String text)
    {
        write(KoralLog.DEBUG, text, (Throwable)null);
    }

    @Override
    public void debug(Marker marker, String format, Object argument)
    {
        write(KoralLog.DEBUG, format, new Object[] {argument});
    }

    @Override
    public void debug(Marker marker, String format, Object first, Object second)
    {
        write(KoralLog.DEBUG, format, new Object[] {first, second});
    }

    @Override
    public void debug(Marker marker, String format, Object... arguments)
    {
        write(KoralLog.DEBUG, format, arguments);
    }

    @Override
    public void debug(Marker marker, String text, Throwable thrown)
    {
        write(KoralLog.DEBUG, text, thrown);
    }

    @Override
    public boolean isInfoEnabled()
    {
        return m_logger.isWanted(KoralLog.INFO);
    }

    @Override
    public void info(String text)
    {
        write(KoralLog.INFO, text, (Throwable)null);
    }

    @Override
    public void info(String format, Object argument)
    {
        write(KoralLog.INFO, format, new Object[] {argument});
    }

    @Override
    public void info(String format, Object first, Object second)
    {
        write(KoralLog.INFO, format, new Object[] {first, second});
    }

    @Override
    public void info(String format, Object... arguments)
    {
        write(KoralLog.INFO, format, arguments);
    }

    @Override
    public void info(String text, Throwable thrown)
    {
        write(KoralLog.INFO, text, thrown);
    }

    @Override
    public boolean isInfoEnabled(Marker marker)
    {
        return m_logger.isWanted(KoralLog.INFO);
    }

    @Override
    public void info(Marker marker, String text)
    {
        write(KoralLog.INFO, text, (Throwable)null);
    }

    @Override
    public void info(Marker marker, String format, Object argument)
    {
        write(KoralLog.INFO, format, new Object[] {argument});
    }

    @Override
    public void info(Marker marker, String format, Object first, Object second)
    {
        write(KoralLog.INFO, format, new Object[] {first, second});
    }

    @Override
    public void info(Marker marker, String format, Object... arguments)
    {
        write(KoralLog.INFO, format, arguments);
    }

    @Override
    public void info(Marker marker, String text, Throwable thrown)
    {
        write(KoralLog.INFO, text, thrown);
    }

    @Override
    public boolean isWarnEnabled()
    {
        return m_logger.isWanted(KoralLog.WARNING);
    }

    @Override
    public void warn(String text)
    {
        write(KoralLog.WARNING, text, (Throwable)null);
    }

    @Override
    public void warn(String format, Object argument)
    {
        write(KoralLog.WARNING, format, new Object[] {argument});
    }

    @Override
    public void warn(String format, Object first, Object second)
    {
        write(KoralLog.WARNING, format, new Object[] {first, second});
    }

    @Override
    public void warn(String format, Object... arguments)
    {
        write(KoralLog.WARNING, format, arguments);
    }

    @Override
    public void warn(String text, Throwable thrown)
    {
        write(KoralLog.WARNING, text, thrown);
    }

    @Override
    public boolean isWarnEnabled(Marker marker)
    {
        return m_logger.isWanted(KoralLog.WARNING);
    }

    @Override
    public void warn(Marker marker, String text)
    {
        write(KoralLog.WARNING, text, (Throwable)null);
    }

    @Override
    public void warn(Marker marker, String format, Object argument)
    {
        write(KoralLog.WARNING, format, new Object[] {argument});
    }

    @Override
    public void warn(Marker marker, String format, Object first, Object second)
    {
        write(KoralLog.WARNING, format, new Object[] {first, second});
    }

    @Override
    public void warn(Marker marker, String format, Object... arguments)
    {
        write(KoralLog.WARNING, format, arguments);
    }

    @Override
    public void warn(Marker marker, String text, Throwable thrown)
    {
        write(KoralLog.WARNING, text, thrown);
    }

    @Override
    public boolean isErrorEnabled()
    {
        return m_logger.isWanted(KoralLog.ERROR);
    }

    @Override
    public void error(String text)
    {
        write(KoralLog.ERROR, text, (Throwable)null);
    }

    @Override
    public void error(String format, Object argument)
    {
        write(KoralLog.ERROR, format, new Object[] {argument});
    }

    @Override
    public void error(String format, Object first, Object second)
    {
        write(KoralLog.ERROR, format, new Object[] {first, second});
    }

    @Override
    public void error(String format, Object... arguments)
    {
        write(KoralLog.ERROR, format, arguments);
    }

    @Override
    public void error(String text, Throwable thrown)
    {
        write(KoralLog.ERROR, text, thrown);
    }

    @Override
    public boolean isErrorEnabled(Marker marker)
    {
        return m_logger.isWanted(KoralLog.ERROR);
    }

    @Override
    public void error(Marker marker, String text)
    {
        write(KoralLog.ERROR, text, (Throwable)null);
    }

    @Override
    public void error(Marker marker, String format, Object argument)
    {
        write(KoralLog.ERROR, format, new Object[] {argument});
    }

    @Override
    public void error(Marker marker, String format, Object first, Object second)
    {
        write(KoralLog.ERROR, format, new Object[] {first, second});
    }

    @Override
    public void error(Marker marker, String format, Object... arguments)
    {
        write(KoralLog.ERROR, format, arguments);
    }

    @Override
    public void error(Marker marker, String text, Throwable thrown)
    {
        write(KoralLog.ERROR, text, thrown);
    }
}
