// system_version.h - which Windows this is.

#ifndef KOR_WIN_SYSTEM_VERSION_H
#define KOR_WIN_SYSTEM_VERSION_H

#include <windows.h>

#include <optional>
#include <string>

#include "core/system_texts.h"

namespace kor::win
{
/// What the system says of itself. Nothing when it fails.
std::optional<OSVERSIONINFOEXA> system_version() noexcept;

/// Such as "Service Pack 1"; empty when there is none.
std::wstring service_pack_of(const OSVERSIONINFOEXA& version);

/// With what else the product's name takes: the architecture and, for those systems that are told apart by it, the
/// edition or the release.
core::SystemVersion describe(const OSVERSIONINFOEXA& version);
} // namespace kor::win

#endif // KOR_WIN_SYSTEM_VERSION_H
