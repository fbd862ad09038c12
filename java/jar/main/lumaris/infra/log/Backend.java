package lumaris.infra.log;

/** Where lines go: into the DLL's log, or, without the DLL, where {@link FallbackBackend} puts them. */
abstract class Backend
{
    /** Chosen when the first class asks, as until then a program may still set properties. */
    private static final class Chosen
    {
        static final Backend BACKEND = choose();

        private static Backend choose()
        {
            Settings settings = Settings.get();
            NativeLibrary library = NativeLibrary.load();
            Backend backend;
            if (library.isLoaded())
                backend = new NativeBackend();
            else if (settings.isRequired())
                backend = new MissingBackend(library.complaint());
            else
                backend = FallbackBackend.create(settings, library.complaint());
            if (settings.application() != null && !(backend instanceof MissingBackend))
            {
                if (settings.file() == null)
                    backend.open(settings.application());
                else
                    backend.open(settings.file(), settings.application());
            }
            return backend;
        }
    }

    private static volatile boolean s_hasWarned;

    static Backend get()
    {
        return Chosen.BACKEND;
    }

    /** As {@link KoralLog#open(String)}. */
    abstract int open(String application);

    /** As {@link KoralLog#open(String, String)}. */
    abstract int open(String file, String application);

    /** Whether a message of the calling thread and its client would be written. */
    abstract boolean isWanted(int packageNumber, int level);

    /** As {@link KoralLog#tlog}. */
    abstract int writeBare(String text);

    /** As {@link KoralLog#tlogln}. */
    abstract int write(int packageNumber, int level, String text);

    /** Of a message that is wanted: its line, with the calling thread's name and the place it comes from. */
    final void write(int packageNumber, int level, StackTraceElement place, String text)
    {
        if (!s_hasWarned)
            warn();
        write(packageNumber, level, Places.located(place, text));
    }

    /** Writes what is wrong with the settings, once: when the log was opened, or else in front of its first line. */
    final void warn()
    {
        synchronized (Backend.class)
        {
            if (s_hasWarned)
                return;
            s_hasWarned = true;
        }
        for (String warning : Settings.get().warnings())
            write(Settings.LIBRARY_PACKAGE, KoralLog.WARNING, warning);
    }
}
