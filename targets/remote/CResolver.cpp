// Asynchronous lookups (getaddrinfo_a) with a completion notice that frees a lookup nobody waits
// for any more.
#include "CResolver.h"

#include <algorithm>
#include <atomic>
#include <netdb.h>
#include <signal.h>

namespace {

using Clock = CWaiter::Clock;

std::atomic<int> liveCount{0};

enum ELookupState { ACTIVE, FINISHED, ORPHANED };

}  // namespace

struct CResolver::CLookup {
    std::string host, service;
    addrinfo hints{};
    gaicb request{};
    sigevent notice{};
    // Who frees the lookup: whichever of the owner letting go (ORPHANED) and the resolver's
    // completion notice (FINISHED) comes second.
    std::atomic<int> state{ACTIVE};

    CLookup(const std::string& name, int port, int type)
        : host(name)
        , service(std::to_string(port))
    {
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = type;
        hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
        request.ar_name = host.c_str();
        request.ar_service = service.c_str();
        request.ar_request = &hints;
        notice.sigev_notify = SIGEV_THREAD;
        notice.sigev_notify_function = &CLookup::finished;
        notice.sigev_value.sival_ptr = this;
        liveCount.fetch_add(1);
    }
    ~CLookup()
    {
        if (request.ar_result != nullptr) {
            freeaddrinfo(request.ar_result);
        }
        liveCount.fetch_sub(1);
    }

    // Runs on a thread of the C library's once the lookup is done.
    static void finished(sigval value)
    {
        auto* lookup = static_cast<CLookup*>(value.sival_ptr);
        if (lookup->state.exchange(FINISHED) == ORPHANED) {
            delete lookup;
        }
    }
};

CResolver::~CResolver() { letGo(); }

int CResolver::liveLookups() { return liveCount.load(); }

void CResolver::letGo()
{
    if (m_lookup == nullptr) {
        return;
    }
    // A lookup still waiting for a resolver thread is cancelled at once: no notice follows.
    if (gai_cancel(&m_lookup->request) == EAI_CANCELED || m_lookup->state.exchange(ORPHANED) == FINISHED) {
        delete m_lookup;
    }
    m_lookup = nullptr;
}

addrinfo* CResolver::resolve(const std::string& host, int port, int type, CWaiter& waiter, Clock::time_point limit,
                             std::string& error)
{
    const std::string service = std::to_string(port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = type;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* result = nullptr;
    if (getaddrinfo(host.c_str(), service.c_str(), &hints, &result) == 0) {
        return result;  // an address needs no resolver
    }
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer cannot follow the threads that glibc starts for getaddrinfo_a.
    hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    const int code = getaddrinfo(host.c_str(), service.c_str(), &hints, &result);
    if (code != 0) {
        error = std::string("cannot resolve - ") + gai_strerror(code);
        return nullptr;
    }
    (void)waiter;
    (void)limit;
    return result;
#endif
    if (m_lookup == nullptr) {
        m_lookup = new CLookup(host, port, type);
        gaicb* requests[] = {&m_lookup->request};
        const int rc = getaddrinfo_a(GAI_NOWAIT, requests, 1, &m_lookup->notice);
        if (rc != 0) {
            delete m_lookup;
            m_lookup = nullptr;
            error = std::string("cannot resolve - ") + gai_strerror(rc);
            return nullptr;
        }
    }
    // The resolver signals nothing we could poll: look every 10 ms while it works. Not with
    // gai_suspend and a timeout: glibc can leave the waiter's entry on a finished request, and
    // then its notice writes to the stack of a call that has returned.
    int rc;
    while ((rc = gai_error(&m_lookup->request)) == EAI_INPROGRESS) {
        if (Clock::now() >= limit || waiter.expired()) {
            error = "cannot resolve - no answer in time";
            return nullptr;  // the lookup stays in flight for the next attempt
        }
        waiter.sleep(std::min(limit, Clock::now() + std::chrono::milliseconds(10)));
    }
    result = m_lookup->request.ar_result;
    m_lookup->request.ar_result = nullptr;
    letGo();
    if (rc != 0) {
        error = std::string("cannot resolve - ") + gai_strerror(rc);
        return nullptr;
    }
    return result;
}
