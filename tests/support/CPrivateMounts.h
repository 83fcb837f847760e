// Mounts for tests that need a small file system or a /run of their own. The calling thread moves into a
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

    // Throws std::runtime_error with the system's reason when it fails. `size` as mount takes it: 64k
    void tmpfs(const std::string& directory, const std::string& size);
    // Shows `file` at `target` (an existing file), as /etc/resolv.conf for one.
    void bind(const std::string& file, const std::string& target);

private:
    std::string m_why;
    std::vector<std::string> m_mounted;
};
