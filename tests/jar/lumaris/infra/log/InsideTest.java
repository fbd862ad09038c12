package lumaris.infra.log;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNull;

import java.time.ZoneOffset;
import java.time.ZonedDateTime;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Properties;
import java.util.function.Function;

import org.junit.Test;

/** The parts, each alone. */
public final class InsideTest
{
    private static String read(String text)
    {
        LocatedText found = LocatedText.read(text);
        return found.thread + "|" + found.className + "|" + found.method + "|" + found.line + "|" + found.body;
    }

    @Test
    public void aPlaceIsReadByTheRulesOfTheDll()
    {
        assertEquals("main|Viewer|load|77|text", read("<main,Viewer.load:77>text"));
        assertEquals("main|Viewer|load|0|<main,Viewer.load:x7>text", read("<main,Viewer.load:x7>text"));
        assertEquals("main|com|Viewer.load|7|text", read("<main,com.Viewer.load:7>text"));
        assertEquals("main|Viewer|load|0|text", read("<main,Viewer.load:>text"));
        assertEquals("b> c| d| e|0|a <b> c, d. e: f", read("a <b> c, d. e: f"));
        assertEquals("null|||0|<main>text", read("<main>text"));
        assertEquals("null|||0|<main,Viewer.load>text", read("<main,Viewer.load>text"));
        assertEquals("null|||0|<main,Viewer.load:7", read("<main,Viewer.load:7"));
        assertEquals("null|||0|", read(""));
        assertEquals("m|V|l|7|t", read("in front <m,V.l:7>t"));
    }

    @Test
    public void numbersOfLinesAreReadAsTheDllReadsThem()
    {
        String[][] cases = {
            {"010", "8"}, {"0x1F", "31"}, {"0X1f", "31"}, {" \t7", "7"}, {"+7", "7"}, {"-7", "-7"}, {"0", "0"},
            {"2147483647", "2147483647"}, {"-2147483648", "-2147483648"}, {"2147483648", null},
            {"99999999999999", null},
            {"7 ", null}, {"0x", null}, {"08", null}, {"--7", null}, {"+-7", null}, {"-", null}, {"0x-7", null},
            {"\u0667", null}, {"0xg", null}};
        for (String[] each : cases)
        {
            LocatedText found = LocatedText.read("<m,V.l:" + each[0] + ">t");
            assertEquals(each[0], each[1] == null ? "<m,V.l:" + each[0] + ">t" : "t", found.body);
            assertEquals(each[0], each[1] == null ? "0" : each[1], "" + found.line);
        }
    }

    private static String timeOf(ZonedDateTime time)
    {
        StringBuilder text = new StringBuilder();
        Headlines.addTime(text, time);
        return text.toString();
    }

    @Test
    public void timesHaveTheFormOfTheLog()
    {
        ZonedDateTime time = ZonedDateTime.of(2024, 3, 5, 14, 7, 9, 42_999_999, ZoneOffset.ofHours(2));
        assertEquals("2024-03-05 14:07:09.042+02:00", timeOf(time));
        assertEquals("2024-03-05 12:07:09.042+00:00", timeOf(time.withZoneSameInstant(ZoneOffset.UTC)));
        assertEquals(
            "2024-03-05 08:37:09.042-03:30", timeOf(time.withZoneSameInstant(ZoneOffset.ofHoursMinutes(-3, -30))));
    }

    @Test
    public void aHeadlineHasTheFormOfTheLog()
    {
        ZonedDateTime time = ZonedDateTime.of(2024, 3, 5, 14, 7, 9, 42_000_000, ZoneOffset.ofHours(2));
        try (KoralClient client = KoralClient.enter("10.0.0.7", 3))
        {
            assertEquals(
                "2024-03-05 14:07:09.042+02:00 WARNING (017) viewer (4312,5120|Loader) ClientIP(10.0.0.7) SessionId(3) "
                    + "Kor_Image(210) Load ->",
                Headlines.of(time, 4, 17, "viewer", 4312, 5120, "Loader", client,
                    LocatedText.read("<x,Kor_Image.Load:210>")));
        }
        assertEquals(
            "2024-03-05 14:07:09.042+02:00 NONE    (-01) viewer (4312,5120)   ->",
            Headlines.of(time, 0, -1, "viewer", 4312, 5120, null, null, LocatedText.read("")));
        assertEquals(
            "2024-03-05 14:07:09.042+02:00 CRITICAL(750) viewer (4312,5120|)  Image(7) ->",
            Headlines.of(time, 2, 750, "viewer", 4312, 5120, "", null, LocatedText.read("<x,Image.:7>")));
    }

    @Test
    public void whatIsCutKeepsWholeCharacters()
    {
        assertEquals("abc", Headlines.cut("abc", 3));
        assertEquals("ab", Headlines.cut("abc", 2));
        assertEquals("a", Headlines.cut("a\u00f6", 2));
        assertEquals("a\u00f6", Headlines.cut("a\u00f6b", 3));
        assertEquals("", Headlines.cut("\u65e5", 2));
        assertEquals("a", Headlines.cut("a\ud83d\ude00", 4));
        assertEquals("a\ud83d\ude00", Headlines.cut("a\ud83d\ude00b", 5));
        assertEquals("", Headlines.cut("a", 0));
    }

