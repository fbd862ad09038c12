#include "core/file_rotation.h"

#include <charconv>
#include <cstdint>
#include <system_error>

namespace kor::core
{
namespace
{
constexpr unsigned long SHARING_VIOLATION = 32; // as GetLastError has them
constexpr unsigned long ALREADY_EXISTS = 183;

/// Where the number goes: in front of the last dot of the name, if it is not the name's first character.
std::size_t place_of_number(std::wstring_view path) noexcept
{
    const std::size_t separator = path.find_last_of(L"\\/:");
    const std::size_t name = separator == path.npos ? 0 : separator + 1;
    const std::size_t dot = path.find_last_of(L'.');
    return dot == path.npos || dot <= name ? path.size() : dot;
}

void add_error(BoundedText& text, unsigned long error) noexcept
{
    text.add("error ").add_unsigned(error);
    if (error == SHARING_VIOLATION)
        text.add(", another program has it open and does not allow that");
    else if (error == ALREADY_EXISTS)
        text.add(", the names for older files are all taken");
}
} // namespace

std::wstring numbered_path(std::wstring_view path, unsigned long number)
{
    return std::wstring(path).insert(place_of_number(path), L"." + std::to_wstring(number));
}

std::string rotation_lock_name(std::wstring_view path)
{
    std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a, 64 bits
    for (const wchar_t c : path)
    {
        hash ^= static_cast<std::uint64_t>(c >= L'a' && c <= L'z' ? c - L'a' + L'A' : c);
        hash *= 0x100000001b3;
    }
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, hash, 16);
    return "Global\\LUMlog rotation " + std::string(digits, end.ptr);
}

bool read_file_count(std::string_view text, int& count) noexcept
{
    int value = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, value);
    if (read.ec != std::errc() || read.ptr != end || value < 0 || value > MOST_OLDER_FILES)
        return false;
    count = value;
    return true;
}

int free_a_number(OlderFiles& files, int kept)
{
    const int last = kept + SPARE_OLDER_FILES;
    int free = 1;
    while (free <= last && !files.is_free(free))
        ++free;
    if (free > last)
        return 0;
    for (int number = free - 1; number >= 1; --number)
        if (files.move(number, free))
            free = number;
    return free;
}

void remove_oldest(OlderFiles& files, int kept)
{
    for (int number = kept + 1; number <= kept + SPARE_OLDER_FILES; ++number)
        if (!files.is_free(number))
            files.remove(number);
}

int write_seam_banner(Buffer to, std::string_view marker, const SeamBanner& from) noexcept
{
    BoundedText text(to.data, to.size);
    text.add("===== ").add(from.application).add(" (").add_number(from.process).add(marker).add(from.time);
    text.add(", User ").add(from.user).add(" on ").add(from.computer).add(" =====\n");
    return text.finish();
}

void write_rename_notice(BoundedText& text, std::string_view name, unsigned long error) noexcept
{
    text.add(ROTATION_NOTICE_BEGIN).add(name).add(NOT_RENAMED);
    add_error(text, error);
    text.add(". Writing goes on in it, and renaming is tried again every second. ***\n");
}

void write_reopen_notice(BoundedText& text, std::string_view name, unsigned long error) noexcept
{
    text.add(ROTATION_NOTICE_BEGIN).add(name).add(NOT_REOPENED);
    add_error(text, error);
    text.add(". Writing goes on in the renamed one, and opening is tried again every second. ***\n");
}
} // namespace kor::core
