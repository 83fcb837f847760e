// One configuration read of the container (see CConfigRead.h).
#include "config/CConfigRead.h"

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>
#include <cctype>
#include <sys/stat.h>
#include <syslog.h>
#include <vector>
#include <vexlor/cfread.h>

#include "base/diag.h"
#include "config/readFindings.h"

namespace {

const std::string KEY_TARGET = "target";
const std::string KEY_COMPONENT = "component";

}  // namespace

std::string CConfigRead::defaultFile(const std::string& directory) { return directory + "/vexlor.cfg"; }

std::string CConfigRead::appFile(const std::string& directory, const std::string& appname)
{
    return directory + "/vexlor-" + appname + ".cfg";
}

bool CConfigRead::usable(const std::string& path)
{
    struct stat status { };
    if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        m_reportedUnusable.erase(path);
        return true;  // a missing file is the reader's to report
    }
    if (m_reportedUnusable.insert(path).second) {
        vx::diag(LOG_ERR, "logtarget-container: vexlor-config \"%s\" is not a regular file - treated as missing",
                 path.c_str());
    }
    return false;
}

std::string CConfigRead::fileInForce(const std::string& directory, const std::string& appname)
{
    if (!appname.empty()) {
        std::string candidate = appFile(directory, appname);
        struct stat status { };
        if (stat(candidate.c_str(), &status) == 0 && usable(candidate)) {
            return candidate;
        }
    }
    return defaultFile(directory);
}

void CConfigRead::run(const std::string& directory, const std::string& appname)
{
    // Held through the sweep: log calls wait and never see a half-applied configuration.
    CScopedLock<IConfigReadClient> guard(m_client);
    const std::string fileName = fileInForce(directory, appname);
    vx::diag(LOG_DEBUG, "logtarget-container: reading vexlor-config from file \"%s\"", fileName.c_str());
    m_hasSyslogTarget.store(false, std::memory_order_relaxed);
    if (!usable(fileName) || cfread_parse_with_callback(fileName.c_str(), &CConfigRead::onEntry, this, 0) != 0) {
        // Lines before the failing one stay applied; nothing is unloaded, no mark is cleared.
        vx::diag(LOG_ERR, "unable to read vexlor-config \"%s\" - giving up.", fileName.c_str());
        return;
    }
    m_hasSyslogTarget.store(m_client.sweepTargets(), std::memory_order_relaxed);
}

int CConfigRead::onEntry(const char* key, const char* value, void* read)
{
    if (key == nullptr || value == nullptr || read == nullptr) {
        return 1;
    }
    return static_cast<CConfigRead*>(read)->dispatch(key, value);
}

int CConfigRead::dispatch(const std::string& key, const std::string& value)
{
    vx::diag(LOG_DEBUG, "callback \"%s\"=\"%s\"", key.c_str(), value.c_str());
    const std::string trimmedKey = boost::algorithm::trim_copy(key);
    const std::string trimmedValue = boost::algorithm::trim_copy(value);
    if (trimmedKey == KEY_TARGET) {
        return m_client.onTargetLine(trimmedKey, trimmedValue);
    }
    if (trimmedKey == KEY_COMPONENT) {
        return applyComponentLine(trimmedValue);
    }
    vx::diag(LOG_DEBUG, "ignoring unknown config token \"%s\"", trimmedKey.c_str());
    vx::reportRead(vx::EReadFinding::UNKNOWN_KEY, 0, trimmedKey);
    return 0;
}

bool CConfigRead::parseComponentLine(const std::string& value, CComponentLine& line)
{
    using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
    const Tokenizer elements(value, boost::char_separator<char>(","));
    const std::vector<std::string> parts(elements.begin(), elements.end());
    if (parts.size() != 2) {
        return false;
    }
    line.writtenName = parts[0];
    line.writtenBits = parts[1];
    line.name = boost::algorithm::trim_copy(parts[0]);
    line.bits = boost::algorithm::trim_copy(parts[1]);
    line.bits.erase(
        std::remove_if(line.bits.begin(), line.bits.end(), [](unsigned char c) { return std::isspace(c) != 0; }),
        line.bits.end());
    return true;
}

int CConfigRead::applyComponentLine(const std::string& value)
{
    CComponentLine line;
    if (!parseComponentLine(value, line)) {
        return 0;
    }
    vx::diag(LOG_DEBUG, "Modifying component \"%s\": new level=\"%s\"", line.writtenName.c_str(),
             line.writtenBits.c_str());
    // A container built without a sink refuses every level.
    const int rc = m_sink != nullptr ? m_sink->updateComponentLevel(line.name, line.bits) : -1;
    if (rc != 0) {
        vx::diag(LOG_DEBUG, "Unable to set level \"%s\" for component \"%s\"", line.bits.c_str(), line.name.c_str());
    }
    return 0;
}
