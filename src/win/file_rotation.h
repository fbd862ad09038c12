// file_rotation.h - a file is renamed, and its older versions move up.

#ifndef KOR_WIN_FILE_ROTATION_H
#define KOR_WIN_FILE_ROTATION_H

#include <windows.h>

#include <optional>
#include <string>

#include "core/file_rotation.h"
#include "win/named_mutex.h"
#include "win/owned.h"

namespace kor::win
{
/// Renames a file that several processes write to, so that each of them can begin a new one. Nothing that somebody
/// writes is deleted: files that are open for writing stay, whatever they are called.
///
/// Waits for nobody. May throw std::bad_alloc where it says nothing else; then too no file is lost.
class FileRotation final : private core::OlderFiles
{
public:
    enum class Outcome
    {
        RENAMED,
        BUSY,    ///< another process is at it
        ANOTHER, ///< what has the name is another file, or nothing: it was renamed by somebody else
        FAILED   ///< for the reason of error()
    };

    /// path: of system_path. kept: older files, at least one.
    FileRotation(const std::wstring& path, int kept) : m_path(path), m_kept(kept) {}

    /// Renames the file that open is a handle of. Other processes keep away from its name until this object goes.
    /// is_patient: BUSY when another process is at it; else it goes without their lock, as one of them may hang.
    Outcome rename(HANDLE open, bool is_patient);

    /// Gives the file its name back, when no new one can be made.
    void undo();

    /// Deletes what is older than those that are kept.
    void remove_oldest();

    DWORD error() const noexcept { return m_error; }

private:
    bool is_free(int number) override;
    bool move(int from, int to) override;
    void remove(int number) override;
    bool give_name(const std::wstring& path);

    const std::wstring& m_path;
    const int m_kept;
    std::optional<NamedMutexGuard> m_turn;
    OwnedFile m_file; // which is renamed
    DWORD m_error = ERROR_SUCCESS;
};

/// True when path is the name of the file that open is a handle of, or when that cannot be told.
bool is_name_of(const wchar_t* path, HANDLE open) noexcept;
} // namespace kor::win

#endif // KOR_WIN_FILE_ROTATION_H
