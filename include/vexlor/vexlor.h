// vexlor: the application interface of the process-wide logging library libvexlor.so.1.
// Levels, components, logging, function tracing, hex dumps and the application name.
//
// Threads: every function here may be called from any thread at any time, except the two that
// set the application name (vexlor_set_applicationname and its _novexlor twin): the application
// sets its name from one thread, normally at start-up, and not while other threads read it
// through vexlor_get_application_name. Tracing state and the thread name belong to the calling
// thread. A component's mask may change at any time (configuration re-reads, another thread).
//
// C: the plain functions, the level objects and vexlor_level are there; vexlor_component is an
// incomplete type, and the calls that take C++ types are left out.
#ifndef VEXLOR_VEXLOR_H
#define VEXLOR_VEXLOR_H

#ifdef __cplusplus
#include <string>
#include <utility>
#include <vector>
#endif

// Marks what the library exports. Kept default-visible in plug-ins too, so that the interface types
// have one identity across the library boundary (dynamic_cast depends on it).
#ifndef VEXLOR_API
#define VEXLOR_API __attribute__((visibility("default")))
#endif

// An immutable level: its number (0..7 are the syslog priorities) and the bits it stands for in a
// component's mask. The library owns every record; never free one.
typedef struct vexlor_level {
    unsigned int numeric;
    unsigned int mask;
} vexlor_level;

#ifdef __cplusplus
// A named source of messages. Binary interface (target plug-ins read it): append, never reorder.
// `level` is written by the library as one atomic 32-bit store and may change at any time from
// another thread; read it with one 32-bit load. Records are never freed while the process runs.
struct vexlor_component {
    std::string name;
    unsigned int level;
    std::vector<std::pair<unsigned int, std::string>> levelDescriptions;
};

extern "C" {
#else
// Its fields are C++ types: a C program holds it only by pointer.
typedef struct vexlor_component vexlor_component;
#endif

// The standard levels, set while the library is loaded. VX_ERR == VX_ERROR, VX_WARNING == VX_WARN.
VEXLOR_API extern vexlor_level* VX_EMERG;
VEXLOR_API extern vexlor_level* VX_ALERT;
VEXLOR_API extern vexlor_level* VX_CRIT;
VEXLOR_API extern vexlor_level* VX_ERR;
VEXLOR_API extern vexlor_level* VX_ERROR;
VEXLOR_API extern vexlor_level* VX_WARNING;
VEXLOR_API extern vexlor_level* VX_WARN;
VEXLOR_API extern vexlor_level* VX_NOTICE;
VEXLOR_API extern vexlor_level* VX_INFO;
VEXLOR_API extern vexlor_level* VX_DEBUG;
VEXLOR_API extern vexlor_level* VX_ENTERLEAVE;  // function entry/exit and thread start/end lines
VEXLOR_API extern vexlor_level* VX_ALL;  // number 32, all 32 mask bits

// Logs a printf-style message when `component`'s mask shares a bit with `level`'s mask.
// A null component or level logs nothing. Messages are cut to 2047 characters.
VEXLOR_API void vexlor(vexlor_component* component, vexlor_level* level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Like vexlor(), and also writes the text to syslog (unfiltered) unless a loaded target already
// writes to syslog.
VEXLOR_API void vexlor_syslog(vexlor_component* component, vexlor_level* level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Names the calling thread (name must not be null); the first call in the process opens syslog.
// With a component that enables VX_ENTERLEAVE it logs "----- Thread <name> started.".
VEXLOR_API void vexlor_init(vexlor_component* component, const char* name);
// Names the calling thread for a program that uses only the syslog side of the library.
VEXLOR_API void vexlor_init_novexlor(const char* name);
// Logs "----- Thread <name> ending." and renames the thread "<thrd done>".
VEXLOR_API void vexlor_done(vexlor_component* component);

// Sets the application name (syslog identity, per-application configuration file). The result
// points into the library and stays valid until the next change of the name.
VEXLOR_API const char* vexlor_set_applicationname(const char* name);
VEXLOR_API const char* vexlor_set_applicationname_novexlor(const char* name);

// Function tracing: records "entering"/"leaving" at VX_ENTERLEAVE and keeps the thread's
// function-name stack and depth, which every record of the thread carries.
VEXLOR_API void vexlor_enter_function(vexlor_component* component, const char* functionName);
VEXLOR_API void vexlor_leave_function(vexlor_component* component);

// Logs `length` bytes at `data` as hex dump lines, one record per 16 bytes.
VEXLOR_API void vexlor_dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length);

// Returns the component registered under `name`, or creates it with `level`'s mask (0 for a null
// level). `descriptions` ("0=off,1=error") is appended to its level descriptions. Null only for
// a null name (reported to syslog); logging with a null component logs nothing.
VEXLOR_API vexlor_component* vexlor_create_component(const char* name, vexlor_level* level, const char* descriptions);

// Creates a new level record with mask 1 << numeric (0 for numbers from 32 on).
VEXLOR_API vexlor_level* vexlor_level_create(unsigned int numeric);
// The syslog priority of a level: its number below 7, else 7; 7 for a null level.
VEXLOR_API int vexlor_level_to_prio(vexlor_level* level);

#ifdef __cplusplus
}  // extern "C"

VEXLOR_API const std::string& vexlor_get_application_name();
VEXLOR_API const std::string& vexlor_get_name_by_component(const vexlor_component* component);
VEXLOR_API vexlor_component* vexlor_get_component_by_name(const std::string& name);
// Appends the names of all components, in byte-wise order.
VEXLOR_API void vexlor_get_component_names(std::vector<std::string>& names);
// Appends the level descriptions of the named component (nothing for an unknown name).
VEXLOR_API void vexlor_get_level_descriptions(const std::string& name,
                                              std::vector<std::pair<unsigned int, std::string>>& descriptions);
// Sets the mask of a registered component; an unknown name is ignored.
VEXLOR_API void vexlor_set_component_level(const std::string& name, unsigned int mask);
// The mask of the named component, 0 for an unknown name.
VEXLOR_API unsigned int vexlor_get_component_level(const std::string& name);
VEXLOR_API unsigned int vexlor_level_to_mask(const vexlor_level* level);
VEXLOR_API unsigned int vexlor_level_to_numeric(const vexlor_level* level);
#endif  // __cplusplus

#endif  // VEXLOR_VEXLOR_H
