// The TLS stream: OpenSSL over our own non-blocking socket.
#include "CTlsStream.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include "CRegularFile.h"

namespace {

using Clock = CWaiter::Clock;

// The oldest OpenSSL error of this thread as text, and the queue emptied for the next call.
std::string opensslError()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) {
        return "unknown error";
    }
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return text;
}

CTlsStream* streamOf(BIO* bio) { return static_cast<CTlsStream*>(BIO_get_data(bio)); }
CTlsStream* streamOf(const SSL* ssl) { return static_cast<CTlsStream*>(SSL_get_app_data(ssl)); }

// OpenSSL's own socket BIO writes with write(), which raises SIGPIPE when the receiver has gone;
// ours also counts the bytes on the wire, which the acknowledgements are compared with.
int bioWrite(BIO* bio, const char* data, std::size_t size, std::size_t* written)
{
    BIO_clear_retry_flags(bio);
    std::string error;
    const long sent = streamOf(bio)->sendBytes(data, size, error);
    if (sent <= 0) {
        if (sent == 0) {
            BIO_set_retry_write(bio);
        }
        return 0;
    }
    *written = static_cast<std::size_t>(sent);
    return 1;
}

int bioRead(BIO* bio, char* data, std::size_t size, std::size_t* got)
{
    BIO_clear_retry_flags(bio);
    std::string error;  // the connection's end is found again by the caller
    const long received = streamOf(bio)->receiveBytes(data, size, error);
    if (received <= 0) {
        if (received == 0) {
            BIO_set_retry_read(bio);
        }
        return 0;
    }
    *got = static_cast<std::size_t>(received);
    return 1;
}

long bioControl(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

int bioCreate(BIO* bio)
{
    BIO_set_init(bio, 1);
    return 1;
}

void onInfo(const SSL* ssl, int where, int value)
{
    // The value holds the level (2: fatal) and the alert's code.
    if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT && (value >> 8) == SSL3_AL_FATAL && streamOf(ssl) != nullptr) {
        streamOf(ssl)->noteAlert(value & 0xff);
    }
}

// A TLS 1.3 relay sends session tickets once it has checked the client's certificate. We keep
// none: the callback only notes that the relay accepted the connection.
int onNewSession(SSL* ssl, SSL_SESSION*)
{
    if (streamOf(ssl) != nullptr) {
        streamOf(ssl)->noteTicket();
    }
    return 0;
}

// Called when the relay asks for the client's certificate: then its verdict on it is certain to
// come, and worth waiting for.
int onCertificateRequest(SSL* ssl, void*)
{
    if (streamOf(ssl) != nullptr) {
        streamOf(ssl)->noteCertificateRequest();
    }
    return 1;
}

// RFC 8446's names of the alerts, as operators search for them.
const char* alertName(int code)
{
    switch (code) {
    case 10: return "unexpected message";
    case 20: return "bad record MAC";
    case 40: return "handshake failure";
    case 42: return "bad certificate";
    case 43: return "unsupported certificate";
    case 44: return "certificate revoked";
    case 45: return "certificate expired";
    case 46: return "certificate unknown";
    case 47: return "illegal parameter";
    case 48: return "unknown CA";
    case 49: return "access denied";
    case 50: return "decode error";
    case 51: return "decrypt error";
    case 70: return "protocol version";
    case 71: return "insufficient security";
    case 80: return "internal error";
    case 90: return "user canceled";
    case 109: return "missing extension";
    case 110: return "unsupported extension";
    case 112: return "unrecognized name";
    case 116: return "certificate required";
    case 120: return "no application protocol";
    default: return "unknown alert";
    }
}

bool isAddress(const std::string& host)
{
    unsigned char address[16];
    return inet_pton(AF_INET, host.c_str(), address) == 1 || inet_pton(AF_INET6, host.c_str(), address) == 1;
}

}  // namespace

