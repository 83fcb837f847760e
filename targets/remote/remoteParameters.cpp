// Reading the remote target's parameters: every value checked here, so that a mistake refuses
// the target at creation with a message, rather than showing up as records that never arrive.
#include "remoteParameters.h"

#include <stdexcept>
#include <syslog.h>
#include <unistd.h>

#include "CRecordQueue.h"
#include "facility.h"
#include "numberParameter.h"

namespace {

// Creation adds the target's name (createTarget.h).
[[noreturn]] void refuse(const std::string& why) { throw std::runtime_error(why); }

int number(const CLogTargetParameters& parameters, const char* key, int fallback, int low, int high)
{
    return static_cast<int>(numberParameter(parameters, key, fallback, low, high));
}

// One of `choices` (the first is the default).
std::size_t choice(const CLogTargetParameters& parameters, const char* key, std::initializer_list<const char*> choices)
{
    const std::string value = targetParameter(parameters, key, *choices.begin());
    std::size_t index = 0;
    std::string list;
    for (const char* candidate : choices) {
        if (value == candidate) {
            return index;
        }
        list += (index++ == 0 ? "" : "|") + std::string(candidate);
    }
    refuse(std::string(key) + "=" + value + ": not one of " + list);
}

// 0 or 1, or `fallback` when missing.
bool flag(const CLogTargetParameters& parameters, const char* key, bool fallback)
{
    return choice(parameters, key, {fallback ? "1" : "0", fallback ? "0" : "1"}) == 0 ? fallback : !fallback;
}

std::string machineName()
{
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// "[::1]" as users write IPv6 addresses next to ports; the resolver wants "::1".
std::string hostParameter(const CLogTargetParameters& parameters)
{
    std::string host = targetParameter(parameters, "host");
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (host.empty()) {
        refuse("host= is required (the receiver's name or address)");
    }
    return host;
}

// queue-bytes=: the ring is taken as address space at creation, so the bound is refused where
// the process could not give it: below room for a few of the largest records, above a quarter of
// a 32-bit address space.
constexpr long long QUEUE_BYTES_MIN = 128 << 10;
static_assert(QUEUE_BYTES_MIN >= 4 * CRecordQueue::LARGEST_RECORD, "room for a few of the largest records");

std::size_t queueBytes(const CLogTargetParameters& parameters)
{
    const long long low = QUEUE_BYTES_MIN;
    const long long high = 1LL << 30;
    return static_cast<std::size_t>(numberParameter(parameters, "queue-bytes", 16LL << 20, low, high));
}

}  // namespace

const char* transportName(CTransportKind kind)
{
    const char* const names[] = {"udp", "tcp", "tls", "relp", "relp-tls"};
    return names[static_cast<int>(kind)];
}

CRemoteParameters readRemoteParameters(const CLogTargetParameters& parameters, const std::string& targetName)
{
    CRemoteParameters result;
    const CTransportKind kinds[] = {CTransportKind::TCP, CTransportKind::UDP, CTransportKind::TLS, CTransportKind::RELP,
                                    CTransportKind::RELP_TLS};
    const CTransportKind kind = kinds[choice(parameters, "transport", {"tcp", "udp", "tls", "relp", "relp-tls"})];
    result.transport = kind;
    result.host = hostParameter(parameters);
    // 20514: where rsyslogd's RELP input usually listens.
    result.port = number(parameters, "port",
                         usesRelp(kind)                    ? 20514
                             : kind == CTransportKind::TLS ? 6514
                                                           : 514,
                         1, 65535);
    result.framing =
        choice(parameters, "framing", {"octet-counting", "lf"}) == 0 ? CFraming::OCTET_COUNTING : CFraming::LINE_FEED;

    CRfc5424Options& format = result.format;
    const std::string facility = targetParameter(parameters, "facility", "user");
    format.facility = facilityCode(facility, "facility=" + facility) >> 3;
    format.hostname = targetParameter(parameters, "hostname", machineName());
    format.sdId = targetParameter(parameters, "sd-id", format.sdId);
    if (!isValidSdId(format.sdId)) {
        refuse("sd-id=" + format.sdId +
               ": not an SD-ID of the form name@number (at most 32 printable characters, "
               "without '=', ']', '\"' or blanks)");
    }
    format.utc = choice(parameters, "time", {"utc", "local"}) == 0;
    format.bom = choice(parameters, "bom", {"0", "1"}) == 1;
    // RELP confirms every record, so numbering them costs nothing and shows duplicates.
    format.sequence = flag(parameters, "sequence", usesRelp(kind));
    if (usesRelp(kind)) {
        result.window = static_cast<std::size_t>(number(parameters, "window", 128, 1, 65536));
    }
    if (result.transport == CTransportKind::UDP) {
        // 480: the size every receiver must take (RFC 5426); 65507: the largest UDP payload.
        format.maxLength = static_cast<std::size_t>(number(parameters, "max-datagram", 2048, 480, 65507));
    }

    CSenderSettings& sender = result.sender;
    sender.owner = "remote target " + targetName;
    sender.name = targetName;
    const bool ipv6 = result.host.find(':') != std::string::npos;
    sender.destination = std::string(transportName(kind)) + " " + (ipv6 ? "[" + result.host + "]" : result.host) + ":" +
        std::to_string(result.port);
    sender.queueRecords = static_cast<std::size_t>(number(parameters, "queue", 10000, 1, 10000000));
    sender.queueBytes = queueBytes(parameters);
    sender.drainMs = number(parameters, "drain-ms", 2000, 0, 3600000);
    sender.retryMs = number(parameters, "retry-ms", 250, 1, 3600000);
    sender.retryMaxMs = number(parameters, "retry-max-ms", 30000, sender.retryMs, 3600000);
    sender.connectTimeoutMs = number(parameters, "connect-timeout-ms", 5000, 1, 3600000);

    if (usesTls(kind)) {
        CTlsSettings tls;
        tls.ca = targetParameter(parameters, "ca");
        tls.cert = targetParameter(parameters, "cert");
        tls.key = targetParameter(parameters, "key");
        tls.verify = choice(parameters, "verify", {"1", "0"}) == 0;
        result.tls = std::make_shared<const CTlsContext>(tls);
        if (!tls.verify) {
            syslog(LOG_WARNING, "%s: verify=0: the receiver's certificate and name are not checked",
                   sender.owner.c_str());
        }
    }
    return result;
}
