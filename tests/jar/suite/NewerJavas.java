package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.jar.Attributes;
import java.util.jar.JarOutputStream;
import java.util.jar.Manifest;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import lumaris.infra.log.KoralClient;
import lumaris.infra.log.KoralLog;
import lumaris.infra.log.KoralLogger;
import org.junit.Test;

/** Native methods on Java 24 and later, which warn of them, with a library in the DLL's place. */
public final class NewerJavas
{
    private static final String ALLOWED = "--enable-native-access=ALL-UNNAMED";
    private static final String LIBRARY = "-Dlumlog.library=" + System.getProperty("stand.in");
    private static final int THREADS = 500;
    private static final Pattern LINE = Pattern.compile("line (\\d+) <([^,]*),[^>]*>(.*)");

    /** Logs once. */
    public static final class Program
    {
        private Program()
        {
        }

        public static void main(String[] arguments)
        {
            KoralLog.open("archive");
            KoralLogger.of(310).warn("hello");
        }
    }

    /** Virtual threads, which take turns on a few of the system's, log in each way that there is. */
    public static final class Turns
    {
        private Turns()
        {
        }

        public static void main(String[] arguments) throws Exception
        {
            ExecutorService threads =
                (ExecutorService)Executors.class.getMethod("newVirtualThreadPerTaskExecutor").invoke(null);
            for (int number = 0; number < THREADS; ++number)
            {
                String name = "page-" + number;
                threads.submit(() -> write(name));
            }
            ExecutorService.class.getMethod("close").invoke(threads);
            KoralLog.tlogln(310, KoralLog.WARNING, "main's, as it is");
        }

        private static void write(String name)
        {
            Thread.currentThread().setName(name);
            KoralLogger.of(310).warn(name);
            pause();
            KoralLog.tlogln(310, KoralLog.WARNING, name);
            pause();
            KoralLog.tlogln(310, KoralLog.WARNING, "<" + name + ",Page.turn:5>" + name);
            pause();
            try (KoralClient client = KoralClient.enter("192.0.2.7", 3))
            {
                KoralLog.tlogln(310, KoralLog.WARNING, name);
            }
        }

        private static void pause()
        {
            try
            {
                Thread.sleep(1); // another one goes on in the meantime where this one did
            }
            catch (InterruptedException stopped)
            {
                throw new IllegalStateException(stopped);
            }
        }
    }

    private static void expectNoWarning(List<String> said)
    {
        assertEquals(String.join("\n", said), 2, said.size());
        assertTrue(said.get(0), said.get(0).matches("open \\d+ archive"));
        assertTrue(said.get(1), said.get(1).matches("line \\d+ <main,NewerJavas\\$Program\\.main:\\d+>hello"));
    }

    private static void expectWarning(List<String> said)
    {
        assertTrue(String.join("\n", said), said.get(0).startsWith("WARNING: A restricted method in java.lang.System"));
        assertTrue(String.join("\n", said), said.contains(
            "WARNING: Use --enable-native-access=ALL-UNNAMED to avoid a warning for callers in this module"));
    }

    /** The jar of a program, which is nothing but a description of where its classes are. */
    private static Path programJar(boolean isAllowed) throws IOException
    {
        Manifest manifest = new Manifest();
        Attributes attributes = manifest.getMainAttributes();
        attributes.put(Attributes.Name.MANIFEST_VERSION, "1.0");
        attributes.put(Attributes.Name.MAIN_CLASS, Program.class.getName());
        List<String> places = new ArrayList<>();
        for (String place : System.getProperty("java.class.path").split(File.pathSeparator))
            places.add(new File(place).toURI().toString());
        attributes.put(Attributes.Name.CLASS_PATH, String.join(" ", places));
        if (isAllowed)
            attributes.putValue("Enable-Native-Access", "ALL-UNNAMED");
        Path jar = Files.createTempFile("program", ".jar");
        jar.toFile().deleteOnExit();
        new JarOutputStream(Files.newOutputStream(jar), manifest).close();
        return jar;
    }

