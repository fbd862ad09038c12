package suite;

import static org.junit.Assert.assertEquals;

import lumaris.infra.log.KoralClient;
import lumaris.infra.log.KoralLog;
import org.junit.Test;

/** Whom threads work for. */
public final class ClientTest
{
    private final Lines m_lines = Lines.begin();

    private static void write(String text)
    {
        KoralLog.tlogln(310, KoralLog.DEBUG, "<main,Page.read:5>" + text);
    }

    private static String line(String client, String text)
    {
        return "<time> DEBUG   (310) archive (<pid>,<tid>|main) " + client + " Page(5) read -> " + text;
    }

    @Test
    public void clientsNest()
    {
        KoralLog.open("archive");
        write("nobody");
        try (KoralClient first = KoralClient.enter("192.0.2.7", 3))
        {
            write("first");
            try (KoralClient second = KoralClient.enter(null, 4))
            {
                write("second");
                assertEquals(null, second.address());
            }
            write("first again");
            assertEquals("192.0.2.7", first.address());
            assertEquals(3, first.session());
        }
        write("nobody again");
        m_lines.expect(
            "===== archive <pid> Start Session", line("", "nobody"), line("ClientIP(192.0.2.7) SessionId(3)", "first"),
            line("SessionId(4)", "second"), line("ClientIP(192.0.2.7) SessionId(3)", "first again"),
            line("", "nobody again"));
    }

    @Test
    public void aClientThatEndsTakesThoseWithinAlong()
    {
        KoralLog.open("archive");
        KoralClient first = KoralClient.enter("192.0.2.7", -1);
        KoralClient second = KoralClient.enter("192.0.2.8", 0);
        first.close();
        write("nobody");
        KoralClient third = KoralClient.enter("192.0.2.9", 0);
        second.close();
        first.close();
        write("third");
        third.close();
        m_lines.expect("===== archive <pid> Start Session", line("", "nobody"), line("ClientIP(192.0.2.9)", "third"));
    }

    @Test
    public void aClientBelongsToItsThread() throws InterruptedException
    {
        KoralLog.open("archive");
        try (KoralClient client = KoralClient.enter("192.0.2.7", 0))
        {
            Thread other = new Thread(() ->
            {
                write("another thread");
                client.close();
            });
            other.start();
            other.join();
            write("this one");
        }
        m_lines.expect(
            "===== archive <pid> Start Session", line("", "another thread"), line("ClientIP(192.0.2.7)", "this one"));
    }

    @Test
    public void anAddressCannotTearItsLine()
    {
        KoralLog.open("archive");
        try (KoralClient client = KoralClient.enter("a\nb\u0000c", 0))
        {
            write("text");
        }
        m_lines.expect("===== archive <pid> Start Session", line("ClientIP(a_b_c)", "text"));
    }
}
