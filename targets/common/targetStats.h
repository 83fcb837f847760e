// How the control target reads the counters of the other shipped targets of its process.
//
// Each shipped plug-in links this static helper library, so each has its own copy of the list of
// its live targets (CTargetCounters.cpp) and exports one plain C function that walks that list.
// The control target finds the function in every loaded library with dlopen(RTLD_NOLOAD) and
// dlsym on that library's own handle, which holds the library open during the call. Neither a
// list shared by all plug-ins nor dlsym(RTLD_DEFAULT) would do: the first must live in one of the
// plug-ins, which can be unloaded before the others, and a symbol found through the global scope
// keeps the library that defines it loaded for as long as the one that looked it up. Nothing of
// this passes through libvexlor, whose exported interface stays as it is; a third-party target
// does not export the function and does not appear.
//
// Binary interface between plug-ins built apart: the layout below is plain C and versioned by the
// function's name. A changed layout gets a new name; a control target skips names it does not know.
#pragma once

extern "C" {

struct vexlor_stats_counter_v1 {
    const char* name;  // "written", "dropped", "lost", "suppressed", then the target's own
    unsigned long long value;
};

struct vexlor_stats_target_v1 {
    const char* kind;  // "file", "console", ...
    const char* name;  // the target's name (name=)
    const char* state;  // empty while it works; else what failed, as its fault report says
    unsigned count;  // of counters
    const vexlor_stats_counter_v1* counters;
};

// Called once per live target, under the lock of the library's list: what it receives is valid
// during the call only.
typedef void (*vexlor_target_visit_v1)(const vexlor_stats_target_v1* target, void* context);
// Exported by every shipped target library (VEXLOR_TARGET_STATS_SYMBOL).
typedef void (*vexlor_target_stats_fn_v1)(vexlor_target_visit_v1 visit, void* context);
}

#define VEXLOR_TARGET_STATS_SYMBOL "vexlor_target_stats_v1"
