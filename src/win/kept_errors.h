// kept_errors.h - logging must not disturb the error that the caller is about to log.

#ifndef KOR_WIN_KEPT_ERRORS_H
#define KOR_WIN_KEPT_ERRORS_H

#include <windows.h>

#include <cerrno>

namespace kor::win
{
/// Gives the thread its last error and errno back at the end of the scope. Asks for errno's place once
/// only: every call into another module counts on the way of a line.
class KeptErrors
{
public:
    KeptErrors() noexcept : m_last_error(::GetLastError()), m_errno_place(&errno), m_errno(*m_errno_place) {}
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;
    ~KeptErrors()
    {
        *m_errno_place = m_errno;
        ::SetLastError(m_last_error);
    }

private:
    DWORD m_last_error;
    int* m_errno_place;
    int m_errno;
};
} // namespace kor::win

#endif // KOR_WIN_KEPT_ERRORS_H
