// The target container: the registry of loaded log targets with the fan-out of records, the
// configuration read that fills it, and the worker thread that watches the configuration file.
// The fan-out lives in src/targets, the configuration read and the watcher in src/config.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <vexlor/vexlor.h>

#include "base/CRecursiveMutex.h"
#include "base/visibility.h"
#include "targets/CDynamicModule.h"

class IComponentCfgUpdateSink;
class ILogTarget;

// One entry of the target registry.
struct CPluggableLogModule {
    std::unique_ptr<CDynamicModule> module;  // the target's plug-in library
    ILogTarget* logTarget = nullptr;         // handed back to module's factory exactly once
    bool configured = false;                 // named by the configuration read under way
};

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
             const std::string& threadName, const std::string& componentName,
             const std::string& functionName, const std::string& message);

    // One configuration read (src/config/CLogTargetContainerConfig.cpp).
    void onCfgUpdate();
    std::string getDefaultCfgFilename() const;
    std::string getAppCfgFilename() const;
    static int Callback_Cfread(const char* key, const char* value, void* user);
    int OnCallbackCfRead(const std::string& key, const std::string& value);
    int onCfgParamComponent(const std::string& key, const std::string& value);
    // One `target` line (src/targets/CLogTargetContainerTargets.cpp).
    int onCfgParamTarget(const std::string& key, const std::string& value);

    // The watcher (src/config/CLogTargetContainerWatcher.cpp).
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
    VEXLOR_LOCAL void startWatcher();
    VEXLOR_LOCAL void stopWatcher();
    VEXLOR_LOCAL bool isForkChild() const;
    VEXLOR_LOCAL bool sweepTargets();  // true when a kept target writes to syslog
    VEXLOR_LOCAL void releaseAllTargets();
    VEXLOR_LOCAL std::string lockedAppCfgFilename();  // the per-application file name, read under the lock

    std::string m_cfgDirectory;
    std::map<std::string, CPluggableLogModule> m_targets;  // guarded by m_mutex
    std::unique_ptr<std::thread> m_workerThread;           // null while no worker runs
    // Recursive: a configuration read re-enters through onComponentAdded, and a target may log
    // from inside any call. Lock order with the component registry: see CVexlor::lockComponents.
    CRecursiveMutex m_mutex;
    std::atomic<bool> m_hasSyslogTarget{false};  // written only during a configuration read
    std::string m_appname;               // written under m_mutex
    IComponentCfgUpdateSink* m_cfgUpdateSink;
    int m_epollFd = -1;                  // the worker's, after construction
    int m_inotifyFd = -1;                // the worker's, after construction
    int m_watchDescriptor = -1;          // the worker's, after construction
    int m_pipeReadFd = -1;               // the worker's, after construction
    int m_pipeWriteFd = -1;              // written by any thread, one 4-byte message at a time
    // The process that opened the descriptors and runs the worker. A fork child shares the
    // descriptors but has no worker: it must neither message nor stop the parent's.
    int m_ownerPid = 0;
};
