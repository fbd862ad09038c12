package programs;

import java.util.Arrays;

import lumaris.infra.log.KoralLog;

/** Logs what is no plain text in each of the ways. */
public final class Texts
{
    private static final String[] TEXTS = {
        "Gr\u00f6\u00dfe", // two bytes each
        "\u65e5\u672c", // three bytes each
        "\ud83d\ude00", // one character of two surrogates
        "\ud83d alone", // half of one
        "zero\u0000here",
        "100%s %n %d%",
        "<b>bold</b>, a.b:1>",
        "one\ntwo",
        "with a newline\n",
        "",
    };

    private Texts()
    {
    }

    public static void main(String[] arguments)
    {
        Program.open();
        for (String text : TEXTS)
            KoralLog.log(Program.PACKAGE, Program.DEBUG, text);
        for (String text : TEXTS)
            KoralLog.tlogln(Program.PACKAGE, Program.DEBUG, "<main,Texts.by_hand:5>" + text);
        for (String text : TEXTS)
            Program.tell("tlog", KoralLog.tlog(0, text));
        char[] many = new char[10000];
        Arrays.fill(many, 'x');
        KoralLog.log(Program.PACKAGE, Program.DEBUG, new String(many));
        KoralLog.tlog(0, new String(many));
    }
}
