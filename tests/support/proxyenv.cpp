#include "proxyenv.h"

#include <cstdlib>
#include <fstream>
#include <map>

namespace oxtest {

namespace {

ProxyEnv loadProxyEnv() {
    ProxyEnv env;
    const char* path = std::getenv("OXS3_PROXY_ENV");
    if (!path || !*path) {
        env.error = "OXS3_PROXY_ENV is not set: run the proxy tests through ctest, or start the proxies with "
                    "`scripts/proxy-start.sh DIR` and set OXS3_PROXY_ENV=DIR/env";
        return env;
    }
    std::ifstream in(path);
    if (!in) {
        env.error = std::string("cannot read the proxy environment file ") + path;
        return env;
    }
    std::map<std::string, std::string> values;
    for (std::string line; std::getline(in, line);) {
        const auto eq = line.find('=');
        if (eq != std::string::npos && line[0] != '#') values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    env.host = values["PROXY_HOST"];
    env.port = std::atoi(values["PROXY_PORT"].c_str());
    env.authPort = std::atoi(values["PROXY_AUTH_PORT"].c_str());
    env.user = values["PROXY_USER"];
    env.pass = values["PROXY_PASS"];
    if (env.host.empty() || env.port <= 0 || env.authPort <= 0 || env.user.empty())
        env.error = std::string("the proxy environment file ") + path + " lacks PROXY_HOST, a port or the user";
    return env;
}

}  // namespace

const ProxyEnv& requireProxyEnv() {
    static const ProxyEnv env = loadProxyEnv();
    return env;
}

}  // namespace oxtest
