// The check of one file: the library's reader (cfread) hands every line, blank ones included,
// to CConfigRead::dispatch, the library's own key dispatch and component grammar, which calls
// back here for component and target lines; what the reader found (its errors, unknown keys)
// comes back as kinds and line numbers through config/readFindings.h.
#include "CFileCheck.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <vexlor/cfread.h>
#include <vexlor/vexlor_target.h>

#include "fileContent.h"
#include "fileSafety.h"
#include "levelText.h"
#include "levels/CComponentRegistry.h"
#include "config/readFindings.h"
#include "container/targetLine.h"

namespace {

constexpr std::size_t READ_BUFFER = vx::READER_LINE_BUFFER - 1;  // the reader's line buffer without its NUL
constexpr std::size_t MASK_BITS = 32;

std::string baseName(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isApplicationFile(const std::string& path)
{
    const std::string name = baseName(path);
    return name.size() > 11 && name.compare(0, 7, "vexlor-") == 0 && name.compare(name.size() - 4, 4, ".cfg") == 0;
}

std::string hex(unsigned int mask)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", mask);
    return text;
}

// Why the reader stopped, in an operator's words.
std::string explainStop(vx::EReadFinding kind)
{
    const std::string limit = std::to_string(vx::READER_MAX_TEXT);
    switch (kind) {
    case vx::EReadFinding::KEY_TOO_LONG: return "max. key length exceeded (a key longer than " + limit + " bytes)";
    case vx::EReadFinding::VALUE_TOO_LONG:
        return "max. value length exceeded (a value longer than " + limit + " bytes)";
    default:
        return "non-terminated entry (no line feed at the end of the file, a line longer than " +
            std::to_string(READ_BUFFER - 1) + " bytes, or a NUL byte)";
    }
}

}  // namespace

CFileCheck::CFileCheck(const std::string& path, const std::string& installedAs)
    : m_path(path)
    , m_installedAs(installedAs)
{
}

void CFileCheck::add(CFinding::ESeverity severity, int line, const std::string& text)
{
    m_findings.push_back({severity, line, text});
}

int CFileCheck::count(CFinding::ESeverity severity) const
{
    int n = 0;
    for (const CFinding& finding : m_findings) {
        n += finding.severity == severity ? 1 : 0;
    }
    return n;
}

void CFileCheck::run()
{
    checkFile();
    if (count(CFinding::error) != 0) {
        return;
    }
    // The reader gets the bytes read once, not the file, which may have changed since.
    const CMemoryFile bytes(m_content);
    if (!bytes.valid()) {
        add(CFinding::error, 0, std::string("cannot hold the file in memory: ") + std::strerror(errno));
        return;
    }
    vx::IReadFindings* const before = vx::observeReads(this);
    const int rc = cfread_parse_with_callback(bytes.path().c_str(), &CFileCheck::onEntry, this, 1);
    vx::observeReads(before);
    if (rc == 0 && isApplicationFile(m_installedAs) && m_components.empty() && m_libraries.empty()) {
        add(CFinding::warning, 0,
            "a per-application file that names no target and no component: the application reads it instead of "
            "vexlor.cfg, so it loads no target and sets no level");
    }
}

// Before reading: whether it can be read at all (once, for all that follows), who could change
// it, and the line numbers the reader will count.
void CFileCheck::checkFile()
{
    std::string error;
    if (!readOnce(m_path, m_content, error)) {
        add(CFinding::error, 0, error);
        return;
    }
    const std::string open = worldWritable(m_installedAs);
    if (!open.empty()) {
        add(CFinding::warning, 0, open + ": any user could make every program load a library of their choice");
    }
    // The reader takes a line in pieces of up to 1023 bytes and counts each piece as a line; a
    // piece that does not start with "#" reaches the callback.
    const std::string& text = m_content;
    std::size_t start = 0;
    for (int physical = 1; start < text.size(); ++physical) {
        std::size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        if (text[start] == '#' && end - start > READ_BUFFER) {
            add(CFinding::warning, physical,
                "a comment longer than 1022 bytes: the reader takes its rest as a line of its own");
        }
        for (std::size_t piece = start; piece < end; piece += READ_BUFFER) {
            if (text[piece] != '#') {
                m_entryLines.push_back(physical);
            }
        }
        start = end;
    }
}

