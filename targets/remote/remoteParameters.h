// The remote target's parameters, read and checked once at creation.
#pragma once

#include <memory>
#include <string>

#include <vexlor/vexlor_target.h>

#include "CLevelSet.h"
#include "CSenderSettings.h"
#include "CSyslogTransport.h"
#include "CTlsStream.h"
#include "Rfc5424.h"

enum class CTransportKind { UDP, TCP, TLS };

struct CRemoteParameters {
    CTransportKind transport = CTransportKind::TCP;
    std::string host;
    int port = 514;
    CFraming framing = CFraming::OCTET_COUNTING;
    std::shared_ptr<const CTlsContext> tls;  // TLS only
    CLevelSet levels;
    CRfc5424Options format;
    CSenderSettings sender;
};

// Throws std::runtime_error whose text starts with "remote target: " and names the parameter.
CRemoteParameters readRemoteParameters(const CLogTargetParameters& parameters, const std::string& targetName);
