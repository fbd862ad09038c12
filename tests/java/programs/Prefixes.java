package programs;

import lumaris.infra.log.KoralLog;

/** Logs each of its arguments, on a thread of its own as names stay with their threads. */
public final class Prefixes
{
    private static final int MOST_SECONDS = 10;

    private Prefixes()
    {
    }

    private static void write(String text)
    {
        KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, text);
    }

    private static void onThread(Runnable work) throws InterruptedException
    {
        Thread thread = new Thread(work);
        thread.setDaemon(true);
        thread.start();
        thread.join(MOST_SECONDS * 1000L);
    }

    public static void main(String[] arguments) throws InterruptedException
    {
        Program.open();
        onThread(() -> write("<loader,Viewer.load:77>by hand"));
        onThread(() -> write("<loader,Viewer.load:x7>a line that is no number"));
        onThread(() -> write("<loader,Viewer.load:7x>a line that is half a number"));
        onThread(() -> write("<loader,Viewer.load:0x1F>a line in hexadecimal"));
        onThread(() -> write("<loader,Viewer.load:010>a line in octal"));
        onThread(() -> write("<loader,Viewer.load:0>line 0"));
        onThread(() -> write("<loader,com.Viewer.load:77>a class with a dot"));
        onThread(() -> write("<,Viewer.load:77>no name"));
        onThread(() -> write("no prefix"));
        onThread(() -> write("<loader>only a name"));
        onThread(() -> write("<loader,Viewer>no method"));
        onThread(() -> write("<loader,Viewer.load>no line"));
        onThread(() -> write("<loader,Viewer.load:77 not closed"));
        onThread(() -> write("lost <loader,Viewer.load:77>behind the prefix"));
        onThread(() ->
        {
            write("<loader,Viewer.load:77>names the thread");
            write("which keeps its name");
            write("<saver,Viewer.save:78>until another comes");
        });
    }
}
