#include "faultserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <string_view>

namespace oxtest {

namespace {

// Every blocking call of the server is bounded, so a client bug cannot hang a test run.
constexpr int kIoTimeoutSec = 20;
constexpr size_t kMaxRequestHead = 1 << 20;
constexpr int kSleepSliceMs = 20;
constexpr uint64_t kPatternPeriod = 65521;
constexpr size_t kPatternBlock = kPatternPeriod * 16;  // about 1 MiB, a whole number of periods

const std::vector<char>& patternBlock() {
    static const std::vector<char> block = [] {
        std::vector<char> b(kPatternBlock);
        for (size_t i = 0; i < b.size(); ++i) b[i] = patternByte(i);
        return b;
    }();
    return block;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return std::tolower(x) == std::tolower(y); });
}

// The value of a request header, or "" when absent.
std::string_view headerValue(std::string_view head, std::string_view name) {
    for (size_t pos = head.find("\r\n"); pos != std::string_view::npos && pos + 2 < head.size();) {
        size_t start = pos + 2, end = head.find("\r\n", start);
        std::string_view line = head.substr(start, end - start);
        size_t colon = line.find(':');
        if (colon != std::string_view::npos && equalsIgnoringCase(line.substr(0, colon), name)) {
            std::string_view v = line.substr(colon + 1);
            while (!v.empty() && v.front() == ' ') v.remove_prefix(1);
            return v;
        }
        pos = end;
    }
    return {};
}

void setTimeouts(int fd) {
    timeval tv{kIoTimeoutSec, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

SSL_CTX* serverContext(const TestIdentity& id, std::string& error) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    BIO* certBio = BIO_new_mem_buf(id.certPem.data(), static_cast<int>(id.certPem.size()));
    BIO* keyBio = BIO_new_mem_buf(id.keyPem.data(), static_cast<int>(id.keyPem.size()));
    X509* cert = certBio ? PEM_read_bio_X509(certBio, nullptr, nullptr, nullptr) : nullptr;
    EVP_PKEY* key = keyBio ? PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr) : nullptr;
    bool ok = ctx && cert && key && SSL_CTX_use_certificate(ctx, cert) == 1 && SSL_CTX_use_PrivateKey(ctx, key) == 1;
    X509_free(cert);
    EVP_PKEY_free(key);
    BIO_free(certBio);
    BIO_free(keyBio);
    if (!ok) {
        SSL_CTX_free(ctx);
        error = "could not load the server identity";
        return nullptr;
    }
    return ctx;
}

}  // namespace

char patternByte(uint64_t i) {
    const uint64_t x = i % kPatternPeriod;
    return static_cast<char>((x * 2654435761u) >> 13);
}

// ---- replies ----

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

// ---- one accepted connection ----

struct FaultServer::Connection {
    int fd;
    SSL* ssl = nullptr;
    bool wasReset = false;

    ~Connection() { SSL_free(ssl); }

    // got 0: the peer closed (or the read failed)
    size_t readSome(char* buf, size_t len) {
        if (ssl) {
            size_t n = 0;
            return SSL_read_ex(ssl, buf, len, &n) == 1 ? n : 0;
        }
        ssize_t n = ::recv(fd, buf, len, 0);
        return n > 0 ? static_cast<size_t>(n) : 0;
    }

    bool writeAll(const char* p, size_t len) {
        while (len > 0) {
            size_t n = 0;
            if (ssl) {
                if (SSL_write_ex(ssl, p, len, &n) != 1) return false;
            } else {
                ssize_t w = ::send(fd, p, len, MSG_NOSIGNAL);
                if (w <= 0) return false;
                n = static_cast<size_t>(w);
            }
            p += n;
            len -= n;
        }
        return true;
    }

    // Reads until in holds at least want bytes.
    bool fill(std::string& in, size_t want) {
        char buf[16384];
        while (in.size() < want) {
            size_t n = readSome(buf, std::min(sizeof buf, want - in.size()));
            if (n == 0) return false;
            in.append(buf, n);
        }
        return true;
    }

    std::optional<std::string> readHead(std::string& in) {
        char buf[16384];
        size_t end;
        while ((end = in.find("\r\n\r\n")) == std::string::npos) {
            if (in.size() > kMaxRequestHead) return std::nullopt;
            size_t n = readSome(buf, sizeof buf);
            if (n == 0) return std::nullopt;
            in.append(buf, n);
        }
        std::string head = in.substr(0, end + 4);
        in.erase(0, end + 4);
        return head;
    }

