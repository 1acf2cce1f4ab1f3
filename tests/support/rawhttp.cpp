#include "rawhttp.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <utility>

namespace oxtest {
namespace {

class Socket {
public:
    Socket() = default;
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0) ::close(fd_);
    }
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

bool waitFor(int fd, short events, int timeoutMs) {
    pollfd p{fd, events, 0};
    int rc;
    do {
        rc = ::poll(&p, 1, timeoutMs);
    } while (rc < 0 && errno == EINTR);
    return rc > 0;
}

// A non-blocking socket connected to host:port, trying each address in turn.
Socket connectTo(const std::string& host, int port, int timeoutMs, std::string& error) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    if (const int rc = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &found); rc != 0) {
        error = "cannot resolve " + host + ": " + ::gai_strerror(rc);
        return Socket();
    }
    Socket result;
    error = "cannot connect to " + host + ":" + service;
    for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
        Socket s(::socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, ai->ai_protocol));
        if (s.fd() < 0) continue;
        if (::connect(s.fd(), ai->ai_addr, ai->ai_addrlen) != 0) {
            if (errno != EINPROGRESS || !waitFor(s.fd(), POLLOUT, timeoutMs)) continue;
            int soError = 0;
            socklen_t len = sizeof soError;
            if (::getsockopt(s.fd(), SOL_SOCKET, SO_ERROR, &soError, &len) != 0 || soError != 0) {
                error += std::string(": ") + std::strerror(soError);
                continue;
            }
        }
        result = std::move(s);
        error.clear();
        break;
    }
    ::freeaddrinfo(found);
    return result;
}

bool sendAll(int fd, std::string_view data, int timeoutMs, std::string& error) {
    while (!data.empty()) {
        const ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (n > 0) {
            data.remove_prefix(static_cast<size_t>(n));
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!waitFor(fd, POLLOUT, timeoutMs)) {
                error = "timed out sending the request";
                return false;
            }
        } else {
            error = std::string("send failed: ") + std::strerror(errno);
            return false;
        }
    }
    return true;
}

// Appends what arrives to buf. False at the peer's close, on error or on time-out (error set
// for the last two).
bool readMore(int fd, std::string& buf, int timeoutMs, std::string& error) {
    char chunk[16384];
    for (;;) {
        const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n > 0) {
            buf.append(chunk, static_cast<size_t>(n));
            return true;
        }
        if (n == 0) return false;
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!waitFor(fd, POLLIN, timeoutMs)) {
                error = "timed out waiting for the response";
                return false;
            }
            continue;
        }
        error = std::string("recv failed: ") + std::strerror(errno);
        return false;
    }
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// Parses the status line and headers of head (without the final empty line).
bool parseHead(std::string_view head, RawHttpResponse& r) {
    size_t eol = head.find("\r\n");
    r.statusLine = std::string(head.substr(0, eol));
    if (r.statusLine.rfind("HTTP/1.", 0) != 0 || r.statusLine.size() < 12) return false;
    r.status = std::atoi(r.statusLine.c_str() + 9);
    while (eol != std::string_view::npos) {
        head.remove_prefix(eol + 2);
        eol = head.find("\r\n");
        const std::string_view line = head.substr(0, eol);
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        r.headers.emplace_back(std::string(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1))));
    }
    return r.status >= 100;
}

// Decodes a complete chunked body; false while more data is needed.
bool dechunk(std::string_view in, std::string& out) {
    out.clear();
    for (;;) {
        const size_t eol = in.find("\r\n");
        if (eol == std::string_view::npos) return false;
        const size_t size = std::strtoul(std::string(in.substr(0, eol)).c_str(), nullptr, 16);
        in.remove_prefix(eol + 2);
        if (size == 0) return in.find("\r\n") != std::string_view::npos;  // trailers end with a blank line
        if (in.size() < size + 2) return false;
        out.append(in.substr(0, size));
        in.remove_prefix(size + 2);
    }
}

}  // namespace

std::string RawHttpResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (key.size() == name.size() && ::strncasecmp(key.data(), name.data(), name.size()) == 0) return value;
    }
    return {};
}

RawHttpResponse rawHttpExchange(const std::string& host, int port, std::string_view request, int timeoutMs) {
    RawHttpResponse r;
    Socket s = connectTo(host, port, timeoutMs, r.error);
    if (s.fd() < 0) return r;
    if (!sendAll(s.fd(), request, timeoutMs, r.error)) return r;

    const bool headRequest = request.rfind("HEAD ", 0) == 0;
    std::string buf;
    size_t headEnd = std::string::npos;
    bool open = true;
    while (headEnd == std::string::npos) {
        if (!(open = readMore(s.fd(), buf, timeoutMs, r.error))) break;
        headEnd = buf.find("\r\n\r\n");
    }
    if (headEnd == std::string::npos) {
        if (r.error.empty()) r.error = "the connection closed before a complete response head";
        return r;
    }
    if (!parseHead(std::string_view(buf).substr(0, headEnd), r)) {
        r.error = "not an HTTP response: " + buf.substr(0, std::min<size_t>(buf.size(), 80));
        r.status = 0;
        return r;
    }
    const bool noBody = headRequest || r.status == 204 || r.status == 304 || r.status < 200;
    const std::string length = r.header("Content-Length");
    const bool chunked = ::strcasecmp(r.header("Transfer-Encoding").c_str(), "chunked") == 0;
    std::string raw = buf.substr(headEnd + 4);
    std::string readError;
    if (noBody) return r;
    if (chunked) {
        while (!dechunk(raw, r.body)) {
            if (!open || !(open = readMore(s.fd(), raw, timeoutMs, readError))) {
                r.error = readError.empty() ? "the connection closed inside the chunked body" : readError;
                return r;
            }
        }
        return r;
    }
    if (!length.empty()) {
        const size_t want = std::strtoull(length.c_str(), nullptr, 10);
        while (raw.size() < want) {
            if (!open || !(open = readMore(s.fd(), raw, timeoutMs, readError))) {
                r.error = readError.empty() ? "the connection closed inside the body" : readError;
                break;
            }
        }
        r.body = raw.substr(0, std::min(raw.size(), want));
        return r;
    }
    while (open && (open = readMore(s.fd(), raw, timeoutMs, readError))) {
    }
    r.error = readError;
    r.body = std::move(raw);
    return r;
}

}  // namespace oxtest
