// Fuzzes the control target's side: bytes arrive in pieces as on the socket, are framed into a
// request line and answered by the library (components exist, so "set" changes masks). Nothing
// may crash, every answer ends with "ok" or "error", and an overlong line is never taken.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <syslog.h>
#include <vexlor/vexlor.h>

#include "controlAnswers.h"
#include "controlProtocol.h"

namespace {

vexlor_component* components[2];  // the program's, for the whole run (as an application keeps them)

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setlogmask(LOG_UPTO(LOG_ERR));  // "set" notes each change
    components[0] = vexlor_create_component("net", VX_WARN, "4=warnings,7=packet dumps");
    components[1] = vexlor_create_component("storage", VX_ERR, "");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::size_t piece = 1 + data[0] % 64;  // how much one recv returns
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string input;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        input.append(bytes, at, piece);
        std::string line;
        const vexlor_control::EFrame frame = vexlor_control::takeRequestLine(input, line);
        if (frame == vexlor_control::EFrame::OVERLONG) {
            return 0;  // the target answers with an error and closes
        }
        if (frame == vexlor_control::EFrame::LINE) {
            if (line.size() >= vexlor_control::MAX_REQUEST || line.find('\n') != std::string::npos) {
                std::abort();
            }
            const std::string answer = answerRequest(vexlor_control::splitFields(line), 0, 1);
            const std::size_t last = answer.rfind('\n', answer.size() - 2);
            const std::string tail = answer.substr(last == std::string::npos ? 0 : last + 1);
            if (answer.back() != '\n' || (tail != "ok\n" && tail.compare(0, 6, "error\t") != 0)) {
                std::abort();
            }
            return 0;  // one request per connection
        }
    }
    return 0;
}
