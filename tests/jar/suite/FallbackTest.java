package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Collections;
import java.util.List;

import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.junit.Test;

/** What is written where there is no DLL, as on this machine. */
public final class FallbackTest
{
    private static final String START = "===== archive <pid> Start Session";
    private static final String MAIN = "<time> DEBUG   (310) archive (<pid>,<tid>|main)  ";

    private static Path file()
    {
        return Paths.get(System.getProperty("lumlog.fallback.file"));
    }

    private static String repeated(String text, int times)
    {
        return String.join("", Collections.nCopies(times, text));
    }

    /** Opens, writes, and ends by an exception. */
    public static final class Program
    {
        private Program()
        {
        }

        public static void main(String[] arguments)
        {
            KoralLog.open("archive.log", "archive");
            KoralLog.logUncaughtExceptions(310);
            KoralLog.tlogln(310, KoralLog.WARNING, "<main,Program.main:5>a warning");
            KoralLog.log(310, KoralLog.NOTICE, "unwanted");
            throw new IllegalStateException("the end");
        }
    }

    @Test
    public void oneLineSaysSoAndAllLinesGoToStandardError()
    {
        List<String> lines = Lines.complaintsOf(Program.class, 1);
        assertTrue(lines.get(0), lines.get(0).matches(
            "lumlog: there is no libLUMlog\\.so \\(lumlog\\.library is not set; not /.*/libLUMlog\\.so; "
                + "not in java\\.library\\.path\\): lines go to standard error"));
        assertEquals(START, lines.get(1));
        assertEquals("<time> WARNING (310) archive (<pid>,<tid>|main)  Program(5) main -> a warning", lines.get(2));
        assertTrue(lines.get(3), lines.get(3).matches(
            "<time> SEVERE  .*FallbackTest\\$Program\\(\\d+\\) main -> An exception ends the thread \"main\"\\."));
        assertEquals("java.lang.IllegalStateException: the end", lines.get(4));
        assertEquals("Exception in thread \"main\" java.lang.IllegalStateException: the end", lines.get(6));
        assertEquals("===== archive <pid> End Session", lines.get(lines.size() - 1));
        assertEquals(9, lines.size());
    }

    @Test
    public void aLibraryThatIsNamedAndNotThereIsToldOf()
    {
        List<String> lines = Lines.complaintsOf(Program.class, 1, "-Dlumlog.library=/nowhere/LUMlog.dll");
        assertTrue(lines.get(0), lines.get(0).contains("(not /nowhere/LUMlog.dll; not /"));
    }

    @Test
    public void aLibraryThatCannotBeLoadedIsToldOf()
    {
        System.setProperty("lumlog.library", System.getProperty("no.library"));
        String said = Lines.complaintsOf(() -> KoralLog.open("archive"));
        String file = System.getProperty("no.library");
        assertTrue(said, said.startsWith("lumlog: there is no libLUMlog.so (" + file + ": "));
        assertTrue(said, said.contains("===== archive ("));
    }

    @Test
    public void whereTheLibraryIsRequiredEachUseSaysThatItIsMissing()
    {
        System.setProperty("lumlog.required", "true");
        System.setProperty("lumlog.application", "archive");
        KoralLogger log = KoralLogger.of(310);
        for (int time = 0; time < 2; ++time)
        {
            IllegalStateException thrown = assertThrows(IllegalStateException.class, () -> log.error("text"));
            assertTrue(thrown.getMessage(), thrown.getMessage().startsWith("lumlog: there is no libLUMlog.so ("));
            assertTrue(thrown.getMessage(), thrown.getMessage().endsWith("), and lumlog.required is true"));
        }
        assertThrows(IllegalStateException.class, () -> KoralLog.open("archive"));
        assertThrows(IllegalStateException.class, () -> KoralLog.open("archive.log", "archive"));
        assertThrows(IllegalStateException.class, () -> KoralLog.checkMsgLevel(310, KoralLog.ERROR));
        assertThrows(IllegalStateException.class, () -> KoralLog.tlog(0, "text"));
        assertThrows(IllegalStateException.class, () -> KoralLog.tlogln(310, KoralLog.ERROR, "text"));
    }

    @Test
    public void linesGoToTheStandardErrorOfThatMoment()
    {
        String said = Lines.complaintsOf(() -> KoralLog.tlog(0, "first"));
        assertTrue(said, said.endsWith(": lines go to standard error\nfirst\n"));
        assertEquals("second\n", Lines.complaintsOf(() -> KoralLog.tlog(0, "second")));
    }

    @Test
    public void whereTheFileCannotBeOpenedLinesGoToStandardError()
    {
        System.setProperty("lumlog.fallback.file", "/nowhere/archive.log");
        String said = Lines.complaintsOf(() -> KoralLog.tlog(0, "first"));
        assertTrue(said, said.contains(
            ": lines go to standard error, as lumlog.fallback.file can't be opened: /nowhere/archive.log ("));
        assertTrue(said, said.endsWith(")\nfirst\n"));
    }

