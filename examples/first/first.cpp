#include <Kor_LogFile.h>

constexpr int PACKAGE_VIEWER = 310; // your number: 0 to 749

int main()
{
    KorGLog.Open("viewer.log", "viewer");
    KorGLog.SetThreadName("Main");

    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_VIEWER, "only %d of %d images fit into memory", 12, 17);
    KOR_LOG(KorGLog, KOR_LEVEL_DEBUG, PACKAGE_VIEWER, "debug lines appear when the package's level is 7");

    if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_VIEWER)) // the same by hand
        KorGLog.Log("cannot read %s", "front.png");
}
