// glog as its users set it up: LOG(INFO) emits, VLOG(1) with --v=0 is the debug message filtered
// out. glog has no null sink: no log files, nothing to stderr, and one log sink that does nothing.
#include <glog/logging.h>

#include "../cases.h"
#include "../messages.h"

namespace {

class CEmptySink final : public google::LogSink {
public:
    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char*,
              std::size_t) override
    {
    }
};

void setUp()
{
    static const bool done = [] {
        google::InitGoogleLogging("vexlor_bench");
        FLAGS_logtostderr = false;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_minloglevel = google::GLOG_INFO;
        FLAGS_v = 0;
        // An empty base name turns the log file of a severity off.
        for (int severity = google::GLOG_INFO; severity < google::NUM_SEVERITIES; ++severity) {
            google::SetLogDestination(severity, "");
        }
        static CEmptySink sink;
        google::AddLogSink(&sink);
        return true;
    }();
    static_cast<void>(done);
}

void filtered(benchmark::State& state)
{
    setUp();
    for (auto _ : state) {
        VLOG(1) << "value " << bench::VALUE;
    }
}

void value(benchmark::State& state)
{
    setUp();
    for (auto _ : state) {
        LOG(INFO) << "value " << bench::VALUE;
    }
}

void connection(benchmark::State& state)
{
    setUp();
    for (auto _ : state) {
        LOG(INFO) << bench::CONNECTION_NAME << ": connection " << bench::CONNECTION_ID << " to "
                  << bench::CONNECTION_PEER << " established in " << bench::CONNECTION_MILLISECONDS << " ms";
    }
}

const bool REGISTERED = bench::addLibrary("glog", filtered, value, connection);

}  // namespace