    @Test
    public void aFileIsAppendedTo() throws IOException
    {
        Lines lines = Lines.begin();
        Files.write(file(), "before\n".getBytes("UTF-8"));
        KoralLog.tlog(0, "behind");
        lines.expect("before", "behind");
    }

    @Test
    public void theFirstOpeningCounts()
    {
        Lines lines = Lines.begin();
        KoralLog.tlogln(310, KoralLog.DEBUG, "<main,Page.read:5>before it");
        assertEquals(0, KoralLog.open("archive"));
        assertEquals(0, KoralLog.open("second.log", "second"));
        assertEquals(0, KoralLog.close());
        KoralLog.tlogln(310, KoralLog.DEBUG, "<main,Page.read:6>behind it");
        List<String> written = lines.written();
        assertTrue(written.get(0), written.get(0).contains(" DEBUG   (310) (null) ("));
        assertEquals(START, written.get(1));
        assertEquals(MAIN + "Page(6) read -> behind it", written.get(2));
        assertEquals(3, written.size());
    }

    @Test
    public void aSettingOpensTheLogAtItsFirstUse()
    {
        System.setProperty("lumlog.application", "archive");
        System.setProperty("lumlog.file", "archive.log");
        Lines lines = Lines.begin();
        KoralLog.tlogln(310, KoralLog.DEBUG, "<main,Page.read:5>text");
        lines.expect(START, MAIN + "Page(5) read -> text");
    }

    @Test
    public void levelsAreThoseOfTheSettings()
    {
        Lines lines = Lines.begin();
        System.clearProperty("lumlog.fallback.level");
        System.setProperty("lumlog.fallback.level.310", "6");
        System.setProperty("lumlog.fallback.level.330", "none");
        KoralLog.open("archive");
        for (int level = -1; level <= 9; ++level)
        {
            KoralLog.tlogln(310, level, "<main,Page.read:5>" + level);
            KoralLog.tlogln(330, level, "<main,Page.read:5>" + level);
            KoralLog.tlogln(-1, level, "<main,Page.read:5>" + level);
            KoralLog.tlogln(750, level, "<main,Page.read:5>" + level);
        }
        StringBuilder found = new StringBuilder();
        for (String line : lines.written().subList(1, lines.written().size()))
            found.append(line, 16, 19).append(line.charAt(line.length() - 1)).append(' '); // package and text
        assertEquals(
            "3100 3300 -010 7500 3101 -011 7501 3102 -012 7502 3103 -013 7503 3104 -014 7504 3105 3106 ",
            found.toString());
        assertTrue(KoralLog.checkMsgLevel(310, 6));
        assertEquals(false, KoralLog.checkMsgLevel(310, 7));
        assertEquals(false, KoralLog.checkMsgLevel(330, 1));
        assertTrue(KoralLog.checkMsgLevel(750, 4));
    }

    private static void writeOnAThread(String... texts)
    {
        Thread thread = new Thread(() ->
        {
            for (String text : texts)
                KoralLog.tlogln(310, KoralLog.DEBUG, text);
        });
        thread.start();
        try
        {
            thread.join();
        }
        catch (InterruptedException stopped)
        {
            throw new IllegalStateException(stopped);
        }
    }

    @Test
    public void placesInFrontOfTextsAreReadAsTheDllReadsThem()
    {
        Lines lines = Lines.begin();
        KoralLog.open("archive");
        writeOnAThread("<loader,Viewer.load:x7>a line that is no number");
        writeOnAThread("<loader,com.Viewer.load:77>a class with a dot");
        writeOnAThread("<,Viewer.load:77>no name");
        writeOnAThread("no prefix");
        writeOnAThread("lost <loader,Viewer.load:0x1F>behind the prefix");
        writeOnAThread("<loader,Viewer.load:77>names", "which stays", "<saver,Viewer.save:78>until another comes");
        String named = "<time> DEBUG   (310) archive (<pid>,<tid>|loader)  ";
        lines.expect(
            START, named + " -> <loader,Viewer.load:x7>a line that is no number",
            named + "com(77) Viewer.load -> a class with a dot",
            "<time> DEBUG   (310) archive (<pid>,<tid>|)  Viewer(77) load -> no name",
            "<time> DEBUG   (310) archive (<pid>,<tid>)   -> no prefix",
            named + "Viewer(31) load -> behind the prefix", named + "Viewer(77) load -> names",
            named + " -> which stays",
            "<time> DEBUG   (310) archive (<pid>,<tid>|saver)  Viewer(78) save -> until another comes");
    }

