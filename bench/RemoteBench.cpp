// The remote target's costs: the log call (a copy into the queue, next to the same record that
// the target's levels= filters out), the sustained throughput over loopback TCP to a sink that
// only reads, and over RELP to a real rsyslogd, in records per second. The targets are real
// plug-ins loaded through the configuration file.
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
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

// A real rsyslogd with imrelp on a free loopback port, writing each record as one line to a file
// through a direct queue (it answers a record once it wrote it). Ended with the process.
class CRelpRelay {
public:
    CRelpRelay()
        : m_directory(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/relp")
    {
        std::filesystem::create_directories(m_directory);
        const int probe = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        close(probe);
        std::filesystem::remove(m_directory + "/received.txt");
        std::ofstream(m_directory + "/rsyslog.conf")
            << "global(workDirectory=\"" << m_directory << "\")\nmodule(load=\"imrelp\")\n"
            << "template(name=\"line\" type=\"string\" string=\"%msg%\\n\")\n"
            << "ruleset(name=\"bench\" queue.type=\"Direct\") { action(type=\"omfile\" file=\"" << m_directory
            << "/received.txt\" template=\"line\") }\n"
            << "input(type=\"imrelp\" address=\"127.0.0.1\" port=\"" << m_port << "\" ruleset=\"bench\")\n";
        m_pid = fork();
        if (m_pid == 0) {
            execlp("rsyslogd", "rsyslogd", "-n", "-f", (m_directory + "/rsyslog.conf").c_str(), "-i",
                   (m_directory + "/pid").c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));  // until it listens
    }
    ~CRelpRelay()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    int port() const { return m_port; }
    // Lines written so far: read on from where the last call stopped.
    long long lines()
    {
        std::ifstream file(m_directory + "/received.txt", std::ios::binary);
        file.seekg(m_offset);
        char buffer[65536];
        while (file.read(buffer, sizeof buffer) || file.gcount() > 0) {
            m_offset += file.gcount();
            m_lines += std::count(buffer, buffer + file.gcount(), '\n');
        }
        return m_lines;
    }

private:
    std::string m_directory;
    int m_port = 0;
    pid_t m_pid = -1;
    long long m_offset = 0;
    long long m_lines = 0;
};

CRelpRelay& relay()
{
    static CRelpRelay instance;
    return instance;
}

vexlor_component* benchComponent()
{
    static vexlor_component* component = [] {
        std::filesystem::create_directories(VEXLOR_BENCH_CONFIG_DIR);
        std::ofstream(std::string(VEXLOR_BENCH_CONFIG_DIR) + "/vexlor.cfg")
            << "target = " << VEXLOR_BENCH_NULL_TARGET << "\ntarget = " << VEXLOR_BENCH_REMOTE_TARGET
            << ", host=127.0.0.1, port=" << sink().port() << ", levels=info, queue=" << 4 * BURST
            << ", queue-bytes=268435456\ntarget = " << VEXLOR_BENCH_REMOTE_RELP_TARGET << ", name=relp, transport=relp"
            << ", host=127.0.0.1, port=" << relay().port() << ", levels=notice, queue=" << 4 * BURST
            << ", queue-bytes=268435456\ncomponent = bench, 011111111\n";
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
    // After the timed loop: nothing is left in the queue for the next benchmark. The sender
    // releases records once TCP acknowledged them (it looks every 10 ms at first): the next run
    // then starts, like a program after a quiet moment, at the ring's beginning, on pages already
    // touched, rather than in pages the ring never used (a page fault for every 4 KiB, once).
    waitForSink(before + static_cast<long long>(state.iterations()));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
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

// The same over RELP to rsyslogd: from the first call to the last record the relay wrote.
void sustainedThroughputRelp(benchmark::State& state)
{
    vexlor_component* component = benchComponent();
    for (auto _ : state) {
        const long long before = relay().lines();
        for (long long i = 0; i < BURST; ++i) {
            vexlor(component, VX_NOTICE, "record %lld of a burst of records to the relay", i);
        }
        while (relay().lines() < before + BURST) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    state.SetItemsProcessed(state.iterations() * BURST);
}
BENCHMARK(sustainedThroughputRelp)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
