#include "faultserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string_view>

namespace oxtest {

namespace {

constexpr int kIoTimeoutSec = 20;  // every blocking call is bounded: a client bug cannot hang a run
constexpr size_t kMaxRequestHead = 1 << 20;
constexpr uint64_t kPatternPeriod = 65521;

// A whole number of pattern periods (about 1 MiB), so generated bodies go out in large writes.
const std::string& patternBlock() {
    static const std::string block = [] {
        std::string b(kPatternPeriod * 16, '\0');
        for (size_t i = 0; i < b.size(); ++i) b[i] = patternByte(i);
        return b;
    }();
    return block;
}

// The value of a request header, or "" when absent.
std::string headerValue(std::string_view head, std::string_view name) {
    for (size_t at = head.find("\r\n") + 2, end; (end = head.find("\r\n", at)) != std::string_view::npos;
         at = end + 2) {
        const std::string_view line = head.substr(at, end - at);
        if (line.size() > name.size() && line[name.size()] == ':' &&
            ::strncasecmp(line.data(), name.data(), name.size()) == 0) {
            const size_t value = line.find_first_not_of(' ', name.size() + 1);
            return value == std::string_view::npos ? "" : std::string(line.substr(value));
        }
    }
    return {};
}

SSL_CTX* serverContext(const TestIdentity& id) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    BIO* certBio = BIO_new_mem_buf(id.certPem.data(), static_cast<int>(id.certPem.size()));
    BIO* keyBio = BIO_new_mem_buf(id.keyPem.data(), static_cast<int>(id.keyPem.size()));
    X509* cert = PEM_read_bio_X509(certBio, nullptr, nullptr, nullptr);
    EVP_PKEY* key = PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr);
    const bool ok =
        ctx && cert && key && SSL_CTX_use_certificate(ctx, cert) == 1 && SSL_CTX_use_PrivateKey(ctx, key) == 1;
    X509_free(cert);
    EVP_PKEY_free(key);
    BIO_free(certBio);
    BIO_free(keyBio);
    if (ok) return ctx;
    SSL_CTX_free(ctx);
    return nullptr;
}

}  // namespace

char patternByte(uint64_t i) { return static_cast<char>(((i % kPatternPeriod) * 2654435761u) >> 13); }

// ---- replies

FaultReply FaultReply::status(int code, const std::string& reason, const std::string& body,
                              const std::string& extraHeaders) {
    FaultReply r;
    r.bytes = "HTTP/1.1 " + std::to_string(code) + " " + reason + "\r\nContent-Length: " + std::to_string(body.size()) +
              "\r\n" + extraHeaders + "\r\n" + body;
    return r;
}

FaultReply FaultReply::ok(const std::string& body, const std::string& extraHeaders) {
    return status(200, "OK", body, extraHeaders);
}

FaultReply FaultReply::chunked(const std::vector<std::string>& chunks, const std::string& extension,
                               const std::string& trailers) {
    FaultReply r;
    r.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    char size[32];
    for (const auto& c : chunks) {
        std::snprintf(size, sizeof size, "%zx", c.size());
        r.bytes += size + extension + "\r\n" + c + "\r\n";
    }
    r.bytes += "0" + extension + "\r\n" + trailers + "\r\n";
    return r;
}

FaultReply FaultReply::generated(uint64_t length, const std::string& extraHeaders) {
    FaultReply r;
    r.bytes = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n" + extraHeaders + "\r\n";
    r.patternBody = length;
    return r;
}

// ---- one accepted connection

struct FaultServer::Connection {
    int fd;
    SSL* ssl = nullptr;
    bool wasReset = false;

    ~Connection() { SSL_free(ssl); }

    size_t readSome(char* buf, size_t len) {  // 0: the peer closed or the read failed
        size_t n = 0;
        if (ssl) return SSL_read_ex(ssl, buf, len, &n) == 1 ? n : 0;
        const ssize_t got = ::recv(fd, buf, len, 0);
        return got > 0 ? static_cast<size_t>(got) : 0;
    }
    bool writeAll(const char* p, size_t len) {
        while (len > 0) {
            size_t n = 0;
            if (ssl && SSL_write_ex(ssl, p, len, &n) != 1) return false;
            if (!ssl) {
                const ssize_t w = ::send(fd, p, len, MSG_NOSIGNAL);
                if (w <= 0) return false;
                n = static_cast<size_t>(w);
            }
            p += n;
            len -= n;
        }
        return true;
    }
    // Reads into in until it holds want bytes, or a whole head.
    bool fill(std::string& in, size_t want, bool head = false) {
        char buf[16384];
        while (head ? in.find("\r\n\r\n") == std::string::npos : in.size() < want) {
            const size_t n = readSome(buf, head ? sizeof buf : std::min(sizeof buf, want - in.size()));
            if (n == 0 || in.size() > kMaxRequestHead) return false;
            in.append(buf, n);
        }
        return true;
    }
    void reset() {
        wasReset = true;
        const linger l{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    }
};

// ---- the server

FaultServer::FaultServer() { start(nullptr); }

FaultServer::FaultServer(const TestIdentity& identity) { start(&identity); }

void FaultServer::start(const TestIdentity* identity) {
    ::signal(SIGPIPE, SIG_IGN);  // TLS writes to a client that hung up must not kill the test
    if (identity && !(tls_ = serverContext(*identity))) {
        error_ = "could not load the server identity";
        return;
    }
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listenFd_, 64) != 0 || ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
        ::pipe2(wakePipe_, O_CLOEXEC) != 0) {
        error_ = std::string("could not listen on loopback: ") + std::strerror(errno);
        return;
    }
    port_ = ntohs(addr.sin_port);
    acceptor_ = std::thread([this] { acceptLoop(); });
}

