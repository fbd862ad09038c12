package lumaris.infra.log;

import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;
import java.util.Iterator;
import java.util.function.Function;
import java.util.stream.Stream;

/**
 * The way into the log for Java programs: one process, one log, shared with whatever native code logs in it.
 *
 * <p>{@code LUMlog.dll} is loaded with this class, from {@code java.library.path}; where it is not found, the first use
 * of the class throws {@link UnsatisfiedLinkError}. Nothing else here throws.
 *
 * <p>Any method may be called from any thread at any time. Lines of different threads do not mix, and one thread's
 * lines stand in the order it wrote them.
 *
 * <p>Packages are numbers from 0 to 749; of any other, what is up to warning is wanted. Levels run from 1 to 7: severe,
 * critical, error, warning, notice, info, debug.
 *
 * <p>Texts arrive in the log in Java's own modified UTF-8: characters outside the basic plane as two surrogates of
 * three bytes each, and U+0000 as two bytes.
 */
public final class KoralLog
{
    static
    {
        System.loadLibrary("LUMlog");
    }

    private static final String OWN_NAME = KoralLog.class.getName();

    private KoralLog()
    {
    }

    /**
     * Opens the log without a private file. The first opening of a process counts; later ones change nothing.
     *
     * @param applicationName what stands in each line and what rules ask for; null counts as empty
     * @return 0, or -1 where the log could not be opened, which is also said on standard output
     */
    public static native int open(String applicationName);

    /**
     * Opens the log with a private file, which is appended to. The first opening of a process counts; later ones
     * change nothing.
     *
     * @param fileName the private file, in the folder that the environment variable PRISMATE_LOG_DIR names. Whether
     *     lines go there is for the folder's {@code logger} file to say. One that cannot be opened is reported on
     *     standard error, and the log works without it; so it is with null
     * @param applicationName what stands in each line and what rules ask for; null counts as empty
     * @return 0, or -1 where the log could not be opened, which is also said on standard output
     */
    public static native int open(String fileName, String applicationName);

    /**
     * Does nothing: the log stays open until the process ends.
     *
     * @return 0
     */
    public static native int close();

    /**
     * Tells whether a message would be written, for where its text is expensive to make.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @return whether messages of that level are wanted for that package at this moment
     */
    public static native boolean checkMsgLevel(int packageNumber, int level);

    /**
     * Tells whether a message of a client would be written: levels may be raised for some clients alone.
     *
     * @param client the client's address or name; null for none
     * @param session the client's session; below 1 for none
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @return whether messages of that level are wanted for that package and client at this moment
     */
    public static native boolean checkMsgLevelFor(String client, int session, int packageNumber, int level);

    /**
     * Writes a line without a headline, whatever the levels say: it is silent only where somebody has set the library's
     * own package, 106, to level 0.
     *
     * @param ignored not looked at
     * @param text the line; null is written as {@code (null)}
     * @return 0
     */
    public static native int tlog(int ignored, String text);

    /**
     * Writes a line with a headline, if a message of that level is wanted for that package.
     *
     * <p>The text may begin with the place it comes from, {@code <thread,class.method:line>}, as {@link #located} makes
     * it. That goes into the headline rather than the message, and the thread keeps the name from then on. Without a
     * place, or with line 0, the headline names none.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7, or 0 for what is written whatever the package's level; with any other nothing is written
     * @param text the line, with or without a place in front; null is written as {@code (null)}
     * @return 0
     */
    public static native int tlogln(int packageNumber, int level, String text);

    /**
     * Writes a line with a headline that names a client, if a message of that level is wanted for that package and
     * client. Nothing else has to do with that client: what the thread writes by other calls names the process's.
     *
     * @param client the client's address or name; null for none
     * @param session the client's session; below 1 for none
     * @param packageNumber 0 to 749
     * @param level 1 to 7, or 0 for what is written whatever the package's level; with any other nothing is written
     * @param text as for {@link #tlogln}
     * @return 0
     */
    public static native int tloglnFor(String client, int session, int packageNumber, int level, String text);

    /**
     * Writes a line with a headline that names the caller of this method, if a message of that level is wanted for that
     * package. A message that is not wanted does not cost the look at the stack.
     *
     * @param packageNumber 0 to 749
     * @param level 1 to 7
     * @param text the line; null is written as {@code (null)}
     * @return 0
     */
    public static int log(int packageNumber, int level, String text)
    {
        if (!checkMsgLevel(packageNumber, level))
            return 0;
        return tlogln(packageNumber, level, located(text));
    }

