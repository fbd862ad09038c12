package suite;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNotSame;

import java.io.File;
import java.net.URL;
import java.net.URLClassLoader;

import org.junit.Test;

/** Several class loaders, each with a lumlog.jar of its own, as servers have. */
public final class LoadersTest
{
    @Test
    public void eachLoaderHasALogOfItsOwnThatWorks() throws Exception
    {
        Lines lines = Lines.begin();
        URL jar = new File(System.getProperty("lumlog.jar")).toURI().toURL();
        Class<?> before = null;
        for (String text : new String[] {"first", "second"})
        {
            try (URLClassLoader loader = new URLClassLoader(new URL[] {jar}, null))
            {
                Class<?> log = loader.loadClass("lumaris.infra.log.KoralLog");
                assertNotSame(before, log);
                assertEquals(0, log.getMethod("tlog", int.class, String.class).invoke(null, 0, text));
                before = log;
            }
        }
        lines.expect("first", "second");
    }
}
