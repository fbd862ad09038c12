// plugin.cpp - a DLL that a program loads while it runs, and that logs to the program's log. The part below main stands for
// the program.

#include <cstdio>

#include "Kor_LogFile.h"

namespace plugin
{
constexpr int PACKAGE_PAGES = 350;

/// Counts pages for as long as the plug-in is there. Registered and unregistered by it, not by a static object: those
/// come and go inside the system's loader, where nothing may log.
class PageCounter : public Kor_LogDestBase
{
public:
    int LogMessage(Kor_LogMTVarsPtr context, bool, const char*, unsigned int) override
    {
        m_pages += context->m_package == PACKAGE_PAGES ? 1 : 0;
        return 0;
    }
    int pages() const { return m_pages; }

private:
    int m_pages = 0;
};

PageCounter* counter = nullptr;

/// Called by the program after it has loaded the DLL. The log is the process's and open, or will be: not ours to open.
void begin()
{
    Kor_LogFile::NamePackage(PACKAGE_PAGES, "Pages");
    counter = new PageCounter;
    KorGLog.RegisterLogDestination(counter);
}

void print_page(int number) { KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_PAGES, "page %d has no margin", number); }

/// Called by the program before it unloads the DLL. Nothing of the plug-in may be listed in the log any more.
int end()
{
    KorGLog.UnregisterLogDestination(counter);
    const int pages = counter->pages();
    delete counter;
    counter = nullptr;
    return pages;
}
} // namespace plugin

int main()
{
    KorGLog.Open("plugin.log", "plugin");
    plugin::begin();
    for (int page = 1; page <= 3; ++page)
        plugin::print_page(page);
    std::printf("%d pages\n", plugin::end());
    return 0;
}
