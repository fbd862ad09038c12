package programs;

import lumaris.infra.log.KoralLog;

/** Opens the log as its arguments say: with one name or two, of which "null" is none; and then once more. */
public final class Openings
{
    private Openings()
    {
    }

    private static String nameOf(String argument)
    {
        return argument.equals("null") ? null : argument;
    }

    public static void main(String[] arguments)
    {
        int result = arguments.length == 1
            ? KoralLog.open(nameOf(arguments[0]))
            : KoralLog.open(nameOf(arguments[0]), nameOf(arguments[1]));
        Program.tell("open", result);
        Program.tell("open again", KoralLog.open("second.log", "second"));
        Program.tell("close", KoralLog.close());
        KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, "<main,Openings.main:5>still open");
    }
}
