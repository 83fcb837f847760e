// Boost.Log as its users set it up: a severity logger, the common attributes (time stamp, thread,
// process, record number), a filter on the core at info, and one synchronous sink. Boost.Log has no
// null sink: this sink's back end does nothing.
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/make_shared.hpp>

#include "../cases.h"
#include "../messages.h"

namespace {

namespace logging = boost::log;
using Severity = logging::trivial::severity_level;
using Logger = logging::sources::severity_logger_mt<Severity>;

class CEmptyBackend final : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding> {
public:
    void consume(const logging::record_view&) { }
};

Logger& benchLogger()
{
    static Logger logger = [] {
        logging::add_common_attributes();
        logging::core::get()->add_sink(boost::make_shared<logging::sinks::synchronous_sink<CEmptyBackend>>());
        logging::core::get()->set_filter(logging::trivial::severity >= logging::trivial::info);
        return Logger();
    }();
    return logger;
}

void filtered(benchmark::State& state)
{
    Logger& logger = benchLogger();
    for (auto _ : state) {
        BOOST_LOG_SEV(logger, logging::trivial::debug) << "value " << bench::VALUE;
    }
}

void value(benchmark::State& state)
{
    Logger& logger = benchLogger();
    for (auto _ : state) {
        BOOST_LOG_SEV(logger, logging::trivial::info) << "value " << bench::VALUE;
    }
}

void connection(benchmark::State& state)
{
    Logger& logger = benchLogger();
    for (auto _ : state) {
        BOOST_LOG_SEV(logger, logging::trivial::info)
            << bench::CONNECTION_NAME << ": connection " << bench::CONNECTION_ID << " to " << bench::CONNECTION_PEER
            << " established in " << bench::CONNECTION_MILLISECONDS << " ms";
    }
}

const bool REGISTERED = bench::addLibrary("Boost.Log", filtered, value, connection);

}  // namespace
