// Kor_LogDestJsonLines.h - a destination that writes each message as a line of JSON, for programs that collect logs.

#ifndef KOR_LOGDESTJSONLINES_H
#define KOR_LOGDESTJSONLINES_H

#include <memory>

#include "Kor_LogFile.h"

namespace kor
{
class JsonLinesFile;
}

/// Appends each message to a file as one object of JSON in a line of its own:
///
///     Kor_LogDestJsonLines lines("C:\\logs\\viewer.jsonl", 100, 5);
///     KorGLog.RegisterLogDestination(&lines);
///
///     {"time":"2024-03-05T12:07:09.042Z","zone":"+02:00","level":4,"level_name":"WARNING","package":17,
///      "package_name":"Reader","application":"viewer","process":4312,"thread":5120,"thread_name":"Loader",
///      "client":"10.0.0.7","session":3,"file":"image.cpp","line":210,"function":"load",
///      "run":"1da6ef20a5cbd10-4312","sequence":12,"text":"front.png is missing"}
///
/// (on one line). time is UTC, zone how far local time is ahead of it. What there is not is left out: package_name,
/// thread_name, client, session, the three that say where a message is from, and application before a log is opened.
/// package_name is that of the configuration in use, else what this program has called the package with NamePackage.
/// Messages that have no headline in a log, as banners, have "bare":true. run is another one for each object that opens a
/// file, on the whole machine; sequence counts its messages from 1 on. The two tell a reader which line it has already
/// and, by a gap, that lines were lost.
///
/// Lines are UTF-8 and end with one newline, and nothing in a message can end a line or begin another: control characters
/// are escaped, as are those that end a line or turn it around in Unicode. A byte that is no UTF-8 is taken for a character
/// of the process's code page (U+FFFD where that has two bytes for it, or none). The newline at the end of a message is no
/// part of its text. Messages are not cut further than the log has cut them.
///
/// The file is opened for appending and shared in every way, so others can follow, copy, rename or delete it, and several
/// processes can write to the same one. Each line is handed to the system whole and at once. At its size limit the file,
/// say viewer.jsonl, is renamed to viewer.1.jsonl, those before it move up, and a new one is begun; so does writing go on
/// half a second after somebody else has renamed the file. A line that the disk has no room for is lost, and LogMessage
/// returns -1; nothing is thrown.
///
/// Threads: as all destinations. A copy shares the file; the last of them to go closes it.
class KOR_API Kor_LogDestJsonLines : public Kor_LogDestBase
{
public:
    static constexpr int DEFAULT_MEGABYTES = 100;
    static constexpr int DEFAULT_FILES = 5;

    /// Opens or makes the file. path: in the code page of fopen, and of any length. megabytes: that it may have, 0 or less:
    /// any number. files: how many renamed ones are kept, 1 to 999 (what is beyond that counts as the nearest). A file
    /// that cannot be opened is reported on standard error, and every LogMessage then returns -1.
    explicit Kor_LogDestJsonLines(const char* path, int megabytes = DEFAULT_MEGABYTES, int files = DEFAULT_FILES);

    /// False when the file could not be opened.
    bool IsOpen() const noexcept;

    /// 0, or -1 when the line was not written.
    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override;

private:
    std::shared_ptr<kor::JsonLinesFile> m_file;
};

#endif // KOR_LOGDESTJSONLINES_H
