#include "win/owners_security.h"

#include <sddl.h> // behind windows.h

#include <string_view>

#include "core/bounded_text.h"

namespace kor::win
{
namespace
{
constexpr char EVERY_OWNER[] = "OW";

/// The owner of what this process makes, by its number: the account, or all administrators where it runs as one of them.
class OwnerText
{
public:
    OwnerText() noexcept
    {
        HANDLE raw = nullptr;
        if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &raw))
            return;
        const OwnedHandle token(raw);
        alignas(TOKEN_OWNER) unsigned char owner[sizeof(TOKEN_OWNER) + SECURITY_MAX_SID_SIZE];
        DWORD size = 0;
        char* text = nullptr;
        if (::GetTokenInformation(token.get(), TokenOwner, owner, sizeof owner, &size) &&
            ::ConvertSidToStringSidA(reinterpret_cast<TOKEN_OWNER*>(owner)->Owner, &text))
            m_text = OwnedLocalMemory(text);
    }

    std::string_view text() const noexcept { return m_text ? static_cast<const char*>(m_text.get()) : EVERY_OWNER; }

private:
    OwnedLocalMemory m_text;
};
} // namespace

OwnersSecurity::OwnersSecurity(Owner owner) noexcept
{
    const OwnerText number;
    char rights[256];
    core::BoundedText(rights, sizeof rights)
        .add("D:P(A;;GA;;;")
        .add(owner == Owner::BY_NUMBER ? number.text() : std::string_view(EVERY_OWNER))
        .add(")(A;;GA;;;SY)(A;;GR;;;BA)")
        .finish();
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(rights, SDDL_REVISION_1, &descriptor, nullptr))
        m_descriptor = OwnedLocalMemory(descriptor);
    m_attributes.nLength = sizeof m_attributes;
    m_attributes.lpSecurityDescriptor = m_descriptor.get(); // null: what the account's token says, which is no more
}
} // namespace kor::win