CTlsContext::CTlsContext(const CTlsSettings& settings)
{
    // Without NO_ATEXIT, OpenSSL's exit handler, registered after the library's instance, would
    // tear OpenSSL down before the drain at process exit sends the last records.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    m_context = SSL_CTX_new(TLS_client_method());
    m_socketMethod = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vexlor socket");
    if (m_context == nullptr || m_socketMethod == nullptr) {
        const std::string reason = opensslError();
        release();
        throw std::runtime_error("cannot set up TLS - " + reason);
    }
    BIO_meth_set_write_ex(m_socketMethod, bioWrite);
    BIO_meth_set_read_ex(m_socketMethod, bioRead);
    BIO_meth_set_ctrl(m_socketMethod, bioControl);
    BIO_meth_set_create(m_socketMethod, bioCreate);
    SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION);
    SSL_CTX_set_mode(m_context, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_verify(m_context, settings.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_info_callback(m_context, onInfo);
    SSL_CTX_set_session_cache_mode(m_context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL_STORE);
    SSL_CTX_sess_set_new_cb(m_context, onNewSession);
    SSL_CTX_set_cert_cb(m_context, onCertificateRequest, nullptr);
    std::string failure;
    // Opened here, not by OpenSSL: a FIFO or device given by mistake is refused instead of waited on.
    const CRegularFile ca(settings.ca, O_RDONLY);
    const CRegularFile cert(settings.cert, O_RDONLY);
    const CRegularFile key(settings.key, O_RDONLY);
    if (!settings.ca.empty()) {
        if (!ca.ok()) {
            failure = "ca=" + settings.ca + ": " + ca.why();
        } else if (SSL_CTX_load_verify_locations(m_context, ca.reopenablePath().c_str(), nullptr) != 1) {
            failure = "ca=" + settings.ca + ": cannot load the authorities - " + opensslError();
        }
    } else if (SSL_CTX_set_default_verify_paths(m_context) != 1) {
        failure = "cannot load the system's authorities - " + opensslError();
    }
    if (failure.empty() && settings.cert.empty() != settings.key.empty()) {
        failure = "cert= and key= go together";
    }
    if (failure.empty() && !settings.cert.empty()) {
        if (!cert.ok() || !key.ok()) {
            failure =
                !cert.ok() ? "cert=" + settings.cert + ": " + cert.why() : "key=" + settings.key + ": " + key.why();
        } else if (SSL_CTX_use_certificate_chain_file(m_context, cert.reopenablePath().c_str()) != 1) {
            failure = "cert=" + settings.cert + ": cannot load - " + opensslError();
        } else if (SSL_CTX_use_PrivateKey_file(m_context, key.reopenablePath().c_str(), SSL_FILETYPE_PEM) != 1 ||
                   SSL_CTX_check_private_key(m_context) != 1) {
            failure = "key=" + settings.key + ": cannot load, or does not match the certificate - " + opensslError();
        }
    }
    if (!failure.empty()) {
        release();
        throw std::runtime_error(failure);
    }
}

CTlsContext::~CTlsContext() { release(); }

void CTlsContext::release()
{
    SSL_CTX_free(m_context);
    BIO_meth_free(m_socketMethod);
    m_context = nullptr;
    m_socketMethod = nullptr;
}

CTlsStream::CTlsStream(CWaiter& waiter, std::string host, int port, std::shared_ptr<const CTlsContext> tls)
    : CByteStream(waiter, std::move(host), port)
    , m_tls(std::move(tls))
{
}

std::string CTlsStream::failure(int reason)
{
    if (m_alert >= 0) {
        m_refused = true;
        return std::string("the relay refused the connection with the TLS alert \"") + alertName(m_alert) + "\"";
    }
    const long verified = SSL_get_verify_result(m_ssl);
    if (verified != X509_V_OK) {
        return std::string("certificate not accepted - ") + X509_verify_cert_error_string(verified);
    }
    if (reason == SSL_ERROR_ZERO_RETURN || reason == SSL_ERROR_SYSCALL || m_ended) {
        return m_reset ? "connection reset by the relay" : "connection closed by the relay";
    }
    return opensslError();
}

template <typename Step>
bool CTlsStream::complete(Step step, Clock::time_point limit, std::string& error)
{
    for (;;) {
        ERR_clear_error();
        const int rc = step();
        if (rc > 0) {
            return true;
        }
        const int reason = SSL_get_error(m_ssl, rc);
        short events = 0;
        if (reason == SSL_ERROR_WANT_READ) {
            events = POLLIN;
        } else if (reason == SSL_ERROR_WANT_WRITE) {
            events = POLLOUT;
        } else {
            error = failure(reason);
            return false;
        }
        m_waiter.wait(m_fd, events, limit);
        if (Clock::now() >= limit || m_waiter.expired()) {
            error = "no answer in time";
            return false;
        }
    }
}

bool CTlsStream::open(Clock::time_point limit, std::string& error)
{
    m_alert = -1;
    m_ticket = false;
    m_certificateRequested = false;
    m_written = 0;
    m_acknowledged = 0;
    m_records.clear();
    if (!connectTcp(limit, error)) {
        return false;
    }
    m_ssl = SSL_new(m_tls->context());
    BIO* bio = m_ssl != nullptr ? BIO_new(m_tls->socketMethod()) : nullptr;
    if (bio == nullptr) {
        error = opensslError();
        abandon();
        return false;
    }
    BIO_set_data(bio, this);
    SSL_set_bio(m_ssl, bio, bio);
    SSL_set_app_data(m_ssl, this);
    if (isAddress(m_host)) {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(m_ssl), m_host.c_str());
    } else {
        // SSL_set_tlsext_host_name, without the macro's C cast.
        SSL_ctrl(m_ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, const_cast<char*>(m_host.c_str()));
        SSL_set1_host(m_ssl, m_host.c_str());
    }
    if (!complete([this] { return SSL_connect(m_ssl); }, limit, error)) {
        abandon();
        return false;
    }
    return true;
}

