// identity.h - who the process is to the rules and headlines; written by some threads, read by all.

#ifndef KOR_IDENTITY_H
#define KOR_IDENTITY_H

#include <atomic>
#include <cstdint>

#include "win/owner_lock.h"

namespace kor
{
/// Guards the texts that Kor_LogMTVars keeps for the process: whoever reads one holds this, and
/// whoever replaces one frees the old text after having held it.
extern win::OwnerLock identity_lock;

/// Grows, with identity_lock held, each time one of those texts is replaced. Starts at 1.
extern std::atomic<std::uint32_t> identity_changes;
} // namespace kor

#endif // KOR_IDENTITY_H
