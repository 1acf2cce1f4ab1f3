// TLS sessions on the web client's non-blocking sockets. One SSL_CTX serves every connection
// with the same trust settings (loading a CA file is the expensive part); the per-connection
// settings (server name, host check) go on the session.
#include "http_tls.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ox::http {

namespace {

// Read-ahead lets one socket read bring in several records of a large body.
constexpr size_t kReadBufferBytes = 64 * 1024;
constexpr size_t kMaxCachedContexts = 16;
constexpr int kMaxIdleHandshakeMessages = 4;

struct TlsSettings {
    const char* caFile = nullptr;
    const char* caPath = nullptr;
    const char* ciphers = nullptr;
    const char* minVersion = nullptr;
    const char* serverName = nullptr;
    bool verifyPeer = true;
    bool verifyHost = true;
};

const char* optionValue(SSLOptions_S* opts, std::string_view name) {
    UTF8CStr value = nullptr;
    UTF8ByteLength len = 0;
    if (!opts || opts->getValueU8(opts, name.data(), name.size(), &value, &len) != OX_OK) return nullptr;
    return value;
}

bool isFalse(const char* value) { return value && std::strcmp(value, OX_SSL_FALSE) == 0; }

TlsSettings settingsOf(SSLOptions_S* opts) {
    TlsSettings s;
    s.caFile = optionValue(opts, OX_SSL_CAFILE);
    s.caPath = optionValue(opts, OX_SSL_CAPATH);
    s.ciphers = optionValue(opts, OX_SSL_CIPHERS);
    s.minVersion = optionValue(opts, OX_SSL_MINVERSION);
    s.serverName = optionValue(opts, OX_SSL_SNI);
    s.verifyPeer = !isFalse(optionValue(opts, OX_SSL_VERIFYPEER));
    s.verifyHost = !isFalse(optionValue(opts, OX_SSL_VERIFYHOST));
    return s;
}

// ---- a socket BIO that cannot raise SIGPIPE and acknowledges what it reads at once ----

int bioFd(BIO* b) { return static_cast<int>(BIO_get_fd(b, nullptr)); }

int bioWrite(BIO* b, const char* data, int len) {
    BIO_clear_retry_flags(b);
    ssize_t n = ::send(bioFd(b), data, static_cast<size_t>(len), MSG_NOSIGNAL);
    if (n < 0 && BIO_sock_should_retry(-1)) BIO_set_retry_write(b);
    return static_cast<int>(n);
}

int bioRead(BIO* b, char* data, int len) {
    BIO_clear_retry_flags(b);
    ssize_t n = ::recv(bioFd(b), data, static_cast<size_t>(len), 0);
    if (n > 0) {
        int one = 1;
        ::setsockopt(bioFd(b), IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
    } else if (n < 0 && BIO_sock_should_retry(-1)) {
        BIO_set_retry_read(b);
    }
    return static_cast<int>(n);
}

// Made once, kept for the life of the process.
BIO_METHOD* socketMethod() {
    static BIO_METHOD* method = [] {
        const BIO_METHOD* base = BIO_s_socket();
        BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR, "oxsocket");
        if (!m) return m;
        BIO_meth_set_write(m, bioWrite);
        BIO_meth_set_read(m, bioRead);
        BIO_meth_set_puts(m, BIO_meth_get_puts(base));
        BIO_meth_set_ctrl(m, BIO_meth_get_ctrl(base));
        BIO_meth_set_create(m, BIO_meth_get_create(base));
        BIO_meth_set_destroy(m, BIO_meth_get_destroy(base));
        return m;
    }();
    return method;
}

// ---- contexts ----

std::string contextKey(const TlsSettings& s) {
    const auto part = [](const char* v) { return std::string_view(v ? v : ""); };
    std::string key;
    for (std::string_view p : {part(s.caFile), part(s.caPath), part(s.ciphers), part(s.minVersion)}) {
        key.append(p);
        key.push_back('\n');
    }
    key.push_back(s.verifyPeer ? 'v' : '-');
    return key;
}

OXStatus configureContext(SSL_CTX* ctx, const TlsSettings& s) {
    const bool tls13 = s.minVersion && std::strcmp(s.minVersion, OX_SSL_TLS13) == 0;
    SSL_CTX_set_min_proto_version(ctx, tls13 ? TLS1_3_VERSION : TLS1_2_VERSION);
    // A server closing without close_notify is common; the HTTP framing detects truncation.
    SSL_CTX_set_options(ctx, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_verify(ctx, s.verifyPeer ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_read_ahead(ctx, 1);
    SSL_CTX_set_default_read_buffer_len(ctx, kReadBufferBytes);
    if (s.ciphers && SSL_CTX_set_cipher_list(ctx, s.ciphers) != 1) return OX_TLS_BAD_OPTIONS;
    if (s.caFile || s.caPath) {
        if (SSL_CTX_load_verify_locations(ctx, s.caFile, s.caPath) != 1) return OX_TLS_BAD_OPTIONS;
    } else if (SSL_CTX_set_default_verify_paths(ctx) != 1) {
        return OX_TLS_BAD_OPTIONS;
    }
    return OX_OK;
}

SSL_CTX* makeContext(const TlsSettings& s, OXStatus& st) {
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ctx(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!ctx) {
        st = OX_NO_MEMORY;
        return nullptr;
    }
    st = configureContext(ctx.get(), s);
    ERR_clear_error();
    return st == OX_OK ? ctx.release() : nullptr;
}

struct CachedContext {
    std::string key;
    SSL_CTX* ctx;
};

// Never destroyed: sessions on other threads may still hold contexts while the process exits.
struct ContextCache {
    std::mutex mutex;
    std::vector<CachedContext> entries;
};

ContextCache& contextCache() {
    static ContextCache* cache = new ContextCache;
    return *cache;
}

// A context for the settings with a reference the caller drops once a session holds it.
SSL_CTX* acquireContext(const TlsSettings& s, OXStatus& st) {
    try {
        std::string key = contextKey(s);
        ContextCache& cache = contextCache();
        std::lock_guard lock(cache.mutex);
        for (const auto& e : cache.entries) {
            if (e.key == key) {
                SSL_CTX_up_ref(e.ctx);
                return e.ctx;
            }
        }
        SSL_CTX* ctx = makeContext(s, st);
        if (ctx && cache.entries.size() < kMaxCachedContexts) {
            cache.entries.push_back({std::move(key), ctx});
            SSL_CTX_up_ref(ctx);
        }
        return ctx;
    } catch (...) {
        st = OX_NO_MEMORY;
        return nullptr;
    }
}

bool isIpLiteral(const char* name) {
    unsigned char addr[sizeof(in6_addr)];
    return inet_pton(AF_INET, name, addr) == 1 || inet_pton(AF_INET6, name, addr) == 1;
}

OXStatus nameTheServer(SSL* ssl, const TlsSettings& s, const char* host) {
    const char* name = s.serverName ? s.serverName : host;
    const bool ip = isIpLiteral(name);
    if (!ip && SSL_set_tlsext_host_name(ssl, name) != 1) return OX_TLS_BAD_OPTIONS;
    if (!s.verifyPeer || !s.verifyHost) return OX_OK;
    if (ip) return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), name) == 1 ? OX_OK : OX_TLS_BAD_OPTIONS;
    SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(ssl, name) == 1 ? OX_OK : OX_TLS_BAD_OPTIONS;
}

// SSL_ERROR_SYSCALL is told apart from a plain end of stream by errno, so no stale value may linger.
void clearErrors() {
    ERR_clear_error();
    errno = 0;
}

bool wantsIo(int sslError) { return sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE; }

}  // namespace

