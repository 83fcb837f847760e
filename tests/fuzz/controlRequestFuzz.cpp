// Fuzzes the control target's side: the bytes a client sent are framed into one request line and
// answered by the library, whose components "set" may change. Every answer must end with "ok" or
// "error"; no overlong line is ever taken.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <syslog.h>
#include <vexlor/vexlor.h>

#include "controlAnswers.h"
#include "controlProtocol.h"

namespace {

vexlor_component* net;  // the program's, for the whole run (as an application keeps it)

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setlogmask(LOG_UPTO(LOG_ERR));  // "set" notes each change
    net = vexlor_create_component("net", VX_WARN, "4=warnings,7=packet dumps");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    std::string line;
    const vexlor_control::EFrame frame = vexlor_control::takeRequestLine(input, line);
    if (frame == vexlor_control::EFrame::LINE) {
        const std::string answer = answerRequest(vexlor_control::splitFields(line), 0, 1);
        const std::size_t last = answer.rfind('\n', answer.size() - 2) + 1;  // npos + 1 == 0
        if (line.size() >= vexlor_control::MAX_REQUEST || answer.back() != '\n' ||
            (answer.compare(last, 3, "ok\n") != 0 && answer.compare(last, 6, "error\t") != 0)) {
            std::abort();
        }
    }
    return 0;
}
