// Fuzzes vexlorctl's side against any program's answer: bytes arrive in pieces (the first byte
// says how large) and are assembled within the bounds; each field must print without a control
// character (C0, DEL, or C1 in UTF-8).
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>

#include "CAnswerReader.h"
#include "terminalText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::regex control("[\\x00-\\x1f\\x7f]|\\xc2[\\x80-\\x9f]");
    CAnswerReader reader;
    for (std::size_t at = 1; at < size && reader.state() == CAnswerReader::EState::INCOMPLETE; at += 1 + data[0] % 64) {
        reader.feed(reinterpret_cast<const char*>(data) + at, std::min<std::size_t>(1 + data[0] % 64, size - at));
    }
    for (const auto& line : reader.lines()) {
        for (const std::string& field : line) {
            if (std::regex_search(printable(field), control)) {
                std::abort();
            }
        }
    }
    return 0;
}