OXStatus TlsSession::handshake(Socket& sock, SSLOptions_S* opts, const char* host, const IoLimits& limits) {
    end();
    const TlsSettings settings = settingsOf(opts);
    OXStatus st = OX_OK;
    SSL_CTX* ctx = acquireContext(settings, st);
    if (!ctx) return st;
    ssl_ = SSL_new(ctx);
    SSL_CTX_free(ctx);
    BIO_METHOD* method = socketMethod();
    BIO* bio = method && ssl_ ? BIO_new(method) : nullptr;
    fatal_ = true;  // until the handshake is done there is no session to close politely
    if (!bio) {
        end();
        return OX_NO_MEMORY;
    }
    BIO_set_fd(bio, sock.fd(), BIO_NOCLOSE);
    SSL_set_bio(ssl_, bio, bio);
    verifyPeer_ = settings.verifyPeer;
    if (st = nameTheServer(ssl_, settings, host); st != OX_OK) {
        end();
        return st;
    }
    while (true) {
        clearErrors();
        int r = SSL_connect(ssl_);
        if (r == 1) {
            fatal_ = false;
            return OX_OK;
        }
        int e = SSL_get_error(ssl_, r);
        st = wantsIo(e) ? waitFor(e, sock, limits) : handshakeFailure(e, sock);
        if (st != OX_OK) {
            end();
            return st;
        }
    }
}

