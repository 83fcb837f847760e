// What a flood costs with rate=: the same emitted call into the null target alone, and with the
// console target's rate limit suppressing it as well (rate=1/m: after the first record every one
// is suppressed; that record and the notice at exit go to standard error). The difference is the check per suppressed record; nothing is formatted or
// written for it. Usage: vexlor_rate_bench [Google Benchmark options]
#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <vexlor/vexlor.h>

#include "messages.h"

namespace {

// The null target takes every record, the console target only info records.
vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ntarget = " << VEXLOR_BENCH_CONSOLE_TARGET
            << ", levels=info, rate=1/m\ncomponent = bench, 001111111\n";
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

void valueSuppressedByRate(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, bench::VALUE_FORMAT, bench::VALUE);
    }
}

}  // namespace

BENCHMARK(valueIntoNullOnly);
BENCHMARK(valueSuppressedByRate);
BENCHMARK_MAIN();
