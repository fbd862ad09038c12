package lumaris.infra.log;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.lang.reflect.Modifier;
import java.net.URISyntaxException;
import java.net.URL;
import java.security.CodeSource;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;

/**
 * The DLL, found and loaded, or why it is not.
 *
 * <p>Java ties a DLL to the class loader of the class that loads it, and gives it to no other. So that several loaders
 * with a {@code lumlog.jar} each share one log, the class with the native methods has a loader of its own that knows
 * nothing but the runtime's classes, and whoever comes first leaves it for the others among the system properties,
 * where it stays as long as the process: the DLL could be loaded by no other.
 */
final class NativeLibrary
{
    private static final String LIBRARY = "LUMlog";
    private static final String NATIVES = "lumaris.infra.log.KoralLog";
    private static final String CODE = "KoralLog.natives"; // the class file, beside this class
    // The same objects for all loaders of a process.
    private static final Object LOCK = "lumaris.infra.log.NativeLibrary lock".intern();
    private static final String SHARED = "lumaris.infra.log.natives";

    private static final class Once
    {
        static final NativeLibrary LIBRARY = new NativeLibrary();
    }

    /** Finds the DLL where it is told to: null means to ask java.library.path. */
    private static final class Loader extends ClassLoader
    {
        private final byte[] m_code;
        private final String m_file;

        Loader(byte[] code, String file)
        {
            super(null);
            m_code = code;
            m_file = file;
        }

        @Override
        protected Class<?> findClass(String name) throws ClassNotFoundException
        {
            if (!name.equals(NATIVES)) // nor its nested class, which looks for callers that nobody asks it for
                throw new ClassNotFoundException(name);
            return defineClass(name, m_code, 0, m_code.length);
        }

        @Override
        protected String findLibrary(String name)
        {
            return name.equals(LIBRARY) ? m_file : null;
        }
    }

    private final Class<?> m_natives;
    private final List<String> m_tried = new ArrayList<>();

    private NativeLibrary()
    {
        Class<?> found = null;
        synchronized (LOCK)
        {
            try
            {
                found = find();
            }
            catch (SecurityException forbidden)
            {
                m_tried.add(forbidden.getMessage());
            }
        }
        m_natives = found;
    }

    static NativeLibrary load()
    {
        return Once.LIBRARY;
    }

    boolean isLoaded()
    {
        return m_natives != null;
    }

    /** The class with the native methods; null where there is no DLL. */
    Class<?> natives()
    {
        return m_natives;
    }

    /** Where it was looked for, as a sentence without its end. */
    String complaint()
    {
        return "lumlog: there is no " + System.mapLibraryName(LIBRARY) + " (" + String.join("; ", m_tried) + ")";
    }

    private Class<?> find()
    {
        // Not as text: other values than texts stay out of every list of properties.
        Properties properties = System.getProperties();
        Object shared = properties.get(SHARED);
        if (shared instanceof Class)
            return (Class<?>)shared;
        Class<?> found = findOfProgram();
        if (found == null)
            found = findFile();
        if (found != null)
            properties.put(SHARED, found);
        return found;
    }

    /** Programs may have compiled the class with the native methods in, which then stands in front of the jar's. */
    private Class<?> findOfProgram()
    {
        try
        {
            Class<?> own = Class.forName(NATIVES, false, NativeLibrary.class.getClassLoader());
            if (!Modifier.isNative(own.getMethod("close").getModifiers()))
                return null;
            return Class.forName(NATIVES, true, own.getClassLoader());
        }
        catch (ReflectiveOperationException | LinkageError none)
        {
            m_tried.add("the program's own " + NATIVES + ": " + none.getMessage());
            return null;
        }
    }

    private Class<?> findFile()
    {
        byte[] code = readCode();
        if (code == null)
            return null;
        String file = System.mapLibraryName(LIBRARY);
        String set = Settings.get().library();
        if (set == null)
            m_tried.add("lumlog.library is not set");
        Class<?> found = set == null ? null : tryFile(code, fileOf(set, file));
        if (found != null)
            return found;
        File folder = folderOfJar();
        found = folder == null ? null : tryFile(code, new File(folder, file));
        return found != null ? found : tryLibraryPath(code, file);
    }

    /**
     * Newer Javas warn of each try to load native code, whether it is there or not. Where no program has the DLL, as in
     * unit tests on another system, nobody shall read of it.
     */
    private Class<?> tryLibraryPath(byte[] code, String file)
    {
        String where = "java.library.path";
        if (file.endsWith(".dll") || isInFolders(System.getProperty(where, ""), file))
            return tryLoader(new Loader(code, null), where);
        m_tried.add("not in " + where);
        return null;
    }

    private static boolean isInFolders(String folders, String file)
    {
        for (String folder : folders.split(File.pathSeparator))
            if (new File(folder.isEmpty() ? "." : folder, file).isFile())
                return true;
        return false;
    }

    /** The property may name the DLL or its folder. */
    private static File fileOf(String set, String file)
    {
        File path = new File(set);
        return path.isDirectory() ? new File(path, file) : path;
    }

    private Class<?> tryFile(byte[] code, File file)
    {
        if (file.isFile())
            return tryLoader(new Loader(code, file.getAbsolutePath()), file.toString());
        m_tried.add("not " + file);
        return null;
    }

    private Class<?> tryLoader(Loader loader, String where)
    {
        try
        {
            return Class.forName(NATIVES, true, loader);
        }
        catch (ReflectiveOperationException | LinkageError | RuntimeException failed)
        {
            // As where the runtime is told to refuse native code.
            Throwable cause = failed instanceof ExceptionInInitializerError ? failed.getCause() : failed;
            String message = String.valueOf(cause.getMessage());
            m_tried.add(message.startsWith("no " + LIBRARY) ? "not in " + where : where + ": " + message);
            return null;
        }
    }

    private byte[] readCode()
    {
        try (InputStream in = NativeLibrary.class.getResourceAsStream(CODE))
        {
            if (in == null)
                throw new IOException("it is not there");
            ByteArrayOutputStream code = new ByteArrayOutputStream();
            byte[] piece = new byte[8192];
            for (int length = in.read(piece); length >= 0; length = in.read(piece))
                code.write(piece, 0, length);
            return code.toByteArray();
        }
        catch (IOException failed)
        {
            m_tried.add("its methods, " + CODE + " in lumlog.jar: " + failed.getMessage());
            return null;
        }
    }

    private static File folderOfJar()
    {
        try
        {
            CodeSource source = NativeLibrary.class.getProtectionDomain().getCodeSource();
            URL location = source == null ? null : source.getLocation();
            return location == null ? null : new File(location.toURI()).getAbsoluteFile().getParentFile();
        }
        catch (URISyntaxException | IllegalArgumentException | SecurityException noFile) // a jar within a jar, say
        {
            return null;
        }
    }
}
