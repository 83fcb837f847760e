// What the configuration watcher needs from the target container.
#pragma once

#include <string>

class IWatcherClient {
public:
    // The watched file changed: one configuration read, on the worker thread.
    virtual void onConfigChanged() = 0;
    // The per-application file of the current application name (which another thread may be
    // changing under the container's lock).
    virtual std::string appConfigFile() = 0;

protected:
    ~IWatcherClient() = default;
};
