// Speed of the log path: a call filtered out, an emitted call to a target that does nothing
// (a real plug-in loaded through the configuration file), the same from two threads, and a
// 64-byte hex dump; against the baseline of an empty call into a shared library.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vexlor/vexlor.h>

extern "C" void vexlor_bench_empty_call(void*, void*, const char*, ...);

namespace {

// Writes the configuration before the first library call constructs the main instance.
vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ncomponent = bench, 001111111\n";
        return vexlor_create_component("bench", nullptr, "");
    }();
    return component;
}

void emptySharedLibraryCall(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor_bench_empty_call(component, VX_DEBUG, "value %d", 42);
    }
}
BENCHMARK(emptySharedLibraryCall);

void disabledCall(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_ENTERLEAVE, "value %d", 42);
    }
}
BENCHMARK(disabledCall);

void emittedCallToNullTarget(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, "value %d", 42);
    }
}
BENCHMARK(emittedCallToNullTarget);
BENCHMARK(emittedCallToNullTarget)->Threads(2)->UseRealTime();

void dump64Bytes(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    unsigned char data[64];
    for (unsigned int i = 0; i < sizeof data; ++i) {
        data[i] = static_cast<unsigned char>(i * 7);
    }
    for (auto _ : state) {
        vexlor_dump(component, VX_INFO, data, sizeof data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * sizeof data);
}
BENCHMARK(dump64Bytes);

}  // namespace

BENCHMARK_MAIN();
