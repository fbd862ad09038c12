// errors.cpp - an error is noted where it is detected, and logged where it can be dealt with.

#include <cerrno>
#include <cstdio>

#include "Kor_Error.h"
#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_LOADER = 310;
constexpr unsigned long ERR_IMAGE_TRUNCATED = 3100012; // number 12 of package 310

bool load(const char* path)
{
    KorGError.Set(ERR_IMAGE_TRUNCATED);
    KorGError.SetLogMsg("%s ends after %d rows", path, 17);
    return false;
}

bool open_album() { return load("front.png"); }
} // namespace

int main()
{
    KorGLog.Open("errors.log", "errors");

    if (!open_album())
    {
        std::printf("error %lu of package %lu\n", KorGError.Get(), KorGError.GetPackage());
        // What was detected further down is logged, and stays.
        if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_LOADER) != 0)
            KorGError.Log(nullptr, 0);

        // An error with its name becomes this thread's; its text is used up.
        if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_LOADER) != 0)
            KorGError.Log("ERR_IMAGE_TRUNCATED", ERR_IMAGE_TRUNCATED);
    }

    // One that the C runtime has set is explained.
    if (std::fopen("no such folder\\front.png", "rb") == nullptr &&
        KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_WARNING, PACKAGE_LOADER) != 0)
        KorGError.Log("ENOENT", ENOENT);
    return 0;
}
