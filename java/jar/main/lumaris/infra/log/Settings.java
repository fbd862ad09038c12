package lumaris.infra.log;

import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Properties;
import java.util.TreeMap;

/**
 * What {@code lumlog.properties} and the system properties say. What is wrong in them becomes a warning, and the rest
 * counts.
 *
 * <p>The file is the one that the system property {@code lumlog.properties} names, or the first of that name on the
 * class path. A system property counts more than the same key in the file.
 */
final class Settings
{
    /** Package of the library's own lines. */
    static final int LIBRARY_PACKAGE = 106;
    static final int PACKAGE_COUNT = 750;

    private static final String FILE = "lumlog.properties";
    private static final String OWN = "lumlog.";
    private static final String FALLBACK_LEVEL = OWN + "fallback.level";
    /** Keys of the program's and not of a prefix of logger names; behind some of them stands a package. */
    private static final List<String> KEYS = Arrays.asList(
        "lumlog.application", "lumlog.file", "lumlog.package", "lumlog.required", "lumlog.library",
        "lumlog.fallback.file", FALLBACK_LEVEL);
    private static final List<String> LEVELS =
        Arrays.asList("none", "severe", "critical", "error", "warning", "notice", "info", "debug");

    private static final class Once
    {
        static final Settings SETTINGS = new Settings(read(), true);
    }

    private final Properties m_file;
    private final boolean m_hasSystem;
    private final Map<String, Integer> m_packages = new TreeMap<>(); // by prefix of logger names
    private final byte[] m_levels = new byte[PACKAGE_COUNT]; // without the DLL
    private final List<String> m_warnings = new ArrayList<>();
    private final int m_package; // of names without a prefix in the file

    /** @param hasSystem whether system properties count; not so for tests */
    Settings(Properties file, boolean hasSystem)
    {
        m_file = file;
        m_hasSystem = hasSystem;
        String failure = (String)file.remove("");
        if (failure != null)
            m_warnings.add(failure);
        m_package = packageOf(OWN + "package", value(OWN + "package"), 0);
        String level = value(FALLBACK_LEVEL);
        Arrays.fill(m_levels, (byte)levelOf(FALLBACK_LEVEL, level, KoralLog.WARNING));
        for (String key : keys())
            take(key, value(key));
    }

    static Settings get()
    {
        return Once.SETTINGS;
    }

    /** A system property; null where there is none, it is empty, or a security manager hides it. */
    static String property(String key)
    {
        try
        {
            String value = System.getProperty(key);
            return value == null || value.isEmpty() ? null : value;
        }
        catch (SecurityException hidden)
        {
            return null;
        }
    }

    /** What the log shall be opened with at its first use; null: the program opens it itself. */
    String application()
    {
        return value(OWN + "application");
    }

    /** The private file that it shall be opened with; null for none. */
    String file()
    {
        return value(OWN + "file");
    }

    /** Whether the program can't do without the DLL. */
    boolean isRequired()
    {
        return "true".equalsIgnoreCase(value(OWN + "required"));
    }

    /** The DLL or its folder; null where it is to be looked for. */
    String library()
    {
        return value(OWN + "library");
    }

    /** Where lines go without the DLL; null for standard error. */
    String fallbackFile()
    {
        return value(OWN + "fallback.file");
    }

    /** The highest level that is written without the DLL. */
    int fallbackLevel(int packageNumber)
    {
        return packageNumber >= 0 && packageNumber < PACKAGE_COUNT ? m_levels[packageNumber] : KoralLog.WARNING;
    }

    /** What was wrong, each a sentence. */
    List<String> warnings()
    {
        return Collections.unmodifiableList(m_warnings);
    }

    /** The package of a logger: that of the longest prefix that ends where the name or a part of it does. */
    int packageOf(String name)
    {
        for (String prefix = name == null ? "" : name; !prefix.isEmpty();)
        {
            Integer found = m_packages.get(prefix);
            if (found != null)
                return found;
            int end = Math.max(prefix.lastIndexOf('.'), prefix.lastIndexOf('$'));
            prefix = prefix.substring(0, Math.max(end, 0));
        }
        return m_package;
    }

    private String value(String key)
    {
        String value = m_hasSystem ? property(key) : null;
        if (value == null)
            value = m_file.getProperty(key);
        return value == null || value.trim().isEmpty() ? null : value.trim();
    }

    /** Of the file, and those with packages behind them of the system properties; in order, so that warnings are. */
    private Iterable<String> keys()
    {
        Map<String, Boolean> keys = new TreeMap<>();
        for (String key : m_file.stringPropertyNames())
            keys.put(key, true);
        if (m_hasSystem)
        {
            try
            {
                for (String key : System.getProperties().stringPropertyNames())
                {
                    if (key.startsWith(FALLBACK_LEVEL + "."))
                        keys.put(key, true);
                }
            }
            catch (SecurityException hidden)
            {
            }
        }
        return keys.keySet();
    }

    private void take(String key, String value)
    {
        if (KEYS.contains(key))
            return;
        if (key.startsWith(FALLBACK_LEVEL + "."))
        {
            int number = packageOf(key, key.substring(FALLBACK_LEVEL.length() + 1), -1);
            if (number >= 0)
                m_levels[number] = (byte)levelOf(key, value, m_levels[number]);
        }
        else if (key.startsWith(OWN))
            m_warnings.add("The setting " + key + " is unknown.");
        else
        {
            int number = packageOf(key, value, -1);
            if (number >= 0)
                m_packages.put(key, number);
        }
    }

    private int packageOf(String key, String value, int without)
    {
        if (value == null && without >= 0)
            return without;
        try
        {
            int number = Integer.parseInt(value);
            if (number >= 0 && number < PACKAGE_COUNT)
                return number;
        }
        catch (NumberFormatException noNumber)
        {
        }
        m_warnings.add("The setting " + key + ": " + value + " is no package from 0 to 749.");
        return without;
    }

    private int levelOf(String key, String value, int without)
    {
        if (value == null)
            return without;
        int level = LEVELS.indexOf(value.toLowerCase(Locale.ROOT));
        if (level < 0 && value.length() == 1)
            level = "01234567".indexOf(value);
        if (level >= 0)
            return level;
        String levels = String.join(", ", LEVELS);
        m_warnings.add("The setting " + key + ": " + value + " is no level; there are 0 to 7 and " + levels + ".");
        return without;
    }

    /** The file's content. Where it can't be read, the empty key says why. */
    private static Properties read()
    {
        Properties content = new Properties();
        String path = property(FILE);
        try (InputStream in = path == null ? findInClassPath() : new FileInputStream(path))
        {
            if (in != null)
            {
                Reader reader = new InputStreamReader(in, StandardCharsets.UTF_8);
                content.load(reader);
            }
        }
        catch (IOException | IllegalArgumentException | SecurityException failed)
        {
            content.setProperty("", FILE + " can't be read: " + failed.getMessage());
        }
        return content;
    }

    private static InputStream findInClassPath()
    {
        ClassLoader context = Thread.currentThread().getContextClassLoader();
        InputStream found = context == null ? null : context.getResourceAsStream(FILE);
        if (found == null)
        {
            ClassLoader own = Settings.class.getClassLoader();
            found = own == null ? ClassLoader.getSystemResourceAsStream(FILE) : own.getResourceAsStream(FILE);
        }
        return found;
    }
}
