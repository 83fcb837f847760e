// A program for the vexlorctl tests: names itself after its first argument, creates two
// components with level descriptions, logs as many warnings of "net" as its second argument says,
// says "ready" on stdout and runs until its standard input ends.
#include <cstdio>
#include <cstdlib>
#include <vexlor/vexlor.h>

int main(int argc, char** argv)
{
    vexlor_set_applicationname(argc > 1 ? argv[1] : "controlled");
    vexlor_component* net = vexlor_create_component("net", VX_WARN, "4=warnings,7=packet dumps");
    vexlor_create_component("storage", VX_ERR, "");
    vexlor_init(nullptr, "main");
    for (int i = 0; i < (argc > 2 ? std::atoi(argv[2]) : 0); ++i) {
        vexlor(net, VX_WARN, "warning %d", i);
    }
    std::printf("ready\n");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
