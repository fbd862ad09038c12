package lumaris.infra.log;

import java.util.Arrays;

/** Finds the caller that a line names. */
final class Callers
{
    private Callers()
    {
    }

    /**
     * The caller of the log, or of the class that stands in front of it.
     *
     * @param boundary the name of a class whose callers are looked for; null: of the log's own
     * @return null on a virtual machine that keeps no stack traces
     */
    static StackTraceElement find(String boundary)
    {
        return CallerChoice.choose(
            Arrays.asList(new Throwable().getStackTrace()).iterator(), StackTraceElement::getClassName, boundary);
    }
}
