package programs;

import lumaris.infra.log.KoralLog;

/** Logs at each level to packages of several levels, and asks for them. */
public final class Levels
{
    private static final int[] PACKAGES = {0, 310, 320, 330, 749};
    private static final int[] BEYOND = {-1, 750, Integer.MAX_VALUE, Integer.MIN_VALUE};

    private Levels()
    {
    }

    private static void ask(int packageNumber)
    {
        StringBuilder wanted = new StringBuilder();
        for (int level = 1; level <= 7; ++level)
        {
            if (KoralLog.checkMsgLevel(packageNumber, level))
                wanted.append(' ').append(level);
        }
        Program.tell("wanted of " + packageNumber, wanted);
    }

    public static void main(String[] arguments)
    {
        Program.open();
        for (int packageNumber : PACKAGES)
        {
            ask(packageNumber);
            for (int level = 1; level <= 7; ++level)
                KoralLog.log(packageNumber, level, "log at " + level);
            for (int level = -1; level <= 9; ++level)
                KoralLog.tlogln(packageNumber, level, "<main,Levels.by_hand:5>tlogln at " + level);
        }
        for (int packageNumber : BEYOND)
        {
            ask(packageNumber);
            KoralLog.log(packageNumber, 4, "to no package");
        }
        Program.tell("tlogln", KoralLog.tlogln(320, 7, "unwanted"));
        Program.tell("log", KoralLog.log(320, 7, "unwanted"));
        KoralLog.tlog(0, "whatever the levels say");
        KoralLog.tlog(-1, "and whatever the first argument");
    }
}
