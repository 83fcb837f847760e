// The journal's native socket: one datagram per entry, sent without blocking, so that a journal
// that stopped reading (stopped, hung, restarting) never holds the log call for more than a
// bounded moment.
#pragma once

#include <sys/uio.h>

class CJournalSocket {
public:
    // How long one record may wait for a full queue to make room.
    static constexpr int WAIT_MS = 10;

    // Throws std::runtime_error when no journal listens at `path`.
    explicit CJournalSocket(const char* path);
    ~CJournalSocket();
    CJournalSocket(const CJournalSocket&) = delete;
    CJournalSocket& operator=(const CJournalSocket&) = delete;

    // Sends one entry of `count` parts. 0, or the errno of the failure: EAGAIN when the journal's
    // queue is full (after up to WAIT_MS when `mayWait`), ENOENT or ECONNREFUSED while nobody
    // listens at the path.
    int send(iovec* parts, int count, bool mayWait);

private:
    int sendOnce(iovec* parts, int count);

    int m_fd = -1;
    const char* m_path;
};
