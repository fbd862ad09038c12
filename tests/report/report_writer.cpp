// report_writer.cpp - writes a report and a state file into a folder, for report_test.py.

#include <windows.h>

#include <cstdio>
#include <string>

#include "Kor_SessionLogGatherer.h"

int wmain(int argc, wchar_t** argv)
{
    using Gatherer = Kor_SessionLogGatherer;
    if (argc != 2)
        return 2;
    const std::wstring folder = argv[1];
    Gatherer::Activate(true);
    Gatherer& session = *Gatherer::GetInstance();
    SYSTEMTIME now{};
    ::GetSystemTime(&now);
    session.gatherSystemInfo();

    // One of every kind, with all that XML treats in a special way or does not allow.
    const wchar_t* const text = L"a&b<c>d\"e'f]]>\x01\x0B\xD83D|\xDE00|\xD83D\xDE00\xFFFE\x20AC";
    session.reportEvent(L"User", L"user1", Gatherer::STATE | 2 << Gatherer::LEVEL_SHIFT, 3, L"%ls", text);
    session.reportEvent(text, text, Gatherer::COUNTED | 7 << Gatherer::LEVEL_SHIFT, 1, L"%ls", text);
    session.reportEvent(L"Screen", nullptr, Gatherer::CONFIGURATION, 2, L"1920 x 1080");
    session.reportEvent(L"Load", L"album", Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED, 4, L"begun");
    session.reportEvent(L"Load", L"album", Gatherer::END_OF_SPAN, 0, L", ended");
    session.reportEvent(L"Secret", nullptr, Gatherer::HIDDEN, 1, L"hidden");
    session.reportError(L"disk", L"full");
    session.reportWarning(L"disk", L"nearly full");
    EXCEPTION_RECORD record{};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    CONTEXT context{};
    EXCEPTION_POINTERS exception{&record, &context};
    session.reportException(&exception, text);

    session.generateReport((folder + L"\\report.xml").c_str(), true);
    session.generateReport((folder + L"\\state.xml").c_str(), false);
    std::printf(
        "%04d-%02d-%02d %02d:%02d:%02d\n", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
    return 0;
}
