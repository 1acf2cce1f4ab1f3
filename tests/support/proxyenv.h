// The forward proxies the proxy tests go through: the KEY=VALUE file scripts/proxy-start.sh
// writes, named by OXS3_PROXY_ENV (ctest sets it together with the proxy fixture).
#pragma once

#include <string>

namespace oxtest {

struct ProxyEnv {
    std::string host;   // PROXY_HOST
    int port = 0;       // PROXY_PORT: open to everyone
    int authPort = 0;   // PROXY_AUTH_PORT: Basic authentication
    std::string user;   // PROXY_USER
    std::string pass;   // PROXY_PASS
    std::string error;  // why the file could not be read; empty on success

    explicit operator bool() const { return error.empty(); }
};

// Read once per process.
const ProxyEnv& requireProxyEnv();

}  // namespace oxtest
