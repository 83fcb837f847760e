// Fuzzes vexlorctl's side against any program's answer: bytes arrive in pieces (the first byte
// says how large) and are assembled within the bounds; each field, and each target line as show
// and stats print it, must print without a control character (C0, DEL, or C1 in UTF-8); the JSON
// of stats must be valid UTF-8 without a raw control character or an unescaped quote in a string.
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>

#include "CAnswerReader.h"
#include "programView.h"
#include "terminalText.h"

namespace {

const std::regex CONTROL("[\\x00-\\x1f\\x7f]|\\xc2[\\x80-\\x9f]");

void expectPrintable(const std::string& text)
{
    if (std::regex_search(text, CONTROL)) {
        std::abort();
    }
}

// Every byte is part of valid UTF-8 and outside strings only the object's own punctuation appears.
void expectJson(const std::string& json)
{
    expectPrintable(json);
    bool inString = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const std::size_t length = sequenceLength(json, i);
        if (length == 0) {
            std::abort();
        }
        if (inString && json[i] == '\\') {
            ++i;
        } else if (json[i] == '"') {
            inString = !inString;
        } else if (!inString &&
                   std::string("{}[]:,0123456789abcdefghijklmnopqrstuvwxyz-").find(json[i]) == std::string::npos) {
            std::abort();
        }
        i += length - 1;
    }
    if (inString) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CAnswerReader reader;
    for (std::size_t at = 1; at < size && reader.state() == CAnswerReader::EState::INCOMPLETE; at += 1 + data[0] % 64) {
        reader.feed(reinterpret_cast<const char*>(data) + at, std::min<std::size_t>(1 + data[0] % 64, size - at));
    }
    for (const auto& line : reader.lines()) {
        for (const std::string& field : line) {
            expectPrintable(printable(field));
            expectJson(jsonString(field));
        }
    }
    const std::vector<CTargetRow> rows = targetRows(reader.lines());
    for (const CTargetRow& row : rows) {
        expectPrintable(targetText(row));
    }
    expectJson(statsJson(1, "application", "program", rows));
    return 0;
}
