#include "win/named_mutex.h"

namespace kor::win
{
namespace
{
/// The mutex, made where there is none. Only the rights that are used are asked for: the full ones, which CreateMutexA
/// wants, are refused to many accounts.
OwnedHandle open_mutex(const char* name) noexcept
{
    SECURITY_DESCRIPTOR everyone;
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
    if (::InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION) != FALSE &&
        ::SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE) != FALSE)
        attributes.lpSecurityDescriptor = &everyone;
    return OwnedHandle(::CreateMutexExA(&attributes, name, 0, SYNCHRONIZE | MUTEX_MODIFY_STATE));
}
} // namespace

NamedMutexGuard::NamedMutexGuard(const char* name, DWORD max_wait_ms) noexcept : m_held(false)
{
    if (name == nullptr)
        return;
    m_mutex = open_mutex(name);
    if (!m_mutex)
        return;
    const DWORD result = ::WaitForSingleObject(m_mutex.get(), max_wait_ms);
    m_held = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    m_in_use = result == WAIT_TIMEOUT;
}

NamedMutexGuard::~NamedMutexGuard()
{
    if (m_held)
        ::ReleaseMutex(m_mutex.get());
}
} // namespace kor::win
