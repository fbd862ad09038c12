package lumaris.infra.log;

import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;

/** What the calling thread is called in lines. A virtual thread is called by its own name, not by its carrier's. */
final class ThreadNames
{
    private static final MethodHandle IS_VIRTUAL = find(); // by name, as older compilers make this class too

    private ThreadNames()
    {
    }

    /** Virtual threads seldom have a name: such a one is {@code virtual-} and its number. */
    static String ofCurrent()
    {
        Thread thread = Thread.currentThread();
        String name = thread.getName();
        return name.isEmpty() && isVirtual(thread) ? "virtual-" + thread.getId() : name;
    }

    static boolean isCurrentVirtual()
    {
        return isVirtual(Thread.currentThread());
    }

    private static boolean isVirtual(Thread thread)
    {
        try
        {
            return IS_VIRTUAL != null && (boolean)IS_VIRTUAL.invokeExact(thread);
        }
        catch (Throwable impossible) // the method declares nothing
        {
            return false;
        }
    }

    private static MethodHandle find()
    {
        try
        {
            return MethodHandles.publicLookup().findVirtual(
                Thread.class, "isVirtual", MethodType.methodType(boolean.class));
        }
        catch (ReflectiveOperationException older)
        {
            return null;
        }
    }
}
