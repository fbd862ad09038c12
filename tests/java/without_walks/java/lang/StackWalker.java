package java.lang;

/** Stands in for the runtime's class where a test needs a runtime that can't walk stacks, as that of Java 8. */
public final class StackWalker
{
    private StackWalker()
    {
    }
}
