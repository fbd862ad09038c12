package lumaris.infra.log;

/** Writes what ends a thread, before it does. */
final class UncaughtExceptions implements Thread.UncaughtExceptionHandler
{
    private final int m_package;
    private final Thread.UncaughtExceptionHandler m_before; // null: the runtime's own doing

    private UncaughtExceptions(int packageNumber, Thread.UncaughtExceptionHandler before)
    {
        m_package = packageNumber;
        m_before = before;
    }

    static synchronized void install(int packageNumber)
    {
        Thread.UncaughtExceptionHandler before = Thread.getDefaultUncaughtExceptionHandler();
        if (before instanceof UncaughtExceptions) // in place of it, else a message would come twice
            before = ((UncaughtExceptions)before).m_before;
        Thread.setDefaultUncaughtExceptionHandler(new UncaughtExceptions(packageNumber, before));
    }

    @Override
    public void uncaughtException(Thread thread, Throwable thrown)
    {
        try
        {
            Backend backend = Backend.get();
            if (backend.isWanted(m_package, KoralLog.SEVERE))
            {
                StackTraceElement[] trace = thrown.getStackTrace();
                String name = Places.withoutControls(thread.getName());
                backend.write(
                    m_package, KoralLog.SEVERE, trace.length == 0 ? null : trace[0],
                    Messages.of("An exception ends the thread \"" + name + "\".", thrown));
            }
        }
        finally
        {
            pass(thread, thrown);
        }
    }

    private void pass(Thread thread, Throwable thrown)
    {
        if (m_before != null)
            m_before.uncaughtException(thread, thrown);
        else
        {
            // As the runtime does where there is no handler.
            System.err.print("Exception in thread \"" + thread.getName() + "\" ");
            thrown.printStackTrace(System.err);
        }
    }
}
