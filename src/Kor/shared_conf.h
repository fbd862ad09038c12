// shared_conf.h - the block in which all processes of the machine share one configuration.

#ifndef KOR_SHARED_CONF_H
#define KOR_SHARED_CONF_H

#include <cstdint>

#include "Kor_LogConf.h"
#include "win/named_mutex.h"
#include "win/shared_block.h"

namespace kor
{
constexpr int ATTACH_CREATED = 0;
constexpr int ATTACH_EXISTED = 17;
constexpr int ATTACH_FAILED = -1;

/// A view of the block that goes with this object.
struct Attachment
{
    win::OwnedHandle mapping;
    win::OwnedView view;
    int result = ATTACH_FAILED;

    Kor_LogConf* block() const noexcept { return static_cast<Kor_LogConf*>(view.get()); }
};

/// Where a process looks when there is no block of the name that it has the right to: one that may not create global
/// objects still joins the one that a service has created. Null: nowhere.
const char* fallback_name() noexcept;

/// Finds or makes the block of the machine.
Attachment attach_block();

/// Leaves mapping and view to the process: the block must not vanish while anyone may look at it.
void keep(Attachment& attachment) noexcept;

/// True once this process holds the block for its life.
bool is_kept() noexcept;

/// False when the block still holds nothing after a while, as its creator ended before it could fill it.
bool wait_until_filled(const Kor_LogConf& block) noexcept;

/// Marks a change of the block that is complete, and returns the stamp. It is above all that the block had, so every reader tells it
/// from those, and whoever sees it sees all that was written before.
std::uint64_t stamp_change(Kor_LogConf& block) noexcept;

/// A stamp that no log ever notes as seen, whatever the block says. For a check that is to find its levels out of date.
inline constexpr std::uint64_t UNSEEN_STAMP = UINT64_MAX;

/// The right to write to the block, if it could be had, for a scope. Publishers take turns, or what one of them writes
/// could lie over the other's in part. A turn takes a millisecond or two; where one takes much longer its holder hangs,
/// and the next goes on without: a mix of two configurations is better than one that nobody can change any more.
class PublisherTurn
{
public:
    /// Of the block that was attached last.
    PublisherTurn() noexcept;

    /// Of the block of that name, for who looks at it without attaching it: between two turns it is whole.
    explicit PublisherTurn(const char* block_name) noexcept;

private:
    static constexpr DWORD MAX_WAIT_MS = 2'000;

    win::NamedMutexGuard m_mutex;
};
} // namespace kor

#endif // KOR_SHARED_CONF_H
