#include "Kor/own_conf.h"

#include <new>
#include <utility>

#include "Kor/conf_parts.h"
#include "win/clock.h"

using kor::win::OwnerLockGuard;

namespace kor
{
OwnConf::OwnConf() : m_stamp(0), m_room(::operator new(sizeof(Kor_LogConf), std::nothrow))
{
    if (m_room == nullptr)
        return;
    offer_console();
    m_stamp = win::milliseconds_since_1970();
}

OwnConf::~OwnConf() { ::operator delete(m_room); }

Kor_LogConf* OwnConf::make() noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (!guard.held() || m_made != nullptr || m_room == nullptr)
        return m_made;
    Kor_LogConf* const conf = construct_in(m_room);
    conf->SetChangeCount(m_stamp);
    m_contents.reset();
    m_made = conf;
    return conf;
}

void OwnConf::set_contents(std::unique_ptr<ConfContents> contents) noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (Kor_LogConf* const conf = m_made)
        contents->apply_to(*conf);
    else
        std::swap(m_contents, contents);
}

void OwnConf::fill(Kor_LogConf& block) noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (const Kor_LogConf* const conf = m_made)
        copy_all_but_stamp(block, *conf);
    else
        construct_in(&block);
}

/// A new configuration with the contents, and the stamp 0.
Kor_LogConf* OwnConf::construct_in(void* room) const noexcept
{
    auto* const conf = new (room) Kor_LogConf(Kor_LogConf::Unstamped());
    if (m_contents)
        m_contents->apply_to(*conf);
    return conf;
}

void OwnConf::give_up() noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (!guard.held() || m_made != nullptr)
        return;
    m_contents.reset();
    ::operator delete(std::exchange(m_room, nullptr));
}

void OwnConf::release() noexcept { m_room = nullptr; }
} // namespace kor