    @Test
    public void textsStandAsTheyAre()
    {
        Lines lines = Lines.begin();
        KoralLog.open("archive");
        for (String text : new String[] {"Gr\u00f6\u00dfe \ud83d\ude00 100%s", "one\ntwo\n", "", null})
            KoralLog.tlogln(310, KoralLog.DEBUG, text == null ? null : "<main,Page.read:5>" + text);
        KoralLog.tlog(0, null);
        KoralLog.tlog(0, repeated("\u00f6", 2000));
        String head = MAIN + "Page(5) read -> ";
        lines.expect(
            START, head + "Gr\u00f6\u00dfe \ud83d\ude00 100%s", head + "one", "two", head,
            MAIN + " -> (null)", "(null)", repeated("\u00f6", 1023));
    }

    @Test
    public void aLongHeadlineIsCut()
    {
        Lines lines = Lines.begin();
        KoralLog.open("archive");
        KoralLog.tlogln(310, KoralLog.DEBUG, "<" + repeated("n", 300) + ",Page.read:5>text");
        KoralLog.tlogln(310, KoralLog.DEBUG, "<main," + repeated("P", 300) + ".read:5>text");
        String place = lines.written().get(2);
        assertEquals(MAIN + repeated("P", 99) + " -> text", place);
        assertTrue(lines.written().get(1).matches(".*n text"));
    }

    @Test
    public void aHeadlineHas199BytesAtMost() throws IOException
    {
        Lines.begin();
        KoralLog.tlogln(310, KoralLog.DEBUG, "<" + repeated("\u00f6", 300) + ",Page.read:5>text");
        byte[] line = Files.readAllBytes(file());
        int length = line.length - " text\n".length();
        assertTrue("" + length, length == 199 || length == 198); // a character more would have been torn
        assertTrue(new String(line, StandardCharsets.UTF_8).endsWith("\u00f6 text\n"));
    }

    @Test
    public void warningsOfTheSettingsComeBehindTheOpening()
    {
        Lines lines = Lines.begin();
        System.setProperty("lumlog.fallback.level.310", "loud");
        System.setProperty("lumlog.fallback.level.750", "debug");
        KoralLog.open("archive");
        String head = "<time> WARNING (106) archive (<pid>,<tid>)   -> The setting lumlog.fallback.level.";
        lines.expect(
            START,
            head + "310: loud is no level; there are 0 to 7 and "
                + "none, severe, critical, error, warning, notice, info, debug.",
            head + "750: 750 is no package from 0 to 749.");
    }

    @Test
    public void aFileOfSettingsThatCannotBeReadIsToldOf()
    {
        System.setProperty("lumlog.properties", "/nowhere/lumlog.properties");
        Lines lines = Lines.begin();
        KoralLogger.of("suite").warn("text");
        assertTrue(lines.written().get(0), lines.written().get(0).contains(
            " -> lumlog.properties can't be read: /nowhere/lumlog.properties ("));
        assertTrue(lines.written().get(1), lines.written().get(1).contains(" WARNING (000) "));
    }

    @Test
    public void aFileOfSettingsThatIsNoneIsToldOf() throws IOException
    {
        Path settings = Files.createTempFile("lumlog", ".properties");
        settings.toFile().deleteOnExit();
        Files.write(settings, "suite=\\u00zz\n".getBytes("UTF-8"));
        System.setProperty("lumlog.properties", settings.toString());
        Lines lines = Lines.begin();
        KoralLog.open("archive");
        lines.expect(
            START, "<time> WARNING (106) archive (<pid>,<tid>)   -> lumlog.properties can't be read: "
                + "Malformed \\uxxxx encoding.");
    }

    @Test
    public void aSettingOfTheVirtualMachineCountsMoreThanTheFile()
    {
        System.setProperty("lumlog.package", "5");
        assertEquals(5, KoralLogger.of("elsewhere").packageNumber());
        assertEquals(330, KoralLogger.of("suite").packageNumber());
    }

    @Test
    public void linesOfEightThreadsAreAllThereAndInOrder() throws InterruptedException
    {
        int count = Integer.getInteger("lumlog.test.lines", 16_000) / 8;
        Lines lines = Lines.begin();
        KoralLogger log = KoralLogger.of(310);
        Thread[] threads = new Thread[8];
        for (int number = 0; number < threads.length; ++number)
        {
            threads[number] = new Thread(() ->
            {
                for (int line = 0; line < count; ++line)
                    log.debug("line " + line);
            }, "worker-" + number);
        }
        for (Thread thread : threads)
            thread.start();
        for (Thread thread : threads)
            thread.join();
        int[] next = new int[threads.length];
        for (String line : lines.written())
        {
            int worker = line.charAt(line.indexOf("|worker-") + "|worker-".length()) - '0';
            assertTrue(line, line.endsWith(" -> line " + next[worker]++));
        }
        for (int found : next)
            assertEquals(count, found);
    }
}
