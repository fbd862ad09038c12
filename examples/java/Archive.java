import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

import lumaris.infra.log.KoralClient;
import lumaris.infra.log.KoralHandler;
import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.slf4j.Logger;
import org.slf4j.LoggerFactory;
import org.slf4j.MDC;

/** A server of albums that logs in each of the ways that Java programs have. */
public final class Archive
{
    private static final KoralLogger LOG = KoralLogger.of(310);
    private static final Logger ALBUMS = LoggerFactory.getLogger("org.suite.albums.Album");
    private static final System.Logger PAGES = System.getLogger("org.suite.pages.Page");

    private Archive()
    {
    }

    /** A logging class of a program's own: lines shall name who calls it. */
    private static final class Report
    {
        private static final KoralLogger LOG = KoralLogger.of(310, Report.class);

        static void missing(String image)
        {
            LOG.warn(image + " is missing");
        }
    }

    private static void read(String image) throws IOException
    {
        if (image.startsWith("back"))
            throw new IOException(image + " is torn", new IllegalStateException("page 2 of 17"));
    }

    private static void show(List<String> images)
    {
        LOG.debug(() -> "shown are " + String.join(" and ", images));
        for (String image : images)
        {
            try
            {
                read(image);
            }
            catch (IOException torn)
            {
                LOG.error("cannot show " + image, torn);
            }
        }
        Report.missing("spine.png");
    }

    private static void serve(String client, int session, String album)
    {
        try (KoralClient scope = KoralClient.enter(client, session))
        {
            LOG.info("asks for the " + album);
        }
    }

    private static void serveWithSlf4j(String client, int session, String album)
    {
        MDC.put("client", client);
        MDC.put("session", String.valueOf(session));
        try
        {
            ALBUMS.info("{} is asked for, {} pages", album, 17);
        }
        finally
        {
            MDC.clear();
        }
    }

    public static void main(String[] arguments) throws Exception
    {
        KoralLog.open("archive.log", "archive");
        KoralLog.logUncaughtExceptions(310);
        KoralHandler.install();

        show(List.of("front.png", "back.png"));
        ALBUMS.warn("only {} of {} images fit into memory", 12, 17);
        PAGES.log(System.Logger.Level.WARNING, "page {0} has no number", 3);
        java.util.logging.Logger.getLogger("org.suite.pages").warning("page 4 has none either");

        ExecutorService server = Executors.newFixedThreadPool(1, work -> new Thread(work, "Server"));
        List<Future<?>> done = new ArrayList<>();
        done.add(server.submit(() -> serve("192.0.2.7", 3, "first album")));
        done.add(server.submit(() -> serveWithSlf4j("192.0.2.8", 4, "second album")));
        for (Future<?> each : done)
            each.get();
        server.shutdown();

        throw new IllegalStateException("the archive is closed");
    }
}
