// Holds a container's lock for one scope, through its virtual lock() and unlock(), so that the
// lock is released even when a target throws (which targets must not do).
#pragma once

#include "targets/CLogTargetContainer.h"

class CContainerLock {
public:
    explicit CContainerLock(CLogTargetContainer& container) : m_container(container) { m_container.lock(); }
    ~CContainerLock() { m_container.unlock(); }
    CContainerLock(const CContainerLock&) = delete;
    CContainerLock& operator=(const CContainerLock&) = delete;

private:
    CLogTargetContainer& m_container;
};
