// vexlor against the peer loggers (bench/peers/, one file each) on the same messages: a call whose
// level is filtered out, "value %d", a realistic message, "value %d" from two threads; and
// vexlor's own hex dump of 64 bytes; and two baselines: an empty call into a shared library, and the
// clock and lock that every emitted record must take.
// vexlor delivers to a target that does nothing, a real plug-in loaded through the configuration.
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <sys/time.h>
#include <vexlor/vexlor.h>

#include "cases.h"
#include "messages.h"

extern "C" void vexlor_bench_empty_call(void*, void*, const char*, ...);
extern "C" void vexlor_bench_floor(void*, void*, const char*, ...);

namespace {

// Writes the configuration before the first library call constructs the main instance.
vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ncomponent = bench, 101111111\n";
        return vexlor_create_component("bench", nullptr, "");
    }();
    return component;
}

void filtered(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_DEBUG, bench::VALUE_FORMAT, bench::VALUE);
    }
}

void value(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, bench::VALUE_FORMAT, bench::VALUE);
    }
}

void connection(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_INFO, bench::CONNECTION_FORMAT, bench::CONNECTION_NAME, bench::CONNECTION_ID,
               bench::CONNECTION_PEER, bench::CONNECTION_MILLISECONDS);
    }
}

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
}

void emptySharedLibraryCall(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor_bench_empty_call(component, VX_INFO, bench::VALUE_FORMAT, bench::VALUE);
    }
}

// What the path of an emitted record must do in any design (bench/floorCall.cpp): "value %d"
// through an exported call, the clock, the formatter, a recursive mutex and one virtual call.
void floor(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor_bench_floor(component, VX_INFO, bench::VALUE_FORMAT, bench::VALUE);
    }
}

// The same floor for the 65-character message with four conversions.
void floorOfConnection(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor_bench_floor(component, VX_INFO, bench::CONNECTION_FORMAT, bench::CONNECTION_NAME, bench::CONNECTION_ID,
                           bench::CONNECTION_PEER, bench::CONNECTION_MILLISECONDS);
    }
}

// A traced function's entry and exit: two records at the tracing level, which the component takes.
void enterAndLeave(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor_enter_function(component, "poll");
        vexlor_leave_function(component);
    }
}

// What every emitted record costs before anything is formatted or delivered: the wall clock with
// microseconds and the container's recursive POSIX mutex taken and released.
void clockAndLock(benchmark::State& state)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    timeval now{};
    for (auto _ : state) {
        gettimeofday(&now, nullptr);
        benchmark::DoNotOptimize(now);
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}

const bool REGISTERED = [] {
    bench::addLibrary("vexlor", filtered, value, connection);
    bench::add("vexlor_dump of 64 bytes", "vexlor", dump64Bytes);
    bench::add("trace entry and exit (2 records)", "vexlor", enterAndLeave);
    bench::add("empty call into a shared library", "baseline", emptySharedLibraryCall);
    bench::add("floor of \"value %d\": exported call, clock, formatter, recursive mutex, virtual call", "baseline",
               floor);
    bench::add("floor of the 65-character message", "baseline", floorOfConnection);
    bench::add("gettimeofday and a recursive mutex", "baseline", clockAndLock);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
