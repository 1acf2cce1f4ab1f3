// The byte stream under an HTTP connection: a TCP socket, with a TLS session on it when the
// origin is https. Everything above reads and writes through this and never asks which.
#pragma once

#include "http_socket.h"
#include "http_tls.h"

namespace ox::http {

class Channel {
public:
    Socket& socket() { return socket_; }
    TlsSession& tls() { return tls_; }

    OXStatus readSome(void* buf, size_t len, size_t& got, const IoLimits& limits) {
        return tls_.active() ? tls_.readSome(socket_, buf, len, got, limits) : socket_.readSome(buf, len, got, limits);
    }
    // more: the caller writes again at once (plain sockets may then fill a segment first).
    OXStatus writeAll(const void* data, size_t len, const IoLimits& limits, bool more = false) {
        return tls_.active() ? tls_.writeAll(socket_, data, len, limits) : socket_.writeAll(data, len, limits, more);
    }
    bool inputPending() { return tls_.active() ? tls_.inputPending(socket_) : socket_.inputPending(); }
    bool isOpen() const { return socket_.isOpen(); }
    void close() {
        tls_.end();
        socket_.close();
    }

private:
    Socket socket_;
    TlsSession tls_;
};

}  // namespace ox::http
