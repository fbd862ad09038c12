package lumaris.infra.log;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.util.function.Supplier;

/** Makes the texts of messages; whatever a program's own objects throw at that ends here. */
final class Messages
{
    private Messages()
    {
    }

    /** What the supplier gives, or what it threw. */
    static String of(Supplier<String> text)
    {
        try
        {
            return text == null ? null : text.get();
        }
        catch (RuntimeException | StackOverflowError thrown)
        {
            return "(the text could not be made: " + thrown.getClass().getName() + ")";
        }
    }

    /** The text, and behind it the exception with its stack, its causes and what it suppressed. Each may be null. */
    static String of(String text, Throwable thrown)
    {
        if (thrown == null)
            return text;
        String trace = traceOf(thrown);
        return text == null || text.isEmpty() ? trace : text + "\n" + trace;
    }

    private static String traceOf(Throwable thrown)
    {
        StringWriter text = new StringWriter();
        try
        {
            PrintWriter writer = new PrintWriter(text);
            thrown.printStackTrace(writer);
            writer.flush();
        }
        catch (RuntimeException | StackOverflowError failed)
        {
            text.append("\n(the rest of the stack trace of ").append(thrown.getClass().getName());
            text.append(" could not be made: ").append(failed.getClass().getName()).append(')');
        }
        // The log puts the line breaks of its output itself.
        String lines = text.toString().replace(System.lineSeparator(), "\n");
        int end = lines.length();
        while (end > 0 && lines.charAt(end - 1) == '\n')
            --end;
        int begin = lines.startsWith("\n") ? 1 : 0;
        return lines.substring(Math.min(begin, end), end);
    }
}
