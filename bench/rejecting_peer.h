// rejecting_peer.h - the peer where it writes nothing: what a rejected message is measured beside.

#ifndef KOR_BENCH_REJECTING_PEER_H
#define KOR_BENCH_REJECTING_PEER_H

#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <memory>

inline const std::shared_ptr<spdlog::logger>& peer()
{
    static const auto logger = []
    {
        auto made = std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
        made->set_level(spdlog::level::warn);
        return made;
    }();
    return logger;
}

inline void spdlog_debug(benchmark::State& state)
{
    spdlog::logger* const logger = peer().get();
    int number = 0;
    for (auto _ : state)
        logger->debug("request {} of {} took {} us", ++number, "client", 250);
}

#endif // KOR_BENCH_REJECTING_PEER_H
