/* Kor_JLogJNIInterface.h - the general log for programs in C, and for whatever finds functions of a DLL
 * by name.
 *
 * Java programs have the class lumaris.infra.log.KoralLog, whose native methods the DLL exports too. */

#ifndef KOR_JLOGJNIINTERFACE_H
#define KOR_JLOGJNIINTERFACE_H

#include "Kor_LogLevel.h"
#include "Kor_Package.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /** Opens the log of the process.
     *
     * file_name: appended to, in the folder that PRISMATE_LOG_DIR names. app_name: stands in every line.
     * Returns 0, also when the log is open already or the file could not be opened, which is reported on
     * standard error; -1 when there is no memory. Call it before there are threads. */
    KOR_API int OpenLog(const char* file_name, const char* app_name);

    /** Writes a line with a headline, if messages of that level are wanted for the package.
     *
     * level: 1 (severe) to 7 (debug). code: of the message; code / PACKAGE_RANGE is its package.
     * line, file, function: where it comes from; KOR_FILE_NAME is a good file. Of file, what follows the
     * last backslash is taken.
     * text: the finished message. It is used as a printf format without arguments, so a percent sign is
     * written %%; a conversion has nothing to convert and costs the line. Cut at 2046 characters; the
     * newline is added where it has none.
     *
     * From any thread at any time, before OpenLog too: the line then goes to where the system puts it. */
    KOR_API void
    WriteLog(int level, unsigned int code, int line, const char* file, const char* function, const char* text);

#ifdef __cplusplus
}
#endif

#endif /* KOR_JLOGJNIINTERFACE_H */
