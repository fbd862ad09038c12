// output_file.h - files that are written from their beginning to their end.

#ifndef KOR_WIN_OUTPUT_FILE_H
#define KOR_WIN_OUTPUT_FILE_H

#include <cstddef>
#include <string>

#include "win/owned.h"

namespace kor::win
{
/// A file that others may read while it is written.
class OutputFile
{
public:
    /// Creates it, or empties the one there is. Test with is_open.
    static OutputFile create(const wchar_t* path) noexcept;

    /// Opens a file to be written at its end, wherever that is by then. Creates it where there is none.
    static OutputFile append(const wchar_t* path) noexcept;

    /// Creates a file beside path that is to take its place: see replace. Until then it goes when it is closed, and
    /// when the process ends, however that happens.
    static OutputFile create_successor(const wchar_t* path);

    bool is_open() const noexcept { return static_cast<bool>(m_file); }

    bool write(const void* data, std::size_t size) noexcept;

    /// How a successor got into its place.
    enum class Replaced
    {
        ByName,  ///< A reader sees the old file or the new one, never a part.
        InPlace, ///< The old file has the new content now: somebody kept it open so that it could not be renamed over.
        Not      ///< It failed. The old file is as it was, unless writing over it stopped half-way.
    };

    /// Gives a successor the name path and closes it. While somebody has the old file open without letting it be
    /// deleted, this has to wait, for SHORTLY_MS at most; then the old file is written over, which may wait as long again.
    Replaced replace(const wchar_t* path);

    static constexpr DWORD SHORTLY_MS = 500;

private:
    explicit OutputFile(HANDLE file) noexcept : m_file(file) {}
    bool set_vanishing(bool vanishing) noexcept;
    bool rename(const wchar_t* path);
    bool copy_over(const wchar_t* path) noexcept;
    bool copy_to(OutputFile& other) noexcept;
    bool set_size(LONGLONG size) noexcept;

    OwnedFile m_file;
};
} // namespace kor::win

#endif // KOR_WIN_OUTPUT_FILE_H
