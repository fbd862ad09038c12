package lumaris.infra.log;

/** Writes the place that a message comes from as the log reads it: in front of the text. */
final class Places
{
    private Places()
    {
    }

    /** {@code <thread,class.method:line>} and the text. Null as place names none. */
    static String located(StackTraceElement place, String text)
    {
        StringBuilder result = new StringBuilder(64 + (text == null ? 0 : text.length()));
        result.append('<');
        addMasked(result, ThreadNames.ofCurrent(), ",<>");
        result.append(',');
        if (place == null)
            result.append("unknown_class.unknown_func:0");
        else
            addPlace(result, place);
        return result.append('>').append(text == null ? "(null)" : text).toString();
    }

    private static void addPlace(StringBuilder result, StackTraceElement place)
    {
        String name = place.getClassName();
        addMasked(result, name.substring(name.lastIndexOf('.') + 1), ",<>:");
        result.append('.');
        String method = place.getMethodName();
        if (method.equals("<init>"))
            result.append("init");
        else if (method.equals("<clinit>"))
            result.append("clinit");
        else
            addMasked(result, method, ",<>:");
        result.append(':').append(Math.max(place.getLineNumber(), 0));
    }

    /** A line break in a name would tear the line of the log, so control characters go as well. */
    private static void addMasked(StringBuilder result, String name, String separators)
    {
        for (int i = 0; i < name.length(); ++i)
        {
            char c = name.charAt(i);
            result.append(Character.isISOControl(c) || separators.indexOf(c) >= 0 ? '_' : c);
        }
    }

    /** A text from outside that is to stand within a line. */
    static String withoutControls(String text)
    {
        StringBuilder result = new StringBuilder(text.length());
        addMasked(result, text, "");
        return result.toString();
    }
}
