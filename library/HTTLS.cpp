#include "HTTLS.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

struct HTTLSSession {
    SSL *ssl = nullptr;
    int timeoutMs = 0;     // of the handshake and of each write
    bool failed = false;   // nothing may be written any more
    bool hasPart = false;  // in the last call bytes came that are not a whole record yet
};

namespace {

struct FreeContext {
    void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
};

// The settings of the process. Written by the main thread before other threads start, and never
// freed: threads may outlive main.
SSL_CTX *settings = nullptr;

// A time at which a wait ends.
class Deadline {
public:
    explicit Deadline(int timeoutMs)
        : end_(Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0)))
    {
    }

    // Waits until poll() reports one of `events`. False at the deadline, or when poll() fails, with
    // errno set.
    [[nodiscard]] bool wait(int fd, short events) const
    {
        pollfd entry = {.fd = fd, .events = events, .revents = 0};
        int count = -1;
        do {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
            count = ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        } while (count == -1 && errno == EINTR);
        if (count == 0) {
            errno = ETIMEDOUT;
        }
        return count > 0;
    }

private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point end_;
};

// What a call of the library ended with.
enum class Outcome : std::uint8_t {
    Done,
    WantRead,   // call again when the descriptor is readable
    WantWrite,  // or writable
    Ended,      // the peer has ended the stream
    Failed,     // errno is set
};

// Calls the library. Its queue of errors must be empty before, or an old one would be taken for
// this call's.
template <typename Call>
Outcome attempt(HTTLSSession *session, const Call &call)
{
    ERR_clear_error();
    errno = 0;
    const int result = call(session->ssl);
    if (result > 0) {
        return Outcome::Done;
    }
    const int error = errno;
    switch (SSL_get_error(session->ssl, result)) {
    case SSL_ERROR_WANT_READ: return Outcome::WantRead;
    case SSL_ERROR_WANT_WRITE: return Outcome::WantWrite;
    case SSL_ERROR_ZERO_RETURN: return Outcome::Ended;
    case SSL_ERROR_SYSCALL: errno = error; break;
    default: errno = EPROTO;
    }
    session->failed = true;
    const bool isCutOff = errno == 0 || (errno == EPROTO && ERR_GET_REASON(ERR_peek_error()) ==
                                                                SSL_R_UNEXPECTED_EOF_WHILE_READING);
    return isCutOff ? Outcome::Ended : Outcome::Failed;
}

// Repeats a call until it needs no more bytes, or until the deadline, which is a failure with
// ETIMEDOUT.
template <typename Call>
Outcome untilDone(HTTLSSession *session, int timeoutMs, const Call &call)
{
    BIO *const input = SSL_get_rbio(session->ssl);
    const int fd = SSL_get_fd(session->ssl);
    const Deadline deadline(timeoutMs);
    session->hasPart = false;
    for (;;) {
        const std::uint64_t before = BIO_number_read(input);
        const Outcome outcome = attempt(session, call);
        if (outcome != Outcome::WantRead && outcome != Outcome::WantWrite) {
            return outcome;
        }
        // Messages of TLS itself, which leave nothing behind, do not count.
        session->hasPart |= BIO_number_read(input) != before && SSL_has_pending(session->ssl) != 0;
        if (!deadline.wait(fd, outcome == Outcome::WantRead ? POLLIN : POLLOUT)) {
            return Outcome::Failed;
        }
    }
}

// The library's text about its last failure; empty when it has none.
const char *reasonOfFailure()
{
    const char *const text = ERR_reason_error_string(ERR_peek_last_error());
    return text == nullptr ? "" : text;
}

// Puts the text of the system's or the library's error behind the name of the file.
std::string faultOf(const char *file, int error)
{
    const char *const reason = reasonOfFailure();
    std::array<char, 128> text{};
    const char *const system = error != 0 ? strerror_r(error, text.data(), text.size()) : reason;
    return std::string(file) + ": " + (*system == '\0' ? "no certificates can be read" : system);
}

// Why the file does not serve; empty: it was loaded.
std::string loadTrusted(SSL_CTX *context, const char *caFile)
{
    ERR_clear_error();
    if (caFile == nullptr) {
        return SSL_CTX_set_default_verify_paths(context) == 1 ? ""
                                                              : faultOf("system certificates", 0);
    }
    struct stat status {};
    if (stat(caFile, &status) == 0 && !S_ISREG(status.st_mode)) {
        return faultOf(caFile, 0);  // a pipe would be waited for
    }
    const std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(caFile, "r"), BIO_free);
    if (file == nullptr) {
        return faultOf(caFile, errno);
    }
    return SSL_CTX_load_verify_file(context, caFile) == 1 ? "" : faultOf(caFile, 0);
}

// Lets the library fill in now what it keeps with each certificate. It would do so in the thread
// that first uses the certificate, in a way that ThreadSanitizer cannot follow.
void prepareTrusted(SSL_CTX *context)
{
    const STACK_OF(X509_OBJECT) *const all =
        X509_STORE_get0_objects(SSL_CTX_get_cert_store(context));
    for (int i = 0; i < sk_X509_OBJECT_num(all); ++i) {
        if (X509 *const certificate = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(all, i))) {
            X509_check_purpose(certificate, -1, 0);
        }
    }
}

// The host without brackets, the zone of an address or the dot at the end of a name.
std::string plainName(std::string_view host)
{
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
        host = host.substr(0, host.find('%'));
    } else if (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    return std::string(host);
}

