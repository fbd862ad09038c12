import java.io.File;
import java.net.URL;
import java.net.URLClassLoader;

/** Loaders JAR: logs by two class loaders that each have the jar, and by a third when those are closed. */
public final class Loaders
{
    private Loaders()
    {
    }

    private static void write(URL jar, String text) throws Exception
    {
        try (URLClassLoader loader = new URLClassLoader(new URL[] {jar}, null))
        {
            Class<?> log = loader.loadClass("lumaris.infra.log.KoralLog");
            log.getMethod("open", String.class, String.class).invoke(null, "test.log", "koral");
            log.getMethod("tlogln", int.class, int.class, String.class)
                .invoke(null, 310, 4, "<main,Loaders.write:5>" + text);
        }
    }

    public static void main(String[] arguments) throws Exception
    {
        URL jar = new File(arguments[0]).toURI().toURL();
        for (String text : new String[] {"first", "second", "third"})
            write(jar, text);
    }
}
