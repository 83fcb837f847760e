// One configuration read of the container: choose the file in force, apply its `component` and
// `target` lines, then sweep the targets it no longer names.
#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>
#include <cctype>
#include <syslog.h>
#include <unistd.h>
#include <vector>
#include <vexlor/cfread.h>

#include "base/diag.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "targets/CContainerLock.h"
#include "targets/CLogTargetContainer.h"

namespace {

const std::string KEY_TARGET = "target";
const std::string KEY_COMPONENT = "component";

}  // namespace

std::string CLogTargetContainer::getDefaultCfgFilename() const
{
    return m_cfgDirectory + "/vexlor.cfg";
}

std::string CLogTargetContainer::getAppCfgFilename() const
{
    return m_cfgDirectory + "/vexlor-" + m_appname + ".cfg";
}

void CLogTargetContainer::onCfgUpdate()
{
    // Held through the sweep: log calls wait and never see a half-applied configuration.
    CContainerLock guard(*this);
    std::string fileName = getDefaultCfgFilename();
    if (!m_appname.empty()) {
        std::string appFileName = getAppCfgFilename();
        if (access(appFileName.c_str(), F_OK) == 0) {
            fileName = std::move(appFileName);
        }
    }
    vx::diag(LOG_DEBUG, "logtarget-container: reading vexlor-config from file \"%s\"", fileName.c_str());
    // Cleared for the read, set again only by a successful sweep. Between the two, a concurrent
    // syslog-style call may write to syslog itself, which loses nothing.
    m_hasSyslogTarget.store(false, std::memory_order_relaxed);
    if (cfread_parse_with_callback(fileName.c_str(), &CLogTargetContainer::Callback_Cfread, this, 0) != 0) {
        // Lines before the failing one stay applied; nothing is unloaded, no mark is cleared.
        vx::diag(LOG_ERR, "unable to read vexlor-config \"%s\" - giving up.", fileName.c_str());
        return;
    }
    m_hasSyslogTarget.store(sweepTargets(), std::memory_order_relaxed);
}

int CLogTargetContainer::Callback_Cfread(const char* key, const char* value, void* user)
{
    if (key == nullptr || value == nullptr || user == nullptr) {
        return 1;
    }
    return static_cast<CLogTargetContainer*>(user)->OnCallbackCfRead(key, value);
}

int CLogTargetContainer::OnCallbackCfRead(const std::string& key, const std::string& value)
{
    vx::diag(LOG_DEBUG, "callback \"%s\"=\"%s\"", key.c_str(), value.c_str());
    const std::string trimmedKey = boost::algorithm::trim_copy(key);
    const std::string trimmedValue = boost::algorithm::trim_copy(value);
    if (trimmedKey == KEY_TARGET) {
        return onCfgParamTarget(trimmedKey, trimmedValue);
    }
    if (trimmedKey == KEY_COMPONENT) {
        return onCfgParamComponent(trimmedKey, trimmedValue);
    }
    vx::diag(LOG_DEBUG, "ignoring unknown config token \"%s\"", trimmedKey.c_str());
    return 0;
}

int CLogTargetContainer::onCfgParamComponent(const std::string& /*key*/, const std::string& value)
{
    using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
    const Tokenizer elements(value, boost::char_separator<char>(","));
    const std::vector<std::string> parts(elements.begin(), elements.end());
    if (parts.size() != 2) {
        return 0;
    }
    vx::diag(LOG_DEBUG, "Modifying component \"%s\": new level=\"%s\"", parts[0].c_str(), parts[1].c_str());
    const std::string name = boost::algorithm::trim_copy(parts[0]);
    std::string bits = boost::algorithm::trim_copy(parts[1]);
    bits.erase(std::remove_if(bits.begin(), bits.end(), [](unsigned char c) { return std::isspace(c) != 0; }),
               bits.end());
    // A container built without a sink (tests, tools) refuses every level.
    const int rc = m_cfgUpdateSink != nullptr ? m_cfgUpdateSink->updateComponentLevel(name, bits) : -1;
    if (rc != 0) {
        vx::diag(LOG_DEBUG, "Unable to set level \"%s\" for component \"%s\"", bits.c_str(), name.c_str());
    }
    return 0;
}
