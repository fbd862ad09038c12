// file_rotation.h - the names of a file's older versions, and how they move up when it begins anew.

#ifndef KOR_CORE_FILE_ROTATION_H
#define KOR_CORE_FILE_ROTATION_H

#include <string>
#include <string_view>

#include "core/bounded_text.h"
#include "core/headline.h"

namespace kor::core
{
/// Most older files that a log keeps.
constexpr int MOST_OLDER_FILES = 999;

/// Names beyond those that are kept, for older files that cannot go yet, as somebody still writes to them.
constexpr int SPARE_OLDER_FILES = 16;

/// "C:\logs\viewer.log" with 4 is "C:\logs\viewer.4.log": the number stands in front of the name's last ending, or at the
/// end of a name that has none.
std::wstring numbered_path(std::wstring_view path, unsigned long number);

/// The name of the lock that processes hold which rename the files of path (a full one): the same in all of them, however
/// its ASCII letters are written.
std::string rotation_lock_name(std::wstring_view path);

/// What a text says of how many files are to be kept: 0 to MOST_OLDER_FILES. False for what is no such number.
bool read_file_count(std::string_view text, int& count) noexcept;

/// A file's older versions, by number: 1 is the youngest.
class OlderFiles
{
public:
    OlderFiles() = default;
    OlderFiles(const OlderFiles&) = delete;
    OlderFiles& operator=(const OlderFiles&) = delete;
    virtual ~OlderFiles() = default;

    /// True when nothing has that name, so that a file can be given it.
    virtual bool is_free(int number) = 0;

    /// Gives the file another number, under which there is none. False when it stays, as when somebody has it open who
    /// does not allow that, or when what has its name is no file.
    virtual bool move(int from, int to) = 0;

    /// Deletes the file, unless somebody writes to it or does not allow it.
    virtual void remove(int number) = 0;
};

/// Frees a number for the youngest, by moving up what is in the way as far as to the first gap. Returns the number: 1,
/// or that behind those at the front which cannot be moved; 0 when there is none.
///
/// Whoever is stopped at any moment of this leaves all files there are, in the order of their age, with a gap between
/// them that the next call finds.
int free_a_number(OlderFiles& files, int kept);

/// Deletes what has a number beyond those that are kept.
void remove_oldest(OlderFiles& files, int kept);

/// What a log says where it goes on in another file.
struct SeamBanner
{
    std::string_view application;
    int process;
    std::string_view time; ///< of write_time
    std::string_view user;
    std::string_view computer;
};

/// What stands in a banner behind the process.
constexpr std::string_view SEAM_AT_END = ") Log goes on in the next file at ";
constexpr std::string_view SEAM_AT_BEGIN = ") Log goes on here at ";

/// marker: one of the two. Returns the length, -1 when the text was cut.
int write_seam_banner(Buffer to, std::string_view marker, const SeamBanner& from) noexcept;

/// What notices of a file begin with, and what they have in them.
constexpr std::string_view ROTATION_NOTICE_BEGIN = "*** Log file ";
constexpr std::string_view NOT_RENAMED = " has reached its size limit and cannot be renamed: ";
constexpr std::string_view NOT_REOPENED = " was renamed, and no new one can be opened: ";

/// What a log says, once, of a file that it cannot rename at its size limit. error: of GetLastError.
void write_rename_notice(BoundedText& text, std::string_view name, unsigned long error) noexcept;

/// What it says when the file was renamed and none can be opened in its place.
void write_reopen_notice(BoundedText& text, std::string_view name, unsigned long error) noexcept;
} // namespace kor::core

#endif // KOR_CORE_FILE_ROTATION_H
