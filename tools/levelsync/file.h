// file.h - whole files, and replacing one so that there is always either the old or the new.

#ifndef LEVELSYNC_FILE_H
#define LEVELSYNC_FILE_H

#include <optional>
#include <string>
#include <string_view>

#include "owned.h"

namespace levelsync
{
/// The bytes of a file; nothing where there is no such file. Throws Failure for one that cannot be read.
std::optional<std::string> read_whole(const std::wstring& path);

/// The account that this process runs under, for who has to ask for a right.
std::string own_account();

/// Throws Failure when there is no such folder.
void require_folder(const std::wstring& path);

/// A new content for a file, written beside it and flushed, which takes its place in one step.
///
/// Made under the folder's turn (turn.h), for the name beside is always the same. What is not put in place goes with
/// this object. The new file has the access rights and attributes of the old one.
class Replacement
{
public:
    /// Throws Failure, with nothing changed, when the right is missing or the disk is full.
    Replacement(const std::wstring& path, std::string_view bytes);
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement();

    /// Where the new content stands until then.
    const std::wstring& path_beside() const noexcept { return m_beside; }

    /// Throws Failure, with the old file as it was, when another program does not let go of it for three seconds.
    void put_in_place();

private:
    std::wstring m_path;
    std::wstring m_beside;
    bool m_is_beside = false;
};
} // namespace levelsync

#endif // LEVELSYNC_FILE_H