bool CTlsStream::awaitVerdict(Clock::time_point limit, bool answers, std::string& error)
{
    // TLS 1.2 relays give their verdict within the handshake.
    if (SSL_version(m_ssl) < TLS1_3_VERSION || (answers && !m_certificateRequested)) {
        return true;
    }
    // A relay that asked for our certificate gives its verdict (a session ticket or an alert) once
    // it has checked it, however busy it is: wait for it as long as a connection may take.
    const Clock::time_point until = m_certificateRequested ? limit : verdictLimit(limit);
    while (!m_ticket && Clock::now() < until && !m_waiter.expired()) {
        if (m_waiter.wait(m_fd, POLLIN | POLLRDHUP, until) != 0) {
            char ignored[512];
            if (read(ignored, sizeof ignored, error) < 0) {
                return false;
            }
        }
    }
    return true;
}

long CTlsStream::write(const char* data, std::size_t size, std::string& error)
{
    ERR_clear_error();
    const int rc = SSL_write(m_ssl, data, static_cast<int>(size));
    if (rc > 0) {
        m_written += static_cast<std::uint64_t>(rc);
        m_records.emplace_back(m_written, m_wireWritten);
        return rc;
    }
    const int reason = SSL_get_error(m_ssl, rc);
    if (reason == SSL_ERROR_WANT_WRITE || reason == SSL_ERROR_WANT_READ) {
        return 0;
    }
    error = failure(reason);
    return -1;
}

long CTlsStream::read(char* data, std::size_t size, std::string& error)
{
    ERR_clear_error();
    const int rc = SSL_read(m_ssl, data, static_cast<int>(size));
    if (rc > 0) {
        return rc;
    }
    const int reason = SSL_get_error(m_ssl, rc);
    if (reason == SSL_ERROR_WANT_READ || reason == SSL_ERROR_WANT_WRITE) {
        return 0;
    }
    error = failure(reason);
    return -1;
}

std::uint64_t CTlsStream::acknowledged()
{
    const std::uint64_t wire = acknowledgedWireBytes();
    while (!m_records.empty() && m_records.front().second <= wire) {
        m_acknowledged = m_records.front().first;
        m_records.pop_front();
    }
    return m_acknowledged;
}

void CTlsStream::close()
{
    if (m_ssl != nullptr && m_fd >= 0) {
        // One try at close_notify; the relay's answer is not awaited.
        ERR_clear_error();
        SSL_shutdown(m_ssl);
    }
    abandon();
}

void CTlsStream::abandon()
{
    SSL_free(m_ssl);
    m_ssl = nullptr;
    closeSocket();
}
