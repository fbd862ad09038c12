#include "Kor/conf_contents.h"

#include <cstring>

#include "Kor/conf_parts.h"

namespace kor
{
void ConfContents::SetPackages(const unsigned char* levels)
{
    std::memcpy(m_levels, levels, sizeof m_levels);
    m_has_levels = true;
}

void ConfContents::SetPackageName(int package, const char* name)
{
    if (!Kor_LogConf::IsPackageNoLegal(package))
        return;
    set_package_name(m_names[package], name);
    m_named.set(static_cast<std::size_t>(package));
}

Kor_LogLevelRuleTable& ConfContents::GetRuleTable(int package)
{
    std::unique_ptr<Kor_LogLevelRuleTable>& table = m_tables[package];
    if (!table)
        table = std::make_unique<Kor_LogLevelRuleTable>();
    return *table;
}

void ConfContents::apply_to(Kor_LogConf& conf) const
{
    if (m_output)
        conf.SetOutput(*m_output);
    if (m_to_debugger)
        conf.SetPrintToDebugger(*m_to_debugger);
    if (m_size_limit)
        conf.SetSizeLimitInMb(*m_size_limit);
    if (m_has_levels)
        conf.SetPackages(m_levels);
    for (int package = 0; package < PACKAGE_COUNT; ++package)
    {
        if (m_named.test(static_cast<std::size_t>(package)))
            std::memcpy(conf.packageNames[package], m_names[package], sizeof m_names[package]);
        if (m_tables[package])
            conf.ruleTables[package] = *m_tables[package];
    }
}
} // namespace kor
