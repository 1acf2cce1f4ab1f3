// Request heads: the request line and header fields from a dictionary, written into one buffer
// together with a small body so that a whole small request leaves in one send.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "ox/dictionary.h"
#include "ox/htconnection.h"
#include "poolbuf.h"

namespace ox::http {

struct RequestParts {
    HTTPMethod method = httpGet;
    std::string_view origin;      // "http://host:port" when a proxy needs the absolute form
    std::string_view path;        // begins with "/"
    std::string_view query;       // without "?"
    std::string_view authority;   // the Host header's value unless the dictionary has one
    OXDictionary headers = nullptr;
    int64_t contentLength = -1;   // announced unless the dictionary announces a length
    std::string_view body;        // written after the head, in the same buffer
    bool expectContinue = false;
    std::string_view extraLines;  // complete header lines ("Name: value\r\n") the client adds
};

std::optional<std::string_view> methodName(HTTPMethod method);

// "host:port", the port left out when it is the scheme's default and IPv6 literals bracketed.
[[nodiscard]] bool appendAuthority(PoolBuffer<char>& out, std::string_view host, uint16_t port, uint16_t defaultPort);

// Replaces out with the head (and body). announced: the body length the head announces, -1 when
// it announces none or a transfer coding.
OXStatus buildRequestHead(const RequestParts& parts, PoolBuffer<char>& out, int64_t& announced);

}  // namespace ox::http
