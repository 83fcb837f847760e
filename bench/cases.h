// The cases every library runs, registered as "<case>/<library>": scripts/bench.sh puts each case on
// a line and the libraries side by side.
#pragma once

#include <benchmark/benchmark.h>
#include <string>

namespace bench {

constexpr const char* CASE_FILTERED = "filtered out";
constexpr const char* CASE_VALUE = "\"value %d\"";
constexpr const char* CASE_CONNECTION = "65 characters, 4 conversions";
constexpr const char* CASE_VALUE_TWO_THREADS = "\"value %d\", 2 threads";

using Function = void (*)(benchmark::State&);

// Threads log into the same logger at once; such a case is timed by the wall clock, so that it
// gives the time per record of all of them together. Each repetition runs for two seconds: a short
// one measures mostly whether the scheduler gave both threads a processor at the same time, and on
// a shared two-processor machine the medians of short ones varied by up to 90 %.
inline void add(const char* caseName, const char* library, Function function, int threads = 1)
{
    benchmark::internal::Benchmark* benchmark =
        benchmark::RegisterBenchmark((std::string(caseName) + "/" + library).c_str(), function);
    if (threads > 1) {
        benchmark->Threads(threads)->UseRealTime()->MinTime(2.0);
    }
}

// The four cases of one library: `value` serves both the one-thread and the two-thread case.
inline bool addLibrary(const char* library, Function filtered, Function value, Function connection)
{
    add(CASE_FILTERED, library, filtered);
    add(CASE_VALUE, library, value);
    add(CASE_CONNECTION, library, connection);
    add(CASE_VALUE_TWO_THREADS, library, value, 2);
    return true;
}

}  // namespace bench
