// The test server fixture itself: the environment file names a complete, consistent server,
// and that server is a real S3 implementation answering on its port.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "rawhttp.h"
#include "s3env.h"

namespace {

bool isFile(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool isDirectory(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isPortNumber(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return value > 0 && value <= 65535;
}

std::string uniqueBucketName(const char* prefix) {
    const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
    return std::string(prefix) + "-" + std::to_string(::getpid()) + "-" + std::to_string(ticks % 1000000007);
}

class S3Server : public oxtest::S3Test {};

TEST_F(S3Server, EnvironmentFileNamesEveryKey) {
    for (const auto key : oxtest::S3Env::requiredKeys()) {
        EXPECT_FALSE(env().get(key).empty()) << std::string(key) << " is missing or empty in " << env().path;
    }
    EXPECT_TRUE(isPortNumber(env().get("S3_PORT"))) << "S3_PORT=" << env().get("S3_PORT");
    EXPECT_TRUE(isPortNumber(env().get("S3_TLS_PORT"))) << "S3_TLS_PORT=" << env().get("S3_TLS_PORT");
    EXPECT_NE(env().port, env().tlsPort);
}

TEST_F(S3Server, EnvironmentFileIsConsistent) {
    EXPECT_EQ(env().endpoint, "http://" + env().host + ":" + std::to_string(env().port));
    EXPECT_EQ(env().endpointTls, "https://" + env().vhostDomain + ":" + std::to_string(env().tlsPort));
    EXPECT_TRUE(isFile(env().tlsCaFile)) << env().tlsCaFile;
    EXPECT_TRUE(isDirectory(env().rgwDir)) << env().rgwDir;
    EXPECT_TRUE(isFile(env().cephConf)) << env().cephConf;
    EXPECT_NE(env().accessKey, env().altAccessKey);
    EXPECT_NE(env().userId, env().altUserId);
    EXPECT_NE(env().kmsKeyId, env().kmsKeyId2);
}

TEST_F(S3Server, RefusesAnUnsignedBucketCreation) {
    const std::string bucket = uniqueBucketName("oxs3-unsigned");
    const std::string request = "PUT /" + bucket + " HTTP/1.1\r\n"
                                "Host: " + env().host + ":" + std::to_string(env().port) + "\r\n"
                                "Content-Length: 0\r\n"
                                "Connection: close\r\n\r\n";
    const oxtest::RawHttpResponse r = oxtest::rawHttpExchange(env().host, env().port, request);
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.status, 403) << r.statusLine << "\n" << r.body;
    EXPECT_NE(r.body.find("<Code>AccessDenied</Code>"), std::string::npos) << r.body;
}

TEST_F(S3Server, ListsNoBucketsForAnAnonymousCaller) {
    const std::string request = "GET / HTTP/1.1\r\n"
                                "Host: " + env().host + ":" + std::to_string(env().port) + "\r\n"
                                "Connection: close\r\n\r\n";
    const oxtest::RawHttpResponse r = oxtest::rawHttpExchange(env().host, env().port, request);
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.status, 200) << r.statusLine;
    EXPECT_NE(r.body.find("ListAllMyBucketsResult"), std::string::npos) << r.body;
    EXPECT_EQ(r.body.find("<Bucket>"), std::string::npos) << r.body;
}

}  // namespace
