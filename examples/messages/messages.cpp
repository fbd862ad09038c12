// messages.cpp - each way of writing a message once.

#include <windows.h>

#include <cstdio>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_LOADER = 310;
} // namespace

int main()
{
    KorGLog.Open("messages.log", "messages");
    KorGLog.SetThreadName("Main");

    // The macro asks for the level and notes file, function and line; nothing behind it is evaluated
    // when nobody wants the message.
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "only %d of %d images fit into memory", 12, 17);

    // The same by hand, where the message takes more than one expression.
    if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_WARNING, PACKAGE_LOADER) != 0)
        KorGLog.Log("%.1f MB are free", 211.5);

    // A question without a message: is an expensive summary worth the work?
    if (KorGLog.CheckMsgLevel(PACKAGE_LOADER * PACKAGE_RANGE, KOR_LEVEL_DEBUG) != 0)
        KorGLog.LogNoHeadline("a summary for debugging");

    // A failed system call with the system's explanation.
    if (::GetFileAttributesA("C:\\no\\such\\file") == INVALID_FILE_ATTRIBUTES)
    {
        const DWORD error = ::GetLastError();
        if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_LOADER) != 0)
            KorGLog.OSErrLog(error, "Cannot open %s:", "C:\\no\\such\\file");
        if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_LOADER) != 0)
            KorGLog.OSLog("GetFileAttributes", error);
    }

    // To standard output and to the log.
    if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_WARNING, PACKAGE_LOADER) != 0)
        KorGLog.PrintAndLog("%d albums found\n", 3);

    // To a stream if there is one, else to the log, without a headline.
    KorGLog.PrintOrLog(stdout, "progress: %d %%\n", 50);
    KorGLog.PrintOrLog(nullptr, "progress: %d %%\n", 100);

    // From here on the lines say whom the process works for.
    KorGLog.SetIPAndSID("192.0.2.7", 3);
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "the client has waited for %d s", 30);
    KorGLog.SetIP(nullptr);
    return 0;
}
