package suite;

import static org.junit.Assert.assertEquals;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.PrintStream;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;

/** The lines that a case writes without the DLL, read back from a file. */
final class Lines
{
    static final String TIME = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d";
    private static final int MOST_SECONDS = 60;

    private final Path m_file;

    private Lines(Path file)
    {
        m_file = file;
    }

    /** Before the log is used for the first time; all packages write debug messages. */
    static Lines begin()
    {
        try
        {
            Path file = Files.createTempFile("lumlog", ".log");
            file.toFile().deleteOnExit();
            System.setProperty("lumlog.fallback.file", file.toString());
            System.setProperty("lumlog.fallback.level", "debug");
            return new Lines(file);
        }
        catch (IOException failed)
        {
            throw new UncheckedIOException(failed);
        }
    }

    /** What differs from run to run is masked: time, process, the thread's number. */
    List<String> written()
    {
        try
        {
            return masked(Files.readAllLines(m_file, StandardCharsets.UTF_8));
        }
        catch (IOException failed)
        {
            throw new UncheckedIOException(failed);
        }
    }

    static List<String> masked(List<String> lines)
    {
        return lines.stream()
            .map(line -> line.replaceFirst("^" + TIME + "( [^(]*\\(-?\\d+\\) [^(]*\\(|\\(null\\) \\()", "<time>$1"))
            .map(line -> line.replaceFirst("^(<time> .*?\\()\\d+,\\d+", "$1<pid>,<tid>"))
            .map(line -> line.replaceFirst("^(===== .*) \\(\\d+\\) (Start|End) Session at " + TIME + ", User .* =====$",
                "$1 <pid> $2 Session"))
            .collect(Collectors.toList());
    }

    void expect(String... expected)
    {
        assertEquals(String.join("\n", expected), String.join("\n", written()));
    }

    /** What a program of this folder says on standard error when it runs on a virtual machine of its own. */
    static List<String> complaintsOf(Class<?> program, int status, String... options)
    {
        List<String> arguments = new ArrayList<>(Arrays.asList(options));
        arguments.addAll(Arrays.asList("-cp", System.getProperty("java.class.path"), program.getName()));
        return complaintsOf(arguments, status);
    }

    /** The same of a virtual machine that is told by its arguments what to run. */
    static List<String> complaintsOf(List<String> arguments, int status)
    {
        try
        {
            List<String> command = new ArrayList<>();
            command.add(new File(System.getProperty("java.home"), "bin/java").toString());
            command.addAll(Arrays.asList("-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1"));
            command.addAll(arguments);
            Path errors = Files.createTempFile("lumlog", ".err");
            errors.toFile().deleteOnExit();
            Process process = new ProcessBuilder(command).redirectError(errors.toFile()).start();
            process.getOutputStream().close();
            boolean hasEnded = process.waitFor(MOST_SECONDS, TimeUnit.SECONDS);
            process.destroyForcibly();
            assertEquals("it ended in time", true, hasEnded);
            List<String> lines = Files.readAllLines(errors, StandardCharsets.UTF_8);
            assertEquals(String.join("\n", lines), status, process.exitValue());
            return masked(lines);
        }
        catch (IOException failed)
        {
            throw new UncheckedIOException(failed);
        }
        catch (InterruptedException stopped)
        {
            throw new IllegalStateException(stopped);
        }
    }

    /** What is printed on standard error meanwhile. */
    static String complaintsOf(Runnable work)
    {
        PrintStream before = System.err;
        ByteArrayOutputStream said = new ByteArrayOutputStream();
        try
        {
            System.setErr(new PrintStream(said, true, "UTF-8"));
            work.run();
            return said.toString("UTF-8");
        }
        catch (IOException impossible)
        {
            throw new UncheckedIOException(impossible);
        }
        finally
        {
            System.setErr(before);
        }
    }

    /** The number of the line that calls this. */
    static int here()
    {
        return new Throwable().getStackTrace()[1].getLineNumber();
    }
}