OXStatus TlsSession::waitFor(int sslError, Socket& sock, const IoLimits& limits) {
    return waitReady(sock.fd(), sslError == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, limits);
}

OXStatus TlsSession::handshakeFailure(int sslError, Socket& sock) {
    if (verifyPeer_) {
        long result = SSL_get_verify_result(ssl_);
        if (result == X509_V_ERR_HOSTNAME_MISMATCH || result == X509_V_ERR_IP_ADDRESS_MISMATCH)
            return OX_TLS_HOST_MISMATCH;
        if (result != X509_V_OK) return OX_TLS_CERT_UNTRUSTED;
    }
    if (sslError == SSL_ERROR_SYSCALL && errno != 0) sock.failure(errno);
    ERR_clear_error();
    return OX_TLS_HANDSHAKE_FAILED;
}

OXStatus TlsSession::ioFailure(int sslError, Socket& sock) {
    fatal_ = true;
    ERR_clear_error();
    if (sslError == SSL_ERROR_SYSCALL && errno != 0) return sock.failure(errno);
    return OX_TLS_RECORD_FAILED;
}

OXStatus TlsSession::readSome(Socket& sock, void* buf, size_t len, size_t& got, const IoLimits& limits) {
    while (true) {
        if (aborted(limits)) return OX_HTTP_ABORTED;
        clearErrors();
        size_t n = 0;
        int r = SSL_read_ex(ssl_, buf, len, &n);
        if (r == 1) {
            got = n;
            return OX_OK;
        }
        int e = SSL_get_error(ssl_, r);
        if (e == SSL_ERROR_ZERO_RETURN || (e == SSL_ERROR_SYSCALL && errno == 0)) {
            got = 0;
            return OX_OK;
        }
        OXStatus st = wantsIo(e) ? waitFor(e, sock, limits) : ioFailure(e, sock);
        if (st != OX_OK) return st;
    }
}

OXStatus TlsSession::writeAll(Socket& sock, const void* data, size_t len, const IoLimits& limits) {
    auto p = static_cast<const char*>(data);
    while (len > 0) {
        if (aborted(limits)) return OX_HTTP_ABORTED;
        clearErrors();
        size_t n = 0;
        int r = SSL_write_ex(ssl_, p, len, &n);
        if (r == 1) {
            p += n;
            len -= n;
            continue;
        }
        int e = SSL_get_error(ssl_, r);
        OXStatus st = wantsIo(e) ? waitFor(e, sock, limits) : ioFailure(e, sock);
        if (st != OX_OK) return st;
    }
    return OX_OK;
}

bool TlsSession::inputPending(Socket& sock) {
    if (SSL_pending(ssl_) > 0) return true;
    for (int i = 0; sock.inputPending(); ++i) {
        if (i == kMaxIdleHandshakeMessages) return true;
        ERR_clear_error();
        char c;
        int r = SSL_peek(ssl_, &c, 1);
        if (r > 0 || SSL_get_error(ssl_, r) != SSL_ERROR_WANT_READ) return true;
    }
    return false;
}

void TlsSession::end() {
    if (!ssl_) return;
    if (!fatal_) SSL_shutdown(ssl_);
    ERR_clear_error();
    SSL_free(ssl_);
    ssl_ = nullptr;
    fatal_ = false;
}

}  // namespace ox::http
