package lumaris.infra.log;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.ZonedDateTime;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The log of a program that runs without the DLL, as in tests on other systems: the same lines, to standard error or a
 * file, for this process alone.
 */
final class FallbackBackend extends Backend
{
    private static final int MOST_OF_BARE = 2046;
    private static final int LEVEL_COUNT = 8;

    private final Settings m_settings;
    private final OutputStream m_file; // null: standard error
    private final long m_process = ProcessIds.ofThis();
    private final ThreadLocal<String> m_threadName = new ThreadLocal<>();
    // No monitor: a virtual thread that waits for one would keep its carrier.
    private final ReentrantLock m_lock = new ReentrantLock();
    private String m_application; // null: not open; behind the lock

    private FallbackBackend(Settings settings, OutputStream file)
    {
        m_settings = settings;
        m_file = file;
    }

    /** Says in one line that it is there, and why. */
    static FallbackBackend create(Settings settings, String complaint)
    {
        String path = settings.fallbackFile();
        OutputStream file = null;
        String where = "standard error";
        if (path != null)
        {
            try
            {
                file = new FileOutputStream(new File(path), true);
                where = path;
            }
            catch (IOException | SecurityException failed)
            {
                where = "standard error, as lumlog.fallback.file can't be opened: " + failed.getMessage();
            }
        }
        System.err.println(complaint + ": lines go to " + where);
        return new FallbackBackend(settings, file);
    }

    @Override
    int open(String application)
    {
        m_lock.lock();
        try
        {
            if (m_application != null)
                return 0;
            m_application = application == null ? "" : application;
        }
        finally
        {
            m_lock.unlock();
        }
        writeBanner("Start");
        try
        {
            Runtime.getRuntime().addShutdownHook(new Thread(() -> writeBanner("End"), "lumlog end"));
        }
        catch (IllegalStateException | SecurityException ending)
        {
        }
        return 0;
    }

    @Override
    int open(String file, String application)
    {
        return open(application); // where lines go instead is for the settings to say
    }

    @Override
    boolean isWanted(int packageNumber, int level)
    {
        return level <= m_settings.fallbackLevel(packageNumber);
    }

    @Override
    int writeBare(String text)
    {
        if (m_settings.fallbackLevel(Settings.LIBRARY_PACKAGE) > 0)
            writeLine(Headlines.cut(text == null ? "(null)" : text, MOST_OF_BARE));
        return 0;
    }

    @Override
    int write(int packageNumber, int level, String text)
    {
        LocatedText located = LocatedText.read(text == null ? "(null)" : text);
        if (located.thread != null)
            m_threadName.set(located.thread);
        if (level < 0 || level >= LEVEL_COUNT || !isWanted(packageNumber, level))
            return 0;
        String headline = Headlines.of(
            ZonedDateTime.now(), level, packageNumber, application(), m_process, Thread.currentThread().getId(),
            m_threadName.get(), KoralClient.current(), located);
        writeLine(headline + " " + located.body);
        return 0;
    }

    private String application()
    {
        m_lock.lock();
        try
        {
            return m_application == null ? "(null)" : m_application;
        }
        finally
        {
            m_lock.unlock();
        }
    }

    private void writeBanner(String which)
    {
        StringBuilder line = new StringBuilder("===== ");
        line.append(application()).append(" (").append(m_process).append(") ").append(which).append(" Session at ");
        Headlines.addTime(line, ZonedDateTime.now());
        line.append(", User ").append(System.getProperty("user.name", "unknown"));
        line.append(" on ").append(computer()).append(" =====");
        writeLine(line.toString());
    }

    /** From the environment, as asking the network could take long. */
    private static String computer()
    {
        String windows = System.getenv("COMPUTERNAME");
        String others = System.getenv("HOSTNAME");
        return windows != null ? windows : others != null ? others : "this computer";
    }

    private void writeLine(String text)
    {
        String end = System.lineSeparator();
        String line = text.endsWith("\n") ? text : text + "\n";
        byte[] bytes = (end.equals("\n") ? line : line.replace("\n", end)).getBytes(StandardCharsets.UTF_8);
        m_lock.lock();
        try
        {
            if (m_file == null)
                writeToStandardError(bytes);
            else
                m_file.write(bytes);
        }
        catch (IOException full) // then the lines after it may still find room
        {
        }
        finally
        {
            m_lock.unlock();
        }
    }

    /** The stream there is at that moment: tests put one of their own there. */
    private static void writeToStandardError(byte[] bytes)
    {
        PrintStream stream = System.err;
        stream.write(bytes, 0, bytes.length);
        stream.flush();
    }
}
