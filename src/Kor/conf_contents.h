// conf_contents.h - what a `logger` file says, before it is known whether anybody needs it.

#ifndef KOR_CONF_CONTENTS_H
#define KOR_CONF_CONTENTS_H

#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>

#include "Kor_LogConf.h"

namespace kor
{
/// Takes the same changes as a configuration, under the same names, and hands them to one later. A configuration has
/// 4.4 MB, nearly all of it room for rules; this holds the rules that there are.
///
/// Belongs to one thread at a time.
class ConfContents
{
public:
    void SetOutput(Kor_LogConf::Output kind) noexcept { m_output = kind; }
    void SetPrintToDebugger(bool on) noexcept { m_to_debugger = on; }
    bool GetPrintToDebugger() const noexcept { return m_to_debugger.value_or(false); }
    void SetSizeLimitInMb(unsigned int megabytes) noexcept { m_size_limit = megabytes; }
    void SetPackages(const unsigned char* levels);
    void SetPackageName(int package, const char* name);

    /// The number must be legal. Throws std::bad_alloc.
    Kor_LogLevelRuleTable& GetRuleTable(int package);

    /// Makes the changes. What was not set stays as it is.
    void apply_to(Kor_LogConf& conf) const;

private:
    std::optional<Kor_LogConf::Output> m_output;
    std::optional<bool> m_to_debugger;
    std::optional<unsigned int> m_size_limit;
    bool m_has_levels = false;
    std::uint8_t m_levels[PACKAGE_COUNT];
    std::bitset<PACKAGE_COUNT> m_named;
    char m_names[PACKAGE_COUNT][Kor_LogConf::PACKAGE_NAME_SIZE];
    std::unique_ptr<Kor_LogLevelRuleTable> m_tables[PACKAGE_COUNT];
};
} // namespace kor

#endif // KOR_CONF_CONTENTS_H
