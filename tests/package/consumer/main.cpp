// Another project's program: all it knows of LUMlog is the installed package.

#include <cstdio>
#include <string>

#include "all_headers.h"

#if __has_include(<xercesc/sax2/DefaultHandler.hpp>)
#error "The XML library's headers are there: this shall show what goes without them."
#endif

bool take(void* to, const void* bytes, std::size_t size)
{
    static_cast<std::string*>(to)->append(static_cast<const char*>(bytes), size);
    return true;
}

/// What a state file held, as a report tells it.
std::string report_of(const wchar_t* state_file)
{
    std::string report;
    Kor_SessionLogGatherer::Activate(true);
    Kor_SessionLogGatherer::GetInstance()->loadFromFile(state_file);
    Kor_SessionLogGatherer::GetInstance()->generateReport(&take, &report, true);
    std::string plain;
    for (std::size_t i = 2; i + 1 < report.size(); i += 2) // ASCII in UTF-16, behind its mark
        plain += report[i];
    return plain;
}

int main()
{
    Mutex mutex;
    mutex.Lock();
    mutex.Unlock();
    std::printf("linked with LUMlog; a package has %d message codes\n", static_cast<int>(PACKAGE_RANGE));
    std::printf("%s\n", report_of(L"state.xml").c_str());
    return 0;
}
