package lumaris.infra.log;

import java.util.Iterator;
import java.util.function.Function;

/** Which frame of a stack is the caller. */
final class CallerChoice
{
    /** So many frames in front of the boundary class are looked at. More cost time at the end of a deep stack. */
    static final int MOST_IN_FRONT = 32;

    private static final String OWN = "lumaris.infra.log.";
    /** What the runtime puts between a program and the logger that it asked the runtime for. */
    private static final String[] RUNTIME = {"jdk.internal.logger.", "java.lang.System$Logger", "sun.util.logging."};

    private CallerChoice()
    {
    }

    /**
     * The first frame behind the log's own and, if there is a boundary class, behind the first ones in a row of that.
     * Where the boundary is not among the frames in front, the first behind the log's own.
     *
     * @param frames from the innermost on; no more are taken than needed
     * @return null where there is none
     */
    static <F> F choose(Iterator<? extends F> frames, Function<? super F, String> classOf, String boundary)
    {
        F first = null;
        boolean isBehind = boundary == null;
        for (int looked = 0; frames.hasNext();)
        {
            F frame = frames.next();
            String name = classOf.apply(frame);
            if (isPartOf(name, boundary))
                isBehind = true;
            else if (!isPassedThrough(name))
            {
                if (isBehind)
                    return frame;
                first = first == null ? frame : first;
                if (++looked == MOST_IN_FRONT)
                    return first;
            }
        }
        return first;
    }

    private static boolean isPartOf(String name, String boundary)
    {
        return boundary != null && name.startsWith(boundary)
            && (name.length() == boundary.length() || name.charAt(boundary.length()) == '$');
    }

    private static boolean isPassedThrough(String name)
    {
        if (name.startsWith(OWN))
            return true;
        for (String prefix : RUNTIME)
        {
            if (name.startsWith(prefix))
                return true;
        }
        return false;
    }
}
