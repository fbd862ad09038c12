import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;

/** Logs by a logger, whatever class KoralLog is in front. */
public final class Loggers
{
    private Loggers()
    {
    }

    public static void main(String[] arguments)
    {
        KoralLog.open("test.log", "koral");
        KoralLogger.of(310).debug("by a logger");
        KoralLogger.of(320).debug("unwanted");
        System.out.println(KoralLogger.of(310).isWanted(7) + " " + KoralLogger.of(320).isWanted(7));
        KoralLog.log(310, 7, "by the class");
    }
}
