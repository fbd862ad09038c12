package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import java.io.IOException;
import java.util.function.Supplier;

import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.junit.Test;

/** What loggers write, and what exceptions look like. */
public final class LoggerTest
{
    private static final String HEAD = "(310) archive (<pid>,<tid>|main)  LoggerTest(";
    private final Lines m_lines = Lines.begin();

    /** A class of a program's own in front of the log. */
    private static final class Wrapper
    {
        private static final KoralLogger LOG = KoralLogger.of(310, Wrapper.class);

        static void say(String text)
        {
            pass(text);
        }

        private static void pass(String text)
        {
            Runnable work = () -> LOG.warn(text);
            work.run();
        }

        static final class Nested
        {
            static void say(String text)
            {
                LOG.warn(text);
            }
        }
    }

    private static void open()
    {
        KoralLog.open("archive.log", "archive");
    }

    private static String line(String level, int number, String method, String text)
    {
        return "<time> " + level + HEAD + number + ") " + method + " -> " + text;
    }

    @Test
    public void eachLevelNamesItsCaller()
    {
        open();
        KoralLogger log = KoralLogger.of(310);
        int before = Lines.here();
        log.error("one");
        log.warn("two");
        log.info("three");
        log.debug("four");
        log.log(KoralLog.SEVERE, "five");
        log.log(KoralLog.NOTICE, () -> "six");
        KoralLog.log(310, KoralLog.CRITICAL, "seven");
        String method = "eachLevelNamesItsCaller";
        m_lines.expect(
            "===== archive <pid> Start Session", line("ERROR   ", before + 1, method, "one"),
            line("WARNING ", before + 2, method, "two"), line("INFO    ", before + 3, method, "three"),
            line("DEBUG   ", before + 4, method, "four"), line("SEVERE  ", before + 5, method, "five"),
            line("NOTICE  ", before + 6, method, "six"), line("CRITICAL", before + 7, method, "seven"));
    }

    @Test
    public void aBoundaryClassAndWhatIsInItIsPassedOver()
    {
        open();
        int before = Lines.here();
        Wrapper.say("by a lambda");
        Wrapper.Nested.say("by a nested class");
        String method = "aBoundaryClassAndWhatIsInItIsPassedOver";
        m_lines.expect(
            "===== archive <pid> Start Session", line("WARNING ", before + 1, method, "by a lambda"),
            line("WARNING ", before + 2, method, "by a nested class"));
    }

    @Test
    public void aBoundaryThatIsNotOnTheStackHidesNobody()
    {
        open();
        int before = Lines.here();
        Wrapper.LOG.warn("past it");
        m_lines.expect(
            "===== archive <pid> Start Session",
            line("WARNING ", before + 1, "aBoundaryThatIsNotOnTheStackHidesNobody", "past it"));
    }

    private static void below(int calls)
    {
        if (calls > 0)
            below(calls - 1);
        else
            KoralLogger.of(310, String.class).warn("from below");
    }

    @Test
    public void aBoundaryThatIsNotOnADeepStackHidesNobody()
    {
        open();
        below(1000);
        assertTrue(m_lines.written().get(1).endsWith(") below -> from below"));
    }

    @Test
    public void aTextThatIsNotWantedIsNotMade()
    {
        System.setProperty("lumlog.fallback.level.310", "info");
        open();
        KoralLogger log = KoralLogger.of(310);
        Supplier<String> never = () -> { throw new AssertionError("asked for"); };
        log.debug(never);
        log.debug(never, new IOException());
        log.log(KoralLog.DEBUG, never);
        KoralLog.log(310, KoralLog.DEBUG, never);
        assertFalse(log.isWanted(KoralLog.DEBUG));
        assertTrue(log.isWanted(KoralLog.INFO));
        m_lines.expect("===== archive <pid> Start Session");
    }

    @Test
    public void aTextThatCannotBeMadeIsTold()
    {
        open();
        KoralLogger log = KoralLogger.of(310);
        Supplier<String> broken = () -> { throw new IllegalStateException("no text"); };
        int before = Lines.here();
        log.warn(broken);
        log.warn((Supplier<String>)null);
        log.warn(() -> null);
        String method = "aTextThatCannotBeMadeIsTold";
        m_lines.expect(
            "===== archive <pid> Start Session",
            line("WARNING ", before + 1, method, "(the text could not be made: java.lang.IllegalStateException)"),
            line("WARNING ", before + 2, method, "(null)"), line("WARNING ", before + 3, method, "(null)"));
    }

