package programs;

import java.util.Collections;

import lumaris.infra.log.KoralLog;
import unnumbered.Unnumbered;

/** Logs from everywhere that code can stand. */
public final class Callers
{
    private static final class Early
    {
        static final int RESULT = KoralLog.log(Program.PACKAGE, Program.DEBUG, "from a static initializer");
    }

    private static final class Nested
    {
        Nested()
        {
            KoralLog.log(Program.PACKAGE, Program.DEBUG, "from a constructor");
        }
    }

    private final class Inner
    {
        void work()
        {
            KoralLog.log(Program.PACKAGE, Program.DEBUG, "from an inner class");
        }
    }

    private Callers()
    {
    }

    private void workInside()
    {
        new Inner().work();
    }

    private static void workByLambda()
    {
        Runnable work = () -> KoralLog.log(Program.PACKAGE, Program.DEBUG, "from a lambda");
        work.run();
    }

    private static void workAnonymously()
    {
        new Object()
        {
            void work()
            {
                KoralLog.log(Program.PACKAGE, Program.DEBUG, "from an anonymous class");
            }
        }.work();
    }

    /** What calls the log is then a native method of the runtime's, which has no line. */
    private static void workByReflection() throws ReflectiveOperationException
    {
        KoralLog.class.getMethod("log", int.class, int.class, String.class)
            .invoke(null, Program.PACKAGE, Program.DEBUG, "from a native method");
    }

    public static void main(String[] arguments) throws ReflectiveOperationException
    {
        Program.open();
        Program.tell("log", KoralLog.log(Program.PACKAGE, Program.DEBUG, "from a static method"));
        Program.tell("initializer", Early.RESULT);
        new Nested();
        new Callers().workInside();
        workByLambda();
        workAnonymously();
        Collections.singleton("from a collection").forEach(
            text -> KoralLog.log(Program.PACKAGE, Program.DEBUG, text));
        KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, KoralLog.located("through located"));
        Program.tell("located", KoralLog.located("as it is"));
        workByReflection();
        Unnumbered.work();
        Program.tell("located without lines", Unnumbered.place());
    }
}
