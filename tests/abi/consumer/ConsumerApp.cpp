// An application built against the installed library only. It logs one record and succeeds when
// the target that the configuration names wrote it to the file given as the argument.
#include <cstdio>
#include <fstream>
#include <string>
#include <vexlor/vexlor.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <file the target writes>\n", argv[0]);
        return 2;
    }
    vexlor_init(nullptr, "main");
    vexlor_component* component = vexlor_create_component("consumer", VX_INFO, "6=info");
    vexlor(component, VX_INFO, "hello from %s", "the consumer");

    std::ifstream in(argv[1]);
    std::string line;
    while (std::getline(in, line)) {
        if (line == "consumer|hello from the consumer") {
            return 0;
        }
    }
    std::fprintf(stderr, "the record did not reach the target (%s)\n", argv[1]);
    return 1;
}
