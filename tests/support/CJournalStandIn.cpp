// The journald stand-in: private /run, the socket, and the native protocol parser.
#include "CJournalStandIn.h"
#include "CPrivateMounts.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

const char SOCKET_PATH[] = "/run/systemd/journal/socket";

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
    std::thread worker([&] {
        CPrivateMounts mounts;  // this thread's alone: unshare copies the thread's file system context
        why = mounts.why();
        if (mounts.ok()) {
            mounts.tmpfs("/run", "1m");
            mkdir("/run/systemd", 0755);
            mkdir("/run/systemd/journal", 0755);
            body();
        }
    });
    worker.join();
    return why.empty();
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
        const ssize_t got = recv(m_fd, buffer, sizeof buffer, 0);
        if (got < 0) {
            break;
        }
        entries.push_back(parseJournalEntry(std::string(buffer, static_cast<std::size_t>(got))));
    }
    return entries;
}
