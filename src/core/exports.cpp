// The exported surface of libvexlor.so.1 (with the cfread_ functions and the level objects):
// one-line forwarders to the main instance, or to the NoVexlor instance for the _novexlor pair.
#include <cstdarg>

#include <syslog.h>

#include "core/CVexlor.h"
#include "base/diag.h"
#include "levels/levelStore.h"
#include "levels/componentLevel.h"

namespace {

// Null texts and records are caller errors that must not bring the application down. Where a
// null can be survived without a result of its own, it gets one of these.
const std::string EMPTY_NAME;

vexlor_component* refuseNullName()
{
    vx::diag(LOG_ERR, "vexlor_create_component: no component name given (null) - no component created");
    return nullptr;
}

}  // namespace

extern "C" {

void vexlor(vexlor_component* component, vexlor_level* level, const char* format, ...)
{
    // The only filter, before the instance or the arguments are touched. It needs nothing of the
    // instance: a component comes from the registry or is the fallback component, so whoever
    // holds one has made the main instance already.
    if (!vx::isEnabled(component, level)) {
        return;
    }
    va_list args;
    va_start(args, format);
    CVexlor::logToMain(component, level, format, args);
    va_end(args);
}

void vexlor_syslog(vexlor_component* component, vexlor_level* level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    CVexlor::getInstance()->vexlorSyslog(component, level, format, args);
    va_end(args);
}

void vexlor_init(vexlor_component* component, const char* name) { CVexlor::getInstance()->init(component, name, true); }
void vexlor_init_novexlor(const char* name) { CVexlor::getInstance_NoVexlor()->init(nullptr, name, false); }
void vexlor_done(vexlor_component* component) { CVexlor::getInstance()->done(component); }

const char* vexlor_set_applicationname(const char* name)
{
    return CVexlor::getInstance()->setApplicationname(std::string(name));
}

const char* vexlor_set_applicationname_novexlor(const char* name)
{
    return CVexlor::getInstance_NoVexlor()->setApplicationname_Novexlor(std::string(name));
}

void vexlor_enter_function(vexlor_component* component, const char* functionName)
{
    CVexlor::getInstance()->enterFunction(component, functionName);
}

void vexlor_leave_function(vexlor_component* component) { CVexlor::getInstance()->leaveFunction(component); }

void vexlor_dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length)
{
    CVexlor::getInstance()->dump(component, level, data, length);
}

vexlor_component* vexlor_create_component(const char* name, vexlor_level* level, const char* descriptions)
{
    // A null result is safe to log with: every call with it is filtered out.
    return name == nullptr
        ? refuseNullName()
        : CVexlor::getInstance()->createComponent(name, level, descriptions != nullptr ? descriptions : "");
}

vexlor_level* vexlor_level_create(unsigned int numeric) { return vx::createLevel(numeric); }
int vexlor_level_to_prio(vexlor_level* level) { return CVexlor::level_to_prio(level); }

}  // extern "C"

const std::string& vexlor_get_application_name() { return CVexlor::getInstance()->getAppname(); }
const std::string& vexlor_get_name_by_component(const vexlor_component* component)
{
    return component != nullptr ? component->name : EMPTY_NAME;
}

vexlor_component* vexlor_get_component_by_name(const std::string& name)
{
    return CVexlor::getInstance()->components().findLocked(name);
}

void vexlor_get_component_names(std::vector<std::string>& names) { CVexlor::getInstance()->getComponentNames(names); }

void vexlor_get_level_descriptions(const std::string& name,
                                   std::vector<std::pair<unsigned int, std::string>>& descriptions)
{
    CVexlor::getInstance()->getLevelDescriptions(name, descriptions);
}

void vexlor_set_component_level(const std::string& name, unsigned int mask)
{
    CVexlor::getInstance()->setComponentLevel(name, mask);
}

unsigned int vexlor_get_component_level(const std::string& name)
{
    return CVexlor::getInstance()->components().levelOf(name);
}

unsigned int vexlor_level_to_mask(const vexlor_level* level) { return level != nullptr ? level->mask : 0u; }
unsigned int vexlor_level_to_numeric(const vexlor_level* level) { return level != nullptr ? level->numeric : 0u; }
