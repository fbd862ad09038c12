package lumaris.infra.log;

import java.util.function.Supplier;

/**
 * A logger of one package.
 *
 * <pre>
 * private static final KoralLogger LOG = KoralLogger.of(310);
 * ...
 * LOG.debug(() -&gt; "shown are " + String.join(" and ", images));
 * </pre>
 *
 * <p>Lines name the caller of the logger, with class, method and line; it is looked up only where a message is wanted.
 * A program that has a logging class of its own in front of this one gives that class as the boundary: lines then name
 * whoever calls that class.
 *
 * <p>Loggers are small, immutable and for all threads. They are made without the DLL being looked for, so a class that
 * has one as a constant can be loaded anywhere. Their methods throw nothing, except {@link IllegalStateException} where
 * {@code lumlog.required} is {@code true} and there is no DLL.
 */
public final class KoralLogger
{
    private final int m_package;
    private final String m_boundary; // null: the logger's own callers

    private KoralLogger(int packageNumber, String boundary)
    {
        m_package = packageNumber;
        m_boundary = boundary;
    }

    /**
     * The logger of a package.
     *
     * @param packageNumber 0 to 749; of any other, what is up to warning is wanted
     * @return never null
     */
    public static KoralLogger of(int packageNumber)
    {
        return new KoralLogger(packageNumber, null);
    }

    /**
     * The logger of a package for a class that passes messages on.
     *
     * @param packageNumber 0 to 749; of any other, what is up to warning is wanted
     * @param boundary the class whose callers the lines shall name, its nested classes included; null: the logger's own
     *     callers. A message that did not come through that class, or through more than 32 calls behind it, names the
     *     logger's caller
     * @return never null
     */
    public static KoralLogger of(int packageNumber, Class<?> boundary)
    {
        return new KoralLogger(packageNumber, boundary == null ? null : boundary.getName());
    }

    /**
     * The logger of the package that {@code lumlog.properties} gives a class.
     *
     * @param of the class; its name begins with one of the prefixes in the file
     * @return never null
     */
    public static KoralLogger of(Class<?> of)
    {
        return of(of.getName());
    }

    /**
     * The logger of the package that {@code lumlog.properties} gives a name.
     *
     * @param name such as {@code org.suite.reader.Page}; it begins with one of the prefixes in the file. Null is the
     *     package of names without a prefix
     * @return never null
     */
    public static KoralLogger of(String name)
    {
        return new KoralLogger(Settings.get().packageOf(name), null);
    }

    /**
     * The package of this logger.
     *
     * @return as it was given
     */
    public int packageNumber()
    {
        return m_package;
    }

    /**
     * Tells whether a message would be written.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @return whether messages of that level are wanted at this moment
     */
    public boolean isWanted(int level)
    {
        return Backend.get().isWanted(m_package, level);
    }

    /**
     * Writes a line.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @param text the line; null is written as {@code (null)}
     */
    public void log(int level, String text)
    {
        write(level, m_boundary, text, null);
    }

    /**
     * Writes a line, and behind it an exception with its stack, its causes and what it suppressed.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @param text the line; null or empty for none
     * @param thrown the exception; null for none
     */
    public void log(int level, String text, Throwable thrown)
    {
        write(level, m_boundary, text, thrown);
    }

    /**
     * Writes a line whose text is made only where it is wanted.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @param text gives the line; where it throws, the line says so
     */
    public void log(int level, Supplier<String> text)
    {
        write(level, m_boundary, text, null);
    }

    /**
     * Writes a line whose text is made only where it is wanted, and an exception behind it.
     *
     * @param level {@link KoralLog#SEVERE} to {@link KoralLog#DEBUG}
     * @param text gives the line; where it throws, the line says so
     * @param thrown the exception; null for none
     */
    public void log(int level, Supplier<String> text, Throwable thrown)
    {
        write(level, m_boundary, text, thrown);
    }

    /**
     * Writes an error.
     *
     * @param text the line; null is written as {@code (null)}
     */
    public void error(String text)
    {
        write(KoralLog.ERROR, m_boundary, text, null);
    }

    /**
     * Writes an error, and an exception behind it.
     *
     * @param text the line; null or empty for none
     * @param thrown the exception; null for none
     */
    public void error(String text, Throwable thrown)
    {
        write(KoralLog.ERROR, m_boundary, text, thrown);
    }

