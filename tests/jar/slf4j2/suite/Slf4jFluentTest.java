package suite;

import lumaris.infra.log.KoralLog;
import org.junit.Test;
import org.slf4j.Logger;
import org.slf4j.LoggerFactory;
import org.slf4j.event.Level;

/** What only SLF4J 2 has. */
public final class Slf4jFluentTest
{
    @Test
    public void messagesThatAreBuiltNameTheirCaller()
    {
        Lines lines = Lines.begin();
        System.setProperty("lumlog.fallback.level.310", "info");
        KoralLog.open("archive");
        Logger log = LoggerFactory.getLogger("org.suite.reader.Page");
        int before = Lines.here();
        log.atInfo().addArgument(3).log("page {}");
        log.atError().setMessage("no page").addKeyValue("album", 7).log();
        log.atLevel(Level.WARN).log(() -> "lazy");
        log.atDebug().log("unwanted");
        String head = "(310) archive (<pid>,<tid>|main)  Slf4jFluentTest(";
        String method = ") messagesThatAreBuiltNameTheirCaller -> ";
        lines.expect(
            "===== archive <pid> Start Session", "<time> INFO    " + head + (before + 1) + method + "page 3",
            "<time> ERROR   " + head + (before + 2) + method + "album=7 no page",
            "<time> WARNING " + head + (before + 3) + method + "lazy");
    }
}
