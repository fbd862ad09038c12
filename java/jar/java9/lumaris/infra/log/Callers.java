package lumaris.infra.log;

import java.util.Set;
import java.util.function.Function;
import java.util.stream.Stream;

/** Finds the caller that a line names: frames are made one by one as they are looked at, however deep the stack is. */
final class Callers
{
    // A caller by reflection is the runtime's method, as it is in a stack trace.
    private static final StackWalker WALKER =
        StackWalker.getInstance(Set.of(StackWalker.Option.SHOW_REFLECT_FRAMES), 8);
    private static final Function<Stream<StackWalker.StackFrame>, StackTraceElement> TO_CALLER = search(null);

    private Callers()
    {
    }

    /**
     * The caller of the log, or of the class that stands in front of it.
     *
     * @param boundary the name of a class whose callers are looked for; null: of the log's own
     * @return null where a thread of native code has no caller in Java
     */
    static StackTraceElement find(String boundary)
    {
        return WALKER.walk(boundary == null ? TO_CALLER : search(boundary));
    }

    private static Function<Stream<StackWalker.StackFrame>, StackTraceElement> search(String boundary)
    {
        return frames ->
        {
            StackWalker.StackFrame caller =
                CallerChoice.choose(frames.iterator(), StackWalker.StackFrame::getClassName, boundary);
            return caller == null ? null : caller.toStackTraceElement();
        };
    }
}
