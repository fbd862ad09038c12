package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertTrue;

import java.io.IOException;

import lumaris.infra.log.KoralLog;
import org.junit.Test;
import org.slf4j.Logger;
import org.slf4j.LoggerFactory;
import org.slf4j.MDC;
import org.slf4j.Marker;
import org.slf4j.MarkerFactory;
import org.slf4j.spi.LocationAwareLogger;

/** Calls of SLF4J; run with the API of 1.7 and with that of 2. */
public final class Slf4jTest
{
    private final Lines m_lines = Lines.begin();

    private static String line(String level, String client, int number, String method, String text)
    {
        return "<time> " + level + "(310) archive (<pid>,<tid>|main) " + client + " Slf4jTest(" + number + ") " + method
            + " -> " + text;
    }

    private static Logger open()
    {
        KoralLog.open("archive");
        return LoggerFactory.getLogger("org.suite.reader.Page");
    }

    @Test
    public void eachLevelIsWrittenWithItsOwn()
    {
        Logger log = open();
        int before = Lines.here();
        log.trace("one");
        log.debug("two");
        log.info("three");
        log.warn("four");
        log.error("five");
        String method = "eachLevelIsWrittenWithItsOwn";
        m_lines.expect(
            "===== archive <pid> Start Session", line("DEBUG   ", "", before + 1, method, "one"),
            line("DEBUG   ", "", before + 2, method, "two"), line("INFO    ", "", before + 3, method, "three"),
            line("WARNING ", "", before + 4, method, "four"), line("ERROR   ", "", before + 5, method, "five"));
    }

    @Test
    public void whatIsEnabledIsForTheLevelOfThePackageToSay()
    {
        System.setProperty("lumlog.fallback.level.310", "warning");
        System.setProperty("lumlog.fallback.level.320", "info");
        Logger log = open();
        Marker marker = MarkerFactory.getMarker("PAGES");
        assertFalse(log.isTraceEnabled() || log.isTraceEnabled(marker));
        assertFalse(log.isDebugEnabled() || log.isDebugEnabled(marker));
        assertFalse(log.isInfoEnabled() || log.isInfoEnabled(marker));
        assertTrue(log.isWarnEnabled() && log.isWarnEnabled(marker));
        assertTrue(log.isErrorEnabled() && log.isErrorEnabled(marker));
        assertTrue(LoggerFactory.getLogger("org.suite.Writer").isInfoEnabled());
        log.info("unwanted {}", new Object() { @Override public String toString() { throw new AssertionError(); } });
        m_lines.expect("===== archive <pid> Start Session");
    }

    @Test
    public void argumentsAndExceptionsAreTaken()
    {
        Logger log = open();
        Exception thrown = new IOException("no page");
        thrown.setStackTrace(new StackTraceElement[0]);
        int before = Lines.here();
        log.warn("page {}", 3);
        log.warn("page {} of {}", 3, 17);
        log.warn("page {} of {} in {}", 3, 17, "album");
        log.warn("page {}", 3, thrown);
        log.warn("text", thrown);
        log.warn("{} {} {} {}", 1, 2, 3, 4, thrown);
        String method = "argumentsAndExceptionsAreTaken";
        m_lines.expect(
            "===== archive <pid> Start Session", line("WARNING ", "", before + 1, method, "page 3"),
            line("WARNING ", "", before + 2, method, "page 3 of 17"),
            line("WARNING ", "", before + 3, method, "page 3 of 17 in album"),
            line("WARNING ", "", before + 4, method, "page 3"), "java.io.IOException: no page",
            line("WARNING ", "", before + 5, method, "text"), "java.io.IOException: no page",
            line("WARNING ", "", before + 6, method, "1 2 3 4"), "java.io.IOException: no page");
    }

    @Test
    public void markersAreNotLookedAt()
    {
        Logger log = open();
        Marker marker = MarkerFactory.getMarker("PAGES");
        int before = Lines.here();
        log.trace(marker, "one");
        log.debug(marker, "{}", "two");
        log.info(marker, "{} {}", "thr", "ee");
        log.warn(marker, "{}{}{}", "fo", "u", "r");
        log.error(marker, "five", (Throwable)null);
        String method = "markersAreNotLookedAt";
        m_lines.expect(
            "===== archive <pid> Start Session", line("DEBUG   ", "", before + 1, method, "one"),
            line("DEBUG   ", "", before + 2, method, "two"), line("INFO    ", "", before + 3, method, "thr ee"),
            line("WARNING ", "", before + 4, method, "four"), line("ERROR   ", "", before + 5, method, "five"));
    }

    /** As the bridges from other logging interfaces do it. */
    private static final class Bridge
    {
        static void write(Logger log, int level, String text)
        {
            ((LocationAwareLogger)log).log(null, Bridge.class.getName(), level, text, new Object[] {7}, null);
        }
    }

    @Test
    public void aBridgeIsPassedOver()
    {
        Logger log = open();
        int before = Lines.here();
        Bridge.write(log, LocationAwareLogger.TRACE_INT, "one {}");
        Bridge.write(log, LocationAwareLogger.DEBUG_INT, "two");
        Bridge.write(log, LocationAwareLogger.INFO_INT, "three");
        Bridge.write(log, LocationAwareLogger.WARN_INT, "four");
        Bridge.write(log, LocationAwareLogger.ERROR_INT, "five");
        String method = "aBridgeIsPassedOver";
        m_lines.expect(
            "===== archive <pid> Start Session", line("DEBUG   ", "", before + 1, method, "one 7"),
            line("DEBUG   ", "", before + 2, method, "two"), line("INFO    ", "", before + 3, method, "three"),
            line("WARNING ", "", before + 4, method, "four"), line("ERROR   ", "", before + 5, method, "five"));
    }

    @Test
    public void theContextOfAThreadNamesItsClient()
    {
        Logger log = open();
        MDC.put("client", "192.0.2.7");
        int before = Lines.here();
        log.warn("address");
        MDC.put("session", " 3 ");
        log.warn("both");
        MDC.remove("client");
        log.warn("session");
        MDC.put("session", "none");
        log.warn("no number");
        MDC.put("client", "192.0.2.7");
        MDC.clear();
        log.warn("nobody");
        String method = "theContextOfAThreadNamesItsClient";
        m_lines.expect(
            "===== archive <pid> Start Session", line("WARNING ", "ClientIP(192.0.2.7)", before + 1, method, "address"),
            line("WARNING ", "ClientIP(192.0.2.7) SessionId(3)", before + 3, method, "both"),
            line("WARNING ", "SessionId(3)", before + 5, method, "session"),
            line("WARNING ", "", before + 7, method, "no number"), line("WARNING ", "", before + 10, method, "nobody"));
    }

    @Test
    public void loggersAreFoundByName()
    {
        Logger log = open();
        assertSame(log, LoggerFactory.getLogger("org.suite.reader.Page"));
        assertEquals("org.suite.reader.Page", log.getName());
        assertEquals("lumaris.infra.log.Slf4jLogger", log.getClass().getName());
        assertEquals("", Lines.complaintsOf(() -> LoggerFactory.getLogger("other").warn("text")));
    }
}
