// A program for the vexlorctl tests: names itself after its argument, creates two components
// with level descriptions, says "ready" on stdout and runs until its standard input ends.
#include <cstdio>
#include <vexlor/vexlor.h>

int main(int argc, char** argv)
{
    vexlor_set_applicationname(argc > 1 ? argv[1] : "controlled");
    vexlor_create_component("net", VX_WARN, "4=warnings,7=packet dumps");
    vexlor_create_component("storage", VX_ERR, "");
    vexlor_init(nullptr, "main");
    std::printf("ready\n");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
