// identity.h - who the process is to the rules and headlines; written by some threads, read by all.

#ifndef KOR_IDENTITY_H
#define KOR_IDENTITY_H

#include "win/owner_lock.h"

namespace kor
{
/// Guards the texts that Kor_LogMTVars keeps for the process: whoever reads one holds this, and
/// whoever replaces one frees the old text after having held it.
extern win::OwnerLock identity_lock;
} // namespace kor

#endif // KOR_IDENTITY_H
