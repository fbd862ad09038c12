// owners_security.h - who may use what a process shares with others of its account.

#ifndef KOR_WIN_OWNERS_SECURITY_H
#define KOR_WIN_OWNERS_SECURITY_H

#include <windows.h>

#include "win/owned.h"

namespace kor::win
{
/// Whoever owns what the process makes may do everything, and so may the system; administrators may read. What a program logs
/// is not for everybody on the machine.
class OwnersSecurity
{
public:
    /// How the owner is called: as every owner, or by the number of this one, for what others than administrators are to
    /// open under Wine, which does not know the former.
    enum class Owner
    {
        BY_NAME,
        BY_NUMBER
    };

    explicit OwnersSecurity(Owner owner) noexcept;
    OwnersSecurity(const OwnersSecurity&) = delete;
    OwnersSecurity& operator=(const OwnersSecurity&) = delete;

    SECURITY_ATTRIBUTES* attributes() noexcept { return &m_attributes; }

private:
    OwnedLocalMemory m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{};
};
} // namespace kor::win

#endif // KOR_WIN_OWNERS_SECURITY_H
