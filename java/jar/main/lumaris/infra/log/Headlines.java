package lumaris.infra.log;

import java.nio.charset.StandardCharsets;
import java.time.ZonedDateTime;

/** Lines as the DLL writes them. Lengths are those of its buffers, in bytes of UTF-8. */
final class Headlines
{
    private static final int MOST_OF_HEADLINE = 199;
    private static final int MOST_OF_PART = 99;
    private static final String[] LEVELS =
        {"NONE    ", "SEVERE  ", "CRITICAL", "ERROR   ", "WARNING ", "NOTICE  ", "INFO    ", "DEBUG   "};

    private Headlines()
    {
    }

    /** {@code 2024-03-05 14:07:09.042+02:00} */
    static void addTime(StringBuilder to, ZonedDateTime time)
    {
        addNumber(to, time.getYear(), 4);
        addNumber(to.append('-'), time.getMonthValue(), 2);
        addNumber(to.append('-'), time.getDayOfMonth(), 2);
        addNumber(to.append(' '), time.getHour(), 2);
        addNumber(to.append(':'), time.getMinute(), 2);
        addNumber(to.append(':'), time.getSecond(), 2);
        addNumber(to.append('.'), time.getNano() / 1_000_000, 3);
        int minutes = time.getOffset().getTotalSeconds() / 60;
        addNumber(to.append(minutes < 0 ? '-' : '+'), Math.abs(minutes) / 60, 2);
        addNumber(to.append(':'), Math.abs(minutes) % 60, 2);
    }

    /**
     * A whole headline up to its arrow.
     *
     * @param level 0 to 7
     * @param thread the number of the thread
     * @param threadName null: none
     * @param client null: none
     * @param place its thread is not looked at
     */
    static String of(
        ZonedDateTime time, int level, int packageNumber, String application, long process, long thread,
        String threadName, KoralClient client, LocatedText place)
    {
        StringBuilder line = new StringBuilder(200);
        addTime(line, time);
        line.append(' ').append(LEVELS[level]).append('(');
        addNumber(line, packageNumber, 3);
        line.append(") ").append(application).append(" (").append(process).append(',').append(thread);
        if (threadName != null)
            line.append('|').append(threadName);
        line.append(") ").append(client == null ? "" : cut(client.headline(), MOST_OF_PART)).append(' ');
        if (place.line != 0)
            line.append(cut(placeOf(place), MOST_OF_PART));
        return cut(line.append(" ->").toString(), MOST_OF_HEADLINE);
    }

    private static String placeOf(LocatedText place)
    {
        String head = place.className + "(" + place.line + ")";
        return place.method.isEmpty() ? head : head + " " + place.method;
    }

    private static void addNumber(StringBuilder to, int number, int digits)
    {
        String text = Integer.toString(Math.abs(number));
        int missing = digits - text.length();
        if (number < 0)
        {
            to.append('-');
            --missing;
        }
        for (; missing > 0; --missing)
            to.append('0');
        to.append(text);
    }

    /** As many whole characters as have room in so many bytes. */
    static String cut(String text, int mostBytes)
    {
        if (text.length() * 3L <= mostBytes || text.getBytes(StandardCharsets.UTF_8).length <= mostBytes)
            return text;
        int bytes = 0;
        int end = 0;
        while (end < text.length())
        {
            int character = text.codePointAt(end);
            bytes += character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
            if (bytes > mostBytes)
                break;
            end += Character.charCount(character);
        }
        return text.substring(0, end);
    }
}
