// Non-blocking TCP: every call is tried first and waited for only when the kernel says it
// would block, so a ready socket costs one system call per read or write.
#include "http_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>

namespace ox::http {

namespace {

// How often a wait looks at the abort event: events have no descriptor to poll on.
constexpr int kAbortPollMs = 50;

using Clock = std::chrono::steady_clock;

struct ErrnoStatus {
    int err;
    OXStatus status;
};

constexpr ErrnoStatus kErrnoStatuses[] = {
    {ECONNRESET, OX_HTTP_CONNECTION_RESET}, {EPIPE, OX_HTTP_CONNECTION_RESET},
    {ECONNABORTED, OX_HTTP_CONNECTION_RESET}, {ENETRESET, OX_HTTP_CONNECTION_RESET},
    {ETIMEDOUT, OX_SOCKET_TIMED_OUT},
};

OXStatus statusForErrno(int err) {
    for (const auto& row : kErrnoStatuses)
        if (row.err == err) return row.status;
    return OX_SOCKET_FAILED;
}

OXStatus statusForResolver(int rc) {
    switch (rc) {
        case EAI_MEMORY: return OX_NO_MEMORY;
        case EAI_SYSTEM: return OX_SOCKET_FAILED;
        default: return OX_HTTP_HOST_NOT_FOUND;
    }
}

int pollSlice(bool limited, Clock::time_point deadline, bool watchAbort) {
    int slice = -1;
    if (limited) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        slice = static_cast<int>(std::clamp<int64_t>(left, 0, INT32_MAX));
    }
    if (watchAbort) slice = slice < 0 ? kAbortPollMs : std::min(slice, kAbortPollMs);
    return slice;
}

bool isResourceShortage(int err) { return err == EMFILE || err == ENFILE || err == ENOBUFS || err == ENOMEM; }

void setOption(int fd, int level, int name) {
    int one = 1;
    ::setsockopt(fd, level, name, &one, sizeof one);
}

}  // namespace

bool aborted(const IoLimits& limits) { return limits.abort && limits.abort->test(limits.abort); }

OXStatus waitReady(int fd, short events, const IoLimits& limits) {
    const bool limited = limits.timeoutMs > 0;
    const auto deadline = Clock::now() + std::chrono::milliseconds(limits.timeoutMs);
    while (true) {
        if (aborted(limits)) return OX_HTTP_ABORTED;
        if (limited && Clock::now() >= deadline) return OX_SOCKET_TIMED_OUT;
        pollfd p{fd, events, 0};
        int r = ::poll(&p, 1, pollSlice(limited, deadline, limits.abort != nullptr));
        if (r > 0) return OX_OK;
        if (r < 0 && errno != EINTR) return OX_SOCKET_FAILED;
    }
}

OXStatus Socket::failure(int err) {
    errno_ = err;
    return statusForErrno(err);
}

OXStatus Socket::connect(const char* host, uint16_t port, const IoLimits& limits) {
    close();
    errno_ = 0;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    char service[8];
    std::snprintf(service, sizeof service, "%u", static_cast<unsigned>(port));
    addrinfo* found = nullptr;
    if (int rc = ::getaddrinfo(host, service, &hints, &found); rc != 0) {
        errno_ = rc == EAI_SYSTEM ? errno : 0;
        return statusForResolver(rc);
    }
    std::unique_ptr<addrinfo, void (*)(addrinfo*)> addresses(found, ::freeaddrinfo);
    OXStatus st = OX_HTTP_CONNECT_FAILED;
    for (const addrinfo* ai = found; ai; ai = ai->ai_next) {
        st = connectAddress(*ai, limits);
        if (st != OX_HTTP_CONNECT_FAILED) return st;
    }
    return st;
}

OXStatus Socket::connectAddress(const addrinfo& ai, const IoLimits& limits) {
    fd_ = ::socket(ai.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        errno_ = errno;
        return isResourceShortage(errno_) ? OX_NO_MEMORY : OX_HTTP_CONNECT_FAILED;  // e.g. no IPv6: try the next
    }
    setOption(fd_, IPPROTO_TCP, TCP_NODELAY);
    if (::connect(fd_, ai.ai_addr, ai.ai_addrlen) == 0) return OX_OK;
    int err = errno;
    if (err == EINPROGRESS) {
        OXStatus st = waitReady(fd_, POLLOUT, limits);
        socklen_t len = sizeof err;
        if (st == OX_OK && ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0) return OX_OK;
        if (st == OX_HTTP_ABORTED) {
            close();
            return st;
        }
        if (st == OX_SOCKET_TIMED_OUT) err = ETIMEDOUT;
    }
    close();
    errno_ = err;
    return OX_HTTP_CONNECT_FAILED;
}

OXStatus Socket::readSome(void* buf, size_t len, size_t& got, const IoLimits& limits) {
    while (true) {
        if (aborted(limits)) return OX_HTTP_ABORTED;
        ssize_t n = ::recv(fd_, buf, len, 0);
        if (n >= 0) {
            if (n > 0) quickAck();
            got = static_cast<size_t>(n);
            return OX_OK;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return failure(errno);
        if (OXStatus st = waitReady(fd_, POLLIN, limits); st != OX_OK) return st;
    }
}

OXStatus Socket::writeAll(const void* data, size_t len, const IoLimits& limits, bool more) {
    auto p = static_cast<const char*>(data);
    const int flags = MSG_NOSIGNAL | (more ? MSG_MORE : 0);
    while (len > 0) {
        if (aborted(limits)) return OX_HTTP_ABORTED;
        ssize_t n = ::send(fd_, p, len, flags);
        if (n > 0) {
            p += n;
            len -= static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return failure(errno);
        if (OXStatus st = waitReady(fd_, POLLOUT, limits); st != OX_OK) return st;
    }
    return OX_OK;
}

bool Socket::inputPending() const {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, 0) != 0;
}

void Socket::quickAck() const { setOption(fd_, IPPROTO_TCP, TCP_QUICKACK); }

void Socket::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

}  // namespace ox::http
