// Kor_Error.h - the last error of each thread: a code, and a text that may go with it.

#ifndef KOR_ERROR_H
#define KOR_ERROR_H

#include <cstddef>
#include <cstdint>

#include "Kor_LogFile.h"
#include "Kor_Package.h"
#include "rw/threadlocal.h"

/// Scopes the codes of errors that the library itself reports.
struct Kor_Err
{
    /// A text did not fit where it was to go.
    static constexpr std::uint32_t BOUNDS = 9003;
};

/// An error code and a text of its own.
class KOR_API Kor_ErrorValue
{
public:
    /// No error, no text.
    Kor_ErrorValue() noexcept;
    /// The copy has a text of its own; without memory for that it has none.
    Kor_ErrorValue(const Kor_ErrorValue& other) noexcept;
    Kor_ErrorValue& operator=(const Kor_ErrorValue& other) noexcept;
    ~Kor_ErrorValue();

    /// Frees the text.
    void ResetLogMsg() noexcept;

    std::uint32_t value; ///< 0: no error
    char* logMsg;        ///< heap text (free), null: none
};

static_assert(sizeof(Kor_ErrorValue) == 16 && sizeof(void*) == 8);

/// The last error of each thread. Whoever detects an error sets it; whoever deals with it, perhaps far
/// up the call chain, logs it:
///
///     KorGError.Set(ERR_IMAGE_TRUNCATED);               // 310 * PACKAGE_RANGE + 12
///     KorGError.SetLogMsg("%s ends after %u rows", path, rows);
///     ...
///     if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, 3, PACKAGE_VIEWER) != 0)
///         KorGError.Log("ERR_IMAGE_TRUNCATED", 0);
///
/// Threads: each sees its own error alone, which goes when the thread ends. From any thread at any
/// time, while the process ends too; once the DLL has begun to go, errors are forgotten at once.
/// All members leave the thread's last Windows error and errno as they were, and throw nothing.
/// Without memory for a thread's error, setting it does nothing.
class KOR_API Kor_GError
{
public:
    /// Codes per package.
    static const unsigned long range_size;

    Kor_GError() noexcept;
    Kor_GError(const Kor_GError&) = delete;
    Kor_GError& operator=(const Kor_GError&) = delete;
    ~Kor_GError();

    /// Sets the code; the text stays. 0: no error.
    void Set(unsigned long code) noexcept;

    /// The code, 0 for none.
    unsigned long Get() const noexcept;

    /// The package that the code belongs to: code / range_size.
    unsigned long GetPackage() const noexcept;

    /// Sets the text, a printf format with its arguments; the code stays. A format of more than 1024
    /// characters, or a text of more than 1023, is not kept: the thread's error in KorGError then
    /// becomes Kor_Err::BOUNDS without a text, and a line says so. Arguments that do not fit the
    /// format leave a text that says that.
    void SetLogMsg(const char* format, ...) KOR_PRINTF(2, 3);

    /// Forgets the text; the code stays.
    void ResetLogMsg() noexcept;

    /// Writes a line about an error and its text to the general log, with the parameters that
    /// StoreParams noted last.
    ///
    /// code not 0: that error occurred, under that name; it becomes the thread's error, and the text
    /// is forgotten. If the code is that of errno, the line explains it.
    /// code 0: the thread's error was detected; name is not used, and the error stays as it is.
    void Log(const char* name, unsigned long code);

private:
    void report_bounds(int line);

    RWTThreadLocal<Kor_ErrorValue> m_value;
};

/// The last errors of the process's threads.
extern KOR_API Kor_GError KorGError;

#endif // KOR_ERROR_H
