// TLS over a connected socket with OpenSSL: certificate and host-name verification on unless the
// options explicitly turn them off, SNI, and clear statuses for what went wrong.
#pragma once

#include <cstddef>

#include "http_socket.h"
#include "ox/secsocket.h"

typedef struct ssl_st SSL;

namespace ox::http {

class TlsSession {
public:
    TlsSession() = default;
    ~TlsSession() { end(); }
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    // host is what the certificate must name (unless the SNI option names another server).
    OXStatus handshake(Socket& sock, SSLOptions_S* opts, const char* host, const IoLimits& limits);
    OXStatus readSome(Socket& sock, void* buf, size_t len, size_t& got, const IoLimits& limits);
    OXStatus writeAll(Socket& sock, const void* data, size_t len, const IoLimits& limits);
    // Like Socket::inputPending, but session tickets and other handshake messages a TLS 1.3
    // server sends after the handshake do not count.
    bool inputPending(Socket& sock);
    // Sends close_notify if the socket takes it at once, and forgets the session.
    void end();
    bool active() const { return ssl_ != nullptr; }

private:
    OXStatus waitFor(int sslError, Socket& sock, const IoLimits& limits);
    OXStatus handshakeFailure(int sslError, Socket& sock);
    OXStatus ioFailure(int sslError, Socket& sock);

    SSL* ssl_ = nullptr;
    bool verifyPeer_ = true;
    bool fatal_ = false;  // after a fatal error OpenSSL must not send close_notify
};

}  // namespace ox::http
