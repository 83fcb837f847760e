// Standard error or standard output as the console target writes to it: one whole write per line,
// and a closed pipe or socket answers EPIPE instead of killing the program with SIGPIPE.
#pragma once

#include <cstddef>

class CConsoleStream {
public:
    explicit CConsoleStream(int fd);

    int fd() const { return m_fd; }
    // 0, or the errno of the failed write.
    int write(const char* data, std::size_t length);

private:
    enum class EKind { OTHER, PIPE, SOCKET };  // only pipes and sockets raise SIGPIPE

    int writeToPipe(const char* data, std::size_t length);
    int sendToSocket(const char* data, std::size_t length);

    int m_fd;
    EKind m_kind;
};
