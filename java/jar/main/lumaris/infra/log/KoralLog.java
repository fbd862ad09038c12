package lumaris.infra.log;

import java.util.function.Supplier;

/**
 * The way into the log for Java programs: one process, one log, shared with whatever native code logs in it.
 *
 * <p>{@code LUMlog.dll} is loaded with the first use: the file that the system property {@code lumlog.library} names,
 * or the one beside {@code lumlog.jar}, or the one in {@code java.library.path}. Without it the same lines go to
 * standard error, or to the file that {@code lumlog.fallback.file} names; one line on standard error says so. Only
 * where {@code lumlog.required} is {@code true}, each use throws {@link IllegalStateException} then. Nothing else here
 * throws.
 *
 * <p>Any method may be called from any thread at any time. Lines of different threads do not mix, and one thread's
 * lines stand in the order it wrote them.
 *
 * <p>Packages are numbers from 0 to 749; of any other, what is up to warning is wanted.
 *
 * <p>Texts arrive in the DLL's log in Java's own modified UTF-8: characters outside the basic plane as two surrogates
 * of three bytes each, and U+0000 as two bytes.
 */
public final class KoralLog
{
    /** Level of what ends a program. */
    public static final int SEVERE = 1;
    /** Level of what a part of a program can't go on after. */
    public static final int CRITICAL = 2;
    /** Level of what failed. */
    public static final int ERROR = 3;
    /** Level of what may become an error; up to this one packages write that nobody configured. */
    public static final int WARNING = 4;
    /** Level of what is remarkable, and in order. */
    public static final int NOTICE = 5;
    /** Level of what tells how the work goes. */
    public static final int INFO = 6;
    /** Level of what only the search for a fault needs. */
    public static final int DEBUG = 7;

    private KoralLog()
    {
    }

    /**
     * Opens the log without a private file. The first opening of a process counts; later ones change nothing.
     *
     * @param applicationName what stands in each line and what rules ask for; null counts as empty
     * @return 0, or -1 where the log could not be opened, which is also said on standard output
     */
    public static int open(String applicationName)
    {
        Backend backend = Backend.get();
        int result = backend.open(applicationName);
        backend.warn();
        return result;
    }

    /**
     * Opens the log with a private file, which is appended to. The first opening of a process counts; later ones
     * change nothing.
     *
     * @param fileName the private file, in the folder that the environment variable PRISMATE_LOG_DIR names. Whether
     *     lines go there is for the folder's {@code logger} file to say. One that cannot be opened is reported on
     *     standard error, and the log works without it; so it is with null. Not looked at without the DLL
     * @param applicationName what stands in each line and what rules ask for; null counts as empty
     * @return 0, or -1 where the log could not be opened, which is also said on standard output
     */
    public static int open(String fileName, String applicationName)
    {
        Backend backend = Backend.get();
        int result = backend.open(fileName, applicationName);
        backend.warn();
        return result;
    }

    /**
     * Does nothing: the log stays open until the process ends.
     *
     * @return 0
     */
    public static int close()
    {
        return 0;
    }

    /**
     * Tells whether a message would be written, for where its text is expensive to make.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @return whether messages of that level are wanted for that package at this moment
     */
    public static boolean checkMsgLevel(int packageNumber, int level)
    {
        return Backend.get().isWanted(packageNumber, level);
    }

    /**
     * Writes a line without a headline, whatever the levels say: it is silent only where somebody has set the library's
     * own package, 106, to level 0.
     *
     * @param ignored not looked at
     * @param text the line; null is written as {@code (null)}
     * @return 0
     */
    public static int tlog(int ignored, String text)
    {
        return Backend.get().writeBare(text);
    }

    /**
     * Writes a line with a headline, if a message of that level is wanted for that package.
     *
     * <p>The text may begin with the place it comes from, {@code <thread,class.method:line>}, as {@link #located} makes
     * it. That goes into the headline rather than the message, and the thread keeps the name from then on. Without a
     * place, or with line 0, the headline names none.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7, or 0 for what is written whatever the package's level; with any other nothing is written
     * @param text the line, with or without a place in front; null is written as {@code (null)}
     * @return 0
     */
    public static int tlogln(int packageNumber, int level, String text)
    {
        return Backend.get().write(packageNumber, level, text);
    }

    /**
     * Writes a line with a headline that names the caller of this method, if a message of that level is wanted for that
     * package. A message that is not wanted does not cost the look at the stack.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @param text the line; null is written as {@code (null)}
     * @return 0
     */
    public static int log(int packageNumber, int level, String text)
    {
        return log(packageNumber, level, text, null);
    }

    /**
     * Writes a text and an exception as one message, if it is wanted: the headline names the caller of this method, and
     * the lines behind it are the exception's stack, its causes and what it suppressed.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @param text what stands in front; null or empty for nothing
     * @param thrown the exception; null for none
     * @return 0
     */
    public static int log(int packageNumber, int level, String text, Throwable thrown)
    {
        Backend backend = Backend.get();
        if (backend.isWanted(packageNumber, level))
            backend.write(packageNumber, level, Callers.find(null), Messages.of(text, thrown));
        return 0;
    }

    /**
     * Writes a line whose text is made only where it is wanted.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @param text gives the line; where it throws, the line says so
     * @return 0
     */
    public static int log(int packageNumber, int level, Supplier<String> text)
    {
        return log(packageNumber, level, text, null);
    }

    /**
     * Writes a line whose text is made only where it is wanted, and an exception behind it.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @param text gives what stands in front; where it throws, the line says so
     * @param thrown the exception; null for none
     * @return 0
     */
    public static int log(int packageNumber, int level, Supplier<String> text, Throwable thrown)
    {
        Backend backend = Backend.get();
        if (backend.isWanted(packageNumber, level))
            backend.write(packageNumber, level, Callers.find(null), Messages.of(Messages.of(text), thrown));
        return 0;
    }

    /**
     * Puts the calling thread's name and the caller's class, method and line in front of a text, for {@link #tlogln}.
     *
     * <p>The class comes without its package, a constructor as {@code init} and a static initializer as {@code clinit}.
     * The line is 0 where the class file has none. Characters that would end a part of the prefix early become
     * underscores.
     *
     * @param text the message; null becomes {@code (null)}
     * @return {@code <thread,class.method:line>} and the text
     */
    public static String located(String text)
    {
        return Places.located(Callers.find(null), text);
    }

    /**
     * From here on, exceptions that end a thread of this program are written with level {@link #SEVERE}, and then go
     * where they went before: to the handler that there was, or to standard error. The headline names the place that
     * threw the exception.
     *
     * @param packageNumber the package of these messages, 0 to 749
     */
    public static void logUncaughtExceptions(int packageNumber)
    {
        UncaughtExceptions.install(packageNumber);
    }
}
