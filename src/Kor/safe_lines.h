// safe_lines.h - whether texts from outside are kept from passing for lines of the log.

#ifndef KOR_SAFE_LINES_H
#define KOR_SAFE_LINES_H

#include <atomic>

namespace kor
{
/// Of the process; see Kor_LogFile::SetSafeLines.
extern std::atomic<bool> safe_lines;

inline bool has_safe_lines() noexcept { return safe_lines.load(std::memory_order_relaxed); }

/// What the program wants, unless PRISMATE_LOG_SAFE says otherwise.
void set_safe_lines(bool safe);

/// The application's name for a banner, which is a line of the log itself.
class BannerName
{
public:
    explicit BannerName(const char* name) noexcept;
    BannerName(const BannerName&) = delete;
    BannerName& operator=(const BannerName&) = delete;

    /// The name itself, null too, unless lines are to be safe and it is not.
    const char* get() const noexcept { return m_name; }

private:
    const char* m_name;
    char m_safe[256];
};

/// Goes by PRISMATE_LOG_SAFE, where that is set.
void read_safe_lines();
} // namespace kor

#endif // KOR_SAFE_LINES_H
