// conf_changing_test.cpp - a configuration that somebody else writes over between the moment the library has looked at
// a text's end and the moment it uses the text.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "Kor_LogFile.h"
#include "child.h"
#include "import_hook.h"
#include "log_lines.h"
#include "temp_directory.h"

KOR_IMPORT(memchr);

namespace
{
/// A configuration with nothing but forbidden memory behind it: who reads on past a text without an end gets there.
class ConfigurationAtTheEdge
{
public:
    ConfigurationAtTheEdge()
    {
        constexpr SIZE_T page = 4096;
        constexpr SIZE_T pages = (sizeof(Kor_LogConf) + page - 1) / page * page;
        auto* const memory =
            static_cast<unsigned char*>(::VirtualAlloc(nullptr, pages + page, MEM_RESERVE, PAGE_NOACCESS));
        ::VirtualAlloc(memory, pages, MEM_COMMIT, PAGE_READWRITE);
        m_conf = new (memory + pages - sizeof(Kor_LogConf)) Kor_LogConf;
    }

    Kor_LogConf& conf() const noexcept { return *m_conf; }

    /// Not a terminator from the names on.
    void write_over_ends() const noexcept
    {
        std::memset(m_conf->packageNames, 'n', sizeof m_conf->packageNames);
        std::memset(&m_conf->sizeLimitInMb, 'n', sizeof m_conf->sizeLimitInMb);
        auto* const levels = reinterpret_cast<unsigned char*>(m_conf->packageLevels);
        std::memset(levels, 'n', static_cast<std::size_t>(reinterpret_cast<unsigned char*>(m_conf + 1) - levels));
    }

private:
    Kor_LogConf* m_conf; // to the end of the process
};

/// Each look for a text's end is followed by a write over all of them.
struct HostileWriter
{
    explicit HostileWriter(const ConfigurationAtTheEdge& at)
        : hook(
              [&at](const void* text, int wanted, std::size_t size) -> void*
              {
                  void* const found = const_cast<void*>(std::memchr(text, wanted, size));
                  at.write_over_ends();
                  return found;
              })
    {
    }
    Hook<memchrImport> hook;
};

// args: the file to write.
KOR_CHILD(conf_dump_of_what_changes)
{
    const ConfigurationAtTheEdge at;
    at.conf().SetPackageName(0, "First");
    at.conf().SetPackageName(749, "Last");
    const HostileWriter writer(at);
    if (!writer.hook.installed())
        return 1;
    const bool written = Kor_LogFile::DumpToLoggerFile(at.conf(), args.at(0).c_str(), nullptr);
    std::printf("<%d>\n", writer.hook.calls() > 0);
    return written ? 0 : 2;
}

KOR_CHILD(conf_print_of_what_changes)
{
    const ConfigurationAtTheEdge at;
    at.conf().SetPackageName(0, "First");
    at.conf().SetPackageName(749, "Last");
    const HostileWriter writer(at);
    at.conf().Print();
    return writer.hook.installed() && writer.hook.calls() > 0 ? 0 : 1;
}

KOR_CHILD(conf_rules_that_change)
{
    const ConfigurationAtTheEdge at;
    Kor_LogLevelRuleTable& table = at.conf().GetRuleTable(749);
    table.ParseRules("(6;;archive,viewer)");
    const Kor_LogLevelRuleTable good = table;
    Hook<memchrImport> writer(
        [&table](const void* text, int wanted, std::size_t size) -> void*
        {
            void* const found = const_cast<void*>(std::memchr(text, wanted, size));
            std::memset(static_cast<void*>(&table), 'n', sizeof table);
            return found;
        });
    std::printf("%s\n", table.rules[0].ToString().data());
    table = good;
    std::printf("%s\n", table.ToString().data());
    table = good;
    std::printf("%d\n", table.GetLogLevel(nullptr, "viewer", 1, 1));
    return writer.installed() && writer.calls() > 0 ? 0 : 1;
}
} // namespace

TEST(ConfChanging, ANameThatLosesItsEndWhileItIsWrittenToAFileIsWrittenAsItWas)
{
    const TempDirectory directory;
    ChildOptions options;
    options.arguments = {directory.file("logger")};
    const ChildResult result = run_child("conf_dump_of_what_changes", options);
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code;
    EXPECT_EQ(text_of(result.out), "<1>\n");
    const std::string text = read_file(directory.file("logger"));
    EXPECT_EQ(text.substr(text.size() - 3), "!\r\n");
    EXPECT_NE(text.find("\nFirst "), std::string::npos) << text.substr(0, 1000); // the look was at this one
}

TEST(ConfChanging, ANameThatLosesItsEndWhileItIsPrintedIsPrintedAsItWas)
{
    const ChildResult result = run_child("conf_print_of_what_changes");
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code;
    EXPECT_NE(result.out.find("Unused Packages: "), std::string::npos);
    EXPECT_NE(result.out.find("\n0-First "), std::string::npos) << result.out.substr(0, 1000);
}

TEST(ConfChanging, ARuleThatIsWrittenOverWhileItIsReadIsReadAsItWas)
{
    const ChildResult result = run_child("conf_rules_that_change");
    EXPECT_EQ(result.exit_code, 0u) << std::hex << result.exit_code;
    EXPECT_EQ(text_of(result.out), "(6;;archive,viewer)\n[(6;;archive,viewer)]\n6\n");
}
