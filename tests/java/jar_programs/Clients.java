import lumaris.infra.log.KoralClient;
import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.slf4j.Logger;
import org.slf4j.LoggerFactory;
import org.slf4j.MDC;

/** Logs for several clients, one of which is to be seen with its debug messages. */
public final class Clients
{
    private static final KoralLogger LOG = KoralLogger.of(320);
    private static final Logger SLF4J = LoggerFactory.getLogger("org.suite.albums.Album");

    private Clients()
    {
    }

    private static void serve(String client)
    {
        try (KoralClient scope = KoralClient.enter(client, 3))
        {
            System.out.println(client + " " + LOG.isWanted(KoralLog.DEBUG));
            LOG.debug("by a logger");
            LOG.warn("a warning");
            KoralLog.tlogln(320, KoralLog.DEBUG, "<main,Clients.serve:5>by hand");
        }
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        KoralLog.open("test.log", "koral");
        serve("192.0.2.7");
        serve("192.0.2.8");
        MDC.put("client", "192.0.2.7");
        SLF4J.debug("by SLF4J");
        MDC.clear();
        SLF4J.debug("unwanted");
        LOG.warn("nobody's");
        try (KoralClient scope = KoralClient.enter("192.0.2.7", 0))
        {
            Thread other = new Thread(() -> LOG.warn("nobody's either"), "other");
            other.start();
            other.join();
        }
    }
}
