package lumaris.infra.log;

import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogManager;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import java.util.logging.SimpleFormatter;

/**
 * Writes what is logged by {@code java.util.logging}: {@code KoralHandler.install()} takes the place of the handlers
 * that there are.
 *
 * <p>The package of a record is that of its logger's name in {@code lumlog.properties}. Levels: from {@code SEVERE} on
 * error, from {@code WARNING} on warning, from {@code CONFIG} on info, else debug. A filter and a level that are set
 * here count too.
 */
public final class KoralHandler extends Handler
{
    private static final String RUNTIME = "java.util.logging.Logger";

    /** For {@code logging.properties}, as {@code handlers=lumaris.infra.log.KoralHandler}. */
    public KoralHandler()
    {
        setFormatter(new SimpleFormatter()); // of which only the text is asked for
    }

    /**
     * Puts one in the place of all handlers of the root logger, and lets everything through to it: what is written is
     * for the log to say, at run time.
     */
    public static void install()
    {
        Logger root = LogManager.getLogManager().getLogger("");
        for (Handler handler : root.getHandlers())
            root.removeHandler(handler);
        root.addHandler(new KoralHandler());
        root.setLevel(Level.ALL);
    }

    /**
     * The log's level of one of {@code java.util.logging}.
     *
     * @param level not null
     * @return {@link KoralLog#ERROR}, {@link KoralLog#WARNING}, {@link KoralLog#INFO} or {@link KoralLog#DEBUG}
     */
    public static int levelOf(Level level)
    {
        int value = level.intValue();
        if (value >= Level.SEVERE.intValue())
            return KoralLog.ERROR;
        if (value >= Level.WARNING.intValue())
            return KoralLog.WARNING;
        return value >= Level.CONFIG.intValue() ? KoralLog.INFO : KoralLog.DEBUG;
    }

    /**
     * The level of {@code java.util.logging} of one of the log's.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @return {@code SEVERE}, {@code WARNING}, {@code INFO} (for notices as well) or {@code FINE}
     */
    public static Level levelOf(int level)
    {
        if (level <= KoralLog.ERROR)
            return Level.SEVERE;
        if (level == KoralLog.WARNING)
            return Level.WARNING;
        return level <= KoralLog.INFO ? Level.INFO : Level.FINE;
    }

    @Override
    public boolean isLoggable(LogRecord record)
    {
        return record != null && super.isLoggable(record)
            && KoralLogger.of(record.getLoggerName()).isWanted(levelOf(record.getLevel()));
    }

    @Override
    public void publish(LogRecord record)
    {
        if (isLoggable(record))
            KoralLogger.of(record.getLoggerName())
                .write(levelOf(record.getLevel()), RUNTIME, getFormatter().formatMessage(record), record.getThrown());
    }

    /** Does nothing: each line is handed on at once. */
    @Override
    public void flush()
    {
    }

    /** Does nothing: the log stays open until the process ends. */
    @Override
    public void close()
    {
    }
}
