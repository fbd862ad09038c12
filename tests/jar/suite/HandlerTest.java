package suite;

import static org.junit.Assert.assertEquals;

import java.io.IOException;
import java.util.logging.Level;
import java.util.logging.Logger;

import lumaris.infra.log.KoralHandler;
import lumaris.infra.log.KoralLog;
import org.junit.Test;

/** What java.util.logging hands over. */
public final class HandlerTest
{
    private final Lines m_lines = Lines.begin();

    private static String line(String level, int number, String method, String text)
    {
        return "<time> " + level + "(310) archive (<pid>,<tid>|main)  HandlerTest(" + number + ") " + method + " -> "
            + text;
    }

    @Test
    public void eachLevelIsWrittenWithItsOwnAndNamesItsCaller()
    {
        KoralLog.open("archive");
        KoralHandler.install();
        Logger log = Logger.getLogger("org.suite.reader.Page");
        int before = Lines.here();
        log.finest("one");
        log.fine("two");
        log.config("three");
        log.info("four");
        log.warning("five");
        log.severe("six");
        log.log(Level.WARNING, "page {0} of {1}", new Object[] {3, 17});
        log.warning(() -> "lazy");
        String method = "eachLevelIsWrittenWithItsOwnAndNamesItsCaller";
        m_lines.expect(
            "===== archive <pid> Start Session", line("DEBUG   ", before + 1, method, "one"),
            line("DEBUG   ", before + 2, method, "two"), line("INFO    ", before + 3, method, "three"),
            line("INFO    ", before + 4, method, "four"), line("WARNING ", before + 5, method, "five"),
            line("ERROR   ", before + 6, method, "six"), line("WARNING ", before + 7, method, "page 3 of 17"),
            line("WARNING ", before + 8, method, "lazy"));
    }

    @Test
    public void anExceptionComesWithItsMessage()
    {
        KoralLog.open("archive");
        KoralHandler.install();
        Exception thrown = new IOException("no page");
        thrown.setStackTrace(new StackTraceElement[0]);
        int before = Lines.here();
        Logger.getLogger("org.suite.reader.Page").log(Level.SEVERE, "text", thrown);
        m_lines.expect(
            "===== archive <pid> Start Session", line("ERROR   ", before + 1, "anExceptionComesWithItsMessage", "text"),
            "java.io.IOException: no page");
    }

    @Test
    public void levelsAndFiltersOfItsOwnCountToo()
    {
        System.setProperty("lumlog.fallback.level.310", "info");
        KoralLog.open("archive");
        KoralHandler.install();
        Logger log = Logger.getLogger("org.suite.reader.Page");
        log.fine("unwanted by the log");
        KoralHandler handler = (KoralHandler)Logger.getLogger("").getHandlers()[0];
        assertEquals(1, Logger.getLogger("").getHandlers().length);
        handler.setLevel(Level.WARNING);
        log.info("unwanted by its level");
        handler.setFilter(record -> false);
        log.severe("unwanted by its filter");
        handler.publish(null);
        handler.flush();
        handler.close();
        m_lines.expect("===== archive <pid> Start Session");
    }

    @Test
    public void levelsHaveNamesOnBothSides()
    {
        Level[] levels = {Level.SEVERE, Level.SEVERE, Level.SEVERE, Level.WARNING, Level.INFO, Level.INFO, Level.FINE};
        for (int level = KoralLog.SEVERE; level <= KoralLog.DEBUG; ++level)
            assertEquals("" + level, levels[level - 1], KoralHandler.levelOf(level));
        assertEquals(KoralLog.ERROR, KoralHandler.levelOf(Level.OFF));
        assertEquals(KoralLog.DEBUG, KoralHandler.levelOf(Level.ALL));
        assertEquals(KoralLog.INFO, KoralHandler.levelOf(Level.CONFIG));
        assertEquals(KoralLog.DEBUG, KoralHandler.levelOf(Level.parse("699")));
    }
}
