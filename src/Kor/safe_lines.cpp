#include "Kor/safe_lines.h"

#include <optional>
#include <string>

#include "Kor/diagnostics.h"
#include "core/bounded_text.h"
#include "core/safe_text.h"
#include "win/environment.h"

namespace kor
{
std::atomic<bool> safe_lines{false};

namespace
{
std::optional<bool> configured_safe_lines()
{
    const std::optional<std::string> text = win::environment("PRISMATE_LOG_SAFE");
    if (!text)
        return std::nullopt;
    if (*text == "1" || *text == "0")
        return *text == "1";
    KOR_WARN("PRISMATE_LOG_SAFE=%s is neither 1 nor 0, so it does not count\n", text->c_str());
    return std::nullopt;
}
} // namespace

BannerName::BannerName(const char* name) noexcept : m_name(name)
{
    if (name == nullptr || !has_safe_lines() || core::is_safe(name, core::SafeStyle::NAME))
        return;
    const int length = core::BoundedText(m_safe, sizeof m_safe).add_terminated(name).finish();
    core::make_name_safe({m_safe, sizeof m_safe}, length);
    m_name = m_safe;
}

void set_safe_lines(bool safe) { safe_lines = configured_safe_lines().value_or(safe); }

void read_safe_lines() { safe_lines = configured_safe_lines().value_or(safe_lines); }
} // namespace kor
