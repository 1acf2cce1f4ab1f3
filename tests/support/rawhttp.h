// A bare HTTP/1.1 exchange over a plain socket, for tests that must see exactly what a server
// answers to exactly the bytes sent, without the library under test in between.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace oxtest {

struct RawHttpResponse {
    int status = 0;          // 0 when no response could be read (see error)
    std::string statusLine;  // "HTTP/1.1 403 Forbidden"
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;        // de-chunked when the response was chunked
    std::string error;       // why there is no (complete) response; empty on success

    // The first header of that name (any case), or "" when absent.
    std::string header(std::string_view name) const;
};

// Connects to host:port (a name or a literal address), sends request as it is and reads the
// response until the peer closes, so the request must say "Connection: close". timeoutMs bounds
// the connect and each wait for data.
RawHttpResponse rawHttpExchange(const std::string& host, int port, std::string_view request,
                                int timeoutMs = 10000);

}  // namespace oxtest
