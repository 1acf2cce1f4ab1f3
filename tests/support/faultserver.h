// A scriptable HTTP/1.1 server on loopback for what real servers will not do on demand: resets
// in the middle of a body, stalls past a client's time-out, refused 100-continue, chunked
// answers with extensions and trailers, closes after N requests, garbage and oversize heads.
// Replies are taken in order, one per request, whatever connection the request came on. With
// the queue empty the fallback reply is used, or the connection is closed when there is none.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testcert.h"

typedef struct ssl_ctx_st SSL_CTX;

namespace oxtest {

struct FaultReply {
    std::string bytes;             // sent as they are: status line, header fields, body
    uint64_t patternBody = 0;      // then this many generated body bytes (patternByte)
    bool continueFirst = false;    // "100 Continue" after a head that expects it, then read the body
    bool answerBeforeBody = false; // answer once the head is in, never reading a body
    int64_t resetAfter = -1;       // reset the connection after this many reply bytes
    int64_t stallAfter = -1;       // stop after this many reply bytes ...
    int stallMs = 0;               // ... for this long, then go on
    bool closeAfter = false;       // close the connection after this reply
    bool hangUp = false;           // take the request and close without answering
    int delayMs = 0;               // wait this long before answering

    // "HTTP/1.1 <code> <reason>" with Content-Length and the body.
    static FaultReply status(int code, const std::string& reason, const std::string& body = "",
                             const std::string& extraHeaders = "");
    static FaultReply ok(const std::string& body, const std::string& extraHeaders = "");
    // A chunked answer: each chunk gets the extension text after its size, and trailers (whole
    // lines with CRLF) follow the last chunk.
    static FaultReply chunked(const std::vector<std::string>& chunks, const std::string& extension = "",
                              const std::string& trailers = "");
    // A 200 head announcing length generated body bytes (patternByte) that follow it.
    static FaultReply generated(uint64_t length, const std::string& extraHeaders = "");
};

// The generated body's byte at offset i: position-dependent, so a lost or repeated piece shows.
char patternByte(uint64_t i);

struct ReceivedRequest {
    std::string head;       // request line and header fields, up to the blank line
    std::string body;       // as much as the server read
    size_t connection = 0;  // 1 for the first connection accepted, and so on
};

class FaultServer {
public:
    FaultServer();                                     // plain HTTP
    explicit FaultServer(const TestIdentity& identity); // HTTPS with this certificate
    ~FaultServer();
    FaultServer(const FaultServer&) = delete;
    FaultServer& operator=(const FaultServer&) = delete;

    explicit operator bool() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    uint16_t port() const { return port_; }

    void push(FaultReply reply);
    void setFallback(FaultReply reply);

    std::vector<ReceivedRequest> requests() const;
    size_t connectionsAccepted() const { return accepted_.load(); }
    size_t connectionsClosed() const { return closed_.load(); }
    // Waits (at most timeoutMs) until the server has closed this many connections.
    bool waitForClosed(size_t count, int timeoutMs = 5000) const;

private:
    struct Connection;
    void start(const TestIdentity* identity);
    void acceptLoop();
    void serve(int fd, size_t number);
    static bool sendRange(Connection& c, const FaultReply& r, uint64_t from, uint64_t to);
    bool sleepUnlessStopping(int ms) const;

    std::string error_;
    int listenFd_ = -1;
    int wakePipe_[2] = {-1, -1};
    uint16_t port_ = 0;
    SSL_CTX* tls_ = nullptr;
    std::atomic<bool> stopping_{false};
    std::atomic<size_t> accepted_{0};
    std::atomic<size_t> closed_{0};
    std::thread acceptor_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<FaultReply> replies_;
    std::optional<FaultReply> fallback_;
    std::vector<ReceivedRequest> requests_;
    std::vector<std::thread> workers_;
    std::vector<int> openFds_;
};

}  // namespace oxtest
