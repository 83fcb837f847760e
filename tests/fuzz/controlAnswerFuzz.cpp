// Fuzzes vexlorctl's side against any program's answer: the bytes arrive in pieces and are
// assembled within the bounds, every field is made printable (no control character may remain),
// and names read as control names give back the pid they stand for.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CAnswerReader.h"
#include "controlProtocol.h"
#include "terminalText.h"

namespace {

void checkPrintable(const std::string& text)
{
    const std::string shown = printable(text);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto c = static_cast<unsigned char>(shown[i]);
        const bool c1 = c == 0xc2 && i + 1 < shown.size() && static_cast<unsigned char>(shown[i + 1]) < 0xa0;
        if (c < 0x20 || c == 0x7f || c1) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::size_t piece = 1 + data[0] % 64;  // how much one recv returns
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    CAnswerReader reader;
    for (std::size_t at = 0; at < bytes.size() && reader.state() == CAnswerReader::EState::INCOMPLETE; at += piece) {
        reader.feed(bytes.data() + at, std::min(piece, bytes.size() - at));
    }
    for (const auto& line : reader.lines()) {
        for (const std::string& field : line) {
            checkPrintable(field);
        }
        // What a program sends is what the fields were before joining.
        const std::string joined = vexlor_control::joinFields(line);
        if (vexlor_control::splitFields(joined.substr(0, joined.size() - 1)) != line) {
            std::abort();
        }
    }
    const pid_t pid = vexlor_control::pidOfName(bytes);
    if (pid >= 0 && bytes.compare(0, vexlor_control::primaryName(pid).size(), vexlor_control::primaryName(pid)) != 0) {
        std::abort();
    }
    return 0;
}
