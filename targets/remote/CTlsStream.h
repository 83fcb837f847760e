// TLS (OpenSSL) over TCP to the relay. The relay's certificate and its name (or address) are
// checked against the configured authorities unless verify=0; a client certificate is offered
// when one is configured. A relay's refusal names the TLS alert it sent.
#pragma once

#include <deque>
#include <memory>
#include <utility>

#include "CByteStream.h"

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

private:
    void release();

    SSL_CTX* m_context = nullptr;
    BIO_METHOD* m_socketMethod = nullptr;  // socket I/O with MSG_NOSIGNAL, counting the bytes
};

class CTlsStream final : public CByteStream {
public:
    CTlsStream(CWaiter& waiter, std::string host, int port, std::shared_ptr<const CTlsContext> tls);
    ~CTlsStream() override { abandon(); }

    bool open(Clock::time_point limit, std::string& error) override;
    bool awaitVerdict(Clock::time_point limit, bool answers, std::string& error) override;
    long write(const char* data, std::size_t size, std::string& error) override;
    long read(char* data, std::size_t size, std::string& error) override;
    std::uint64_t acknowledged() override;
    // One TLS record: once its last byte is acknowledged, the relay can have read all of it.
    std::size_t chunkLimit() const override { return 16384; }
    void close() override;
    void abandon() override;

    // For OpenSSL's callbacks.
    void noteAlert(int code) { m_alert = code; }
    void noteTicket() { m_ticket = true; }
    void noteCertificateRequest() { m_certificateRequested = true; }

private:
    // Runs `step` (the handshake) until it completes, waiting for the socket as OpenSSL asks;
    // false with `error` set when it fails or time runs out.
    template <typename Step>
    bool complete(Step step, Clock::time_point limit, std::string& error);
    // The text for a failed TLS operation: the alert the relay sent, the certificate check's
    // verdict, or OpenSSL's reason.
    std::string failure(int reason);

    const std::shared_ptr<const CTlsContext> m_tls;
    SSL* m_ssl = nullptr;
    int m_alert = -1;  // the fatal alert the relay sent on this connection, if any
    bool m_ticket = false;  // the relay sent a session ticket: it accepted the connection
    bool m_certificateRequested = false;  // the relay asked for the client's certificate
    std::uint64_t m_written = 0;  // bytes that SSL_write took on this connection
    std::uint64_t m_acknowledged = 0;  // of these, in records whose every byte was acknowledged
    std::deque<std::pair<std::uint64_t, std::uint64_t>> m_records;  // written, wire bytes at their end
};