void CFileCheck::found(vx::EReadFinding kind, int line, const std::string& detail)
{
    switch (kind) {
    case vx::EReadFinding::UNKNOWN_KEY: m_unknownKey = detail; break;
    case vx::EReadFinding::NOT_READ: add(CFinding::error, line, "cannot be read: " + detail); break;
    default:
        add(CFinding::error, line,
            explainStop(kind) +
                ": programs stop reading the file here; the lines above take effect, no target is unloaded");
        break;
    }
}

int CFileCheck::onEntry(const char* key, const char* value, void* check)
{
    static_cast<CFileCheck*>(check)->entry(key, value);
    return 0;
}

void CFileCheck::entry(const std::string& key, const std::string& value)
{
    m_line = m_nextEntry < m_entryLines.size() ? m_entryLines[m_nextEntry] : 0;
    ++m_nextEntry;
    if (key.empty() && value.empty()) {
        return;  // a blank line
    }
    if (key.empty() || value.empty()) {
        add(CFinding::warning, m_line,
            key.empty() ? "ignored: no key before \"=\"" : "ignored: key \"" + key + "\" has no value");
        return;
    }
    m_handled = false;
    m_unknownKey.clear();
    m_read.dispatch(key, value);
    if (m_handled) {
        return;
    }
    if (!m_unknownKey.empty()) {
        add(CFinding::warning, m_line,
            "ignored: unknown key \"" + m_unknownKey + "\" (the keys are \"component\" and \"target\")");
        return;
    }
    add(CFinding::warning, m_line,
        "ignored: a component line is a name and a bit string separated by one comma: \"" + value + "\"");
}

int CFileCheck::updateComponentLevel(const std::string& name, const std::string& bits)
{
    m_handled = true;
    const unsigned int mask = CComponentRegistry::maskFromBits(bits);
    add(CFinding::note, m_line, "component " + name + " = " + hex(mask) + "  " + levelNames(mask));
    if (bits.find_first_not_of("01") != std::string::npos) {
        add(CFinding::warning, m_line,
            "bit string \"" + bits + "\" has characters other than 0 and 1: they count as 0");
    }
    if (bits.size() > MASK_BITS) {
        add(CFinding::warning, m_line,
            "bit string of " + std::to_string(bits.size()) + " levels: only the last 32 count");
    }
    const auto seen = m_components.emplace(name, m_line);
    if (!seen.second) {
        add(CFinding::warning, m_line,
            "component " + name + " is also set on line " + std::to_string(seen.first->second) +
                ": the later line wins");
        seen.first->second = m_line;
    }
    return 0;
}

int CFileCheck::onTargetLine(const std::string& /*key*/, const std::string& value)
{
    m_handled = true;
    // The application name is the program's; the marker shows where it goes.
    const std::string application = "<the program's application name>";
    std::map<std::string, std::string> params;
    const std::string path = vx::parseTargetLine(value, application, params);
    std::string text = "target " + (path.empty() ? std::string("(no library)") : path);
    for (const auto& param : params) {
        text += "\n    " + param.first + " = " + param.second;
    }
    add(CFinding::note, m_line, text);
    const auto seen = m_libraries.emplace(path, m_line);
    if (!seen.second) {
        add(CFinding::warning, m_line,
            "library \"" + path + "\" is loaded once, by line " + std::to_string(seen.first->second) +
                ": this line's parameters are not used. A loaded target keeps the parameters it was created "
                "with: to change them, remove its line and let the programs read the file, then add the new line");
        return 0;
    }
    // --load creates the target as a program that has not named itself would.
    std::map<std::string, std::string> loadParams;
    vx::parseTargetLine(value, std::string(), loadParams);
    m_targets.push_back({m_line, path, loadParams});
    checkLibrary(m_line, path);
    return 0;
}

void CFileCheck::checkLibrary(int line, const std::string& path)
{
    if (path.empty()) {
        add(CFinding::warning, line, "no library path: the line loads nothing");
        return;
    }
    if (path[0] != '/') {
        add(CFinding::warning, line,
            "relative library path: the dynamic loader searches for it, so what is loaded depends on each "
            "program's environment (give an absolute path)");
        return;
    }
    struct stat status { };
    if (stat(path.c_str(), &status) != 0) {
        add(CFinding::warning, line, "the library does not exist on this machine");
        return;
    }
    const std::string open = worldWritable(path);
    if (!open.empty()) {
        add(CFinding::warning, line, open + ": any user could replace the library that every program loads");
    }
}
