// Bucket operations through the real forward proxy: plain requests go path-style in absolute
// form, TLS goes virtual-hosted through a CONNECT tunnel.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bucketfixture.h"
#include "proxyenv.h"

namespace {

using oxtest::Connection;
using oxtest::Mode;

class BucketsThroughProxy : public oxtest::BucketFixture, public ::testing::WithParamInterface<Mode> {
protected:
    const oxtest::ProxyEnv& proxy = oxtest::requireProxyEnv();

    void SetUp() override {
        BucketFixture::SetUp();
        ASSERT_TRUE(proxy) << proxy.error;
        const std::string url = "http://" + proxy.host + ":" + std::to_string(proxy.port);
        (GetParam().tls ? httpsProxy : httpProxy).set(url.c_str());
    }
};

TEST_P(BucketsThroughProxy, CreatesListsAndDeletes) {
    Connection c = gateway(GetParam(), env.secretKey);
    ASSERT_TRUE(c);
    const HTProxy& used = GetParam().tls ? c->htConnection->httpsProxy : c->htConnection->httpProxy;
    ASSERT_EQ(oxtest::stringText(used.host), proxy.host);
    oxtest::ScopedBucket bucket("proxied");
    ASSERT_EQ(c->createBucket(c.get(), bucket.name.c_str(), oxs3PrivateAccess, nullptr), OX_OK);
    for (const char* key : {"a", "d/", "d/b", "c"}) ASSERT_TRUE(bucket.put(key)) << key;

    s3::Owned<OXS3BucketList> list;
    ASSERT_EQ(c->getUserBuckets(c.get(), nullptr, list.out()), OX_OK);
    EXPECT_TRUE(oxtest::listsBucket(list.get(), bucket.name));
    s3::setListingPageLimit(2);
    s3::Owned<OXArray_S> all;
    ASSERT_EQ(c->getBucketContents(c.get(), bucket.name.c_str(), "/", all.out()), OX_OK);
    EXPECT_EQ(oxtest::entryNames(all.get()), (std::vector<std::string>{"a", "c", "d/"}));
    EXPECT_EQ(c->deleteBucket(c.get(), bucket.name.c_str()), OXS3_BUCKET_NOT_EMPTY);
}

INSTANTIATE_TEST_SUITE_P(Modes, BucketsThroughProxy, ::testing::Values(Mode{false}, Mode{true}),
                         oxtest::modeName);

}  // namespace
