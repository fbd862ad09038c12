// kept_errors.h - logging must not disturb the error that the caller is about to log.

#ifndef KOR_WIN_KEPT_ERRORS_H
#define KOR_WIN_KEPT_ERRORS_H

#include <windows.h>

#include <cerrno>

namespace kor::win
{
/// Gives the thread its last error and errno back at the end of the scope.
class KeptErrors
{
public:
    KeptErrors() noexcept : m_last_error(::GetLastError()), m_errno(errno) {}
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;
    ~KeptErrors()
    {
        errno = m_errno;
        ::SetLastError(m_last_error);
    }

private:
    DWORD m_last_error;
    int m_errno;
};
} // namespace kor::win

#endif // KOR_WIN_KEPT_ERRORS_H
