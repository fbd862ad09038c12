// The checks that most messages do not pass. What is rejected, which is most, costs a few loads and no frame: what comes
// after is in other sources, as a compiler that took it in here would save all its registers first.

#include "Kor_LogFile.h"

int Kor_LogFile::StoreParams(const char* file, const char* function, int line, int level, int package, int)
{
    return IsRejected(level, package) ? 0 : note_params(file, function, line, level, package);
}

int Kor_LogFile::CheckMsgLevel(long code, int level)
{
    const int package = static_cast<int>(code / PACKAGE_RANGE);
    return IsRejected(level, package) ? 0 : check_level(package, level);
}
