import java.util.Arrays;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;

import lumaris.infra.log.KoralLog;

/** Shows the ways into the log for Java programs. */
public final class Viewer
{
    private static final int PACKAGE_VIEWER = 310; // your number: 0 to 749
    private static final int WARNING = 4;
    private static final int DEBUG = 7;
    private static final List<String> IMAGES = Arrays.asList("front.png", "back.png");

    private Viewer()
    {
    }

    private static void load(String image)
    {
        KoralLog.log(PACKAGE_VIEWER, DEBUG, "loading " + image);

        // A place by hand costs no look at the stack.
        KoralLog.tlogln(PACKAGE_VIEWER, WARNING, "<Loader,Viewer.load:77>" + image + " has no page number");
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        if (KoralLog.open("viewer.log", "viewer") != 0)
            System.err.println("This program runs without a log.");

        KoralLog.log(PACKAGE_VIEWER, WARNING, "only 12 of 17 images fit into memory");

        ExecutorService loader = Executors.newSingleThreadExecutor(work -> new Thread(work, "Loader"));
        loader.execute(() -> IMAGES.forEach(Viewer::load));
        loader.shutdown();
        loader.awaitTermination(10, TimeUnit.SECONDS);

        // For a text that is expensive to put together.
        if (KoralLog.checkMsgLevel(PACKAGE_VIEWER, DEBUG))
            KoralLog.log(PACKAGE_VIEWER, DEBUG, "shown are " + String.join(" and ", IMAGES));

        // Without a headline, whatever the levels say.
        KoralLog.tlog(0, "--- the album is complete ---");
    }
}
