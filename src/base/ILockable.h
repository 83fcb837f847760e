// Anything that is locked and unlocked as one step, and the guard that holds it for one scope.
#pragma once

class ILockable {
public:
    virtual void lock() = 0;
    virtual void unlock() = 0;

protected:
    ~ILockable() = default;  // never deleted through this interface
};

// Holds `T::lock()` to `T::unlock()` for one scope, so that the lock is released on every path
// (including a target that throws, which targets must not do).
template <typename T>
class CScopedLock {
public:
    explicit CScopedLock(T& lockable)
        : m_lockable(lockable)
    {
        m_lockable.lock();
    }
    ~CScopedLock() { m_lockable.unlock(); }
    CScopedLock(const CScopedLock&) = delete;
    CScopedLock& operator=(const CScopedLock&) = delete;

private:
    T& m_lockable;
};
