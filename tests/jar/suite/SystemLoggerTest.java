package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import java.io.IOException;
import java.lang.System.Logger;
import java.lang.System.Logger.Level;
import java.util.Collections;
import java.util.Enumeration;
import java.util.ResourceBundle;

import lumaris.infra.log.KoralLog;
import org.junit.Test;

/** Calls of the runtime's loggers. */
public final class SystemLoggerTest
{
    private static final String METHOD_BEGIN = "(310) archive (<pid>,<tid>|main)  SystemLoggerTest(";
    private final Lines m_lines = Lines.begin();

    private static Logger open()
    {
        KoralLog.open("archive");
        return System.getLogger("org.suite.reader.Page");
    }

    private static String line(String level, int number, String method, String text)
    {
        return "<time> " + level + METHOD_BEGIN + number + ") " + method + " -> " + text;
    }

    @Test
    public void eachLevelIsWrittenWithItsOwn()
    {
        Logger log = open();
        int before = Lines.here();
        log.log(Level.TRACE, "one");
        log.log(Level.DEBUG, "two");
        log.log(Level.INFO, "three");
        log.log(Level.WARNING, "four");
        log.log(Level.ERROR, "five");
        log.log(Level.OFF, "never");
        String method = "eachLevelIsWrittenWithItsOwn";
        m_lines.expect(
            "===== archive <pid> Start Session", line("DEBUG   ", before + 1, method, "one"),
            line("DEBUG   ", before + 2, method, "two"), line("INFO    ", before + 3, method, "three"),
            line("WARNING ", before + 4, method, "four"), line("ERROR   ", before + 5, method, "five"));
        assertFalse(log.isLoggable(Level.OFF));
    }

    @Test
    public void whatIsLoggableIsForTheLevelOfThePackageToSay()
    {
        System.setProperty("lumlog.fallback.level.310", "warning");
        Logger log = open();
        assertFalse(log.isLoggable(Level.ALL));
        assertFalse(log.isLoggable(Level.INFO));
        assertTrue(log.isLoggable(Level.WARNING));
        log.log(Level.INFO, () -> { throw new AssertionError(); });
        log.log(Level.INFO, new Object() { @Override public String toString() { throw new AssertionError(); } });
        assertEquals("org.suite.reader.Page", log.getName());
        m_lines.expect("===== archive <pid> Start Session");
    }

    /** Texts in another language. */
    public static final class Texts extends ResourceBundle
    {
        @Override
        protected Object handleGetObject(String key)
        {
            return key.equals("page") ? "Seite {0}" : null;
        }

        @Override
        public Enumeration<String> getKeys()
        {
            return Collections.enumeration(Collections.singleton("page"));
        }
    }

    @Test
    public void parametersExceptionsAndTranslationsAreTaken()
    {
        Logger log = open();
        Exception thrown = new IOException("no page");
        thrown.setStackTrace(new StackTraceElement[0]);
        int before = Lines.here();
        log.log(Level.WARNING, "page {0} of {1}", 3, 17);
        log.log(Level.WARNING, "it's {0}"); // a format only with parameters
        log.log(Level.WARNING, "broken {", 3);
        log.log(Level.WARNING, "text", thrown);
        log.log(Level.WARNING, () -> "lazy", thrown);
        log.log(Level.WARNING, () -> "lazy alone");
        log.log(Level.WARNING, new Texts(), "page", 3);
        log.log(Level.WARNING, new Texts(), "album", (Throwable)null);
        log.log(Level.WARNING, (String)null);
        String method = "parametersExceptionsAndTranslationsAreTaken";
        m_lines.expect(
            "===== archive <pid> Start Session", line("WARNING ", before + 1, method, "page 3 of 17"),
            line("WARNING ", before + 2, method, "it's {0}"), line("WARNING ", before + 3, method, "broken {"),
            line("WARNING ", before + 4, method, "text"), "java.io.IOException: no page",
            line("WARNING ", before + 5, method, "lazy"), "java.io.IOException: no page",
            line("WARNING ", before + 6, method, "lazy alone"), line("WARNING ", before + 7, method, "Seite 3"),
            line("WARNING ", before + 8, method, "album"), line("WARNING ", before + 9, method, "(null)"));
    }
}
