// RFC 5425: syslog over TLS (OpenSSL), octet-counted frames. The receiver's certificate and its
// name (or address) are checked against the configured authorities unless verify=0; a client
// certificate is offered when one is configured.
#pragma once

#include <memory>

#include "CTcpTransport.h"

typedef struct ssl_ctx_st SSL_CTX;
typedef struct ssl_st SSL;
typedef struct bio_method_st BIO_METHOD;

struct CTlsSettings {
    std::string ca;  // file of trusted authorities; empty: the system's
    std::string cert;  // client certificate chain (PEM); empty: none
    std::string key;  // its private key (PEM)
    bool verify = true;
};

// What every connection of one target shares; made on the configuration thread, so that a
// file that cannot be read refuses the target's creation.
class CTlsContext {
public:
    // Throws std::runtime_error naming the parameter and OpenSSL's reason.
    explicit CTlsContext(const CTlsSettings& settings);
    ~CTlsContext();
    CTlsContext(const CTlsContext&) = delete;
    CTlsContext& operator=(const CTlsContext&) = delete;

    SSL_CTX* context() const { return m_context; }
    const BIO_METHOD* socketMethod() const { return m_socketMethod; }
    bool verifies() const { return m_verify; }

private:
    void release();

    SSL_CTX* m_context = nullptr;
    BIO_METHOD* m_socketMethod = nullptr;  // socket I/O with MSG_NOSIGNAL
    bool m_verify;
};

class CTlsTransport final : public CTransport {
public:
    CTlsTransport(CWaiter& waiter, std::string host, int port, std::shared_ptr<const CTlsContext> tls);
    ~CTlsTransport() override { abandon(); }

    bool open(CWaiter::Clock::time_point limit, std::string& error) override;
    bool send(const std::string& message, std::string& error) override;
    bool peerClosed() override;
    void close() override;
    void abandon() override;

private:
    // Runs `step` (handshake, write, shutdown) until it completes, waiting for the socket as
    // OpenSSL asks; false with `error` set when it fails or time runs out.
    template <typename Step>
    bool complete(Step step, CWaiter::Clock::time_point limit, std::string& error);

    const std::string m_host;
    const int m_port;
    const std::shared_ptr<const CTlsContext> m_tls;
    SSL* m_ssl = nullptr;
    std::string m_frame;  // reused for every message
};