    void reset() {
        wasReset = true;
        linger l{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    }
};

// ---- the server ----

FaultServer::FaultServer() { start(nullptr); }

FaultServer::FaultServer(const TestIdentity& identity) { start(&identity); }

void FaultServer::start(const TestIdentity* identity) {
    // The server's TLS writes go through plain write(): a client that hung up must not kill the test.
    ::signal(SIGPIPE, SIG_IGN);
    if (identity && !(tls_ = serverContext(*identity, error_))) return;
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
        int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        setTimeouts(fd);
        size_t number = ++accepted_;
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

std::optional<FaultReply> FaultServer::nextReply() {
    std::lock_guard lock(mutex_);
    if (replies_.empty()) return fallback_;
    FaultReply r = std::move(replies_.front());
    replies_.pop_front();
    return r;
}

void FaultServer::record(ReceivedRequest r) {
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(r));
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
    for (int slept = 0; slept < ms; slept += kSleepSliceMs) {
        if (stopping_) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(kSleepSliceMs, ms - slept)));
    }
    return !stopping_;
}

namespace {

// Sends the reply's bytes and generated body, stopping at the reset point or pausing at the
// stall point. False when the connection was reset (or a write failed).
template <class Conn, class Sleep>
bool sendReply(Conn& c, const FaultReply& r, Sleep sleep) {
    const uint64_t total = r.bytes.size() + r.patternBody;
    const auto& block = patternBlock();
    bool stalled = false;
    for (uint64_t sent = 0; sent < total;) {
        uint64_t stop = total;
        if (r.resetAfter >= 0) stop = std::min<uint64_t>(stop, static_cast<uint64_t>(r.resetAfter));
        if (r.stallAfter >= 0 && !stalled) stop = std::min<uint64_t>(stop, static_cast<uint64_t>(r.stallAfter));
        if (sent == stop) {
            if (r.resetAfter >= 0 && sent == static_cast<uint64_t>(r.resetAfter)) {
                c.reset();
                return false;
            }
            stalled = true;
            if (!sleep(r.stallMs)) return false;
            continue;
        }
        const char* p;
        size_t n;
        if (sent < r.bytes.size()) {
            p = r.bytes.data() + sent;
            n = static_cast<size_t>(std::min<uint64_t>(r.bytes.size() - sent, stop - sent));
        } else {
            const uint64_t bodyAt = sent - r.bytes.size();
            const size_t inBlock = static_cast<size_t>(bodyAt % block.size());
            p = block.data() + inBlock;
            n = static_cast<size_t>(std::min<uint64_t>(block.size() - inBlock, stop - sent));
        }
        if (!c.writeAll(p, n)) return false;
        sent += n;
    }
    if (r.resetAfter >= 0 && static_cast<uint64_t>(r.resetAfter) >= total) {
        c.reset();
        return false;
    }
    return true;
}

}  // namespace

void FaultServer::serve(int fd, size_t number) {
    Connection c{fd};
    bool up = true;
    if (tls_) {
        c.ssl = SSL_new(tls_);
        up = c.ssl && SSL_set_fd(c.ssl, fd) == 1 && SSL_accept(c.ssl) == 1;
    }
    std::string in;
    while (up && !stopping_) {
        auto head = c.readHead(in);
        if (!head) break;
        ReceivedRequest req{*head, {}, number};
        auto reply = nextReply();
        if (!reply) {
            record(std::move(req));
            break;
        }
        if (reply->continueFirst && equalsIgnoringCase(headerValue(*head, "Expect"), "100-continue")) {
            constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
            if (!c.writeAll(kContinue.data(), kContinue.size())) break;
        }
        if (!reply->answerBeforeBody) {
            const size_t length = std::strtoull(std::string(headerValue(*head, "Content-Length")).c_str(), nullptr, 10);
            up = c.fill(in, length);
            req.body = in.substr(0, std::min(length, in.size()));
            in.erase(0, req.body.size());
        }
        record(std::move(req));
        if (!up || reply->hangUp || !sleepUnlessStopping(reply->delayMs)) break;
        if (!sendReply(c, *reply, [this](int ms) { return sleepUnlessStopping(ms); }) || reply->closeAfter) break;
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
