// log4cxx as its users set it up: a logger at level INFO with one appender. log4cxx has no null
// appender: this one does nothing.
#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include "../cases.h"
#include "../messages.h"

namespace {

class CEmptyAppender final : public log4cxx::AppenderSkeleton {
public:
    void append(const log4cxx::spi::LoggingEventPtr&, log4cxx::helpers::Pool&) override { }
    void close() override { }
    bool requiresLayout() const override { return false; }
};

const log4cxx::LoggerPtr& benchLogger()
{
    static const log4cxx::LoggerPtr logger = [] {
        log4cxx::LoggerPtr created = log4cxx::Logger::getLogger("bench");
        created->setLevel(log4cxx::Level::getInfo());
        created->addAppender(std::make_shared<CEmptyAppender>());
        created->setAdditivity(false);
        return created;
    }();
    return logger;
}

void filtered(benchmark::State& state)
{
    const log4cxx::LoggerPtr& logger = benchLogger();
    for (auto _ : state) {
        LOG4CXX_DEBUG(logger, "value " << bench::VALUE);
    }
}

void value(benchmark::State& state)
{
    const log4cxx::LoggerPtr& logger = benchLogger();
    for (auto _ : state) {
        LOG4CXX_INFO(logger, "value " << bench::VALUE);
    }
}

void connection(benchmark::State& state)
{
    const log4cxx::LoggerPtr& logger = benchLogger();
    for (auto _ : state) {
        LOG4CXX_INFO(logger,
                     bench::CONNECTION_NAME << ": connection " << bench::CONNECTION_ID << " to "
                                            << bench::CONNECTION_PEER << " established in "
                                            << bench::CONNECTION_MILLISECONDS << " ms");
    }
}

const bool REGISTERED = bench::addLibrary("log4cxx", filtered, value, connection);

}  // namespace
