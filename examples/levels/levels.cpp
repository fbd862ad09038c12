// levels.cpp - levels as a program sees and changes them.

#include <cstdio>
#include <memory>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_LOADER = 310;

void show(const char* when) { std::printf("%s: %d\n", when, KorGLog.GetLogLevel(PACKAGE_LOADER * PACKAGE_RANGE)); }
} // namespace

int main()
{
    KorGLog.Open("levels.log", "levels");
    show("as the configuration says");

    // For every process of the machine: the last argument publishes the change.
    KorGLog.SetCustomLogLevel(PACKAGE_LOADER, KOR_LEVEL_NOTICE, true);
    show("set to 5 for all");

    // For this process alone: rules of a configuration of its own, which can raise a level but not
    // lower it. 4 MB, so not on the stack; it must live as long as the log uses it.
    const auto local = std::make_unique<Kor_LogConf>();
    local->GetRuleTable(PACKAGE_LOADER).ParseRules("(7;;levels)");
    KorGLog.SetLocalConf(local.get());
    show("with a rule of its own");

    // After each later change it gets a new stamp, which is how the log learns of it.
    local->GetRuleTable(PACKAGE_LOADER).ParseRules("(6;192.0.2.7)");
    local->GenerateChangeCount();
    show("with a rule for a client");
    KorGLog.SetIP("192.0.2.7");
    show("while serving that client");

    KorGLog.SetLocalConf(nullptr);
    show("without it");
    return 0;
}
