// Asks every loaded library that exports the counters function for its live targets. Each is held
// open by a handle of its own during the call, so a target unloaded meanwhile takes its library
// with it only once the call is over (see targetStats.h for why not through the global scope).
#include "liveTargets.h"

#include <algorithm>
#include <dlfcn.h>
#include <link.h>
#include <set>

#include "controlProtocol.h"
#include "targetStats.h"

namespace {

int collectName(dl_phdr_info* info, std::size_t, void* names)
{
    // The program itself has an empty name; the vDSO one that dlopen does not know.
    if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
        static_cast<std::vector<std::string>*>(names)->push_back(info->dlpi_name);
    }
    return 0;
}

void addTarget(const vexlor_stats_target_v1* target, void* views)
{
    CTargetView view{target->kind, target->name, target->state, {}};
    for (unsigned i = 0; i < target->count; ++i) {
        view.counters.emplace_back(target->counters[i].name, target->counters[i].value);
    }
    static_cast<std::vector<CTargetView>*>(views)->push_back(std::move(view));
}

}  // namespace

std::vector<CTargetView> liveTargets()
{
    // Names first, libraries after: dlopen must not run inside dl_iterate_phdr, which holds the
    // loader's list lock.
    std::vector<std::string> libraries;
    dl_iterate_phdr(collectName, &libraries);
    std::vector<CTargetView> views;
    std::set<void*> asked;  // two names of one library
    for (const std::string& library : libraries) {
        void* handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle == nullptr) {
            continue;
        }
        void* function = dlsym(handle, VEXLOR_TARGET_STATS_SYMBOL);
        if (function != nullptr && asked.insert(function).second) {
            reinterpret_cast<vexlor_target_stats_fn_v1>(function)(addTarget, &views);
        }
        dlclose(handle);
    }
    std::sort(views.begin(), views.end(), [](const CTargetView& a, const CTargetView& b) { return a.name < b.name; });
    return views;
}

std::string targetLines()
{
    std::string lines;
    for (const CTargetView& view : liveTargets()) {
        std::vector<std::string> fields = {"target", view.name, view.kind, view.state};
        for (const auto& [name, value] : view.counters) {
            fields.push_back(name);
            fields.push_back(std::to_string(value));
        }
        lines += vexlor_control::joinFields(fields);
    }
    return lines;
}
