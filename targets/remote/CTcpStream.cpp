// Plain TCP: the verdict of a relay that says nothing is only ever a close.
#include "CTcpStream.h"

#include <poll.h>

bool CTcpStream::awaitVerdict(Clock::time_point limit, bool answers, std::string& error)
{
    if (answers) {
        return true;
    }
    const Clock::time_point until = verdictLimit(limit);
    while (Clock::now() < until && !m_waiter.expired()) {
        if (m_waiter.wait(m_fd, POLLIN | POLLRDHUP, until) == 0) {
            continue;  // a wake-up for new records, or the time is up
        }
        char ignored[512];
        if (read(ignored, sizeof ignored, error) < 0) {
            error += " right after accepting the connection";
            return false;
        }
    }
    return true;
}