FaultServer::~FaultServer() {
    stopping_ = true;
    if (wakePipe_[1] >= 0) (void)!::write(wakePipe_[1], "x", 1);
    {
        std::lock_guard lock(mutex_);
        for (int fd : openFds_) ::shutdown(fd, SHUT_RDWR);
    }
    if (acceptor_.joinable()) acceptor_.join();
    for (auto& w : workers_) w.join();
    for (int fd : {listenFd_, wakePipe_[0], wakePipe_[1]})
        if (fd >= 0) ::close(fd);
    SSL_CTX_free(tls_);
}

void FaultServer::acceptLoop() {
    while (!stopping_) {
        pollfd p[2] = {{listenFd_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
        if (::poll(p, 2, -1) <= 0 || (p[1].revents & POLLIN)) continue;
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        const timeval tv{kIoTimeoutSec, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
        const size_t number = ++accepted_;
        std::lock_guard lock(mutex_);
        if (stopping_) {
            ::close(fd);
            break;
        }
        openFds_.push_back(fd);
        workers_.emplace_back([this, fd, number] { serve(fd, number); });
    }
}

void FaultServer::push(FaultReply reply) {
    std::lock_guard lock(mutex_);
    replies_.push_back(std::move(reply));
}

void FaultServer::setFallback(FaultReply reply) {
    std::lock_guard lock(mutex_);
    fallback_ = std::move(reply);
}

std::vector<ReceivedRequest> FaultServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

bool FaultServer::waitForClosed(size_t count, int timeoutMs) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return closed_.load() >= count; });
}

bool FaultServer::sleepUnlessStopping(int ms) const {
    for (int slept = 0; slept < ms && !stopping_; slept += 20)
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(20, ms - slept)));
    return !stopping_;
}

// Sends the reply's bytes and generated body from offset from up to offset to.
bool FaultServer::sendRange(Connection& c, const FaultReply& r, uint64_t from, uint64_t to) {
    const std::string& block = patternBlock();
    for (uint64_t at = from; at < to;) {
        const bool head = at < r.bytes.size();
        const size_t off = head ? at : (at - r.bytes.size()) % block.size();
        const size_t n = std::min<uint64_t>((head ? r.bytes.size() : block.size()) - off, to - at);
        if (!c.writeAll((head ? r.bytes.data() : block.data()) + off, n)) return false;
        at += n;
    }
    return true;
}

void FaultServer::serve(int fd, size_t number) {
    Connection c{fd};
    bool up = !tls_ || ((c.ssl = SSL_new(tls_)) && SSL_set_fd(c.ssl, fd) == 1 && SSL_accept(c.ssl) == 1);
    std::string in;
    while (up && !stopping_ && c.fill(in, 0, true)) {
        const size_t headEnd = in.find("\r\n\r\n") + 4;
        ReceivedRequest req{in.substr(0, headEnd), {}, number};
        in.erase(0, headEnd);
        std::optional<FaultReply> reply;
        {
            std::lock_guard lock(mutex_);
            if (replies_.empty()) {
                reply = fallback_;
            } else {
                reply = std::move(replies_.front());
                replies_.pop_front();
            }
        }
        if (reply && reply->continueFirst && ::strcasecmp(headerValue(req.head, "Expect").c_str(), "100-continue") == 0)
            up = c.writeAll("HTTP/1.1 100 Continue\r\n\r\n", 25);
        if (reply && !reply->answerBeforeBody) {
            const size_t length = std::strtoull(headerValue(req.head, "Content-Length").c_str(), nullptr, 10);
            up = up && c.fill(in, length);
            req.body = in.substr(0, std::min(length, in.size()));
            in.erase(0, req.body.size());
        }
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(req);
        }
        if (!reply || !up || reply->hangUp || !sleepUnlessStopping(reply->delayMs)) break;
        // Send, pausing once at the stall point and stopping at the reset point.
        const FaultReply& r = *reply;
        const uint64_t total = r.bytes.size() + r.patternBody;
        const uint64_t end = r.resetAfter >= 0 ? std::min<uint64_t>(total, r.resetAfter) : total;
        uint64_t sent = 0;
        if (r.stallAfter >= 0 && static_cast<uint64_t>(r.stallAfter) < end) {
            if (!sendRange(c, r, 0, sent = r.stallAfter) || !sleepUnlessStopping(r.stallMs)) break;
        }
        if (!sendRange(c, r, sent, end)) break;
        if (r.resetAfter >= 0) {
            c.reset();
            break;
        }
        if (r.closeAfter) break;
    }
    if (c.ssl && up && !c.wasReset) SSL_shutdown(c.ssl);
    {
        std::lock_guard lock(mutex_);
        openFds_.erase(std::remove(openFds_.begin(), openFds_.end(), fd), openFds_.end());
        ::close(fd);
        ++closed_;
    }
    changed_.notify_all();
}

}  // namespace oxtest
