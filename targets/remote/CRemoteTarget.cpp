// The remote target: sends every record as an RFC 5424 syslog message to a receiver over UDP,
// TCP or TLS (a central rsyslogd, for example).
// Delivery: the log call copies the record into a bounded queue (queue=, 10000 records) and
// returns; the target's own sender thread formats and sends it. A record has reached its
// destination when the receiver's kernel took it (TCP, TLS) or when it left as a datagram (UDP,
// which confirms nothing). Faults: while the receiver is unreachable, records wait in the queue
// and the thread reconnects with exponential backoff (retry-ms= doubling up to retry-max-ms=);
// when the queue is full the newest record is dropped. One syslog message when an outage or a run
// of drops starts, one when it ends, with the exact count of dropped records. At unload and at
// exit the queue is drained for at most drain-ms= (2000); what is left is counted as dropped.
// Cost per record: one lock and a copy of its strings (no allocation once the queue has been
// full). The sender thread sleeps while the queue is empty.
// Parameters: see the README ("remote").
#include <cerrno>
#include <memory>
#include <stdexcept>

#include <vexlor/vexlor_target.h>

#include "CSender.h"
#include "CUdpTransport.h"
#include "remoteParameters.h"

namespace {

// What makes the transport, holding copies of what it needs (the sender keeps it).
CSender::TransportMaker transportMaker(const CRemoteParameters& parameters)
{
    const CTransportKind kind = parameters.transport;
    const std::string host = parameters.host;
    const int port = parameters.port;
    const CFraming framing = parameters.framing;
    const std::shared_ptr<const CTlsContext> tls = parameters.tls;
    return [=](CWaiter& waiter) -> std::unique_ptr<CTransport> {
        switch (kind) {
        case CTransportKind::UDP: return std::make_unique<CUdpTransport>(waiter, host, port);
        case CTransportKind::TCP: return std::make_unique<CTcpTransport>(waiter, host, port, framing);
        case CTransportKind::TLS: break;
        }
        return std::make_unique<CTlsTransport>(waiter, host, port, tls);
    };
}

class CRemoteTarget final : public CLogTargetBase {
public:
    explicit CRemoteTarget(const CLogTargetParameters& parameters)
        : CRemoteTarget(parameters, "remote")
    {
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        if (m_levels.contains(level)) {
            m_sender->submit(pid, depth, seconds, microseconds, vexlor_level_to_prio(level), m_identity, threadName,
                             componentName, functionName, message);
        }
    }

    void setAppname(const std::string& name) override
    {
        CLogTargetBase::setAppname(name);
        m_identity = identity(name);
    }

private:
    CRemoteTarget(const CLogTargetParameters& parameters, const char* defaultName)
        : CRemoteTarget(parameters, readRemoteParameters(parameters, targetParameter(parameters, "name", defaultName)))
    {
    }

    CRemoteTarget(const CLogTargetParameters& parameters, const CRemoteParameters& remote)
        : CLogTargetBase(parameters, "remote")
        , m_levels(remote.levels)
        , m_identity(identity(appname()))
        , m_sender(std::make_unique<CSender>(remote.sender, remote.format, transportMaker(remote)))
    {
    }

    // The APP-NAME: the program's short name until the application names itself.
    static std::string identity(const std::string& appname)
    {
        return appname.empty() ? program_invocation_short_name : appname;
    }

    const CLevelSet m_levels;
    std::string m_identity;  // written and read under the container's lock
    std::unique_ptr<CSender> m_sender;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CRemoteTarget)
