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

    private static MethodHandle find(String name, Class<?> result, Class<?>... parameters)
    {
        try
        {
            return MethodHandles.publicLookup().findStatic(
                NativeLibrary.load().natives(), name, MethodType.methodType(result, parameters));
        }
        catch (ReflectiveOperationException impossible)
        {
            throw new LinkageError("lumlog.jar has another class of native methods than it was made with", impossible);
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

    @Override
    int write(int packageNumber, int level, String text)
    {
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
