// The target container: everything between the logging core and the log targets. The work is done
// by the classes it forwards to: the target registry (here), the configuration read and the watcher
// (src/config). Its exported members are the binary interface; those that nothing in the library
// calls any more are grouped at the end and defined in CLogTargetContainerCompat.cpp.
#pragma once

#include <string>

#include <vexlor/vexlor.h>

#include "base/CRecursiveMutex.h"
#include "base/visibility.h"
#include "config/CConfigRead.h"
#include "config/CConfigWatcher.h"
#include "container/CTargetRegistry.h"

class IComponentCfgUpdateSink;

class VEXLOR_API CLogTargetContainer {
public:
    // Messages to the worker, written to its pipe as one native 4-byte integer each.
    enum thread_notification : int { notify_terminate = 0, notify_appname = 1 };

    static const std::string LOG_TARGET_CLASS_NAME;  // "LogTarget"

    // With enableConfig the container reads the configuration under cfgDirectory, loads its
    // targets and starts the watcher before it returns.
    CLogTargetContainer(const std::string& cfgDirectory, bool enableConfig, IComponentCfgUpdateSink* sink);
    virtual ~CLogTargetContainer();
    CLogTargetContainer(const CLogTargetContainer&) = delete;
    CLogTargetContainer& operator=(const CLogTargetContainer&) = delete;

    // Virtual table order is binary interface: append, never reorder.
    virtual void onComponentAdded(vexlor_component* component);
    virtual bool hasSyslogTarget() const;
    virtual void setAppname(const std::string& name);
    virtual void lock();
    virtual void unlock();

    // Delivers one record to every target in byte-wise order of target names.
    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message);

    // Reads the configuration now (or, from inside a call into a target, once that call has ended).
    void onCfgUpdate();

    // ---- Kept for the binary interface only ------------------------------------------------------
    // Exported members that plug-ins or programs built against earlier releases may still call; the
    // library itself never does. Each forwards to the class that does the work.
    std::string getDefaultCfgFilename() const;
    std::string getAppCfgFilename() const;
    static int Callback_Cfread(const char* key, const char* value, void* user);
    int OnCallbackCfRead(const std::string& key, const std::string& value);
    int onCfgParamComponent(const std::string& key, const std::string& value);
    int onCfgParamTarget(const std::string& key, const std::string& value);
    void onAppnameChanged();
    int notifyThread(thread_notification notification);
    int threadNotifyTerminate();
    int threadNotfiyAppname();
    void threadStartup();
    static void* outerThreadStartup(CLogTargetContainer* container);
    void* threadEventLoop();
    int init_fds();
    int init_epoll_evts();
    void close_fd(int& fd);
    void close_wd(int& wd);

private:
    // How the configuration read and the watcher reach back into the container.
    class VEXLOR_LOCAL CLink final : public IConfigReadClient, public IWatcherClient {
    public:
        explicit CLink(CLogTargetContainer& container)
            : m_container(container)
        {
        }
        void lock() override { m_container.lock(); }
        void unlock() override { m_container.unlock(); }
        int onTargetLine(const std::string& key, const std::string& value) override;
        bool sweepTargets() override { return m_container.m_targets.sweep(); }
        void onConfigChanged() override { m_container.onCfgUpdate(); }
        std::string appConfigFile() override;

    private:
        CLogTargetContainer& m_container;
    };

    // Counts the calls into targets and the configuration reads under way on the thread that holds
    // the lock. A read that a target starts from inside one of them (by setting the application
    // name) waits until the outermost has ended, so no target is unloaded while a call into a
    // target is on the stack, and the registry never changes under a fan-out.
    class VEXLOR_LOCAL CBusy {
    public:
        explicit CBusy(CLogTargetContainer& container)
            : m_container(container)
        {
            ++m_container.m_busy;
        }
        ~CBusy() noexcept(false);  // may run the waiting read, which a target could throw from
        CBusy(const CBusy&) = delete;
        CBusy& operator=(const CBusy&) = delete;

    private:
        CLogTargetContainer& m_container;
    };

    static constexpr std::size_t CACHE_LINE = 64;

    VEXLOR_LOCAL void startWatcher();
    VEXLOR_LOCAL void readNow();

    const std::string m_cfgDirectory;
    // Recursive: a configuration read re-enters through onComponentAdded, and a target may log from
    // inside any call. Taken before a component registry's lock (see CComponentRegistry::lock).
    // The lock and what every record writes under it fill a cache line of their own: threads that
    // log at once pass that line between them, and must not take the read-only members with it.
    alignas(CACHE_LINE) CRecursiveMutex m_mutex{vx::LockRank::CONTAINER};
    int m_busy = 0;  // guarded by m_mutex
    bool m_readPending = false;  // guarded by m_mutex
    alignas(CACHE_LINE) std::string m_appname;  // written under m_mutex; read by the worker under it too
    CTargetRegistry m_targets;  // guarded by m_mutex
    CLink m_link{*this};
    CConfigRead m_configRead;
    CConfigWatcher m_watcher{m_link};  // last: ended first at destruction
};