    /**
     * Writes an error whose text is made only where it is wanted.
     *
     * @param text gives the line; where it throws, the line says so
     */
    public void error(Supplier<String> text)
    {
        write(KoralLog.ERROR, m_boundary, text, null);
    }

    /**
     * Writes an error whose text is made only where it is wanted, and an exception behind it.
     *
     * @param text gives the line; where it throws, the line says so
     * @param thrown the exception; null for none
     */
    public void error(Supplier<String> text, Throwable thrown)
    {
        write(KoralLog.ERROR, m_boundary, text, thrown);
    }

    /**
     * Writes a warning.
     *
     * @param text the line; null is written as {@code (null)}
     */
    public void warn(String text)
    {
        write(KoralLog.WARNING, m_boundary, text, null);
    }

    /**
     * Writes a warning, and an exception behind it.
     *
     * @param text the line; null or empty for none
     * @param thrown the exception; null for none
     */
    public void warn(String text, Throwable thrown)
    {
        write(KoralLog.WARNING, m_boundary, text, thrown);
    }

    /**
     * Writes a warning whose text is made only where it is wanted.
     *
     * @param text gives the line; where it throws, the line says so
     */
    public void warn(Supplier<String> text)
    {
        write(KoralLog.WARNING, m_boundary, text, null);
    }

    /**
     * Writes a warning whose text is made only where it is wanted, and an exception behind it.
     *
     * @param text gives the line; where it throws, the line says so
     * @param thrown the exception; null for none
     */
    public void warn(Supplier<String> text, Throwable thrown)
    {
        write(KoralLog.WARNING, m_boundary, text, thrown);
    }

    /**
     * Writes an information.
     *
     * @param text the line; null is written as {@code (null)}
     */
    public void info(String text)
    {
        write(KoralLog.INFO, m_boundary, text, null);
    }

    /**
     * Writes an information, and an exception behind it.
     *
     * @param text the line; null or empty for none
     * @param thrown the exception; null for none
     */
    public void info(String text, Throwable thrown)
    {
        write(KoralLog.INFO, m_boundary, text, thrown);
    }

    /**
     * Writes an information whose text is made only where it is wanted.
     *
     * @param text gives the line; where it throws, the line says so
     */
    public void info(Supplier<String> text)
    {
        write(KoralLog.INFO, m_boundary, text, null);
    }

    /**
     * Writes an information whose text is made only where it is wanted, and an exception behind it.
     *
     * @param text gives the line; where it throws, the line says so
     * @param thrown the exception; null for none
     */
    public void info(Supplier<String> text, Throwable thrown)
    {
        write(KoralLog.INFO, m_boundary, text, thrown);
    }

    /**
     * Writes a debug message.
     *
     * @param text the line; null is written as {@code (null)}
     */
    public void debug(String text)
    {
        write(KoralLog.DEBUG, m_boundary, text, null);
    }

    /**
     * Writes a debug message, and an exception behind it.
     *
     * @param text the line; null or empty for none
     * @param thrown the exception; null for none
     */
    public void debug(String text, Throwable thrown)
    {
        write(KoralLog.DEBUG, m_boundary, text, thrown);
    }

    /**
     * Writes a debug message whose text is made only where it is wanted.
     *
     * @param text gives the line; where it throws, the line says so
     */
    public void debug(Supplier<String> text)
    {
        write(KoralLog.DEBUG, m_boundary, text, null);
    }

    /**
     * Writes a debug message whose text is made only where it is wanted, and an exception behind it.
     *
     * @param text gives the line; where it throws, the line says so
     * @param thrown the exception; null for none
     */
    public void debug(Supplier<String> text, Throwable thrown)
    {
        write(KoralLog.DEBUG, m_boundary, text, thrown);
    }

    /** For loggers of other kinds: with the name of the class whose callers are looked for, null for the log's own. */
    void write(int level, String boundary, String text, Throwable thrown)
    {
        Backend backend = Backend.get();
        if (backend.isWanted(m_package, level))
            backend.write(m_package, level, Callers.find(boundary), Messages.of(text, thrown));
    }

    void write(int level, String boundary, Supplier<String> text, Throwable thrown)
    {
        Backend backend = Backend.get();
        if (backend.isWanted(m_package, level))
            backend.write(m_package, level, Callers.find(boundary), Messages.of(Messages.of(text), thrown));
    }
}
