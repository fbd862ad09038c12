package lumaris.infra.log;

/**
 * Whom a thread works for, in servers with many clients at once: as long as this is open, the headlines of the thread's
 * lines name its client and session.
 *
 * <pre>
 * try (KoralClient client = KoralClient.enter("192.0.2.7", 3))
 * {
 *     LOG.debug("page 3 is asked for");
 * }
 * </pre>
 *
 * <p>Such clients nest, and what counts is the latest. They belong to the thread that entered them, be it a virtual
 * one, and not to those that it starts; they are closed there, and closing one twice, or on another thread, does
 * nothing.
 */
public final class KoralClient implements AutoCloseable
{
    /** Where the client of a thread that entered none is asked for: what a logging interface keeps for its threads. */
    interface Source
    {
        /** The client's address; null for none. */
        String address();

        /** Its session as a text; null for none. */
        String session();
    }

    private static final ThreadLocal<KoralClient> CURRENT = new ThreadLocal<>();
    private static volatile boolean s_isUsed; // so that programs without clients need not look for them
    private static volatile Source s_source;

    private final String m_address; // null: none
    private final int m_session; // 0: none
    private final KoralClient m_before;
    private final Thread m_thread;
    private boolean m_isOpen = true;

    private KoralClient(String address, int session, KoralClient before)
    {
        m_address = address == null || address.isEmpty() ? null : Places.withoutControls(address);
        m_session = Math.max(session, 0);
        m_before = before;
        m_thread = Thread.currentThread();
    }

    /**
     * From here on the calling thread works for that client, until the result is closed.
     *
     * @param address an IPv4 or IPv6 address, or a name; null or empty for none
     * @param session its number; below 1 for none
     * @return to be closed on this thread
     */
    public static KoralClient enter(String address, int session)
    {
        KoralClient entered = new KoralClient(address, session, CURRENT.get());
        s_isUsed = true;
        CURRENT.set(entered);
        return entered;
    }

    /** The thread works again for whom it did before; what was entered within this one and is still open ends too. */
    @Override
    public void close()
    {
        if (!m_isOpen || Thread.currentThread() != m_thread)
            return;
        KoralClient within = CURRENT.get();
        for (; within != null && within != this; within = within.m_before)
            within.m_isOpen = false;
        m_isOpen = false;
        if (m_before == null)
            CURRENT.remove();
        else
            CURRENT.set(m_before);
    }

    /**
     * The client's address.
     *
     * @return as it was given; null for none
     */
    public String address()
    {
        return m_address;
    }

    /**
     * The client's session.
     *
     * @return its number; 0 for none
     */
    public int session()
    {
        return m_session;
    }

    static void ask(Source source)
    {
        s_source = source;
        s_isUsed = true;
    }

    /** Whom the calling thread works for; null for nobody. */
    static KoralClient current()
    {
        if (!s_isUsed)
            return null;
        KoralClient entered = CURRENT.get();
        Source source = s_source;
        if (entered != null || source == null)
            return entered;
        String address = source.address();
        int session = numberOf(source.session());
        return address == null && session == 0 ? null : new KoralClient(address, session, null);
    }

    /** As it stands in headlines. */
    String headline()
    {
        String session = m_session > 0 ? "SessionId(" + m_session + ")" : "";
        if (m_address == null)
            return session;
        return "ClientIP(" + m_address + ")" + (m_session > 0 ? " " : "") + session;
    }

    private static int numberOf(String session)
    {
        try
        {
            return session == null ? 0 : Math.max(Integer.parseInt(session.trim()), 0);
        }
        catch (NumberFormatException other)
        {
            return 0;
        }
    }
}
