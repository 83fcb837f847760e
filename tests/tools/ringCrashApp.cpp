// A program for the recorder's crash tests: two threads log numbered records as fast as they can,
// each noting in a shared file the number it is about to log, and says "ready" on stdout after
// 1000 records. How it ends is its second argument: "kill" (the test's SIGKILL), "segv" (a null
// dereference) or "abort" at thread t0's record 3000, "exit" (_exit from a third thread, 20 ms after "ready").
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <vexlor/vexlor.h>

int main(int, char** argv)
{
    auto* started = static_cast<std::atomic<int>*>(
        mmap(nullptr, 2 * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED, open(argv[1], O_RDWR), 0));
    const std::string how = argv[2];
    vexlor_set_applicationname("crashing");
    vexlor_component* net = vexlor_create_component("net", nullptr, "");
    auto work = [&](int thread) {
        vexlor_init(net, thread == 0 ? "t0" : "t1");
        for (int n = 1;; ++n) {
            started[thread].store(n, std::memory_order_relaxed);
            if (thread == 0 && n == 3000 && (how == "segv" || how == "abort")) {
                int* volatile nowhere = how == "abort" ? (std::abort(), nullptr) : nullptr;
                *nowhere = n;  // unknown to the compiler: a real store to address 0
            }
            vexlor(net, VX_INFO, "%d", n);
            if (thread == 0 && n == 1000) {
                std::puts("ready");
                std::fflush(stdout);
                if (how == "exit") {
                    std::thread([] {
                        usleep(20000);
                        _exit(3);
                    }).detach();
                }
            }
        }
    };
    std::thread other(work, 1);
    work(0);
}
