// Records per second through the shipped file target (one write per record, and buffer=) and the
// console target into /dev/null, against spdlog's basic_file_sink_mt with and without a flush
// per record: the same fields in every line, 1,000,000 records each, in one run. Each case runs
// in a process of its own, so every vexlor case starts with a fresh library and configuration;
// the cases take turns five times and each counts with its fastest turn, the one a busy
// neighbour on a shared machine disturbed least. Beside the wall-clock rate, the processor time
// per record (user and system, of the case's process) shows the cost that no neighbour changes.
// Usage: vexlor_target_bench [records] [directory for the log files] [case number]
// With a case number (1-5, in the order of the table) only that case runs, once, in this process,
// and prints its rate on standard error: for timing one case against another from outside.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <vexlor/vexlor.h>

namespace {

const std::string CONFIG_DIR = VEXLOR_BENCH_CONFIG_DIR;
// A line of every case: date, time with microseconds, application[pid], level, component,
// thread, message.
const char* const SPDLOG_PATTERN = "%Y-%m-%d %H:%M:%S.%f bench[%P] %l %n [%t] %v";

struct CCase {
    std::string name;
    std::function<double(long, const std::string&)> run;  // seconds for `records` into the file
    std::string file;  // empty: writes to /dev/null
};

double seconds(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The file's records go through the library: the configuration names the target; at the end an
// application name whose configuration is empty unloads it, so its last write is timed too.
double viaVexlor(long records, const std::string& targetLine)
{
    std::filesystem::create_directories(CONFIG_DIR);
    std::ofstream(CONFIG_DIR + "/vexlor.cfg") << targetLine << "\ncomponent = net, 11111111\n";
    std::ofstream(CONFIG_DIR + "/vexlor-done.cfg") << "component = net, 11111111\n";
    vexlor_set_applicationname("bench");
    vexlor_component* net = vexlor_create_component("net", nullptr, "");
    vexlor_init(net, "main");
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < records; ++i) {
        vexlor(net, VX_INFO, "request %ld served in %ld us", i, i % 1000);
    }
    vexlor_set_applicationname("done");
    return seconds(start);
}

double viaSpdlog(long records, const std::string& file, bool flushEach)
{
    auto logger =
        std::make_shared<spdlog::logger>("net", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file, true));
    logger->set_pattern(SPDLOG_PATTERN);
    if (flushEach) {
        logger->flush_on(spdlog::level::trace);
    }
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < records; ++i) {
        logger->info("request {} served in {} us", i, i % 1000);
    }
    logger->flush();
    return seconds(start);
}

struct CTimes {
    double wall;  // seconds of the logging loop, in the child
    double cpu;  // user and system seconds of the whole child
};

// Runs one case in a child process; its seconds come back through a pipe.
CTimes runCase(const CCase& c, long records)
{
    int result[2];
    if (pipe(result) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    const pid_t child = fork();
    if (child == 0) {
        close(result[0]);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);  // the console case writes there
        const double taken = c.run(records, c.file);
        if (write(result[1], &taken, sizeof taken) != sizeof taken) {
            _exit(1);
        }
        std::exit(0);  // the library ends normally
    }
    close(result[1]);
    double taken = -1;
    const bool got = read(result[0], &taken, sizeof taken) == sizeof taken;
    close(result[0]);
    int status = 0;
    rusage use{};
    wait4(child, &status, 0, &use);
    const double cpu = static_cast<double>(use.ru_utime.tv_sec + use.ru_stime.tv_sec) +
        static_cast<double>(use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1e6;
    return {got && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? taken : -1, cpu};
}

}  // namespace

