// An application built against the installed library only. It logs one record and succeeds when
// the target that the configuration names wrote it to the file given as the first argument.
#include <fstream>
#include <string>
#include <vexlor/vexlor.h>

int main(int argc, char** argv)
{
    if (argc < 2) {
        return 2;
    }
    vexlor(vexlor_create_component("consumer", VX_INFO, ""), VX_INFO, "hello from %s", "the consumer");
    std::string line;
    std::getline(std::ifstream(argv[1]), line);
    return line == "consumer|hello from the consumer" ? 0 : 1;
}
