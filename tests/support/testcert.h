// Self-signed TLS identities made at run time, so TLS tests need no files in the tree and no
// shared secrets: each test run has its own key.
#pragma once

#include <string>
#include <vector>

namespace oxtest {

struct TestIdentity {
    std::string certPem;
    std::string keyPem;
    std::string caFile;  // the certificate written to a temporary PEM file, for CAFILE options
    std::string error;   // why the identity could not be made; empty on success

    explicit operator bool() const { return error.empty(); }
};

// A P-256 key and a self-signed certificate (its own CA) naming the given DNS names and IP
// addresses. The CA file is removed when the process exits.
TestIdentity makeTestIdentity(const std::vector<std::string>& dnsNames, const std::vector<std::string>& ipAddresses);

}  // namespace oxtest
