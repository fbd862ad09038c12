// json_lines.cpp - lines of JSON for programs that collect logs.

#include <Kor_LogDestJsonLines.h>
#include <Kor_LogFile.h>

#include <string>

namespace
{
constexpr int READER = 310;
constexpr int MEGABYTES = 100;
constexpr int FILES = 5;
} // namespace

int main()
{
    KorGLog.Open("json_lines.log", "viewer");
    KorGLog.NamePackage(READER, "Reader");
    Kor_LogDestJsonLines lines((std::string(KorGLog.GetLogConfigDir()) + "\\viewer.jsonl").c_str(), MEGABYTES, FILES);
    KorGLog.RegisterLogDestination(&lines);

    KorGLog.SetIPAndSID("192.0.2.7", 3);
    KorGLog.SetThreadName("Loader");
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, READER, "%s is missing,\nand nothing stands in for it", "front.png");

    KorGLog.UnregisterLogDestination(&lines);
    return lines.IsOpen() ? 0 : 1;
}
