// The library's loader (CDynamicModule) opens each plug-in; its factory gets the line's
// parameters, as the library would hand them, and what the target or the loader reports goes to
// the output instead of syslog.
#include "targetLoad.h"

#include <dlfcn.h>
#include <set>
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "syslogCapture.h"
#include "container/CDynamicModule.h"
#include "container/CLogTargetContainer.h"

namespace {

// The failures that the plug-in, its factory or the loader sent to syslog meanwhile.
std::string reported()
{
    std::string text;
    for (const CLogged& logged : takeLogged()) {
        if (logged.priority <= LOG_WARNING) {
            text += "\n    " + logged.text;
        }
    }
    return text;
}

// The target's name, or empty after adding why there is none.
std::string createAndHandBack(CFileCheck& check, const CTargetLine& line)
{
    CDynamicModule module(line.path);
    if (module.load(nullptr) != 0) {
        const char* error = module.lastError();
        check.add(CFinding::error, line.line,
                  "cannot load \"" + line.path + "\": " + (error != nullptr ? error : "unknown error"));
        return std::string();
    }
    // A program keeps libvexlor.so.1, which each plug-in needs, for its whole life. So does this
    // tool, which is built from the library's sources and loads it only for the plug-ins: closed
    // with the last of them, its process-wide objects would go too.
    dlopen("libvexlor.so.1", RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    IClassFactory* factory = module.getClassFactory();
    if (factory == nullptr) {
        check.add(CFinding::error, line.line,
                  "\"" + line.path + "\" is no log target: it has no class factory" + reported());
        return std::string();
    }
    CLogTargetParameters parameters;
    parameters.params = line.params;
    IDynamicObject* object = nullptr;
    try {
        object = factory->createObject(CLogTargetContainer::LOG_TARGET_CLASS_NAME, &parameters);
    } catch (...) {
        // Outside the SDK's factory nothing catches; the library would not either.
        check.add(CFinding::error, line.line, "the factory of \"" + line.path + "\" threw an exception");
        return std::string();
    }
    auto* target = dynamic_cast<ILogTarget*>(object);
    std::string name;
    if (target == nullptr) {
        check.add(CFinding::error, line.line, "the target refuses to be created:" + reported());
    } else {
        name = target->getName();
    }
    if (object != nullptr) {
        factory->destroyObject(object);
    }
    return name;
}

}  // namespace

void loadTargets(CFileCheck& check)
{
    std::set<std::string> names;
    const std::vector<CTargetLine> lines = check.targets();  // add() below grows the findings only
    for (const CTargetLine& line : lines) {
        if (line.path.empty()) {
            continue;
        }
        takeLogged();
        const std::string name = createAndHandBack(check, line);
        if (name.empty()) {
            continue;
        }
        if (!names.insert(name).second) {
            check.add(CFinding::warning, line.line,
                      "a target named \"" + name +
                          "\" is already loaded by another line: programs refuse this one "
                          "(give it another name=)");
        } else {
            check.add(CFinding::note, line.line, "creates the target \"" + name + "\"");
        }
    }
}
