#include "Kor_ClientScope.h"

#include <utility>

#include "Kor/thread_client.h"

Kor_ClientScope::Client::Client(const Client& other) noexcept : m_client(other.m_client) { kor::hold(m_client); }

Kor_ClientScope::Client::Client(Client&& other) noexcept : m_client(std::exchange(other.m_client, nullptr)) {}

Kor_ClientScope::Client& Kor_ClientScope::Client::operator=(Client other) noexcept
{
    std::swap(m_client, other.m_client);
    return *this;
}

Kor_ClientScope::Client::~Client() { kor::release(m_client); }

const char* Kor_ClientScope::Client::Address() const noexcept
{
    return m_client == nullptr ? nullptr : m_client->address();
}

long Kor_ClientScope::Client::Session() const noexcept { return m_client == nullptr ? 0 : m_client->session(); }

Kor_ClientScope::Kor_ClientScope(const char* address, long session) noexcept
    : m_mark(kor::enter_client(address, session))
{
}

Kor_ClientScope::Kor_ClientScope(const Client& client) noexcept : m_mark(kor::enter_client(client.m_client)) {}

Kor_ClientScope::~Kor_ClientScope() { kor::leave_client(m_mark); }

Kor_ClientScope::Client Kor_ClientScope::Current() noexcept
{
    Client current;
    current.m_client = kor::thread_client();
    kor::hold(current.m_client);
    return current;
}
