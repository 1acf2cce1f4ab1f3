// Bucket tests against the real server: connections through a custom region on the server's
// virtual-host domain (plain or TLS), and buckets the test owns.
// Setting up and cleaning up go straight to the server with the test's own signer, so they
// never depend on the code under test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "connfixture.h"
#include "ox/secsocket.h"
#include "oxs3bucket.h"
#include "rawhttp.h"
#include "s3env.h"
#include "sigv4.h"

namespace oxtest {

// A signed path-style request; path and query need no encoding.
inline RawHttpResponse rawS3(const std::string& method, const std::string& path, const std::string& query = "",
                             const std::string& body = "") {
    const S3Env& env = requireS3Env();
    SigV4Request req{method, env.host + ":" + std::to_string(env.port), path, query, {}};
    std::string text = method + " " + path + (query.empty() ? "" : "?" + query) + " HTTP/1.1\r\n";
    for (const auto& [name, value] : sigV4Headers(req, env.accessKey, env.secretKey, env.region))
        text += name + ": " + value + "\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    return rawHttpExchange(env.host, env.port, text);
}

// A bucket name no other test run uses; its keys and the bucket go at the end of the scope,
// whatever happened (removing what is already gone is harmless).
class ScopedBucket {
public:
    explicit ScopedBucket(std::string_view what) : name(unique(what)) {}
    ~ScopedBucket() {
        for (auto key = keys.rbegin(); key != keys.rend(); ++key) rawS3("DELETE", "/" + name + "/" + *key);
        rawS3("DELETE", "/" + name);
    }
    ScopedBucket(const ScopedBucket&) = delete;

    bool create() { return rawS3("PUT", "/" + name).status == 200; }
    bool put(const std::string& key, const std::string& body = "x") {
        keys.push_back(key);
        return rawS3("PUT", "/" + name + "/" + key, "", body).status == 200;
    }

    const std::string name;
    std::vector<std::string> keys;

private:
    static std::string unique(std::string_view what) {
        static int counter = 0;
        const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count() % 1000000;
        return "oxb-" + std::string(what) + "-" + std::to_string(::getpid()) + "-" + std::to_string(ticks) + "-" +
               std::to_string(++counter);
    }
};

inline std::vector<std::string> entryNames(OXArray entries) {
    std::vector<std::string> names;
    for (int64_t i = 0; entries && i < entries->count; ++i)
        names.push_back(stringText(reinterpret_cast<const OXS3BucketEntry*>(entries->items[i])->name));
    return names;
}

inline bool listsBucket(const OXS3BucketList* list, const std::string& name) {
    for (int64_t i = 0; list && list->bucketList && i < list->bucketList->count; ++i)
        if (stringText(reinterpret_cast<const OXS3Bucket*>(list->bucketList->items[i])->name) == name) return true;
    return false;
}

struct Mode {
    bool tls;
};

inline std::string modeName(const ::testing::TestParamInfo<Mode>& info) { return info.param.tls ? "Tls" : "Plain"; }

class BucketFixture : public ConnectionFixture {
protected:
    const S3Env& env = requireS3Env();
    SSLOptions_S* tlsOptions = nullptr;

    void SetUp() override {
        ConnectionFixture::SetUp();
        ASSERT_TRUE(env) << "the S3 server is required";
        auto* secsocket = reinterpret_cast<OXSecSocket_S*>(ext->secSockets);
        ASSERT_EQ(secsocket->createOptions(secsocket, pool, &tlsOptions), OX_OK);
        const std::string& ca = env.tlsCaFile;
        ASSERT_EQ(tlsOptions->setOptionU8(tlsOptions, OX_SSL_CAFILE, 6, ca.data(), ca.size()), OX_OK);
    }
    void TearDown() override {
        s3::setListingPageLimit(0);
        if (tlsOptions) tlsOptions->destroy(tlsOptions);
        ConnectionFixture::TearDown();
    }

    // Virtual-hosted: the gateway reads a bucket-dotted Host as the bucket whatever the path,
    // so path style reaches it only with a plain Host, which the plain-HTTP proxy gives.
    Connection gateway(Mode mode, const std::string& secret) {
        const char* region = "rgwvhost";
        if (ext->regionForNameU8(ext, region) < First_Custom_Region) {
            EXPECT_EQ(ext->addCustomRegion(ext, region, env.vhostDomain.c_str(), static_cast<uint16_t>(env.port),
                                           static_cast<uint16_t>(env.tlsPort), nullptr, OX_TRUE, OX_FALSE, OX_FALSE,
                                           OX_FALSE),
                      OX_OK);
        }
        OXStatus st = OX_FAILED;
        Connection c(ext->createConnection(ext, pool, mode.tls, tlsOptions, ext->regionForNameU8(ext, region),
                                           env.accessKey.c_str(), secret.c_str(), nullptr, &st));
        EXPECT_EQ(st, OX_OK);
        return c;
    }
};

}  // namespace oxtest
