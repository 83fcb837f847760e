// Mounts for tests that need a small or a read-only file system. The calling thread moves into a
// mount namespace of its own (unshare), so nothing it mounts is seen outside. Enter before
// starting any thread that should share the namespace.
#pragma once

#include <string>
#include <vector>

class CPrivateMounts {
public:
    // Enters the namespace; ok() is false, with the reason in why(), where the process may not.
    CPrivateMounts();
    ~CPrivateMounts();  // unmounts what is still mounted
    CPrivateMounts(const CPrivateMounts&) = delete;
    CPrivateMounts& operator=(const CPrivateMounts&) = delete;

    bool ok() const { return m_why.empty(); }
    const std::string& why() const { return m_why; }

    // Each throws std::runtime_error with the system's reason when it fails.
    void tmpfs(const std::string& directory, const std::string& size);  // size as mount takes it: 64k
    void bind(const std::string& from, const std::string& to);
    void makeReadOnly(const std::string& bindMount);  // a bind mount's own read-only flag
    void unmount(const std::string& directory);

private:
    std::string m_why;
    std::vector<std::string> m_mounted;
};
