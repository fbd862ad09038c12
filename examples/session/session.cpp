// A program that notes what it does, and leaves a report of the session.
//
//   example_session
//
// PRISMATE_LOG_DIR names the folder, which must exist. docs/sessions.md goes through it.

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"

namespace
{
using Session = Kor_SessionLogGatherer;

constexpr int IMAGES = 40;

/// Stands for the work that a real program does.
void decode_image() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

/// One for each of several threads: a span is found again by its type and subject.
void load_album(const wchar_t* album)
{
    Session* const session = Session::GetInstance();
    session->reportEvent(L"Load", album, Session::BEGIN_OF_SPAN | Session::COUNTED, IMAGES, nullptr);
    for (int image = 1; image <= IMAGES; ++image)
    {
        decode_image();
        session->reportEvent(L"Image", L"decoded", Session::COUNTED | Session::level(6), 1, L"%ls, %d", album, image);
        if (image == 17)
            session->reportWarning(album, L"image %d has no page number", image);
    }
    session->reportEvent(L"Load", album, Session::END_OF_SPAN, 0, L"%d images", IMAGES);
}

void work()
{
    Session* const session = Session::GetInstance();
    session->reportEvent(L"Version", L"viewer", Session::STATE | Session::CONFIGURATION, 1, L"%ls", L"4.2.17");
    session->reportEvent(L"Layout", nullptr, Session::STATE_OF_TYPE | Session::level(4), 1, L"one image");
    session->reportStatsEventSubject(L"Load", L"album 17", L"Load", L"any album");
    session->reportStatsEventSubject(L"Load", L"album 12", L"Load", L"any album");

    session->storeMemoryStatus(L"before the album");
    std::vector<std::thread> loaders;
    for (const wchar_t* const album : {L"album 12", L"album 17"})
        loaders.emplace_back(load_album, album);
    for (std::thread& loader : loaders)
        loader.join();
    session->reportMemoryDifference(L"Album", L"before the album", Session::COUNTED);

    session->reportEvent(L"Layout", nullptr, Session::STATE_OF_TYPE | Session::level(4), 1, L"two by two");
    session->reportError(L"printer", L"the printer %ls does not answer", L"LW-2");
}
} // namespace

int main()
{
    KorGLog.Open("session.log", "session");

    Kor_SessionLogGatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance(); // with the statistics of earlier processes
    Kor_SessionLogGatherer* const session = Kor_SessionLogGatherer::GetInstance();
    if (reporter == nullptr || session == nullptr)
        return 1;
    session->gatherSystemInfo();

    work();

    reporter->createSessionReport();
    std::printf("%ls\n", reporter->getLogFullPath(L"session"));
    Kor_SessionLogHost::destroy(); // saves the statistics for the next process
    return 0;
}
