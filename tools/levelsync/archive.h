// archive.h - an archive of files, which is there whole or not at all.

#ifndef LEVELSYNC_ARCHIVE_H
#define LEVELSYNC_ARCHIVE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/log_split.h"
#include "times.h"

struct zip;

namespace levelsync
{
/// A zip archive on its way. Nothing stands under its name before write() has returned.
class Archive
{
public:
    /// Throws Failure when there can be no such file.
    explicit Archive(const std::wstring& path);
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;
    ~Archive();

    /// Adds size bytes of what lives until write() has returned; fewer where it has become shorter by then. name: UTF-8,
    /// with "/" between folders. Throws Failure when the memory is short.
    void add(const std::string& name, kor::core::LogBytes& bytes, std::uint64_t size, Time modified);

    /// Asked now and then with what is done, from 0 to 1; true ends it.
    using Stop = std::function<bool(double done)>;

    /// Writes all of it beside the name and then puts it there. Throws Failure with the name as it was.
    void write(const Stop& stop);

private:
    struct Entry;
    struct Discard
    {
        void operator()(zip* archive) const noexcept;
    };

    std::string m_name;
    std::vector<std::unique_ptr<Entry>> m_entries;
    std::unique_ptr<zip, Discard> m_archive;
};
} // namespace levelsync

#endif // LEVELSYNC_ARCHIVE_H
