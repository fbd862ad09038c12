// own_conf.h - the configuration that a log has of its own, until it joins the machine's.

#ifndef KOR_OWN_CONF_H
#define KOR_OWN_CONF_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "Kor/conf_contents.h"
#include "Kor_LogConf.h"
#include "win/owner_lock.h"

namespace kor
{
/// 4.4 MB that most processes join the machine's configuration without ever having looked at. So the room is taken
/// when the log is made, as it could not be had later, and filled when somebody asks for the configuration; until
/// then it is what a new one always is, and what the `logger` file said.
///
/// Any thread, except where it is said.
class OwnConf
{
public:
    /// Takes the room, and offers the console that a new configuration offers.
    OwnConf();
    OwnConf(const OwnConf&) = delete;
    OwnConf& operator=(const OwnConf&) = delete;
    ~OwnConf();

    /// False when there was no memory.
    bool exists() const noexcept { return m_room != nullptr; }

    /// The stamp of the configuration as long as it is not made.
    const std::uint64_t& stamp() const noexcept { return m_stamp; }

    /// The configuration, made now if it was not; null once it has been given up.
    Kor_LogConf* make() noexcept;

    /// The configuration if it was made, else null.
    Kor_LogConf* made() const noexcept { return m_made; }

    /// What it is to hold beside the defaults.
    void set_contents(std::unique_ptr<ConfContents> contents) noexcept;

    /// Makes a configuration like it of a block that nobody uses yet, but for the stamp, which is 0.
    void fill(Kor_LogConf& block) noexcept;

    /// The log has joined the machine's. Memory that nobody has looked at is given back now; else other threads, or
    /// who has asked for the configuration, may still do so, and it stays until the log goes.
    void give_up() noexcept;

    /// Leaves the configuration to the process for the rest of its life. On the thread that destroys the log.
    void release() noexcept;

private:
    Kor_LogConf* construct_in(void* room) const noexcept;

    win::OwnerLock m_lock; // for what follows, but for the stamp
    std::uint64_t m_stamp;
    void* m_room;
    std::atomic<Kor_LogConf*> m_made{nullptr};
    std::unique_ptr<ConfContents> m_contents;
};
} // namespace kor

#endif // KOR_OWN_CONF_H
