// TCP sockets for the web client: non-blocking, every wait bounded by the connection's time-out
// and interrupted by its abort event.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ox/handle.h"
#include "ox/status.h"

struct addrinfo;

namespace ox::http {

struct IoLimits {
    int64_t timeoutMs = 0;          // without progress; <= 0 waits as long as it takes
    OX_EVENT_S* abort = nullptr;    // posted: the wait ends with OX_HTTP_ABORTED
};

bool aborted(const IoLimits& limits);

// Waits until fd is ready for events (POLLIN, POLLOUT); a hang-up or error counts as ready so
// that the next call reports it.
OXStatus waitReady(int fd, short events, const IoLimits& limits);

class Socket {
public:
    Socket() = default;
    ~Socket() { close(); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Tries each address of host in turn.
    OXStatus connect(const char* host, uint16_t port, const IoLimits& limits);
    // got 0 means the peer closed its side.
    OXStatus readSome(void* buf, size_t len, size_t& got, const IoLimits& limits);
    // more: further bytes follow at once, so the kernel may hold this piece back to fill a segment.
    OXStatus writeAll(const void* data, size_t len, const IoLimits& limits, bool more = false);
    // On a socket that should be silent: anything to read (bytes, end of stream, reset) means the
    // server is done with it.
    bool inputPending() const;
    // Acknowledges what arrived at once: the server may be holding its next small segment back
    // until it hears from us (Nagle against delayed ACK).
    void quickAck() const;
    void close();

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    int lastErrno() const { return errno_; }
    // Records errno and names the failure.
    OXStatus failure(int err);

private:
    OXStatus connectAddress(const ::addrinfo& ai, const IoLimits& limits);

    int fd_ = -1;
    int errno_ = 0;
};

}  // namespace ox::http
