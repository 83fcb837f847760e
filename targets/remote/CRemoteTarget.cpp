// The remote target: sends every record as an RFC 5424 syslog message to a relay over UDP, TCP
// or TLS (a central rsyslogd, for example).
// Delivery: the log call copies the record into a bounded queue (queue= records, queue-bytes=
// bytes) and returns; the target's own sender thread formats the records and writes them in
// batches. A record leaves the queue once the relay's TCP acknowledged its last byte (TCP, TLS:
// this proves arrival, not that the relay read it; what a relay that resets the connection had
// received but not read cannot be counted) or once it left as a datagram (UDP, which confirms
// nothing). Faults: a connection the relay closes or refuses before it took anything is a failed
// attempt; the thread reconnects with exponential back-off (retry-ms= doubling up to
// retry-max-ms=) and sends what was not confirmed again, in order. When the queue is full the
// newest record is dropped. One syslog message when a fault or a run of drops starts, one when it
// ends, with exact counts. At unload and at exit the queue is drained for at most drain-ms= (2000)
// by the sender's own thread (unloading does not wait for it; the process's exit does); what is
// left is counted as dropped.
// Cost per record: one lock and one copy into the queue, no allocation. The sender thread sleeps
// while the queue is empty.
// Parameters: see docs/remote.md.
#include <cerrno>
#include <memory>
#include <stdexcept>

#include <vexlor/vexlor_target.h>

#include "CFilteredTarget.h"
#include "CRelpTransport.h"
#include "CSender.h"
#include "CSyslogTransport.h"
#include "CTcpStream.h"
#include "CTlsStream.h"
#include "CUdpTransport.h"
#include "createTarget.h"
#include "remoteParameters.h"

namespace {

// What makes the transport, holding copies of what it needs (the sender keeps it).
CSender::TransportMaker transportMaker(const CRemoteParameters& parameters)
{
    const CTransportKind kind = parameters.transport;
    const std::string host = parameters.host;
    const int port = parameters.port;
    const CFraming framing = usesTls(kind) ? CFraming::OCTET_COUNTING : parameters.framing;
    const std::shared_ptr<const CTlsContext> tls = parameters.tls;
    const std::size_t window = parameters.window;
    return [=](CWaiter& waiter) -> std::unique_ptr<CTransport> {
        if (kind == CTransportKind::UDP) {
            return std::make_unique<CUdpTransport>(waiter, host, port);
        }
        std::unique_ptr<CByteStream> stream;
        if (usesTls(kind)) {
            stream = std::make_unique<CTlsStream>(waiter, host, port, tls);
        } else {
            stream = std::make_unique<CTcpStream>(waiter, host, port);
        }
        if (usesRelp(kind)) {
            return std::make_unique<CRelpTransport>(waiter, std::move(stream), window);
        }
        return std::make_unique<CSyslogTransport>(std::move(stream), framing);
    };
}

class CRemoteTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "remote";

    explicit CRemoteTarget(const CLogTargetParameters& parameters)
        : CRemoteTarget(parameters, readRemoteParameters(parameters, targetParameter(parameters, "name", KIND)))
    {
    }
    // Returns at once: the sender's thread drains what is queued (see CSender).
    ~CRemoteTarget() override { CSender::retire(std::move(m_sender)); }

protected:
    void write(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
               const std::string& threadName, const std::string& componentName, const std::string& functionName,
               const std::string& message)
    {
        m_sender->submit(pid, depth, seconds, microseconds, vexlor_level_to_prio(level), identity(), threadName,
                         componentName, functionName, message);
    }

private:
    CRemoteTarget(const CLogTargetParameters& parameters, const CRemoteParameters& remote)
        : CFilteredTarget(parameters, KIND)
        , m_sender(makeSender(remote))
    {
        countSuppressedInto(m_sender->counters());
    }

    static std::unique_ptr<CSender> makeSender(const CRemoteParameters& remote)
    {
        try {
            return std::make_unique<CSender>(remote.sender, remote.format, transportMaker(remote));
        } catch (const std::bad_alloc&) {
            throw std::runtime_error("queue-bytes=" + std::to_string(remote.sender.queueBytes) +
                                     ": the process cannot give the queue that much memory");
        }
    }

    std::unique_ptr<CSender> m_sender;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CRemoteTarget>)
