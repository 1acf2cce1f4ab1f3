// AWS Signature Version 4 for test fixtures: enough to create and remove the buckets and
// objects that tests of lower layers read anonymously. Payloads are UNSIGNED-PAYLOAD; paths and
// queries must already be in canonical form (no characters that need encoding).
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace oxtest {

struct SigV4Request {
    std::string method;     // "PUT"
    std::string host;       // the Host header's value, "127.0.0.1:7480"
    std::string path;       // "/bucket/key"
    std::string query;      // "" or "acl" (sorted, canonical)
    std::vector<std::pair<std::string, std::string>> headers;  // more signed headers, lower case
};

// The header fields to send with the request: host, x-amz-date, x-amz-content-sha256, the
// request's own headers and Authorization.
std::vector<std::pair<std::string, std::string>> sigV4Headers(const SigV4Request& req, const std::string& accessKey,
                                                               const std::string& secretKey,
                                                               const std::string& region);

}  // namespace oxtest
