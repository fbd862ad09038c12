// shared_block.h - a named file mapping that every process of the machine can open and create.

#ifndef KOR_WIN_SHARED_BLOCK_H
#define KOR_WIN_SHARED_BLOCK_H

#include <cstddef>

#include "win/owned.h"

namespace kor::win
{
// The texts that the steps print on standard error are what support looks for.

/// Opens the mapping called name. None when there is none that this process may use, with the last error.
OwnedHandle open_mapping(const char* name) noexcept;

/// Creates it, for everyone's use. Sets created unless another process was faster.
OwnedHandle create_mapping(const char* name, std::size_t size, bool& created) noexcept;

/// A view that was found, for reading alone, and by which of the names.
struct FoundView
{
    OwnedView view;
    const char* name;
};

/// Maps the mapping called name, or else fallback_name (null: none), for reading. Says nothing; a view that is null has
/// its reason in GetLastError. Also null when it has fewer than size
/// bytes, or when these are not all there to be read.
FoundView find_view(const char* name, const char* fallback_name, std::size_t size) noexcept;

/// Maps the whole of it for reading and writing. Null also when it has fewer than size bytes, or when these are not
/// all there to be read and written.
OwnedView map_view(const OwnedHandle& mapping, std::size_t size) noexcept;
} // namespace kor::win

#endif // KOR_WIN_SHARED_BLOCK_H
