package lumaris.infra.log;

/** A text with the place in front of it, read by the rules of the DLL. */
final class LocatedText
{
    /** Null: there is no place in front. */
    final String thread;
    final String className;
    final String method;
    /** 0: none. */
    final int line;
    final String body;

    private LocatedText(String thread, String className, String method, int line, String body)
    {
        this.thread = thread;
        this.className = className;
        this.method = method;
        this.line = line;
        this.body = body;
    }

    static LocatedText read(String text)
    {
        int open = text.indexOf('<');
        int close = open < 0 ? -1 : text.indexOf('>', open);
        int comma = open < 0 ? -1 : text.indexOf(',', open);
        int dot = comma < 0 ? -1 : text.indexOf('.', comma);
        int colon = dot < 0 ? -1 : text.indexOf(':', dot);
        if (close < 0 || colon < 0)
            return new LocatedText(null, "", "", 0, text);
        // The end is looked for on its own, so it may stand in front of the colon.
        Integer line = colon < close ? readLine(text.substring(colon + 1, close)) : null;
        return new LocatedText(
            text.substring(open + 1, comma), text.substring(comma + 1, dot), text.substring(dot + 1, colon),
            line == null ? 0 : line, line == null ? text : text.substring(close + 1));
    }

    /** Decimal, octal after 0, hexadecimal after 0x; none is 0. Null where it is no number of 32 bits. */
    private static Integer readLine(String field)
    {
        if (field.isEmpty())
            return 0;
        int at = 0;
        while (at < field.length() && (field.charAt(at) == ' ' || field.charAt(at) >= '\t' && field.charAt(at) <= '\r'))
            ++at;
        boolean isNegative = at < field.length() && field.charAt(at) == '-';
        if (isNegative || at < field.length() && field.charAt(at) == '+')
            ++at;
        String digits = field.substring(at);
        int base = 10;
        if (digits.startsWith("0"))
        {
            base = digits.length() >= 3 && (digits.charAt(1) | 0x20) == 'x' ? 16 : 8;
            digits = digits.substring(base == 16 ? 2 : 0);
        }
        if (digits.isEmpty() || digits.length() > 12 || Character.digit(digits.charAt(0), base) < 0) // no second sign
            return null;
        for (int i = 0; i < digits.length(); ++i)
        {
            if (digits.charAt(i) > 'f') // digits of other scripts
                return null;
        }
        try
        {
            long value = Long.parseLong(digits, base);
            long number = isNegative ? -value : value;
            return number == (int)number ? (Integer)(int)number : null;
        }
        catch (NumberFormatException noNumber)
        {
            return null;
        }
    }
}
