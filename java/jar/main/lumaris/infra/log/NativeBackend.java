package lumaris.infra.log;

import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;

/** The DLL's log, by the native methods of the class that {@link NativeLibrary} has loaded. */
final class NativeBackend extends Backend
{
    // Constants, so that the compiler of the running program sees through them.
    private static final MethodHandle OPEN = find("open", int.class, String.class);
    private static final MethodHandle OPEN_FILE = find("open", int.class, String.class, String.class);
    private static final MethodHandle CHECK_MSG_LEVEL = find("checkMsgLevel", boolean.class, int.class, int.class);
    private static final MethodHandle TLOG = find("tlog", int.class, int.class, String.class);
    private static final MethodHandle TLOGLN = find("tlogln", int.class, int.class, int.class, String.class);

    // Null where the class is an older one, which the program has compiled in.
    private static final MethodHandle CHECK_MSG_LEVEL_FOR =
        findOrNull("checkMsgLevelFor", boolean.class, String.class, int.class, int.class, int.class);
    private static final MethodHandle TLOGLN_FOR =
        findOrNull("tloglnFor", int.class, String.class, int.class, int.class, int.class, String.class);

    private volatile boolean m_hasClients = CHECK_MSG_LEVEL_FOR != null && TLOGLN_FOR != null;

    private static MethodHandle find(String name, Class<?> result, Class<?>... parameters)
    {
        MethodHandle found = findOrNull(name, result, parameters);
        if (found == null)
            throw new LinkageError("the class with the native methods has no " + name);
        return found;
    }

    private static MethodHandle findOrNull(String name, Class<?> result, Class<?>... parameters)
    {
        try
        {
            return MethodHandles.publicLookup().findStatic(
                NativeLibrary.load().natives(), name, MethodType.methodType(result, parameters));
        }
        catch (ReflectiveOperationException missing)
        {
            return null;
        }
    }

    /** What a native method throws, which is nothing but an error of the runtime's. */
    private static RuntimeException passedOn(Throwable thrown)
    {
        if (thrown instanceof Error)
            throw (Error)thrown;
        return (RuntimeException)thrown;
    }

    @Override
    int open(String application)
    {
        try
        {
            return (int)OPEN.invokeExact(application);
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
    }

    @Override
    int open(String file, String application)
    {
        try
        {
            return (int)OPEN_FILE.invokeExact(file, application);
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
    }

    @Override
    boolean isWanted(int packageNumber, int level)
    {
        KoralClient client = m_hasClients ? KoralClient.current() : null;
        try
        {
            if (client != null)
                return (boolean)CHECK_MSG_LEVEL_FOR.invokeExact(
                    client.address(), client.session(), packageNumber, level);
        }
        catch (UnsatisfiedLinkError older) // a DLL without that
        {
            m_hasClients = false;
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
        try
        {
            return (boolean)CHECK_MSG_LEVEL.invokeExact(packageNumber, level);
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
    }

    @Override
    int writeBare(String text)
    {
        try
        {
            return (int)TLOG.invokeExact(0, text);
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
    }

    /**
     * The DLL keeps a name for each thread of the system's. Where several virtual ones take turns on such a one, a text
     * without a place would be told under the name of whoever was there before.
     */
    private static String named(String text)
    {
        if (!ThreadNames.isCurrentVirtual() || (text != null && text.indexOf('<') >= 0))
            return text;
        return Places.located(null, text);
    }

    @Override
    int write(int packageNumber, int level, String unnamed)
    {
        String text = named(unnamed);
        KoralClient client = m_hasClients ? KoralClient.current() : null;
        try
        {
            if (client != null)
                return (int)TLOGLN_FOR.invokeExact(
                    client.address(), client.session(), packageNumber, level, text);
        }
        catch (UnsatisfiedLinkError older)
        {
            m_hasClients = false;
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
        try
        {
            return (int)TLOGLN.invokeExact(packageNumber, level, text);
        }
        catch (Throwable thrown)
        {
            throw passedOn(thrown);
        }
    }
}
