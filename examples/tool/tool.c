/* tool.c - a program in C that writes to the log. */

#include <Kor_JLogJNIInterface.h>

int main(void)
{
    OpenLog("tool.log", "tool");
    WriteLog(KOR_LEVEL_WARNING, 3100012, __LINE__, KOR_FILE_NAME, __func__, "12 of 17 images fit into memory");
    return 0;
}