    private static Exception broken()
    {
        Exception thrown = new IOException("no page 3", new IllegalStateException("torn"));
        thrown.addSuppressed(new RuntimeException("while closing"));
        StackTraceElement[] trace = {new StackTraceElement("suite.Page", "read", "Page.java", 5)};
        thrown.setStackTrace(trace);
        thrown.getCause().setStackTrace(trace);
        thrown.getSuppressed()[0].setStackTrace(trace);
        return thrown;
    }

    @Test
    public void anExceptionComesWithItsCausesAndWhatItSuppressed()
    {
        open();
        int before = Lines.here();
        KoralLogger.of(310).error("cannot read", broken());
        m_lines.expect(
            "===== archive <pid> Start Session",
            line("ERROR   ", before + 1, "anExceptionComesWithItsCausesAndWhatItSuppressed", "cannot read"),
            "java.io.IOException: no page 3", "\tat suite.Page.read(Page.java:5)",
            "\tSuppressed: java.lang.RuntimeException: while closing", "\t\t... 1 more",
            "Caused by: java.lang.IllegalStateException: torn", "\t... 1 more");
    }

    @Test
    public void anExceptionWithoutATextIsTheMessage()
    {
        open();
        Exception thrown = new IOException("no page 3");
        thrown.setStackTrace(new StackTraceElement[0]);
        int before = Lines.here();
        KoralLogger.of(310).error((String)null, thrown);
        KoralLogger.of(310).error("", thrown);
        KoralLogger.of(310).error("alone", null);
        KoralLog.log(310, KoralLog.ERROR, () -> "lazy", thrown);
        String method = "anExceptionWithoutATextIsTheMessage";
        m_lines.expect(
            "===== archive <pid> Start Session", line("ERROR   ", before + 1, method, "java.io.IOException: no page 3"),
            line("ERROR   ", before + 2, method, "java.io.IOException: no page 3"),
            line("ERROR   ", before + 3, method, "alone"), line("ERROR   ", before + 4, method, "lazy"),
            "java.io.IOException: no page 3");
    }

    @Test
    public void anExceptionThatIsItsOwnCauseEnds()
    {
        open();
        Exception first = new Exception("first");
        first.initCause(new Exception("second", first));
        KoralLogger.of(310).error("round and round", first);
        assertTrue(String.join("\n", m_lines.written()).contains("CIRCULAR REFERENCE"));
    }

    /** Whose text throws. */
    private static final class Unspeakable extends RuntimeException
    {
        private static final long serialVersionUID = 1;

        @Override
        public String getMessage()
        {
            throw new IllegalStateException();
        }
    }

    @Test
    public void anExceptionThatCannotBeReadHarmsNobody()
    {
        open();
        int before = Lines.here();
        KoralLogger.of(310).error("it broke", new Unspeakable());
        m_lines.expect(
            "===== archive <pid> Start Session",
            line("ERROR   ", before + 1, "anExceptionThatCannotBeReadHarmsNobody", "it broke"),
            "(the rest of the stack trace of suite.LoggerTest$Unspeakable could not be made: "
                + "java.lang.IllegalStateException)");
    }

    @Test
    public void loggersAreGivenByTheNamesInTheFile()
    {
        assertEquals(310, KoralLogger.of("org.suite.reader.Page").packageNumber());
        assertEquals(320, KoralLogger.of("org.suite").packageNumber());
        assertEquals(330, KoralLogger.of(LoggerTest.class).packageNumber());
        assertEquals(340, KoralLogger.of("org.elsewhere").packageNumber());
        assertEquals(340, KoralLogger.of((String)null).packageNumber());
    }

    @Test
    public void anExceptionThatNobodyCatchesIsWrittenAndPassedOn() throws InterruptedException
    {
        open();
        String[] passed = new String[1];
        Thread.setDefaultUncaughtExceptionHandler((thread, thrown) -> passed[0] = thrown.getMessage());
        KoralLog.logUncaughtExceptions(320);
        KoralLog.logUncaughtExceptions(310); // in the place of the first
        int before = Lines.here();
        Thread thread = new Thread(() -> { throw new IllegalStateException("no page"); }, "Loader\n1");
        thread.start();
        thread.join();
        assertEquals("no page", passed[0]);
        String first = m_lines.written().get(1);
        assertTrue(first, first.matches("<time> SEVERE  \\(310\\) archive \\(<pid>,<tid>\\|Loader_1\\)  LoggerTest\\("
            + (before + 1) + "\\) lambda\\$.* -> An exception ends the thread \"Loader_1\"\\."));
        assertEquals("java.lang.IllegalStateException: no page", m_lines.written().get(2));
        assertEquals(1, m_lines.written().stream().filter(line -> line.contains("SEVERE")).count());
    }
}
