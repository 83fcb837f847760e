// The message formatter against vsnprintf, into the log path's 2048-byte buffer: a short message
// with one number and a realistic one of 65 characters with four conversions, two of them strings.
#include <cstdarg>
#include <cstdio>

#include "cases.h"
#include "messages.h"
#include "core/printfFormat.h"

namespace {

using Formatter = int (*)(char*, std::size_t, const char*, va_list);

// Called the way the log path calls it: through a va_list, from an out-of-line variadic function.
__attribute__((noinline)) int formatWith(Formatter formatter, char* buffer, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = formatter(buffer, size, format, args);
    va_end(args);
    return length;
}

template <Formatter FORMATTER>
void formatValue(benchmark::State& state)
{
    char buffer[2048];
    for (auto _ : state) {
        benchmark::DoNotOptimize(formatWith(FORMATTER, buffer, sizeof buffer, bench::VALUE_FORMAT, bench::VALUE));
        benchmark::ClobberMemory();
    }
}

template <Formatter FORMATTER>
void formatConnection(benchmark::State& state)
{
    char buffer[2048];
    for (auto _ : state) {
        benchmark::DoNotOptimize(formatWith(FORMATTER, buffer, sizeof buffer, bench::CONNECTION_FORMAT,
                                            bench::CONNECTION_NAME, bench::CONNECTION_ID, bench::CONNECTION_PEER,
                                            bench::CONNECTION_MILLISECONDS));
        benchmark::ClobberMemory();
    }
}

int libcFormat(char* buffer, std::size_t size, const char* format, va_list args)
{
    return vsnprintf(buffer, size, format, args);
}

const bool REGISTERED = [] {
    bench::add(bench::CASE_VALUE, "vexlor", formatValue<vx::formatPrintf>);
    bench::add(bench::CASE_VALUE, "vsnprintf", formatValue<libcFormat>);
    bench::add(bench::CASE_CONNECTION, "vexlor", formatConnection<vx::formatPrintf>);
    bench::add(bench::CASE_CONNECTION, "vsnprintf", formatConnection<libcFormat>);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
