#include "rawhttp.h"

#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace oxtest {
namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// Decodes a complete chunked body; false when it is incomplete.
bool dechunk(std::string_view in, std::string& out) {
    out.clear();
    for (size_t eol; (eol = in.find("\r\n")) != std::string_view::npos;) {
        const size_t size = std::strtoul(std::string(in.substr(0, eol)).c_str(), nullptr, 16);
        in.remove_prefix(eol + 2);
        if (size == 0) return in.find("\r\n") != std::string_view::npos;  // trailers end with a blank line
        if (in.size() < size + 2) return false;
        out.append(in.substr(0, size));
        in.remove_prefix(size + 2);
    }
    return false;
}

}  // namespace

std::string RawHttpResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (key.size() == name.size() && ::strncasecmp(key.data(), name.data(), name.size()) == 0) return value;
    return {};
}

// The request asks the server to close after its answer, so the answer is all that arrives
// until the close; its head then tells how much of it is the body.
RawHttpResponse rawHttpExchange(const std::string& host, int port, std::string_view request, int timeoutMs) {
    RawHttpResponse r;
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (const int rc = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found); rc != 0) {
        r.error = "cannot resolve " + host + ": " + ::gai_strerror(rc);
        return r;
    }
    const timeval tv{timeoutMs / 1000, (timeoutMs % 1000) * 1000};  // SO_SNDTIMEO bounds connect too
    int fd = -1;
    r.error = "cannot connect to " + host + ":" + std::to_string(port);
    for (addrinfo* ai = found; ai && fd < 0; ai = ai->ai_next) {
        fd = ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol);
        if (fd >= 0 && (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0 ||
                        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0 ||
                        ::connect(fd, ai->ai_addr, ai->ai_addrlen) != 0)) {
            r.error += std::string(": ") + std::strerror(errno);
            ::close(fd);
            fd = -1;
        }
    }
    ::freeaddrinfo(found);
    if (fd < 0) return r;
    r.error.clear();
    std::string in;
    char buf[16384];
    ssize_t n = 0;
    for (std::string_view rest = request; !rest.empty() && n >= 0; rest.remove_prefix(n > 0 ? n : 0))
        n = ::send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
    while (n >= 0 && (n = ::recv(fd, buf, sizeof buf, 0)) > 0) in.append(buf, static_cast<size_t>(n));
    if (n < 0) r.error = errno == EAGAIN ? "timed out" : std::string("send or recv failed: ") + std::strerror(errno);
    ::close(fd);

    const size_t headEnd = in.find("\r\n\r\n");
    if (headEnd == std::string::npos) {
        if (r.error.empty()) r.error = "the connection closed before a complete response head";
        return r;
    }
    std::string_view head = std::string_view(in).substr(0, headEnd);
    r.statusLine = std::string(head.substr(0, head.find("\r\n")));
    if (r.statusLine.rfind("HTTP/1.", 0) != 0 || r.statusLine.size() < 12 || std::atoi(&r.statusLine[9]) < 100) {
        r.error = "not an HTTP response: " + in.substr(0, 80);
        return r;
    }
    r.status = std::atoi(&r.statusLine[9]);
    for (size_t eol = head.find("\r\n"); eol != std::string_view::npos; eol = head.find("\r\n")) {
        head.remove_prefix(eol + 2);
        const std::string_view line = head.substr(0, head.find("\r\n"));
        if (const size_t colon = line.find(':'); colon != std::string_view::npos)
            r.headers.emplace_back(trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
    }
    if (request.rfind("HEAD ", 0) == 0 || r.status < 200 || r.status == 204 || r.status == 304) return r;
    r.body = in.substr(headEnd + 4);
    const std::string length = r.header("Content-Length");
    if (::strcasecmp(r.header("Transfer-Encoding").c_str(), "chunked") == 0) {
        const std::string raw = std::move(r.body);
        if (!dechunk(raw, r.body) && r.error.empty()) r.error = "the connection closed inside the chunked body";
    } else if (!length.empty() && r.body.size() < std::strtoull(length.c_str(), nullptr, 10)) {
        if (r.error.empty()) r.error = "the connection closed inside the body";
    } else if (!length.empty()) {
        r.body.resize(std::strtoull(length.c_str(), nullptr, 10));
    }
    return r;
}

}  // namespace oxtest
