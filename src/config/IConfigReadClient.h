// What a configuration read needs from the target container: its lock, held through the whole
// read, the `target` lines, and the sweep after a successful read.
#pragma once

#include <string>

#include "base/ILockable.h"

class IConfigReadClient : public ILockable {
public:
    // One `target` entry (key and value trimmed); 0 goes on reading.
    virtual int onTargetLine(const std::string& key, const std::string& value) = 0;
    // After a successful read: unloads what it did not name; true when a kept target writes to
    // syslog itself.
    virtual bool sweepTargets() = 0;

protected:
    ~IConfigReadClient() = default;
};
