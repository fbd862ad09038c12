// destination.cpp - what is written also goes to a file of its own and to an object that counts.

#include <cstdio>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_LOADER = 310;

/// Counts the messages of level 3 and worse. Called with the log's lock held, so a plain number will do.
class ErrorCount : public Kor_LogDestBase
{
public:
    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char*, unsigned int) override
    {
        if (!bare && context->m_level <= 3)
            ++m_count;
        return 0;
    }
    int count() const { return m_count; }

private:
    int m_count = 0;
};
} // namespace

int main()
{
    KorGLog.Open("destination.log", "destination");

    // They are ours: they must live until they are unregistered.
    Kor_LogDestFile copy("copy.log");
    ErrorCount errors;
    KorGLog.RegisterLogDestination(&copy);
    KorGLog.RegisterLogDestination(&errors);

    KOR_LOG(KorGLog, 3, PACKAGE_LOADER, "cannot read %s", "head.dcm");
    KOR_LOG(KorGLog, 4, PACKAGE_LOADER, "trying the archive instead");

    KorGLog.UnregisterLogDestination(&errors);
    KorGLog.UnregisterLogDestination(&copy);
    std::printf("%d message of level 3 or worse\n", errors.count());
    return 0;
}
