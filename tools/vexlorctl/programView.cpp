// A program's targets as text and as JSON (see programView.h).
#include "programView.h"

#include <cstdio>

#include "terminalText.h"

namespace {

const char* const STANDARD[] = {"written", "dropped", "lost", "suppressed"};

// Decimal digits only, and no more than fit.
bool parseCount(const std::string& text, unsigned long long& value)
{
    if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    value = std::stoull(text);
    return true;
}

// Names that cannot clash with the object's own keys nor need escaping.
bool isCounterName(const std::string& text)
{
    return !text.empty() && text.size() <= 32 &&
        text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos && text != "name" &&
        text != "kind" && text != "state";
}

bool rowOf(const std::vector<std::string>& line, CTargetRow& row)
{
    if (line.size() < 4 + 2 * 4 || line.size() % 2 != 0 || line[0] != "target") {
        return false;
    }
    row = CTargetRow{line[1], line[2], line[3], {}};
    for (std::size_t i = 4; i < line.size(); i += 2) {
        unsigned long long value = 0;
        if (!isCounterName(line[i]) || !parseCount(line[i + 1], value)) {
            return false;
        }
        row.counters.emplace_back(line[i], value);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        if (row.counters[i].first != STANDARD[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::vector<CTargetRow> targetRows(const CLines& lines)
{
    std::vector<CTargetRow> rows;
    for (const auto& line : lines) {
        CTargetRow row;
        if (rowOf(line, row)) {
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

std::string targetText(const CTargetRow& row)
{
    std::string text = printable(row.name) + " (" + printable(row.kind) + "):";
    for (std::size_t i = 0; i < row.counters.size(); ++i) {
        text += (i == 0 ? " " : ", ") + row.counters[i].first + " " + std::to_string(row.counters[i].second);
    }
    return row.state.empty() ? text : text + "; " + printable(row.state);
}

std::string statsJson(int pid, const std::string& application, const std::string& program,
                      const std::vector<CTargetRow>& rows)
{
    std::string json = "{\"pid\":" + std::to_string(pid) + ",\"application\":" + jsonString(application) +
        ",\"program\":" + jsonString(program) + ",\"targets\":[";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        json += (i == 0 ? "{\"name\":" : ",{\"name\":") + jsonString(rows[i].name) +
            ",\"kind\":" + jsonString(rows[i].kind) + ",\"state\":" + jsonString(rows[i].state);
        for (const auto& [name, value] : rows[i].counters) {
            json += ",\"" + name + "\":" + std::to_string(value);
        }
        json += '}';
    }
    return json + "]}";
}

std::string configText(const CLines& lines)
{
    for (const auto& line : lines) {
        if (line.size() != 3 || line[0] != "config") {
            continue;
        }
        const std::string head = "  configuration " + printable(line[1]) + ": ";
        if (line[2] == "followed") {
            return head + "followed (a change written to it takes effect at once)\n";
        }
        const std::string why = line[2] == "missing"
            ? "MISSING: it was removed after the program read it.\n"
            : "CHANGES ARE NO LONGER FOLLOWED: the file was replaced after the program read it\n"
              "    (renamed over, as sed -i, many editors and deployment tools do, or removed and made again).\n";
        return head + why +
            "    The program keeps the configuration it read last; restart it to read the file again.\n"
            "    Replace configuration files with vexlor-check --install, which writes them in place.\n";
    }
    return std::string();
}

std::string jsonString(const std::string& text)
{
    std::string json = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceLength(text, i);
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += text[i++];
        } else if (length != 0) {
            json.append(text, i, length);
            i += length;
        } else {
            // C0, DEL and C1 controls as themselves; bytes of broken UTF-8 as the replacement.
            const bool c1 =
                c == 0xc2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xe0) == 0x80;
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c1 ? static_cast<unsigned char>(text[i + 1]) : c);
            json += c < 0x80 || c1 ? escape : "\\ufffd";
            i += c1 ? 2 : 1;
        }
    }
    return json + '"';
}
