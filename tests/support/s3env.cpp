#include "s3env.h"

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>

namespace oxtest {
namespace {

constexpr const char* kEnvVar = "OXS3_TEST_ENV";
constexpr const char* kHowToStart =
    "Integration tests need the local S3 server: run them through ctest (its s3server fixture starts "
    "one), or start one with `scripts/s3server-start.sh DIR` and set OXS3_TEST_ENV=DIR/env.";

std::string_view trim(std::string_view s) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = s.find_first_not_of(space);
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(space);
    return s.substr(first, last - first + 1);
}

std::string_view unquote(std::string_view v) {
    if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
        return v.substr(1, v.size() - 2);
    }
    return v;
}

bool parsePort(std::string_view text, int& port) {
    int value = 0;
    const auto* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc{} || ptr != end || value <= 0 || value > 65535) return false;
    port = value;
    return true;
}

struct Loaded {
    S3Env env;
    std::string error;  // empty when env is usable
};

Loaded loadFromEnvironment() {
    Loaded result;
    const char* path = std::getenv(kEnvVar);
    if (path == nullptr || *path == '\0') {
        result.error = std::string("The environment variable ") + kEnvVar + " is not set. " + kHowToStart;
        return result;
    }
    std::string error;
    if (!S3Env::load(path, result.env, &error)) {
        result.error = error + " " + kHowToStart;
        result.env = S3Env{};
    }
    return result;
}

}  // namespace

const std::vector<std::string_view>& S3Env::requiredKeys() {
    static const std::vector<std::string_view> keys = {
        "S3_ENDPOINT",       "S3_ENDPOINT_TLS",   "S3_TLS_CA_FILE",  "S3_HOST",       "S3_PORT",
        "S3_TLS_PORT",       "S3_REGION",         "S3_ACCESS_KEY",   "S3_SECRET_KEY", "S3_USER_ID",
        "S3_ALT_ACCESS_KEY", "S3_ALT_SECRET_KEY", "S3_ALT_USER_ID",  "S3_KMS_KEY_ID", "S3_KMS_KEY_ID_2",
        "S3_VHOST_DOMAIN",   "RGW_DIR",           "CEPH_CONF",
    };
    return keys;
}

std::string S3Env::get(std::string_view key) const {
    const auto it = values.find(key);
    return it == values.end() ? std::string() : it->second;
}

bool S3Env::load(const std::string& path, S3Env& out, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        return false;
    };
    std::ifstream in(path);
    if (!in) return fail("The S3 server's environment file " + path + " cannot be read.");

    S3Env env;
    env.path = path;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        const std::string_view text = trim(line);
        if (text.empty() || text.front() == '#') continue;
        const auto eq = text.find('=');
        if (eq == std::string_view::npos || eq == 0) {
            return fail("Line " + std::to_string(lineNo) + " of " + path + " is not KEY=VALUE.");
        }
        env.values[std::string(trim(text.substr(0, eq)))] = std::string(unquote(trim(text.substr(eq + 1))));
    }

    std::string missing;
    for (const auto key : requiredKeys()) {
        if (env.get(key).empty()) missing += (missing.empty() ? "" : ", ") + std::string(key);
    }
    if (!missing.empty()) return fail("The S3 server's environment file " + path + " lacks " + missing + ".");

    if (!parsePort(env.get("S3_PORT"), env.port) || !parsePort(env.get("S3_TLS_PORT"), env.tlsPort)) {
        return fail("The S3 server's environment file " + path + " has a port that is not a number: S3_PORT=" +
                    env.get("S3_PORT") + ", S3_TLS_PORT=" + env.get("S3_TLS_PORT") + ".");
    }
    env.endpoint = env.get("S3_ENDPOINT");
    env.endpointTls = env.get("S3_ENDPOINT_TLS");
    env.tlsCaFile = env.get("S3_TLS_CA_FILE");
    env.host = env.get("S3_HOST");
    env.region = env.get("S3_REGION");
    env.accessKey = env.get("S3_ACCESS_KEY");
    env.secretKey = env.get("S3_SECRET_KEY");
    env.userId = env.get("S3_USER_ID");
    env.altAccessKey = env.get("S3_ALT_ACCESS_KEY");
    env.altSecretKey = env.get("S3_ALT_SECRET_KEY");
    env.altUserId = env.get("S3_ALT_USER_ID");
    env.kmsKeyId = env.get("S3_KMS_KEY_ID");
    env.kmsKeyId2 = env.get("S3_KMS_KEY_ID_2");
    env.vhostDomain = env.get("S3_VHOST_DOMAIN");
    env.rgwDir = env.get("RGW_DIR");
    env.cephConf = env.get("CEPH_CONF");
    out = std::move(env);
    return true;
}

const S3Env& requireS3Env() {
    static const Loaded loaded = loadFromEnvironment();
    if (!loaded.error.empty()) ADD_FAILURE() << loaded.error;
    return loaded.env;
}

}  // namespace oxtest
