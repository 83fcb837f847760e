// The remote target's parameters, read and checked once at creation.
#pragma once

#include <memory>
#include <string>

#include <vexlor/vexlor_target.h>

#include "CSenderSettings.h"
#include "CSyslogTransport.h"
#include "CTlsStream.h"
#include "Rfc5424.h"

enum class CTransportKind { UDP, TCP, TLS, RELP, RELP_TLS };

// The transport's name in parameters and diagnostics.
const char* transportName(CTransportKind kind);
inline bool usesTls(CTransportKind kind) { return kind == CTransportKind::TLS || kind == CTransportKind::RELP_TLS; }
inline bool usesRelp(CTransportKind kind) { return kind == CTransportKind::RELP || kind == CTransportKind::RELP_TLS; }

struct CRemoteParameters {
    CTransportKind transport = CTransportKind::TCP;
    std::string host;
    int port = 514;
    CFraming framing = CFraming::OCTET_COUNTING;
    std::shared_ptr<const CTlsContext> tls;  // TLS only
    std::size_t window = 128;  // RELP only: records unanswered at a time
    CRfc5424Options format;
    CSenderSettings sender;
};

// Throws an exception whose text names the parameter and its value (creation adds the target's name).
CRemoteParameters readRemoteParameters(const CLogTargetParameters& parameters, const std::string& targetName);
