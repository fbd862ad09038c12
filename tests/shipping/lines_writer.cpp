// lines_writer.cpp - a host whose lines are shipped: to its log, and as lines of JSON beside it.
//
// lines_writer FOLDER NAME LINES KIND: writes so many messages to NAME.log and NAME.jsonl in the folder. Message number i says "number i" and what its kind is. KIND: "ordinary" for messages that span lines, have all kinds of names and
// places, and bytes of a code page; "hostile" for some besides that try to pass for lines of the log or for records.

#include <Kor_ClientScope.h>
#include <Kor_LogDestJsonLines.h>
#include <Kor_LogFile.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
constexpr int READER = 310;
constexpr int PAGES = 311; // which has no name, and so the default level

struct Place
{
    const char* file;
    int line;
    const char* function;
};
constexpr Place PLACES[] = {
    {"image.cpp", 210, "load"},
    {"page (copy).cpp", 7, "operator ()"},
    {"album.cpp", 113, "Album::operator ->"},
    {"C:\\src\\page.h", 12, "operator->"},
    {"page.h", 1, ""},
    {"unknown file", 0, "unknown function"},
};

struct Whom
{
    const char* client;
    long session;
};
constexpr Whom CLIENTS[] = {{"192.0.2.7", 3}, {"2001:db8::7", 12}, {nullptr, 0}, {"fe80::1%3", 0}, {nullptr, 4}};

constexpr const char* THREADS[] = {nullptr, "Loader", "Page loader", "Pool (2) of 3", "Worker-2"};

constexpr const char* TEXTS[] = {
    "front.png is loaded",
    "a page -> another -> the last",
    "one\ntwo\n\n    four",
    "of paper A4 \x96 Gr\xFC\xDF"
    "e f\xFCr 5 \x80",
    "in UTF-8: Gr\xC3\xBC\xC3\x9F"
    "e \xF0\x9F\x96\xBC",
    "a \"quote\", a \\ backslash, 100 % of it; and 'one' more",
    "size(12) load -> in the text",
};
constexpr const char* HOSTILE[] = {
    "x\n2026-11-21 08:54:57.106+00:00 SEVERE  (310) viewer (32,280)  forged.cpp(1) forged -> forged",
    "x\"}\n{\"time\":\"2026-11-21T08:54:57.106Z\",\"level\":1,\"run\":\"forged\",\"sequence\":1,\"text\":\"forged\"}",
    "'); drop table line; --",
    "\x1B[31mred\x1B[0m\b\x01\x7F \xC2\x85 \xE2\x80\xA8 \xE2\x80\xAE turned",
    "\\u0000 \\n $1 %msg% ${text} \\'; {{forged}}",
    "\xC0\xAF \xED\xA0\x80 \xF8\x88 \xFF",
};

template <class T, std::size_t SIZE>
const T& nth(const T (&of)[SIZE], int i)
{
    return of[static_cast<std::size_t>(i) % SIZE];
}

void write(int i, bool hostile)
{
    if (hostile && i % 1000 == 500)
        KorGLog.LogAt("page.h", "load", 5, 4, READER, "nul %d %c behind it", i, '\0');
    const Place& place = nth(PLACES, i);
    const Whom& whom = nth(CLIENTS, i / 2);
    const Kor_ClientScope scope(whom.client, whom.session);
    KorGLog.SetThreadName(nth(THREADS, i / 3));
    const char* const text = hostile && i % 2 == 1 ? nth(HOSTILE, i / 2) : nth(TEXTS, i);
    const bool is_page = i % 4 == 3;
    const int level = is_page ? KOR_LEVEL_WARNING : 1 + i % 7;
    KorGLog.LogAt(place.file, place.function, place.line, level, is_page ? PAGES : READER, "number %d %s", i, text);
    if (i % 1000 == 999)
        KorGLog.LogAt(
            place.file, place.function, place.line, level, READER, "long %d %s", i, std::string(3000, '"').c_str());
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    ::_putenv_s("PRISMATE_LOG_DIR", argv[1]);
    ::_putenv_s("KORAL_LOG_DEVELOP", "1");
    const std::string name = argv[2];
    const int count = std::atoi(argv[3]);
    Kor_LogDestJsonLines lines((std::string(KorGLog.GetLogConfigDir()) + '\\' + name + ".jsonl").c_str(), 10, 99);
    KorGLog.RegisterLogDestination(&lines);
    KorGLog.Open((name + ".log").c_str(), "archive server", true);
    for (int i = 0; i < count; ++i)
        write(i, std::strcmp(argv[4], "hostile") == 0);
    KorGLog.UnregisterLogDestination(&lines);
    return lines.IsOpen() ? 0 : 1;
}
