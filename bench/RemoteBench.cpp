// The remote target's costs: the log call (a copy into the queue, next to the same record that
// the target's levels= filters out) and the sustained throughput over loopback TCP to a sink
// that only reads, in records per second. The targets are real plug-ins loaded through the
// configuration file.
#include <arpa/inet.h>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vexlor/vexlor.h>

namespace {

// Accepts one connection on a free loopback port and counts the octet-counted frames it reads.
class CSink {
public:
    CSink()
    {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(m_listener, 1);
        socklen_t length = sizeof address;
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_reader = std::thread([this] { read(); });
        m_reader.detach();  // reads until the process ends
    }
    int port() const { return m_port; }
    long long frames() const { return m_frames.load(std::memory_order_acquire); }

private:
    void read()
    {
        const int fd = accept(m_listener, nullptr, nullptr);
        char buffer[65536];
        long long skip = 0;  // bytes of the current frame still to come
        long long length = 0;
        ssize_t got;
        while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) {
            for (ssize_t i = 0; i < got;) {
                if (skip > 0) {
                    const long long take = std::min<long long>(skip, got - i);
                    skip -= take;
                    i += take;
                    if (skip == 0) {
                        m_frames.fetch_add(1, std::memory_order_release);
                    }
                } else if (buffer[i] == ' ') {
                    skip = length;
                    length = 0;
                    ++i;
                } else {
                    length = length * 10 + (buffer[i++] - '0');
                }
            }
        }
    }

    int m_listener;
    int m_port;
    std::thread m_reader;
    std::atomic<long long> m_frames{0};
};

constexpr long long BURST = 200000;

CSink& sink()
{
    static CSink instance;
    return instance;
}

// The null target takes every record; the remote target takes all but debug records.
vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ntarget = " << VEXLOR_BENCH_REMOTE_TARGET
            << ", host=127.0.0.1, port=" << sink().port() << ", levels=emerg-info, queue=" << 4 * BURST
            << "\ncomponent = bench, 011111111\n";
        return vexlor_create_component("bench", nullptr, "");
    }();
    return component;
}

void waitForSink(long long frames)
{
    while (sink().frames() < frames) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

void filteredByRemoteLevels(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        vexlor(component, VX_DEBUG, "value %d", 42);
    }
}
BENCHMARK(filteredByRemoteLevels)->Iterations(BURST);

// Each call copies the record into the queue; the sender drains it meanwhile.
void enqueuedForRemote(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    const long long before = sink().frames();
    for (auto _ : state) {
        vexlor(component, VX_INFO, "value %d", 42);
    }
    // After the timed loop: nothing is left in the queue for the next benchmark.
    waitForSink(before + static_cast<long long>(state.iterations()));
}
BENCHMARK(enqueuedForRemote)->Iterations(BURST);

// From the first call of a burst to its last record read by the sink.
void sustainedThroughput(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        const long long before = sink().frames();
        for (long long i = 0; i < BURST; ++i) {
            vexlor(component, VX_INFO, "record %lld of a burst of records to the sink", i);
        }
        waitForSink(before + BURST);
    }
    state.SetItemsProcessed(state.iterations() * BURST);
}
BENCHMARK(sustainedThroughput)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
