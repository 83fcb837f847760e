// Loading of one plug-in library with its optional hooks and its class factory.
#include "container/CDynamicModule.h"

#include <cerrno>
#include <dlfcn.h>
#include <link.h>
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "base/diag.h"

namespace {

const std::string INIT_HOOK = "dynamic_module_init";
const std::string DONE_HOOK = "dynamic_module_done";
const std::string FACTORY_SYMBOL = "getClassFactory";

// The symbol as the opened library itself defines it, or null. dlsym also searches the libraries
// the handle depends on, and a handle of the main program (dlopen of "") the whole global scope,
// where an earlier plug-in's hooks live: taken from there, a factory would outlive its library.
template <typename Function>
Function lookUp(void* handle, const std::string& symbol)
{
    void* address = dlsym(handle, symbol.c_str());
    link_map* own = nullptr;
    Dl_info info{};
    link_map* found = nullptr;
    if (address == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &own) != 0 ||
        dladdr1(address, &info, reinterpret_cast<void**>(&found), RTLD_DL_LINKMAP) == 0 || found != own) {
        return nullptr;
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

CDynamicModule::CDynamicModule(const std::string& libPath)
    : m_libPath(libPath)
{
}

CDynamicModule::~CDynamicModule()
{
    if (m_handle == nullptr) {
        return;
    }
    if (auto done = lookUp<vexlor_module_done_fn>(m_handle, DONE_HOOK)) {
        vx::diag(LOG_DEBUG, "Calling done function for shared library \"%s\"", m_libPath.c_str());
        done();
    }
    vx::diag(LOG_DEBUG, "closing shared library \"%s\"", m_libPath.c_str());
    dlerror();  // drop a stale text (a missing optional hook) so a failure below reports its own
    const int rc = dlclose(m_handle);
    if (rc != 0) {
        // The loader's text first: strerror must not be able to disturb it.
        const char* loaderError = lastError();
        const std::string loaderText = loaderError != nullptr ? loaderError : "<null>";
        vx::diag(LOG_WARNING, "dlclose() failed, rc=%i, dlerror=%s, errno=%s (lib=%s)", rc, loaderText.c_str(),
                 vx::errnoText(errno), m_libPath.c_str());
    }
    m_handle = nullptr;
}

int CDynamicModule::load(void* arg)
{
    if (m_handle != nullptr) {
        vx::diag(LOG_DEBUG, "Dynamic module %s already loaded", m_libPath.c_str());
        return -1;
    }
    // An empty path would open the main program: it is no plug-in library.
    if (m_libPath.empty()) {
        errno = ENOENT;
    } else {
        m_handle = dlopen(m_libPath.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    }
    if (m_handle == nullptr) {
        vx::diag(LOG_ERR, "Unable to open shared library \"%s\" - error=%s", m_libPath.c_str(), vx::errnoText(errno));
        return -1;
    }
    vx::diag(LOG_DEBUG, "opened shared library \"%s\"", m_libPath.c_str());
    auto init = lookUp<vexlor_module_init_fn>(m_handle, INIT_HOOK);
    if (init == nullptr) {
        return 0;
    }
    vx::diag(LOG_DEBUG, "calling init function for shared library \"%s\"", m_libPath.c_str());
    init(arg);
    return 0;
}

IClassFactory* CDynamicModule::getClassFactory() const
{
    if (m_handle == nullptr) {
        vx::diag(LOG_ERR, "Library not loaded");
        return nullptr;
    }
    auto factory = lookUp<vexlor_get_class_factory_fn>(m_handle, FACTORY_SYMBOL);
    if (factory == nullptr) {
        vx::diag(LOG_ERR, "Symbol \"%s\" not found in shared library \"%s\"", FACTORY_SYMBOL.c_str(),
                 m_libPath.c_str());
        return nullptr;
    }
    vx::diag(LOG_DEBUG, "Retrieving classfactory from shared library \"%s\"", m_libPath.c_str());
    return factory();
}

const std::string& CDynamicModule::getLibPath() const { return m_libPath; }

const char* CDynamicModule::lastError() const { return dlerror(); }
