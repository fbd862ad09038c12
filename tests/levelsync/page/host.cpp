// host.cpp FOLDER NAME - a process of the suite, with its level file and its log in that folder. It does what the lines of
// its standard input ask, one after the other. Each is answered by a line of standard output.
//
//   serve SESSION CLIENT        names client and session
//   write PACKAGE LEVEL TEXT    writes a message, whose text is given in hexadecimal digits; 1 when it was wanted
//   level PACKAGE               the level in force
//   lines COUNT PACKAGE LEVEL   writes so many messages, "line 1." and so on

#include <windows.h>

#include <iostream>
#include <sstream>
#include <string>

#include "Kor_LogFile.h"

namespace
{
std::string bytes_of(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

int write(int package, int level, const std::string& text)
{
    return KorGLog.LogAt("host.cpp", nullptr, 0, level, package, "%s", text.c_str());
}

int answer(const std::string& request)
{
    std::istringstream words(request);
    std::string verb;
    words >> verb;
    int package = 0;
    int level = 0;
    if (verb == "serve")
    {
        long session = 0;
        std::string client;
        words >> session >> client;
        KorGLog.SetIPAndSID(client.empty() ? nullptr : client.c_str(), session);
        return 0;
    }
    if (verb == "lines")
    {
        int count = 0;
        words >> count >> package >> level;
        for (int i = 1; i <= count; ++i)
            write(package, level, "line " + std::to_string(i) + '.');
        return count;
    }
    words >> package;
    if (verb == "level")
        return KorGLog.GetLogLevel(package * PACKAGE_RANGE);
    std::string text;
    words >> level >> text;
    return write(package, level, bytes_of(text));
}
} // namespace

int main(int, char** arguments)
{
    ::SetEnvironmentVariableA("PRISMATE_LOG_DIR", arguments[1]);
    const std::string name = arguments[2];
    KorGLog.Open((name + ".log").c_str(), name.c_str());
    std::cout << "ready" << std::endl;
    for (std::string request; std::getline(std::cin, request);)
        std::cout << answer(request) << std::endl;
    return 0;
}
