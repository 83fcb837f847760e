// Members of CLogTargetContainer kept only for the binary interface (see its header): the library
// itself calls none of them. Each forwards to the class that does the work.
#include "container/CLogTargetContainer.h"

#include <unistd.h>

std::string CLogTargetContainer::getDefaultCfgFilename() const { return CConfigRead::defaultFile(m_cfgDirectory); }

std::string CLogTargetContainer::getAppCfgFilename() const { return CConfigRead::appFile(m_cfgDirectory, m_appname); }

int CLogTargetContainer::Callback_Cfread(const char* key, const char* value, void* user)
{
    if (key == nullptr || value == nullptr || user == nullptr) {
        return 1;
    }
    return static_cast<CLogTargetContainer*>(user)->OnCallbackCfRead(key, value);
}

int CLogTargetContainer::OnCallbackCfRead(const std::string& key, const std::string& value)
{
    return m_configRead.dispatch(key, value);
}

int CLogTargetContainer::onCfgParamComponent(const std::string& /*key*/, const std::string& value)
{
    return m_configRead.applyComponentLine(value);
}

int CLogTargetContainer::onCfgParamTarget(const std::string& /*key*/, const std::string& value)
{
    m_targets.applyTargetLine(value, m_appname);
    return 0;
}

void CLogTargetContainer::onAppnameChanged() { m_watcher.moveWatch(); }

int CLogTargetContainer::notifyThread(thread_notification notification)
{
    return m_watcher.notify(static_cast<CConfigWatcher::Message>(notification));
}

int CLogTargetContainer::threadNotifyTerminate() { return notifyThread(notify_terminate); }

int CLogTargetContainer::threadNotfiyAppname() { return notifyThread(notify_appname); }

void* CLogTargetContainer::outerThreadStartup(CLogTargetContainer* container)
{
    if (container != nullptr) {
        container->threadStartup();
    }
    return nullptr;
}

void CLogTargetContainer::threadStartup() { threadEventLoop(); }

void* CLogTargetContainer::threadEventLoop()
{
    m_watcher.eventLoop();
    return nullptr;
}

int CLogTargetContainer::init_fds() { return m_watcher.openDescriptors(getDefaultCfgFilename()); }

int CLogTargetContainer::init_epoll_evts() { return m_watcher.registerEvents(); }

void CLogTargetContainer::close_fd(int& fd)
{
    if (fd != -1) {
        close(fd);  // never retried: the descriptor is released even on EINTR
        fd = -1;
    }
}

void CLogTargetContainer::close_wd(int& wd) { m_watcher.removeWatch(wd); }