    @Test
    public void aWarningSaysHowToBeRidOfIt()
    {
        expectWarning(Lines.complaintsOf(Program.class, 0, LIBRARY));
    }

    @Test
    public void anOptionRidsOfTheWarning()
    {
        expectNoWarning(Lines.complaintsOf(Program.class, 0, LIBRARY, ALLOWED));
    }

    @Test
    public void soItDoesWithTheJarOnTheModulePath()
    {
        String jar = System.getProperty("lumlog.jar");
        String others = Arrays.stream(System.getProperty("java.class.path").split(File.pathSeparator))
            .filter(place -> !place.equals(jar)).reduce((some, next) -> some + File.pathSeparator + next).orElse("");
        String[] modules = {LIBRARY, "-p", jar, "--add-modules", "lumaris.infra.log", "-cp", others};
        List<String> allowed = new ArrayList<>(Arrays.asList(modules));
        allowed.add(ALLOWED);
        allowed.add(Program.class.getName());
        expectNoWarning(Lines.complaintsOf(allowed, 0));
        List<String> ofTheModule = new ArrayList<>(Arrays.asList(modules));
        ofTheModule.add("--enable-native-access=lumaris.infra.log");
        ofTheModule.add(Program.class.getName());
        expectWarning(Lines.complaintsOf(ofTheModule, 0));
    }

    @Test
    public void aLineInTheManifestOfTheProgramRidsOfTheWarning() throws IOException
    {
        expectNoWarning(Lines.complaintsOf(Arrays.asList(LIBRARY, "-jar", programJar(true).toString()), 0));
        expectWarning(Lines.complaintsOf(Arrays.asList(LIBRARY, "-jar", programJar(false).toString()), 0));
    }

    @Test
    public void whereThereIsNoLibraryThereIsNoWarning()
    {
        List<String> said = Lines.complaintsOf(Program.class, 0);
        assertTrue(said.get(0), said.get(0).endsWith("not in java.library.path): lines go to standard error"));
        assertEquals(4, said.size());
    }

    @Test
    public void aLibraryInTheLibraryPathIsFound() throws IOException
    {
        Path folder = Files.createTempDirectory("lumlog");
        Path library = folder.resolve(System.mapLibraryName("LUMlog"));
        Files.copy(Path.of(System.getProperty("stand.in")), library);
        try
        {
            expectNoWarning(Lines.complaintsOf(Program.class, 0, "-Djava.library.path=/nowhere:" + folder, ALLOWED));
        }
        finally
        {
            Files.delete(library);
            Files.delete(folder);
        }
    }

    @Test
    public void whereNativeCodeIsRefusedLinesGoElsewhere()
    {
        List<String> said = Lines.complaintsOf(Program.class, 0, LIBRARY, "--illegal-native-access=deny");
        assertTrue(said.get(0), said.get(0).startsWith("lumlog: there is no libLUMlog.so ("));
        assertTrue(said.get(0), said.get(0).contains("Illegal native access"));
        assertTrue(said.get(2), said.get(2).endsWith(" -> hello"));
    }

    @Test
    public void noVirtualThreadIsToldUnderAnothersName()
    {
        List<String> said = Lines.complaintsOf(Turns.class, 0, LIBRARY, ALLOWED);
        assertEquals(4 * THREADS + 1, said.size());
        Map<String, Integer> turns = new HashMap<>(); // of each of the system's threads
        for (String line : said.subList(0, 4 * THREADS))
        {
            Matcher parts = LINE.matcher(line);
            assertTrue(line, parts.matches());
            assertEquals(line, parts.group(3), parts.group(2));
            turns.merge(parts.group(1), 1, Integer::sum);
        }
        assertTrue("they took turns: " + turns, turns.size() < THREADS / 2);
        assertTrue(said.get(4 * THREADS), said.get(4 * THREADS).matches("line \\d+ main's, as it is"));
    }
}