int main(int argc, char** argv)
{
    const long records = argc > 1 ? std::atol(argv[1]) : 1000000;
    const std::string dir =
        argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string() + "/vexlor-target-bench";
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const int only = argc > 3 ? std::atoi(argv[3]) : 0;
    const std::string pattern = ", pattern=%d %t %a[%p] %l %c [%T] %m";
    const std::vector<CCase> cases = {
        {"spdlog basic_file_sink_mt, no flush", [](long n, const std::string& f) { return viaSpdlog(n, f, false); },
         dir + "/spdlog.log"},
        {"spdlog basic_file_sink_mt, flush per record",
         [](long n, const std::string& f) { return viaSpdlog(n, f, true); }, dir + "/spdlog-flush.log"},
        {"vexlor file target, buffer=64K",
         [&](long n, const std::string& f) {
             return viaVexlor(n, "target = " VEXLOR_BENCH_FILE_TARGET ", path=" + f + pattern + ", buffer=64K");
         },
         dir + "/buffered.log"},
        {"vexlor file target, default (one write per record)",
         [&](long n, const std::string& f) {
             return viaVexlor(n, "target = " VEXLOR_BENCH_FILE_TARGET ", path=" + f + pattern);
         },
         dir + "/default.log"},
        {"vexlor console target into /dev/null",
         [&](long n, const std::string&) {
             return viaVexlor(n, "target = " VEXLOR_BENCH_CONSOLE_TARGET ", stream=stdout, color=never" + pattern);
         },
         ""},
    };
    if (only >= 1 && only <= static_cast<int>(cases.size())) {
        const CCase& c = cases[static_cast<std::size_t>(only - 1)];
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);  // the console case writes there
        std::fprintf(stderr, "%s: %.0f records/s\n", c.name.c_str(),
                     static_cast<double>(records) / c.run(records, c.file));
        std::filesystem::remove_all(dir);
        return 0;
    }
    constexpr int ROUNDS = 5;
    std::vector<std::vector<double>> wall(cases.size());
    std::vector<std::vector<double>> cpu(cases.size());
    for (int round = 0; round < ROUNDS; ++round) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const std::size_t c = (i + static_cast<std::size_t>(round)) % cases.size();  // a new order each round
            if (!cases[c].file.empty()) {
                std::filesystem::remove(cases[c].file);
            }
            const CTimes times = runCase(cases[c], records);
            wall[c].push_back(times.wall);
            cpu[c].push_back(times.cpu);
            if (times.wall <= 0) {
                std::fprintf(stderr, "%s: failed\n", cases[c].name.c_str());
                return 1;
            }
        }
    }
    std::vector<double> perSecond;
    std::vector<double> cpuPerRecord;  // nanoseconds
    for (std::size_t i = 0; i < cases.size(); ++i) {
        perSecond.push_back(static_cast<double>(records) / *std::min_element(wall[i].begin(), wall[i].end()));
        cpuPerRecord.push_back(*std::min_element(cpu[i].begin(), cpu[i].end()) * 1e9 / static_cast<double>(records));
    }
    std::printf("| case | records/s | vs spdlog, no flush | vs spdlog, flush per record | processor ns/record | "
                "bytes/record |\n"
                "|---|---:|---:|---:|---:|---:|\n");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string bytes = cases[i].file.empty()
            ? "-"
            : std::to_string(std::filesystem::file_size(cases[i].file) / static_cast<unsigned long>(records));
        std::printf("| %s | %.0f | %.2f | %.2f | %.0f | %s |\n", cases[i].name.c_str(), perSecond[i],
                    perSecond[i] / perSecond[0], perSecond[i] / perSecond[1], cpuPerRecord[i], bytes.c_str());
    }
    // The goals, as ratios within this run.
    const bool buffered = perSecond[2] >= 1.2 * perSecond[0];
    const bool direct = perSecond[3] >= perSecond[1];
    std::printf("\nbuffer=64K at least 1.2x spdlog without flush: %s (%.2fx; by processor time %.2fx)\n",
                buffered ? "yes" : "NO", perSecond[2] / perSecond[0], cpuPerRecord[0] / cpuPerRecord[2]);
    std::printf("default at least as fast as spdlog flushing every record: %s (%.2fx; by processor time %.2fx)\n",
                direct ? "yes" : "NO", perSecond[3] / perSecond[1], cpuPerRecord[1] / cpuPerRecord[3]);
    if (std::getenv("VEXLOR_BENCH_KEEP") == nullptr) {
        std::filesystem::remove_all(dir);
    }
    return 0;
}
