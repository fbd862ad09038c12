// cpp.cpp - a program in C++17 over lumlog.hpp, which any compiler compiles.

#include <lumlog.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr int PACKAGE_LOADER = 310;

void load(const std::filesystem::path& path, const std::vector<unsigned char>& header)
{
    const lum::Timer timer("load");

    LUM_LOG(LUM_WARNING, PACKAGE_LOADER, "cannot read %s", lum::utf8(path).c_str());
    LUM_LOG_TEXT(LUM_WARNING, PACKAGE_LOADER, path);
    LUM_LOG_HEX(LUM_WARNING, PACKAGE_LOADER, "its header", header);
#if defined(LUM_LOG_FORMAT)
    LUM_LOG_FORMAT(LUM_WARNING, PACKAGE_LOADER, "{} has {:.1f} MB", path, 211.5);
#endif
}

void poll()
{
    using namespace std::chrono_literals;
    LUM_LOG_ONCE(LUM_WARNING, PACKAGE_LOADER, "the archive is slow");
    LUM_LOG_EVERY_N(1000, LUM_WARNING, PACKAGE_LOADER, "still waiting for the archive");
    LUM_LOG_EVERY_T(10s, LUM_WARNING, PACKAGE_LOADER, "waiting for the archive");
}

/// One of many clients, with a half of the work on another thread.
void serve(const char* address, int session)
{
    const lum::ClientScope scope(address, session);
    LUM_LOG(LUM_WARNING, PACKAGE_LOADER, "page 1 took long");
    std::thread second(
        [client = lum::Client::current()]
        {
            const lum::ClientScope same(client);
            LUM_LOG(LUM_WARNING, PACKAGE_LOADER, "page 2 took long");
        });
    second.join();
}
} // namespace

int main()
{
    if (lum_open("cpp.log", "cpp") != LUM_OK)
        return 1;

    std::size_t errors = 0;
    lum::Destination counter([&](const lum_message& message) { errors += message.level <= LUM_ERROR ? 1 : 0; });

    const lum::ProcessClient client("192.0.2.7", 3);
    load(L"f\u00fcr Seite 1.png", {0x89, 'P', 'N', 'G'});
    for (int i = 0; i < 3; ++i)
        poll();
    serve("192.0.2.9", 4);
    LUM_LOG(LUM_ERROR, PACKAGE_LOADER, "no archive");
    std::printf("%d error\n", static_cast<int>(errors));
}
