// The journald stand-in: private /run, the socket, and the native protocol parser.
#include "CJournalStandIn.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

const char SOCKET_PATH[] = "/run/systemd/journal/socket";

// A large entry comes as a file descriptor (a sealed memfd) in an empty datagram.
std::string readDescriptor(int fd)
{
    std::string content;
    char buffer[4096];
    ssize_t got;
    off_t offset = 0;
    while ((got = pread(fd, buffer, sizeof buffer, offset)) > 0) {
        content.append(buffer, static_cast<std::size_t>(got));
        offset += got;
    }
    close(fd);
    return content;
}

}  // namespace

CJournalEntry parseJournalEntry(const std::string& datagram)
{
    CJournalEntry entry;
    std::size_t at = 0;
    while (at < datagram.size()) {
        const std::size_t end = datagram.find('\n', at);
        const std::string line = datagram.substr(at, end - at);
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            entry[line.substr(0, equals)] = line.substr(equals + 1);
            at = end == std::string::npos ? datagram.size() : end + 1;
            continue;
        }
        // Binary-safe form: the length follows the name's line feed.
        std::uint64_t length = 0;
        for (int i = 0; i < 8; ++i) {
            length |= std::uint64_t{static_cast<unsigned char>(datagram.at(end + 1 + i))} << (8 * i);
        }
        entry[line] = datagram.substr(end + 9, length);
        at = end + 9 + length + 1;
    }
    return entry;
}

bool CJournalStandIn::runWithPrivateRun(const std::function<void()>& body, std::string& why)
{
    bool ready = false;
    std::thread worker([&] {
        // The namespace is this thread's alone (unshare copies the thread's file system context).
        if (unshare(CLONE_NEWNS) != 0) {
            why = std::string("unshare(CLONE_NEWNS): ") + std::strerror(errno);
            return;
        }
        // Private first: a mount under a shared / would reach the machine's namespace.
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0) {
            why = std::string("mount: ") + std::strerror(errno);
            return;
        }
        mkdir("/run/systemd", 0755);
        mkdir("/run/systemd/journal", 0755);
        ready = true;
        body();
    });
    worker.join();
    return ready;
}

CJournalStandIn::CJournalStandIn() { open(); }

CJournalStandIn::~CJournalStandIn() { shutDown(); }

void CJournalStandIn::open()
{
    unlink(SOCKET_PATH);
    m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SOCKET_PATH, sizeof address.sun_path - 1);
    if (bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error(std::string("bind ") + SOCKET_PATH + ": " + std::strerror(errno));
    }
}

void CJournalStandIn::shutDown()
{
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

std::vector<CJournalEntry> CJournalStandIn::receive(std::size_t count)
{
    std::vector<CJournalEntry> entries;
    while (entries.size() < count) {
        pollfd readable{m_fd, POLLIN, 0};
        if (poll(&readable, 1, 10000) <= 0) {  // a hang guard, not a speed check
            break;
        }
        char buffer[65536];
        iovec part{buffer, sizeof buffer};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t got = recvmsg(m_fd, &message, MSG_CMSG_CLOEXEC);
        if (got < 0) {
            break;
        }
        const cmsghdr* header = CMSG_FIRSTHDR(&message);
        if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
            entries.push_back(parseJournalEntry(readDescriptor(fd)));
        } else {
            entries.push_back(parseJournalEntry(std::string(buffer, static_cast<std::size_t>(got))));
        }
    }
    return entries;
}