bool isAddress(const std::string &host)
{
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

// Sets the name that is sent and verified. Only names are sent, as RFC 6066 wants it.
bool setPeer(SSL *ssl, const std::string &host)
{
    SSL_set_hostflags(ssl,
                      X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    if (host.empty()) {
        return false;  // the library would accept any name
    }
    if (isAddress(host)) {
        return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str()) == 1;
    }
    // As the macro SSL_set_tlsext_host_name() does, without its cast.
    return SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                    const_cast<char *>(host.c_str())) == 1 &&
           SSL_set1_host(ssl, host.c_str()) == 1;
}

// Why the handshake failed with this error.
HTTLSFailure failureOf(const SSL *ssl, Outcome outcome, int error)
{
    const char *const reason = reasonOfFailure();
    if (outcome == Outcome::Ended) {
        return {HTTLSFault::Closed, reason};
    }
    if (error != EPROTO) {
        return {error == ETIMEDOUT ? HTTLSFault::TimedOut : HTTLSFault::Reset, reason};
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_CERTIFICATE_VERIFY_FAILED) {
        return {HTTLSFault::Certificate, X509_verify_cert_error_string(SSL_get_verify_result(ssl))};
    }
    return {HTTLSFault::Protocol, reason};
}

int lengthFor(std::size_t length)
{
    return static_cast<int>(std::min<std::size_t>(length, INT_MAX));
}

}  // namespace

std::string HTTLS_init(const char *caFile, bool verifies)
{
    // No clean-up at exit: threads that outlive main may be in the library.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    constexpr std::array<unsigned char, 9> kProtocols = {8, 'h', 't', 't', 'p', '/', '1', '.', '1'};
    std::unique_ptr<SSL_CTX, FreeContext> context(SSL_CTX_new(TLS_client_method()));
    if (context == nullptr || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_alpn_protos(context.get(), kProtocols.data(), kProtocols.size()) != 0) {
        return faultOf("libssl", 0);
    }
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_verify(context.get(), verifies ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    // The file may hold the peer's own certificate, or that of an intermediate CA.
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context.get()), X509_V_FLAG_PARTIAL_CHAIN);
    std::string fault = verifies || caFile != nullptr ? loadTrusted(context.get(), caFile) : "";
    if (fault.empty()) {
        prepareTrusted(context.get());
        SSL_CTX_free(settings);
        settings = context.release();
    }
    return fault;
}

HTTLSSession *HTTLS_connect(int fd, const char *host, int timeoutMs, HTTLSFailure *failure)
{
    const int before = errno;
    SSL *const ssl = SSL_new(settings);
    auto *const session = ssl == nullptr ? nullptr
                                         : new (std::nothrow)
                                               HTTLSSession{.ssl = ssl, .timeoutMs = timeoutMs};
    if (session == nullptr) {
        SSL_free(ssl);
        *failure = {HTTLSFault::Protocol, "out of memory"};
        errno = ENOMEM;
        return nullptr;
    }
    ERR_clear_error();
    errno = EPROTO;
    Outcome outcome = Outcome::Failed;
    if (setPeer(ssl, plainName(host)) && SSL_set_fd(ssl, fd) == 1) {
        outcome = untilDone(session, timeoutMs, SSL_connect);
    }
    if (outcome == Outcome::Done) {
        errno = before;
        return session;
    }
    const int error = outcome == Outcome::Ended ? ECONNRESET : errno;
    *failure = failureOf(ssl, outcome, error);
    session->failed = true;
    HTTLS_delete(session);
    errno = error;
    return nullptr;
}

const char *HTTLS_version(const HTTLSSession *session)
{
    return SSL_get_version(session->ssl);
}

ssize_t HTTLS_read(HTTLSSession *session, void *buffer, std::size_t length, int timeoutMs)
{
    const int before = errno;
    int count = 0;
    const Outcome outcome = untilDone(session, timeoutMs, [&](SSL *ssl) {
        return count = SSL_read(ssl, buffer, lengthFor(length));
    });
    if (outcome == Outcome::Failed) {
        const bool isLate = errno == ETIMEDOUT && !session->failed;
        errno = !isLate ? errno : session->hasPart ? EINPROGRESS : EAGAIN;
        return -1;
    }
    errno = before;
    return outcome == Outcome::Done ? count : 0;
}

ssize_t HTTLS_write(HTTLSSession *session, const void *buffer, std::size_t length)
{
    const int before = errno;
    int count = 0;
    const Outcome outcome = untilDone(session, session->timeoutMs, [&](SSL *ssl) {
        return count = SSL_write(ssl, buffer, lengthFor(length));
    });
    if (outcome != Outcome::Done) {
        session->failed = true;  // a record may have been sent in part
        errno = outcome == Outcome::Ended ? EPIPE : errno;
        return -1;
    }
    errno = before;
    return count;
}

bool HTTLS_isReady(const HTTLSSession *session)
{
    return SSL_pending(session->ssl) > 0;
}

bool HTTLS_isIdle(HTTLSSession *session)
{
    const int before = errno;
    char byte = 0;
    const Outcome outcome = attempt(session, [&byte](SSL *ssl) { return SSL_peek(ssl, &byte, 1); });
    errno = before;
    // Part of a record is the beginning of data that nobody asked for.
    return outcome == Outcome::WantRead && SSL_has_pending(session->ssl) == 0;
}

void HTTLS_delete(HTTLSSession *session)
{
    if (session == nullptr) {
        return;
    }
    const int before = errno;
    if (!session->failed) {
        ERR_clear_error();
        SSL_shutdown(session->ssl);
    }
    ERR_clear_error();
    SSL_free(session->ssl);
    delete session;
    errno = before;
}
