// The worker that watches the configuration file in force: an inotify watch and the notification
// pipe, waited on with epoll without a time-out. It sleeps while nothing happens.
#pragma once

#include <string>

#include "base/CFileDescriptor.h"
#include "base/CPipeThread.h"
#include "config/IWatcherClient.h"

class CConfigWatcher final : public CPipeThread {
public:
    // The messages to the worker, one native 4-byte integer each.
    enum Message : int { TERMINATE = 0, APPNAME = 1 };

    explicit CConfigWatcher(IWatcherClient& client)
        : m_client(client)
    {
    }
    ~CConfigWatcher() { stop(); }

    // Descriptors and the first watch, on the default file: 0 or -1.
    int openDescriptors(const std::string& defaultFile);
    // The inotify and pipe descriptors into epoll: 0 or -1.
    int registerEvents();
    // Starts the worker; reports why it could not.
    void startWorker();
    // Ends the worker through the pipe, joins it, closes everything.
    void stop();

    // Sends one message: 0, or -1 after reporting why not.
    int notify(Message message);
    // On the worker: moves the watch to the per-application file, if it exists.
    void moveWatch();
    // Removes a watch of this watcher's inotify instance and sets `watch` to -1.
    void removeWatch(int& watch);
    // The worker's loop; returns when it ends.
    void eventLoop();

private:
    void run() override { eventLoop(); }
    void afterForkInChild() override;
    // Each returns false when the worker must end.
    bool onInotifyReadable();
    bool onPipeReadable();

    IWatcherClient& m_client;
    // After the worker started, only the worker uses these (and the destructor, after the join).
    CFileDescriptor m_epoll;
    CFileDescriptor m_inotify;
    int m_watch = -1;
};