    /**
     * Puts the calling thread's name and the caller's class, method and line in front of a text, for {@link #tlogln}.
     *
     * <p>The class comes without its package, a constructor as {@code init} and a static initializer as {@code clinit}.
     * The line is 0 where the class file has none. Characters that would end a part of the prefix early become
     * underscores.
     *
     * @param text the message; null becomes {@code (null)}
     * @return {@code <thread,class.method:line>} and the text
     */
    public static String located(String text)
    {
        StackTraceElement caller = findCaller();
        String message = text == null ? "(null)" : text;
        return "<" + masked(Thread.currentThread().getName(), ",<>") + "," + placeOf(caller) + ">" + message;
    }

    /** The first frame outside this class; null on a virtual machine that keeps no stack traces. */
    private static StackTraceElement findCaller()
    {
        if (StackWalking.WALK != null)
        {
            try
            {
                Object caller = (Object)StackWalking.WALK.invokeExact((Function<?, ?>)StackWalking.TO_CALLER);
                if (caller != null)
                    return (StackTraceElement)caller;
            }
            catch (Throwable noStack) // then a trace, which is what there was before there were walks
            {
            }
        }
        for (StackTraceElement frame : new Throwable().getStackTrace())
        {
            if (!isOwn(frame.getClassName()))
                return frame;
        }
        return null;
    }

    private static boolean isOwn(String className)
    {
        // Where a walk begins the runtime may put a frame of its own, in a class that it names after one of these.
        return className.equals(OWN_NAME) || className.startsWith(OWN_NAME + "$");
    }

    /**
     * From Java 9 on, a stack's frames are made one by one as they are looked at, where a trace makes all of them,
     * however deep the stack is. By name, as this class also compiles for Java 8; and made when the first caller is
     * looked for, as the start of a program has better to do.
     */
    private static final class StackWalking implements Function<Stream<?>, Object>
    {
        static final StackWalking TO_CALLER = new StackWalking();
        static final MethodHandle WALK; // (Function) -> Object; null on Java 8
        private static final MethodHandle CLASS_NAME; // (Object) -> String, of a frame
        private static final MethodHandle ELEMENT; // (Object) -> StackTraceElement, of a frame

        static
        {
            MethodHandle walk = null;
            MethodHandle className = null;
            MethodHandle element = null;
            try
            {
                Class<?> walker = Class.forName("java.lang.StackWalker");
                Class<?> option = Class.forName("java.lang.StackWalker$Option");
                Class<?> frame = Class.forName("java.lang.StackWalker$StackFrame");
                // Not a public one: walks begin at whom they are called by.
                MethodHandles.Lookup lookup = MethodHandles.lookup();
                className = lookup.findVirtual(frame, "getClassName", MethodType.methodType(String.class))
                    .asType(MethodType.methodType(String.class, Object.class));
                element = lookup
                    .findVirtual(frame, "toStackTraceElement", MethodType.methodType(StackTraceElement.class))
                    .asType(MethodType.methodType(StackTraceElement.class, Object.class));
                // A caller by reflection is the runtime's method, as it is in a trace.
                Object all = option.getField("SHOW_REFLECT_FRAMES").get(null);
                walk = lookup.findVirtual(walker, "walk", MethodType.methodType(Object.class, Function.class))
                    .bindTo(walker.getMethod("getInstance", option).invoke(null, all));
            }
            catch (ReflectiveOperationException | RuntimeException unknown)
            {
            }
            WALK = walk;
            CLASS_NAME = className;
            ELEMENT = element;
        }

        /** The first frame outside the log's class; null where that can't be found out. */
        @Override
        public Object apply(Stream<?> frames)
        {
            try
            {
                for (Iterator<?> each = frames.iterator(); each.hasNext();)
                {
                    Object frame = each.next();
                    if (!isOwn((String)CLASS_NAME.invokeExact(frame)))
                        return (StackTraceElement)ELEMENT.invokeExact(frame);
                }
            }
            catch (Throwable failed) // the methods that are called here declare nothing
            {
            }
            return null;
        }
    }

    private static String placeOf(StackTraceElement caller)
    {
        if (caller == null)
            return "unknown_class.unknown_func:0";
        String name = caller.getClassName();
        String simpleName = name.substring(name.lastIndexOf('.') + 1);
        return masked(simpleName, ",<>:") + "." + methodOf(caller) + ":" + Math.max(caller.getLineNumber(), 0);
    }

    private static String methodOf(StackTraceElement caller)
    {
        String name = caller.getMethodName();
        if (name.equals("<init>"))
            return "init";
        if (name.equals("<clinit>"))
            return "clinit";
        return masked(name, ",<>:");
    }

    /** A line break in a name would tear the line of the log, so control characters go as well. */
    private static String masked(String name, String separators)
    {
        StringBuilder result = new StringBuilder(name);
        for (int i = 0; i < result.length(); ++i)
        {
            char c = result.charAt(i);
            if (Character.isISOControl(c) || separators.indexOf(c) >= 0)
                result.setCharAt(i, '_');
        }
        return result.toString();
    }
}
