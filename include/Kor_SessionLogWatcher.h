// Kor_SessionLogWatcher.h - the process that watches others: LUMlogWatch.exe is one, with a command line around this.

#ifndef KOR_SESSIONLOGWATCHER_H
#define KOR_SESSIONLOGWATCHER_H

#include "Kor_Package.h"

/// Watches the processes of a session of Windows that have called Kor_SessionLogHost::startWatcher. For programs that do
/// nothing else. Nothing is thrown.
class KOR_API Kor_SessionLogWatcher
{
public:
    /// How a watcher ended.
    enum class Ended
    {
        WITH_THE_LAST, ///< of the processes that it watched
        AS_ANOTHER_WATCHES,
        FAILED ///< what the processes share cannot be had
    };

    /// Watches until the last process has ended. One watches at a time, and another stands by to take over where that one is
    /// ended: the watcher starts its own program again, with the argument --stand-by, which is to call this with standBy.
    /// Has a thread for each process that it watches.
    static Ended Run(bool standBy);

    /// Writes a minidump of a process, which goes on. path: of the file; null: as a crash names it, in the folder that
    /// PRISMATE_LOG_DIR names. A file that is there is written over. used: gets the path, empty where the process cannot be
    /// looked at. False, with an error of Windows, when there is none of it. The process stands still meanwhile.
    static bool WriteMinidump(
        unsigned long process, const wchar_t* path, wchar_t* used, unsigned int usedSize, unsigned long& error);

    /// Who watches: the id of the process; 0: nobody.
    static unsigned long FindWatcher();

    /// Calls tell(context, process, program) for each process that is watched, with its program's path, and returns how many
    /// there are.
    static unsigned int
    ForEachWatched(void (*tell)(void* context, unsigned long process, const wchar_t* program), void* context);
};

#endif // KOR_SESSIONLOGWATCHER_H
