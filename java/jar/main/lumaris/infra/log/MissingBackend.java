package lumaris.infra.log;

/** Stands where a program can't do without the DLL and it is not there: each use says so. */
final class MissingBackend extends Backend
{
    private final String m_complaint;

    MissingBackend(String complaint)
    {
        m_complaint = complaint;
    }

    private IllegalStateException missing()
    {
        return new IllegalStateException(m_complaint + ", and lumlog.required is true");
    }

    @Override
    int open(String application)
    {
        throw missing();
    }

    @Override
    int open(String file, String application)
    {
        throw missing();
    }

    @Override
    boolean isWanted(int packageNumber, int level)
    {
        throw missing();
    }

    @Override
    int writeBare(String text)
    {
        throw missing();
    }

    @Override
    int write(int packageNumber, int level, String text)
    {
        throw missing();
    }
}
