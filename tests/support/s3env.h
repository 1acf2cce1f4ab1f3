// The S3 server the integration tests run against: endpoint, ports and keys, read from the
// environment file scripts/s3server-start.sh writes. ctest names that file in OXS3_TEST_ENV.
//
//   TEST(Buckets, CreatesAndDeletes) {
//       const oxtest::S3Env& env = oxtest::requireS3Env();
//       ASSERT_TRUE(env) << "no S3 server";
//       ... env.port, env.accessKey ...
//   }
//
// or derive the fixture from oxtest::S3Test, whose SetUp stops the test when the server is
// missing.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace oxtest {

struct S3Env {
    std::string endpoint;     // S3_ENDPOINT      http://127.0.0.1:PORT
    std::string endpointTls;  // S3_ENDPOINT_TLS  https://localhost:TLS_PORT
    std::string tlsCaFile;    // S3_TLS_CA_FILE   the server's self-signed certificate
    std::string host;         // S3_HOST          127.0.0.1
    int port = 0;             // S3_PORT
    int tlsPort = 0;          // S3_TLS_PORT
    std::string region;       // S3_REGION
    std::string accessKey;    // S3_ACCESS_KEY    main user
    std::string secretKey;    // S3_SECRET_KEY
    std::string userId;       // S3_USER_ID
    std::string altAccessKey; // S3_ALT_ACCESS_KEY  second user, for grants
    std::string altSecretKey; // S3_ALT_SECRET_KEY
    std::string altUserId;    // S3_ALT_USER_ID
    std::string kmsKeyId;     // S3_KMS_KEY_ID    SSE-KMS key ids the server knows
    std::string kmsKeyId2;    // S3_KMS_KEY_ID_2
    std::string vhostDomain;  // S3_VHOST_DOMAIN  virtual-hosted buckets: BUCKET.localhost
    std::string rgwDir;       // RGW_DIR          the server's directory
    std::string cephConf;     // CEPH_CONF        for radosgw-admin -c
    std::string path;         // the file these came from
    std::map<std::string, std::string, std::less<>> values;  // every KEY=VALUE of the file

    // The keys the file must have, each non-empty.
    static const std::vector<std::string_view>& requiredKeys();

    // Reads a KEY=VALUE file (blank lines and '#' comments skipped; no shell expansion;
    // one pair of surrounding quotes stripped). False with a sentence in *error when the
    // file cannot be read or lacks a key or a port is not a number.
    static bool load(const std::string& path, S3Env& out, std::string* error);

    // A value of the file, or "" when absent.
    std::string get(std::string_view key) const;

    bool ok() const { return port > 0; }
    explicit operator bool() const { return ok(); }
};

// The server of this test run, read once per process from the file named by OXS3_TEST_ENV.
// When it cannot be had, records a failure in the current test saying why and how to start
// the server, and returns an empty S3Env (false).
const S3Env& requireS3Env();

// A fixture for tests that need the server: the test stops in SetUp when it is missing.
class S3Test : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(requireS3Env().ok()) << "the S3 server is required"; }
    static const S3Env& env() { return requireS3Env(); }
};

}  // namespace oxtest
