// The floor of an emitted record: what any design of the log path must do, whatever it does
// besides. An exported variadic call, the wall clock with microseconds, the message formatted by the
// library's own formatter, a recursive mutex (targets rely on it), and one virtual call into a
// target that does nothing. Built into the same shared library as the empty call.
#include <cstdarg>
#include <pthread.h>
#include <sys/time.h>

#include "core/printfFormat.h"

namespace {

struct ISink {
    virtual ~ISink() = default;
    virtual void take(const timeval& time, const char* message, int length) = 0;
};

struct CNullSink final : ISink {
    void take(const timeval&, const char*, int) override { }
};

CNullSink nullSink;
// Read through a volatile pointer, so that the call stays virtual as the container's is.
ISink* volatile sink = &nullSink;
pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

}  // namespace

extern "C" __attribute__((visibility("default"), noinline)) void vexlor_bench_floor(void*, void*, const char* format,
                                                                                    ...)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    char message[2048];
    va_list args;
    va_start(args, format);
    const int length = vx::formatPrintf(message, sizeof message, format, args);
    va_end(args);
    pthread_mutex_lock(&mutex);
    sink->take(now, message, length);
    pthread_mutex_unlock(&mutex);
}