    private static String choose(String boundary, String... frames)
    {
        List<String> stack = Arrays.asList(frames);
        return CallerChoice.choose(stack.iterator(), Function.identity(), boundary);
    }

    @Test
    public void theCallerIsTheFirstBehindTheLogAndTheBoundary()
    {
        String log = "lumaris.infra.log.KoralLogger";
        assertEquals("a.B", choose(null, log, "a.B", "a.C"));
        assertEquals("a.B", choose(null, log, "jdk.internal.logger.X", "java.lang.System$Logger", "a.B"));
        assertEquals("a.C", choose("a.B", log, "a.B", "a.B", "a.C"));
        assertEquals("a.C", choose("a.B", log, "a.B$Inner", "a.C"));
        assertEquals("a.C", choose("a.B", log, "x.Y", "a.B", "a.C"));
        assertEquals("a.BC", choose("a.B", log, "a.B", "a.BC"));
        assertEquals("a.C", choose("a.B", log, "a.C", "a.D"));
        assertEquals("a.C", choose("a.B", log, "a.C"));
        assertEquals("a.C", choose("a.B", log, "a.B", "a.C", "a.B", "a.D"));
        assertNull(choose(null, log));
        assertNull(choose("a.B", "a.B"));
    }

    @Test
    public void theBoundaryIsLookedForInFrontAlone()
    {
        String[] frames = new String[CallerChoice.MOST_IN_FRONT + 2];
        Arrays.fill(frames, "x.Y");
        frames[0] = "x.First";
        frames[frames.length - 2] = "a.B";
        frames[frames.length - 1] = "a.C";
        assertEquals("x.First", choose("a.B", frames));
        assertEquals("a.C", choose("a.B", Arrays.copyOfRange(frames, 1, frames.length)));
    }

    private static Settings settings(String... pairs)
    {
        Properties file = new Properties();
        for (int i = 0; i < pairs.length; i += 2)
            file.setProperty(pairs[i], pairs[i + 1]);
        return new Settings(file, false);
    }

    @Test
    public void theLongestPrefixCounts()
    {
        Settings settings = settings("org.suite", "320", "org.suite.reader", " 310 ", "org.suite.Album$Page", "330");
        assertEquals(310, settings.packageOf("org.suite.reader"));
        assertEquals(310, settings.packageOf("org.suite.reader.Page$Line"));
        assertEquals(320, settings.packageOf("org.suite.readers.Page"));
        assertEquals(320, settings.packageOf("org.suite.Album"));
        assertEquals(330, settings.packageOf("org.suite.Album$Page$1"));
        assertEquals(0, settings.packageOf("org"));
        assertEquals(0, settings.packageOf(""));
        assertEquals(0, settings.packageOf(null));
        assertEquals(Collections.emptyList(), settings.warnings());
    }

    @Test
    public void whatIsWrongInTheFileIsToldAndTheRestCounts()
    {
        Settings settings = settings(
            "lumlog.package", "750", "a.b", "x", "a.c", "-1", "a.d", "", "a.e", "5", "lumlog.colour", "red",
            "lumlog.fallback.level", "loud", "lumlog.fallback.level.7", "debug", "lumlog.fallback.level.x", "debug",
            "lumlog.fallback.level.8", "9");
        assertEquals(5, settings.packageOf("a.e"));
        assertEquals(KoralLog.DEBUG, settings.fallbackLevel(7));
        assertEquals(KoralLog.WARNING, settings.fallbackLevel(8));
        String levels =
            " is no level; there are 0 to 7 and none, severe, critical, error, warning, notice, info, debug.";
        assertEquals(
            Arrays.asList(
                "The setting lumlog.package: 750 is no package from 0 to 749.",
                "The setting lumlog.fallback.level: loud" + levels,
                "The setting a.b: x is no package from 0 to 749.", "The setting a.c: -1 is no package from 0 to 749.",
                "The setting a.d: null is no package from 0 to 749.", "The setting lumlog.colour is unknown.",
                "The setting lumlog.fallback.level.8: 9" + levels,
                "The setting lumlog.fallback.level.x: x is no package from 0 to 749."),
            settings.warnings());
    }

    @Test
    public void aFileHasAllSettings()
    {
        Settings settings = settings(
            "lumlog.application", " archive ", "lumlog.file", "archive.log", "lumlog.required", "True",
            "lumlog.fallback.file", "x.log", "lumlog.package", "7", "lumlog.library", "x.dll");
        assertEquals("x.dll", settings.library());
        assertEquals("archive", settings.application());
        assertEquals("archive.log", settings.file());
        assertEquals(true, settings.isRequired());
        assertEquals("x.log", settings.fallbackFile());
        assertEquals(7, settings.packageOf("any"));
        assertEquals(Collections.emptyList(), settings.warnings());
    }

    @Test
    public void namesCannotBreakThePlace()
    {
        Thread.currentThread().setName("a,b<c>d\n");
        assertEquals(
            "<a_b_c_d_,A_B.init:0>text",
            Places.located(new StackTraceElement("x.y.A:B", "<init>", null, -2), "text"));
        assertEquals(
            "<a_b_c_d_,A.clinit:7>(null)", Places.located(new StackTraceElement("A", "<clinit>", "A.java", 7), null));
        assertEquals("<a_b_c_d_,unknown_class.unknown_func:0>text", Places.located(null, "text"));
    }
}
