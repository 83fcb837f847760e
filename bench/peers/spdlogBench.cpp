// spdlog as its users set it up: a logger with one null sink and a run-time level. The null sink
// behind a std::mutex: spdlog's own null_sink_mt takes a null mutex, so with it the records of two
// threads would not be serialised as every other library here serialises them.
#include <mutex>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include "../cases.h"
#include "../messages.h"

namespace {

spdlog::logger& benchLogger()
{
    static const auto logger = [] {
        auto created =
            std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink<std::mutex>>());
        created->set_level(spdlog::level::info);
        return created;
    }();
    return *logger;
}

void filtered(benchmark::State& state)
{
    spdlog::logger& logger = benchLogger();
    for (auto _ : state) {
        logger.debug("value {}", bench::VALUE);
    }
}

void value(benchmark::State& state)
{
    spdlog::logger& logger = benchLogger();
    for (auto _ : state) {
        logger.info("value {}", bench::VALUE);
    }
}

void connection(benchmark::State& state)
{
    spdlog::logger& logger = benchLogger();
    for (auto _ : state) {
        logger.info("{}: connection {} to {} established in {} ms", bench::CONNECTION_NAME, bench::CONNECTION_ID,
                    bench::CONNECTION_PEER, bench::CONNECTION_MILLISECONDS);
    }
}

const bool REGISTERED = bench::addLibrary("spdlog", filtered, value, connection);

}  // namespace
