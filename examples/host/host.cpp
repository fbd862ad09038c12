// host.cpp - a server of a suite, as far as its log goes: it replays the lines of a text as its
// messages, on three threads, for one client, until it is told to stop.

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Kor_LogDestJsonLines.h"
#include "Kor_LogFile.h"

namespace
{
// The packages of this program. The `logger` file gives them their names, levels and rules.
constexpr int PACKAGE_READER = 310; // reads the text
constexpr int PACKAGE_REPLAY = 320; // replays its lines
constexpr int PACKAGE_CLIENT = 330; // serves the client

constexpr DWORD THREADS = 3;
constexpr DWORD DEFAULT_LINES = 30; // a second, by all threads together
constexpr DWORD DEFAULT_SECONDS = 600;

HANDLE stop_event = nullptr;

BOOL WINAPI stop_on_ctrl_c(DWORD) { return ::SetEvent(stop_event); }

/// Waits for the stop event; no wait of this program goes without a bound.
bool told_to_stop(DWORD milliseconds) { return ::WaitForSingleObject(stop_event, milliseconds) == WAIT_OBJECT_0; }

/// What a line is worth: in the log of a package manager a word tells, any other text is information.
int level_of(std::string_view line)
{
    struct Word
    {
        std::string_view text;
        int level;
    };
    static constexpr Word words[] = {{" error", KOR_LEVEL_ERROR},     {" warning", KOR_LEVEL_WARNING},
                                     {" install ", KOR_LEVEL_NOTICE}, {" upgrade ", KOR_LEVEL_NOTICE},
                                     {" remove ", KOR_LEVEL_NOTICE},  {" status ", KOR_LEVEL_DEBUG}};
    const auto found = std::find_if(
        std::begin(words), std::end(words),
        [line](const Word& word) { return line.find(word.text) != std::string_view::npos; });
    return found == std::end(words) ? KOR_LEVEL_INFO : found->level;
}

/// The text, handed out line by line to whoever asks, and over again when it ends. Each time through
/// it counts as a session of the client.
class Text
{
public:
    Text(const char* path, const char* client, long session)
        : m_path(path), m_file(path), m_client(client), m_session(session)
    {
    }

    /// The number of the line, 0 when there is nothing to read.
    long next(std::string& line)
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_number == 0)
            begin_session();
        if (!std::getline(m_file, line))
        {
            if (m_number == 0)
                return 0;
            KOR_LOG(
                KorGLog, KOR_LEVEL_NOTICE, PACKAGE_READER, "the text ends after %ld lines and starts again", m_number);
            m_file.clear();
            m_file.seekg(0);
            m_number = 0;
            ++m_session;
            begin_session();
            if (!std::getline(m_file, line))
                return 0;
        }
        ++m_number;
        KOR_LOG(
            KorGLog, KOR_LEVEL_DEBUG, PACKAGE_READER, "line %ld has %u characters", m_number,
            static_cast<unsigned>(line.size()));
        return m_number;
    }

private:
    void begin_session()
    {
        // From here on every line of this process shows them, and rules are asked about them.
        KorGLog.SetIPAndSID(m_client, m_session);
        KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CLIENT, "session %ld begins", m_session);
        KOR_LOG(KorGLog, KOR_LEVEL_INFO, PACKAGE_CLIENT, "the client gets the lines of %s", m_path);
    }

    std::mutex m_mutex;
    const char* const m_path;
    std::ifstream m_file;
    const char* const m_client;
    long m_session;
    long m_number = 0;
};

void replay(Text& text, DWORD worker, DWORD pace_ms)
{
    KorGLog.SetThreadName(("Worker-" + std::to_string(worker)).c_str());
    std::string line;
    while (!told_to_stop(pace_ms))
    {
        const long number = text.next(line);
        if (number == 0)
            return;
        const int level = level_of(line);
        KOR_LOG(KorGLog, KOR_LEVEL_DEBUG, PACKAGE_REPLAY, "line %ld is replayed at level %d", number, level);
        if (!line.empty())
            KOR_LOG(KorGLog, level, PACKAGE_REPLAY, "%s", line.c_str());
    }
}

int usage()
{
    std::fprintf(
        stderr,
        "example_host NAME CLIENT SESSION TEXT [SECONDS [LINES [json]]]\n\n"
        "Replays the lines of the file TEXT as messages of the application NAME, which serves the\n"
        "address CLIENT, first in the session SESSION. Writes to NAME.log beside the `logger` file, in\n"
        "the folder that PRISMATE_LOG_DIR names. Ends at Ctrl-C, at \"example_control stop NAME\", or\n"
        "after SECONDS, %lu if not given. Replays LINES in a second, %lu if not given. With json it\n"
        "writes each message to NAME.jsonl as well, as a line of JSON.\n",
        DEFAULT_SECONDS, DEFAULT_LINES);
    return 2;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 5 || argc > 8)
        return usage();
    const std::string name = argv[1];
    const char* const client = argv[2];
    const long session = std::atol(argv[3]);
    const char* const path = argv[4];
    const DWORD seconds = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : DEFAULT_SECONDS;
    const DWORD lines = argc > 6 ? std::strtoul(argv[6], nullptr, 10) : DEFAULT_LINES;
    const bool has_json = argc > 7 && std::string_view(argv[7]) == "json";
    if ((argc > 7 && !has_json) || session < 1 || seconds < 1 || seconds > 86'400 || lines < 1 ||
        lines > THREADS * 1'000)
        return usage();

    stop_event = ::CreateEventA(nullptr, TRUE, FALSE, ("lumlog-host-" + name).c_str());
    ::SetConsoleCtrlHandler(&stop_on_ctrl_c, TRUE);

    KorGLog.Open((name + ".log").c_str(), name.c_str());
    KorGLog.SetThreadName("Main");
    Text text(path, client, session);
    if (::GetFileAttributesA(path) == INVALID_FILE_ATTRIBUTES)
    {
        const DWORD error = ::GetLastError();
        if (KorGLog.StoreParams(KOR_FILE_NAME, __func__, __LINE__, KOR_LEVEL_ERROR, PACKAGE_READER) != 0)
            KorGLog.OSErrLog(error, "Cannot read the text %s:", path);
        return 1;
    }

    std::unique_ptr<Kor_LogDestJsonLines> json;
    if (has_json)
    {
        json = std::make_unique<Kor_LogDestJsonLines>((KorGLog.GetLogConfigDir() + ('\\' + name) + ".jsonl").c_str());
        KorGLog.RegisterLogDestination(json.get());
    }
    std::vector<std::thread> workers;
    for (DWORD i = 1; i <= THREADS; ++i)
        workers.emplace_back(&replay, std::ref(text), i, THREADS * 1'000 / lines);
    told_to_stop(seconds * 1000);
    ::SetEvent(stop_event);
    for (std::thread& worker : workers)
        worker.join();
    KOR_LOG(KorGLog, KOR_LEVEL_NOTICE, PACKAGE_CLIENT, "the host %s stops", name.c_str());
    KorGLog.UnregisterLogDestination(json.get());
    return 0;
}
