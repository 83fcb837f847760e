// The recorder target's cost per record: the same emitted call with the record copied into the
// ring and with the recorder's levels= filtering it out, while the null target takes both. The
// difference is the recorder's log; the ratio is the one the goal states (at most 1.5).
// The ring lies in /dev/shm, a tmpfs as /run is on a device. Usage: vexlor_recorder_bench
// [Google Benchmark options]
#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "messages.h"

namespace {

const std::string RING_DIR = "/dev/shm/vexlor-recorder-bench-" + std::to_string(getpid());

// The null target takes every record, the recorder (a 1M ring) only info records.
vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ntarget = " << VEXLOR_BENCH_RECORDER_TARGET
            << ", dir=" << RING_DIR << ", levels=info\ncomponent = bench, 001111111\n";
        return vexlor_create_component("bench", nullptr, "");
    }();
    return component;
}

void valueIntoNullOnly(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_NOTICE, bench::VALUE_FORMAT, bench::VALUE);
    }
}

void valueIntoRecorder(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, bench::VALUE_FORMAT, bench::VALUE);
    }
}

void connectionIntoNullOnly(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_NOTICE, bench::CONNECTION_FORMAT, bench::CONNECTION_NAME, bench::CONNECTION_ID,
               bench::CONNECTION_PEER, bench::CONNECTION_MILLISECONDS);
    }
}

void connectionIntoRecorder(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, bench::CONNECTION_FORMAT, bench::CONNECTION_NAME, bench::CONNECTION_ID,
               bench::CONNECTION_PEER, bench::CONNECTION_MILLISECONDS);
    }
}

}  // namespace

BENCHMARK(valueIntoNullOnly);
BENCHMARK(valueIntoRecorder);
BENCHMARK(connectionIntoNullOnly);
BENCHMARK(connectionIntoRecorder);
int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(RING_DIR);
    return 0;
}
