// The TLS transport: OpenSSL over our own non-blocking socket.
#include "CTlsTransport.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include "CRegularFile.h"
#include "connectSocket.h"

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

int socketOf(BIO* bio) { return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio))); }

// OpenSSL's own socket BIO writes with write(), which raises SIGPIPE when the receiver has gone.
int bioWrite(BIO* bio, const char* data, std::size_t size, std::size_t* written)
{
    BIO_clear_retry_flags(bio);
    const ssize_t sent = ::send(socketOf(bio), data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
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
    const ssize_t received = ::recv(socketOf(bio), data, size, MSG_DONTWAIT);
    if (received <= 0) {
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
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

bool isAddress(const std::string& host)
{
    unsigned char address[16];
    return inet_pton(AF_INET, host.c_str(), address) == 1 || inet_pton(AF_INET6, host.c_str(), address) == 1;
}

}  // namespace

CTlsContext::CTlsContext(const CTlsSettings& settings)
    : m_verify(settings.verify)
{
    // Without NO_ATEXIT, OpenSSL's exit handler, registered after the library's instance, would
    // tear OpenSSL down before the drain at process exit sends the last records.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    m_context = SSL_CTX_new(TLS_client_method());
    m_socketMethod = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vexlor socket");
    if (m_context == nullptr || m_socketMethod == nullptr) {
        const std::string reason = opensslError();
        release();
        throw std::runtime_error("remote target: cannot set up TLS - " + reason);
    }
    BIO_meth_set_write_ex(m_socketMethod, bioWrite);
    BIO_meth_set_read_ex(m_socketMethod, bioRead);
    BIO_meth_set_ctrl(m_socketMethod, bioControl);
    BIO_meth_set_create(m_socketMethod, bioCreate);
    SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION);
    SSL_CTX_set_mode(m_context, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_verify(m_context, settings.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
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
        throw std::runtime_error("remote target: " + failure);
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

CTlsTransport::CTlsTransport(CWaiter& waiter, std::string host, int port, std::shared_ptr<const CTlsContext> tls)
    : CTransport(waiter)
    , m_host(std::move(host))
    , m_port(port)
    , m_tls(std::move(tls))
{
}

template <typename Step>
bool CTlsTransport::complete(Step step, Clock::time_point limit, std::string& error)
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
            const long verified = SSL_get_verify_result(m_ssl);
            error = verified != X509_V_OK
                ? std::string("certificate not accepted - ") + X509_verify_cert_error_string(verified)
                : reason == SSL_ERROR_SYSCALL || reason == SSL_ERROR_ZERO_RETURN
                ? std::string("connection closed by the receiver")
                : opensslError();
            return false;
        }
        m_waiter.wait(m_fd, events, limit);
        if (Clock::now() >= limit || m_waiter.expired()) {
            error = "no answer in time";
            return false;
        }
    }
}

bool CTlsTransport::open(Clock::time_point limit, std::string& error)
{
    m_fd = connectSocket(m_host, m_port, SOCK_STREAM, m_waiter, limit, error);
    if (m_fd < 0) {
        return false;
    }
    m_ssl = SSL_new(m_tls->context());
    BIO* bio = m_ssl != nullptr ? BIO_new(m_tls->socketMethod()) : nullptr;
    if (bio == nullptr) {
        error = opensslError();
        abandon();
        return false;
    }
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(m_fd)));
    SSL_set_bio(m_ssl, bio, bio);
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

bool CTlsTransport::send(const std::string& message, std::string& error)
{
    m_frame.clear();
    appendFrame(CFraming::OCTET_COUNTING, message, m_frame);
    return complete([this] { return SSL_write(m_ssl, m_frame.data(), static_cast<int>(m_frame.size())); },
                    Clock::time_point::max(), error);
}

bool CTlsTransport::peerClosed()
{
    pollfd watched{m_fd, POLLIN | POLLRDHUP, 0};
    if (poll(&watched, 1, 0) <= 0) {
        return false;
    }
    if ((watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        return true;
    }
    // Readable: a session ticket, or the receiver's close_notify.
    char ignored[512];
    ERR_clear_error();
    const int got = SSL_read(m_ssl, ignored, sizeof ignored);
    return got <= 0 && SSL_get_error(m_ssl, got) != SSL_ERROR_WANT_READ;
}

void CTlsTransport::close()
{
    if (m_ssl != nullptr && m_fd >= 0) {
        // One try at close_notify; the receiver's answer is not awaited.
        ERR_clear_error();
        SSL_shutdown(m_ssl);
    }
    abandon();
}

void CTlsTransport::abandon()
{
    SSL_free(m_ssl);
    m_ssl = nullptr;
    closeFd();
}
