// The library has no call that lists its targets; every target plug-in exports getClassFactory,
// and the library closes a plug-in whose target it does not keep, so the loaded objects that
// export it are the targets.
#include "delivery.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>
#include <vector>

namespace {

int collectName(dl_phdr_info* info, std::size_t, void* names)
{
    if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
        static_cast<std::vector<std::string>*>(names)->push_back(info->dlpi_name);
    }
    return 0;
}

}  // namespace

int loadedTargets()
{
    // Names first, look-ups after: dlopen must not run while dl_iterate_phdr holds the loader.
    std::vector<std::string> names;
    dl_iterate_phdr(collectName, &names);
    int targets = 0;
    for (const std::string& name : names) {
        if (void* handle = dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
            targets += dlsym(handle, "getClassFactory") != nullptr ? 1 : 0;
            dlclose(handle);
        }
    }
    return targets;
}

std::string configFileInForce(const std::string& application)
{
    const std::string perApplication = std::string(VEXLOR_CONFIG_DIR) + "/vexlor-" + application + ".cfg";
    if (!application.empty() && access(perApplication.c_str(), F_OK) == 0) {
        return perApplication;
    }
    return std::string(VEXLOR_CONFIG_DIR) + "/vexlor.cfg";
}
